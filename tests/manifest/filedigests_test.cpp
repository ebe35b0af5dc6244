#include "manifest/filedigests.h"

#include "digest/sha256_kernel.h"
#include "manifest/shahash.h"
#include "platform/osdep.h"
#include "support/noise.h"
#include "support/scratch.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <vector>

// The result that the receiver gets for a file: its path, and its digest or why there is none.
static std::string line_of(const std::string &path, const std::string &result) {
    return path + " " + result;
}

namespace {

// The receiver, what it does each time, and the number of files after which it stops everything.
struct Received {
    std::vector<std::string> lines;
    std::function<void()> act = [] {};
    size_t end = SIZE_MAX;
};

} // namespace

static FileHasher::Receiver into(Received &received) {
    return [&received](const char *path, const FileDigest &result) {
        static const char *const others[] = {"opened", "missing", "special", "refused"};
        received.act();
        received.lines.push_back(line_of(path, result.outcome == OpenOutcome::opened
                                                   ? sha256_hex(result.digest)
                                                   : others[static_cast<size_t>(result.outcome)]));
        return received.lines.size() <= received.end;
    };
}

// Sizes around a block and around one read, a long file between short ones, and between them
// entries that cannot be hashed.
TEST(FileDigests, ResultsComeInOrder) {
    const Scratch scratch;
    const size_t sizes[] = {0,     1,     300000, 63,    64, 65,     16383, 16384, 16385,
                            32768, 40000, 1,      16448, 0,  200000, 128,   127,   70001};
    std::vector<std::string> paths, lines;
    for (const size_t size : sizes)
        paths.push_back(scratch.write(std::to_string(paths.size()).c_str(),
                                      noise(size, static_cast<uint32_t>(paths.size()))));
    paths.insert(paths.begin() + 4, {scratch.path("missing"), scratch.directory()});
    for (const std::string &path : paths) {
        const char *const refusal = os_exists(path.c_str()) ? "refused" : "missing";
        const bool refused = lines.size() == 4 || lines.size() == 5;
        lines.push_back(line_of(path, refused ? refusal : sha256_file_hex(path.c_str())));
    }

    const auto expect_lines = [&](size_t end, const char *kernel) {
        Received received;
        received.end = end;
        FileHasher digests(into(received));
        bool more = true;
        for (size_t i = 0; more && i < paths.size(); i++)
            more = digests.add(paths[i].c_str());
        EXPECT_EQ(digests.finish(), end == paths.size());
        if (end < paths.size()) {
            EXPECT_FALSE(digests.add(paths[0].c_str()));
            EXPECT_FALSE(digests.add(paths[0].c_str(), StatResult()));
        }
        EXPECT_EQ(received.lines, lines) << end << kernel;
    };
    for (const Sha256Kernel *kernel : sha256_kernels()) {
        sha256_force_kernel(kernel);
        expect_lines(paths.size(), kernel->name);
        sha256_force_kernel(nullptr);
    }
    for (size_t end = paths.size() + 1; end-- > 0; lines.resize(end))
        expect_lines(end, "");
}

// A long file holds up the results behind it, but only so many: then nothing is added before it is
// done. Descriptors are closed when all files are finished, and when they are given up.
TEST(FileDigests, LongFilesHoldUpOthers) {
    const Scratch scratch;
    std::string kinds[] = {scratch.write("long", noise(3'000'000, 1)),
                           scratch.write("large", noise(40'000, 2)),
                           scratch.write("small", noise(20'000, 3))};
    for (std::string &path : kinds) // what is known about a file is as much as its path is long
        for (int i = 0; i < 500; i++)
            path.insert(strlen(scratch.directory()), {host_path_style().separator, '.'});
    const std::string digests_of[] = {sha256_file_hex(kinds[0].c_str()),
                                      sha256_file_hex(kinds[1].c_str()),
                                      sha256_file_hex(kinds[2].c_str())};
    const auto next_descriptor = [&] {
        const int descriptor = host_open(kinds[0].c_str());
        host_close(descriptor);
        return descriptor;
    };
    const int before = next_descriptor();
    constexpr size_t FILES = 5001; // no multiple of the number of lanes
    const auto kind_of = [](size_t i) { return i % 1000 == 0 ? 0 : 1 + size_t{i % 3 != 0}; };
    for (const size_t end : {SIZE_MAX, FILES - 1, FILES / 2, size_t{0}}) {
        size_t received = 0, most_held_up = 0;
        {
            FileHasher digests([&](const char *path, const FileDigest &result) {
                EXPECT_EQ(path, kinds[kind_of(received)]);
                EXPECT_EQ(sha256_hex(result.digest), digests_of[kind_of(received)]);
                return received++ < end;
            });
            for (size_t i = 0; i < FILES && received <= end; i++) {
                digests.add(kinds[kind_of(i)].c_str());
                most_held_up = std::max(most_held_up, i + 1 - received);
            }
            EXPECT_LT(received, FILES);
            digests.finish();
        }
        EXPECT_EQ(received, std::min(end, FILES - 1) + 1);
        EXPECT_TRUE(most_held_up > 1000 && most_held_up < 2048) << most_held_up;
        EXPECT_EQ(next_descriptor(), before) << end;
    }
}

// What is missing is handed over as soon as nothing holds it up. A long file goes on beside what is
// added after it.
TEST(FileDigests, ResultsAreNotHeldBack) {
    const Scratch scratch;
    const std::string small = scratch.write("small", "a"),
                      large = scratch.write("large", noise(40'000, 1)),
                      longer = scratch.write("longer", noise(3'000'000, 2));
    size_t received = 0;
    FileHasher digests([&](const char *, const FileDigest &) { return ++received != 0; });
    size_t added = 0;
    for (; added < 5000; added++) {
        EXPECT_EQ(received, added);
        digests.add(small.c_str(), StatResult());
    }
    digests.add(large.c_str());
    for (added++; received == 5000 && added < 50000; added++)
        digests.add(small.c_str());
    EXPECT_TRUE(added > 10000 && received > 5000) << added;
    digests.add(longer.c_str());
    digests.finish();
    EXPECT_EQ(received, added + 1);
}

// A file that goes while others are hashed before it is missing, not one that cannot be opened.
TEST(FileDigests, FilesMayGoMeanwhile) {
    const Scratch scratch;
    const std::string last = scratch.write("last", "c");
    const std::string others = scratch.write("others", std::string(100000, 'b'));
    Received received;
    received.act = [&] { host_remove(last.c_str()); };
    FileHasher digests(into(received));
    for (size_t lane = 0; lane < sha256_best_lanes(); lane++)
        digests.add(others.c_str());
    digests.add(last.c_str());
    digests.finish();
    EXPECT_EQ(received.lines.back(), line_of(last, "missing"));
}

// What has taken the place of a file since it was found: it would read as empty, or for ever. A
// file that has only changed its size is hashed as it is.
TEST(FileDigests, NamesThatChangedHandsAreRefused) {
    const Scratch scratch;
    const bool windows = os_kind() != 0;
    const std::string grown = scratch.write("grown", "abc"), abc = sha256_file_hex(grown.c_str());
    const struct {
        std::string path;
        uint64_t size; // as it was found
        std::string result = "refused";
    } cases[] = {
        {windows ? "NUL" : "/dev/null", 0},
        {windows ? "NUL" : "/dev/null", 100},
        {windows ? "NUL" : "/dev/zero", 100},
        {scratch.directory(), 0},
        {scratch.directory(), 100},
        {windows ? "NUL" : "/proc/self/mem", 0}, // a file that cannot be read
        {grown, 0, abc},
        {grown, 2, abc},
        {grown, 4, abc},
    };
    for (const auto &c : cases) {
        Received received;
        FileHasher digests(into(received));
        digests.add(c.path.c_str(), {HostStat{FileKind::regular, c.size}});
        digests.finish();
        EXPECT_EQ(received.lines, std::vector{line_of(c.path, c.result)}) << c.size;
    }
}
