#include "manifest/board.h"

#include "manifest/filedigests.h"
#include "manifest/shahash.h"
#include "support/noise.h"
#include "support/scratch.h"

#include <atomic>
#include <gtest/gtest.h>
#include <memory>
#include <thread>

namespace {

// A board of some tasks; each of them opens it for itself, as processes do.
struct Boards {
    Boards(uint32_t tasks, uint32_t processors) : path(scratch.path("board")) {
        EXPECT_TRUE(Board::make(path.c_str(), tasks, 100, processors));
        for (uint32_t i = 0; i < tasks; i++)
            all.push_back(std::make_unique<Board>(path.c_str(), i));
    }
    Board &operator[](size_t number) { return *all[number]; }

    // An offer, whose place is its size.
    uint32_t offer(size_t task, uint64_t size) {
        const auto number = all[task]->offer(size, {{true, 1, 2, size, {}}, size, 3});
        EXPECT_TRUE(number);
        return number.value_or(0);
    }
    // The size of what a task takes; 0 for nothing.
    uint64_t take(size_t task, uint64_t rest = 0, uint64_t spare = 0, bool is_limited = false) {
        const auto taken = all[task]->take({rest, spare, is_limited});
        if (taken) {
            EXPECT_EQ(taken->place, taken->seen.size);
            EXPECT_EQ(taken->seen, (FileState{{true, 1, 2, taken->place, {}}, taken->place, 3}));
        }
        return taken ? taken->seen.size : 0;
    }

    const Scratch scratch;
    const std::string path;
    std::vector<std::unique_ptr<Board>> all;
};

} // namespace

using Outcome = Board::Outcome;
static const std::string DIGEST(32, 'd');

static const uint8_t *digest() {
    return reinterpret_cast<const uint8_t *>(DIGEST.data());
}

TEST(Board, EachTakesTheLargestWithinItsShare) {
    const struct {
        uint32_t processors;
        uint64_t rest, spare;
        bool is_limited;
        uint64_t taken; // of the offers 10, 40 and 50, the second being the task's own
    } cases[] = {
        {1, 0, 0, false, 50},   {2, 0, 0, false, 50},   {9, 0, 0, false, 50}, // any at first
        {2, 5, 0, false, 40},   {2, 20, 0, false, 40},  {2, 21, 0, false, 10},
        {2, 80, 0, false, 10},  {2, 81, 0, false, 0},   {4, 20, 0, false, 10},
        {4, 21, 0, false, 0},   {4, 30, 50, false, 50}, {4, 30, 49, false, 40},
        {1, 500, 0, false, 50}, {2, 0, 0, true, 40},    {2, 40, 0, true, 0},
    };
    for (const auto &c : cases) {
        Boards boards(2, c.processors);
        boards.offer(0, 10);
        boards.offer(1, 40);
        boards.offer(0, 50);
        EXPECT_EQ(boards.take(1, c.rest, c.spare, c.is_limited), c.taken)
            << c.processors << " " << c.rest << " " << c.spare;
    }
}

TEST(Board, SeatsAreAsManyAsProcessors) {
    Boards boards(4, 2);
    for (uint64_t size = 1; size <= 5; size++)
        boards.offer(3, size);
    EXPECT_EQ(boards.take(0), 5u);
    EXPECT_EQ(boards.take(1), 4u);
    EXPECT_EQ(boards.take(2), 0u);
    EXPECT_EQ(boards.take(0), 3u);
    boards.all[1] = nullptr; // its process has ended
    EXPECT_EQ(boards.take(2), 2u);
    // All who sit have been stopped: after a while the owner may do what is its own.
    uint8_t bytes[32];
    EXPECT_EQ(boards.take(3), 0u);
    boards.offer(0, 9);
    uint64_t taken;
    while ((taken = boards.take(3)) == 0)
        ASSERT_EQ(boards[3].await(0, bytes), Outcome::open);
    EXPECT_EQ(taken, 1u);
    EXPECT_EQ(boards[3].await(3, bytes), Outcome::undone) << "whose process has ended";
}

TEST(Board, WhoWaitsGivesUpItsSeat) {
    Boards boards(2, 1);
    const uint32_t own = boards.offer(1, 5), other = boards.offer(0, 10);
    EXPECT_EQ(boards.take(1), 10u);
    boards[1].finish(other, digest());
    uint8_t bytes[32];
    EXPECT_EQ(boards.take(0), 0u);
    EXPECT_EQ(boards[1].await(own, bytes), Outcome::open);
    EXPECT_EQ(boards.take(0), 5u);
}

TEST(Board, AnOfferIsDoneOrItsOwnerHasToDoIt) {
    Boards boards(3, 3);
    uint8_t bytes[32] = {};
    const uint32_t done = boards.offer(0, 50), refused = boards.offer(0, 40),
                   dead = boards.offer(0, 30), withdrawn = boards.offer(0, 20);
    for (const uint64_t size : {50, 40, 30})
        EXPECT_EQ(boards.take(1), size);
    boards[0].withdraw(withdrawn);
    boards[0].withdraw(done); // which is too late
    EXPECT_EQ(boards.take(2), 0u);
    boards[1].finish(done, digest());
    boards[1].finish(refused, nullptr);
    EXPECT_EQ(boards[0].await(done, bytes), Outcome::done);
    EXPECT_EQ(std::string(bytes, bytes + 32), DIGEST);
    EXPECT_EQ(boards[0].await(refused, bytes), Outcome::undone);
    boards.all[1] = nullptr;
    EXPECT_EQ(boards[0].await(dead, bytes), Outcome::undone);
    EXPECT_EQ(boards[2].await(done, bytes), Outcome::done);
}

TEST(Board, OwnersSleepUntilTheTakerIsDoneOrGone) {
    static std::atomic<bool> is_awaited;
    for (const bool ends : {false, true}) {
        Boards boards(2, 1);
        const uint32_t number = boards.offer(0, 10);
        EXPECT_EQ(boards.take(1), 10u);
        is_awaited = false;
        hashing_hook = [](HashingPoint point, uint64_t) {
            if (point == HashingPoint::awaiting)
                is_awaited = true;
        };
        Outcome outcome = Outcome::open;
        uint8_t bytes[32];
        std::thread owner([&] { outcome = boards[0].await(number, bytes); });
        while (!is_awaited)
            std::this_thread::yield();
        hashing_hook = nullptr;
        if (ends)
            boards.all[1] = nullptr;
        else
            boards[1].finish(number, digest());
        owner.join();
        EXPECT_EQ(outcome, ends ? Outcome::undone : Outcome::done);
    }
}

// What was half written when its process ended counts for nothing.
TEST(Board, TornEntriesCountForNothing) {
    Boards own(3, 2);
    const auto gone = [](HashingPoint point, uint64_t) {
        if (point == HashingPoint::writing)
            throw 1; // instead of an end
    };
    const auto torn = [&](auto act) {
        hashing_hook = gone;
        EXPECT_ANY_THROW(act());
        hashing_hook = nullptr;
        own.all[1] = nullptr;
        own.all[1] = std::make_unique<Board>(own.path.c_str(), 1);
    };
    torn([&] { own[1].offer(7, {{true, 1, 2, 7, {}}, 7, 3}); });
    EXPECT_EQ(own.take(2), 0u);
    const uint32_t number = own.offer(0, 10);
    torn([&] { own[1].take({0, 0, false}); });
    EXPECT_EQ(own.take(1), 10u);
    torn([&] { own[1].finish(number, digest()); });
    uint8_t bytes[32];
    EXPECT_EQ(own[0].await(number, bytes), Outcome::undone);
}

TEST(Board, WithoutASoundFileNothingIsShared) {
    const Boards boards(2, 1);
    const std::string text = read_file(boards.path);
    const std::string other = boards.scratch.path("other");
    const FileState seen = {{true, 1, 2, 3, {}}, 4, 5};
    for (const std::string &bytes : {std::string(), text.substr(0, 4), "x" + text.substr(1)}) {
        write_file(other.c_str(), bytes);
        EXPECT_FALSE(Board(other.c_str(), 0).usable());
    }
    EXPECT_FALSE(Board(boards.path.c_str(), 2).usable());
    EXPECT_FALSE(Board(nullptr, 0).usable());
    EXPECT_FALSE(Board::make(boards.path.c_str(), 1, 1, 1)) << "which stands already";
    EXPECT_FALSE(Board::make(boards.scratch.path("many").c_str(), 100000, 1, 1));
    // A table that cannot be read ends it, as no identity does for one offer.
    write_file(other.c_str(), text.substr(0, 100));
    Board cut(other.c_str(), 0);
    EXPECT_TRUE(cut.usable() && cut.offer(1, seen) && cut.usable());
    std::string overfull = text;
    overfull[16] = '\xff'; // the number of offers
    write_file(other.c_str(), overfull);
    Board full(other.c_str(), 0);
    EXPECT_FALSE(full.offer(1, seen) || full.usable());
    const std::string one = boards.scratch.path("one");
    ASSERT_TRUE(Board::make(one.c_str(), 1, 1, 1));
    Board small(one.c_str(), 0);
    FileState placed = seen, unknown = seen;
    placed.identity.place = "p";
    unknown.identity.known = false;
    EXPECT_FALSE(small.offer(1, placed) || small.offer(1, unknown));
    EXPECT_TRUE(small.offer(1, seen));
    EXPECT_FALSE(small.offer(2, seen)) << "which is one more than it has places for";
    EXPECT_TRUE(small.usable());
}

namespace {

// A file of some size that is offered by one task and hashed by another.
struct OfferedFile {
    OfferedFile() : boards(2, 1), path(boards.scratch.write("file", noise(1 << 20, 1))) {}

    // What the owner gets, when the other has first done what it finds after `change`.
    FileDigest shared(const std::function<void()> &change) {
        FileDigest got = {};
        const auto path_at = [this](uint64_t place) { return place == 5 ? path : ""; };
        FileHasher owner([&](const char *, const FileDigest &result) { return got = result, true; },
                         nullptr, {&boards[0], path_at});
        FileHasher other([](const char *, const FileDigest &) { return true; }, nullptr,
                         {&boards[1], path_at});
        owner.add(path.c_str(), 5);
        change();
        other.finish();
        owner.finish();
        return got;
    }

    Boards boards;
    const std::string path;
};

} // namespace

// The owner tells what it would have found, whoever has looked before it.
TEST(Board, FilesThatChangeAfterTheOfferAreTheOwners) {
    static uint64_t read;
    hashing_hook = [](HashingPoint point, uint64_t bytes) {
        read += point == HashingPoint::reading ? bytes : 0;
    };
    const std::string other = noise(1 << 20, 2);
    const struct {
        const char *what;
        OpenOutcome outcome;
        std::string content;
    } cases[] = {
        {"as it was", OpenOutcome::opened, noise(1 << 20, 1)},
        {"replaced", OpenOutcome::opened, other},
        {"cut", OpenOutcome::opened, "x"},
        {"removed", OpenOutcome::missing, ""},
    };
    for (const auto &c : cases) {
        OfferedFile file;
        const std::string replacement = file.boards.scratch.write("new", c.content);
        read = 0;
        const FileDigest got = file.shared([&] {
            if (c.outcome == OpenOutcome::missing)
                host_remove(file.path.c_str());
            else if (c.what != std::string("as it was"))
                host_replace(replacement.c_str(), file.path.c_str());
        });
        EXPECT_EQ(got.outcome, c.outcome) << c.what;
        EXPECT_EQ(read, c.content.size()) << c.what;
        if (c.outcome == OpenOutcome::opened) {
            EXPECT_EQ(sha256_text(got.digest), sha256_file_hex(file.path.c_str())) << c.what;
            EXPECT_EQ(got.size, c.content.size()) << c.what;
        }
    }
    hashing_hook = nullptr;
}
