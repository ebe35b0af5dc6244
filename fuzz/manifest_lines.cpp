// Manifests over a small tree: the library's check, the range check of the whole, and every
// division into 2 to 5 tasks, against a model of the rules in docs/manifest.md.
#include "kestrel/kestrel.h"
#include "kestrel/settings.h"
#include "kestrel/tasks.h"
#include "manifest/linecheck.h"
#include "support/scratch.h"

#include <algorithm>
#include <cassert>
#include <climits>
#include <map>
#include <optional>
#include <set>
#include <vector>

// Every file holds its own name.
static const std::set<std::string> FILES = {"/a", "/b", "/B", "/*s", "/x y", "/d/a", "/d/e/\xff"};
static const std::set<std::string> DIRECTORIES = {"", "/d", "/d/e"};

namespace {

struct World {
    Scratch scratch;
    const std::string tree = scratch.path("tree"), manifest = scratch.path("manifest");
    std::map<std::string, std::string> digests; // of the files
    std::vector<std::string> pieces = {         // of manifests
        " *.\\", " *",     "\r\n", std::string(1, '\0'), "..\\",      "../",        "d\\",
        "d/e/",  "\t\v\f", "C:",   "\\\\host\\share\\",  tree + "/b", "..\\tree\\", "..\\b"};

    World() {
        settings.verbose = 0;
        scratch.write("b", "/b"); // as in the tree, but outside
        for (const std::string &name : DIRECTORIES)
            host_mkdir((tree + name).c_str());
        for (const std::string &name : FILES) {
            digests[name] = sha256_file_hex(scratch.write(("tree" + name).c_str(), name).c_str());
            pieces.insert(pieces.end(), {digests[name], digests[name] + " *." + name + "\n"});
        }
    }
};

} // namespace

static constexpr const char *MISSING = "?", *TOO_LONG = "!";

// The model: the name of what a path leads to, or why the system finds nothing; none if it leads
// out: absolute in either family, or above the top on the way.
static std::optional<std::string> place_of(std::string path) {
    if (path.find_first_of("/\\") == 0 || path.substr(0, 2).ends_with(':'))
        return {};
    std::string place, component;
    const char *reason = path.empty() ? MISSING : path.size() >= PATH_MAX ? TOO_LONG : nullptr;
    std::replace(path.begin(), path.end(), '\\', '/');
    for (size_t start = 0; start <= path.size(); start += component.size() + 1) {
        component = path.substr(start, path.find('/', start) - start);
        if (reason == nullptr && !DIRECTORIES.contains(place))
            reason = MISSING;
        if (reason == nullptr && component.size() > NAME_MAX)
            reason = TOO_LONG;
        if (component == ".." && place.empty())
            return {};
        if (component == "..")
            place.erase(place.rfind('/'));
        else if (!component.empty() && component != ".")
            place += "/" + component;
    }
    return reason != nullptr ? reason : place;
}

static constexpr size_t LINE_LIMIT = 1 << 20; // bytes, line end included
static std::optional<LineFault> fault_of(const World &world, const std::string &line) {
    const size_t space = line.find(' ');
    if (line.size() > LINE_LIMIT || space == line.npos || line.find('\0') != line.npos)
        return LineFault::malformed;
    std::string path =
        line.substr(std::min(line.find_first_not_of(" \t\n\v\f\r", space), line.size()));
    path.resize(path.find_last_not_of(" \t\n\v\f\r") + 1);
    path.erase(0, path.starts_with('*') ? 1 : 0);
    const std::optional<std::string> place = place_of(path);
    if (!place)
        return LineFault::outside;
    const auto found = world.digests.find(*place);
    if (found == world.digests.end())
        return DIRECTORIES.contains(*place) || place == TOO_LONG ? LineFault::unreadable
                                                                 : LineFault::missing;
    if (found->second != line.substr(0, space))
        return LineFault::different;
    return {};
}

// Nothing that leads out is even looked at. A directory, which would end the process, only fails.
static const World *checked = nullptr; // while a check is running
extern "C" bool __real__Z9host_statPKcP8HostStat(const char *path, HostStat *result);
extern "C" bool __wrap__Z9host_statPKcP8HostStat(const char *path, HostStat *result) {
    const bool judged = checked != nullptr && path != checked->tree && path != checked->manifest;
    assert(!judged || place_of(path));
    const bool found = __real__Z9host_statPKcP8HostStat(path, result);
    if (judged && found && result->kind == FileKind::directory)
        result->kind = FileKind::other;
    return found;
}

// Bytes from 128 on stand for pieces, all others for themselves; 255 first for a very long line.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const World world;
    const bool is_long = size > 0 && *data == 255;
    std::string text = is_long ? world.digests.at("/b") + std::string(LINE_LIMIT - 100, ' ') : "";
    for (size_t i = is_long ? 1 : 0; i < size; i++)
        text += data[i] < 128 ? std::string(1, static_cast<char>(data[i]))
                              : world.pieces[(data[i] - 128u) % world.pieces.size()];
    std::vector<uint32_t> offsets = {0}; // of the lines, and of the end
    std::vector<std::string> lines;
    std::vector<LineFault> faults, found; // of all lines that have one
    while (offsets.back() < text.size()) {
        const std::string rest = text.substr(offsets.back());
        lines.push_back(rest.substr(0, std::min(rest.find('\n'), rest.size() - 1) + 1));
        offsets.push_back(offsets.back() + static_cast<uint32_t>(lines.back().size()));
        if (const std::optional<LineFault> fault = fault_of(world, lines.back()))
            faults.push_back(*fault);
    }
    const bool sound = faults.empty();
    const auto count = static_cast<uint32_t>(lines.size());
    world.scratch.write("manifest", text);
    host_chdir(world.tree.c_str());
    checked = &world;
    const auto passes = [](uint32_t position, TaskRange range) {
        return check_manifest_range(world.manifest.c_str(), world.tree.c_str(),
                                    static_cast<int32_t>(position), range.start, range.end);
    };
    assert(shahash_check_manifest(world.manifest.c_str(), world.tree.c_str()) ==
           (sound && count > 0));
    LineCheck check([&](const FaultyLine &line) {
        found.push_back(line.fault);
        return true;
    });
    for (const std::string &line : lines)
        check.add(line);
    assert(check.finish() == sound && found == faults);
    assert(passes(0, {0, count}) == (sound && count > 0));
    for (uint32_t tasks = 2; tasks <= 5; tasks++) {
        bool by_number = true, by_position = true;
        const Plan plan = divide(count, tasks);
        for (const Task &task : plan.given) {
            by_number = by_number && passes(0, task.range);
            by_position = by_position && passes(offsets[task.range.start], task.range);
        }
        // As many tasks as lines, or more, leave some without any, and these have failed.
        assert(plan.given.size() == tasks || count <= tasks);
        assert(by_number == sound && by_position == by_number);
    }
    checked = nullptr;
    return 0;
}
