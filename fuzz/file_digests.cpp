// The digests of many files that exist only as scripts of what the host says of them: sizes that
// are true or not, short reads, errors; and a receiver that may stop everything. A second task that
// shares a board with the first may find files that have changed, and may end anywhere.
#include "digest/sha256_kernel.h"
#include "manifest/board.h"
#include "manifest/filedigests.h"
#include "support/scratch.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <map>
#include <utility>
#include <vector>

namespace {

// A changing file is something else when it is opened; a failing one cannot be read to its end.
enum Nature : uint8_t { regular, changing, failing, refused, missing };

struct Script {
    Nature nature;
    size_t length;  // that can be read
    uint64_t size;  // that it is said to have
    size_t portion; // most that one read gives
    size_t at = 0;  // that the next read begins at
    bool open = false;
};

} // namespace

static std::vector<Script> scripts;     // whose numbers are paths and descriptors
static size_t received = 0, wanted = 0; // results
static bool is_second = false;          // the task that runs
static size_t change = 0;               // where in a file the second finds another one
static size_t end = 0;                  // how many points of hashing it comes to

// Others are of the directory for the board.
static bool is_scripted(const char *path) {
    return *path >= '0' && *path <= '9';
}

static constexpr int FIRST = 1 << 20; // descriptor; lower ones are the system's

static Script &opened(int descriptor) {
    return scripts.at(static_cast<size_t>(descriptor - FIRST));
}

static bool is_changed(const Script &script) {
    return is_second && script.at >= change;
}

// What is in a file by its number: the same at another place.
static const uint8_t *content(size_t number) {
    static const std::vector<uint8_t> all = [] {
        std::vector<uint8_t> bytes(Board::LEAST_SIZE + 20000);
        for (size_t i = 0; i < bytes.size(); i++)
            bytes[i] = static_cast<uint8_t>(i % 251);
        return bytes;
    }();
    return all.data() + number;
}

static FileState state_of(const Script &script) {
    const auto number = static_cast<uint64_t>(&script - scripts.data());
    return {{true, 1, 2, number, {}}, script.size, is_changed(script) ? 4U : 3U};
}

extern "C" bool __real__Z15host_file_statePKcP9FileState(const char *path, FileState *result);
extern "C" bool __wrap__Z15host_file_statePKcP9FileState(const char *path, FileState *result) {
    if (!is_scripted(path))
        return __real__Z15host_file_statePKcP9FileState(path, result);
    *result = state_of(scripts.at(std::stoul(path)));
    return true;
}

extern "C" bool __wrap__Z17host_opened_stateiP9FileState(int descriptor, FileState *result) {
    *result = state_of(opened(descriptor));
    return true;
}

extern "C" bool __real__Z9host_statPKcP8HostStat(const char *path, HostStat *result);
extern "C" bool __wrap__Z9host_statPKcP8HostStat(const char *path, HostStat *result) {
    if (!is_scripted(path))
        return __real__Z9host_statPKcP8HostStat(path, result);
    *result = {FileKind::regular, scripts.at(std::stoul(path)).size};
    return scripts.at(std::stoul(path)).nature != missing;
}

extern "C" int __wrap__Z9host_openPKc(const char *path) {
    Script &script = scripts.at(std::stoul(path));
    assert(script.nature != missing && !script.open);
    script.at = 0;
    script.open = script.nature != refused;
    return script.open ? FIRST + static_cast<int>(&script - scripts.data()) : -1;
}

extern "C" int64_t __wrap__Z9host_readiPvm(int descriptor, void *buffer, size_t size) {
    Script &script = opened(descriptor);
    constexpr size_t BUFFER = 32768; // which is filled before the length is looked at
    assert(script.open && (script.nature != changing || script.at < script.size + BUFFER));
    const size_t to_change = is_second && script.at < change ? change - script.at : SIZE_MAX;
    const size_t length = std::min({size, script.portion, script.length - script.at, to_change});
    const auto number = static_cast<size_t>(&script - scripts.data());
    std::copy_n(content(number + (is_changed(script) ? 100 : 0)) + script.at, length,
                static_cast<uint8_t *>(buffer));
    script.at += length;
    return length == 0 && script.nature == failing ? -1 : static_cast<int64_t>(length);
}

// Of some it has nothing in memory.
extern "C" size_t __wrap__Z16host_read_cachediPvm(int descriptor, void *buffer, size_t size) {
    if (opened(descriptor).portion % 2 == 0)
        return 0;
    const int64_t got = __wrap__Z9host_readiPvm(descriptor, buffer, size);
    return got > 0 ? static_cast<size_t>(got) : 0;
}

extern "C" int __real__Z10host_closei(int descriptor);
extern "C" int __wrap__Z10host_closei(int descriptor) {
    if (descriptor < FIRST)
        return __real__Z10host_closei(descriptor);
    assert(std::exchange(opened(descriptor).open, false));
    return 0;
}

extern "C" bool __wrap__Z15host_is_regulari(int descriptor) {
    return opened(descriptor).nature != changing;
}

// The model. An error does not count as the end of the file. Something that is no longer a file is
// noticed if its length is not the one found, or 0.
static OpenOutcome outcome_of(const Script &script) {
    const bool as_found = script.length == script.size && script.size != 0;
    if (script.nature == regular || (script.nature == changing && as_found))
        return OpenOutcome::opened;
    return script.nature == missing ? OpenOutcome::missing : OpenOutcome::refused;
}

static bool receive(const char *path, const FileDigest &result) {
    const Script &script = scripts.at(received);
    assert(received < wanted && path == std::to_string(received));
    using Digest = std::array<uint8_t, SHA256_DIGEST_SIZE>;
    static std::map<std::pair<size_t, size_t>, Digest> digests; // by number and length
    const auto [found, is_new] = digests.try_emplace({received, script.length});
    auto &digest = found->second;
    if (is_new) {
        Sha256Context ctx;
        sha256_init(&ctx);
        sha256_update(&ctx, content(received), script.length);
        sha256_final(&ctx, digest.data());
    }
    assert(result.outcome == outcome_of(script));
    assert(
        result.outcome != OpenOutcome::opened ||
        (result.size == script.length && std::equal(digest.begin(), digest.end(), result.digest)));
    return ++received < wanted;
}

// Takes what is offered, and hashes it to the end or to its own.
static void run_second(const char *board_file) {
    const auto path_at = [](uint64_t place) { return std::to_string(place); };
    const auto never = [](const char *, const FileDigest &) -> bool { abort(); };
    static size_t left;
    left = end;
    is_second = true;
    hashing_hook = [](HashingPoint, uint64_t) {
        if (left-- == 0)
            throw 1; // instead of going on
    };
    try {
        Board board(board_file, 1);
        FileHasher digests(never, nullptr, {&board, path_at});
        digests.finish();
    } catch (int) {
    }
    hashing_hook = nullptr;
    is_second = false;
}

// Around blocks and around what is read at a time; the last codes are of files that are shared.
static size_t length_of(uint8_t code) {
    static constexpr size_t CENTRES[] = {1, 56, 64, 128, 1000, 4096, 16384, 32768};
    return code < 240 ? CENTRES[code % 8] + code / 8 % 3 - 1 : Board::LEAST_SIZE + code % 8 * 999;
}

// Four bytes of the input describe a file. The first byte of all says how many results are wanted,
// whether everything is given up in the end, and how many lanes there are. What is left behind the
// files is about the second task: when it comes, where it ends, and where it finds changes.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const Scratch scratch;
    static const std::string board_file = scratch.path("board");
    const size_t mode = size > 0 ? *data : 0;
    const auto kernels = sha256_kernels();
    sha256_force_kernel(kernels[mode / 4 % 4 % kernels.size()]);
    received = 0;
    wanted = (mode & 1) != 0 ? mode / 16 + 1 : SIZE_MAX;
    scripts.clear();
    for (; size > 4 && scripts.size() < 12; data += 4, size -= 4) {
        const size_t length = length_of(data[2]);
        scripts.push_back({data[1] <= missing ? Nature{data[1]} : regular, length,
                           length_of(data[3] < 128 ? data[2] : data[3]),
                           length / 64 + length_of(data[4]) + 1});
    }
    const bool shares = size > 1;
    const size_t comes = shares ? data[1] % 13 : 0;
    end = size > 2 ? data[2] : SIZE_MAX;
    change = size > 3 ? data[3] * size_t{8192} : SIZE_MAX;
    host_remove(board_file.c_str());
    assert(!shares || Board::make(board_file.c_str(), 2, 12, 2));
    {
        Board board(shares ? board_file.c_str() : nullptr, 0);
        const auto goes_on = [](uint64_t number, const FileDigest &) {
            return number + 1 < wanted;
        };
        FileHasher digests(receive, shares ? goes_on : FileHasher::Judge(), {&board, nullptr});
        for (size_t i = 0; i < scripts.size(); i++) {
            assert(digests.add(std::to_string(i).c_str(), i) == (received < wanted));
            if (shares && i == comes)
                run_second(board_file.c_str());
        }
        if (shares)
            run_second(board_file.c_str());
        assert((mode & 2) != 0 || digests.finish() == (received < wanted));
        assert((mode & 2) != 0 || received == std::min(wanted, scripts.size()));
    }
    for (const Script &script : scripts)
        assert(!script.open);
    return 0;
}
