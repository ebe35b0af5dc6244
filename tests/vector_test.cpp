#include "vector.h"

#include "log_capture.h"
#include "xalloc.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace {

const char *letter(char c) {
    static constexpr char LETTERS[] = "abcdefghijklmnopqrstuvwxyz";
    return &LETTERS[c - 'a'];
}

VectorPtr vector_of(const char *letters) {
    VectorPtr v(vec_new("test", 1));
    for (; *letters; letters++)
        vec_append(v.get(), letter(*letters));
    return v;
}

char letter_at(const void *element) {
    return element ? *static_cast<const char *>(element) : '-';
}

// The elements as letters, "-" for null.
std::string text(const VectorPtr &v) {
    std::string letters;
    for (uint32_t i = 0; i < vec_size(v.get()); i++)
        letters += letter_at(vec_elementAt(v.get(), i));
    return letters;
}

} // namespace

TEST(VectorTest, CapacityDoublesWhenFull) {
    struct {
        uint32_t initial;
        uint32_t appended;
        uint32_t capacity;
    } const cases[] = {{10, 0, 0},   {10, 1, 10},  {10, 10, 10}, {10, 11, 20},
                       {10, 21, 40}, {10, 41, 80}, {1, 5, 8},    {3, 7, 12}};
    for (const auto &c : cases) {
        VectorPtr v(vec_newSized(c.initial, "test", 1));
        for (uint32_t i = 0; i < c.appended; i++)
            vec_append(v.get(), letter(i == 0 ? 'a' : 'b'));
        EXPECT_EQ(v->capacity, c.capacity) << c.initial << ' ' << c.appended;
        EXPECT_EQ(text(v), ("a" + std::string(40, 'b')).substr(0, c.appended));
    }
}

TEST(VectorTest, SetAtGrowsAndClearsNothing) {
    VectorPtr v(vec_new("test", 1));
    vec_setAt(v.get(), letter('x'), 15);
    EXPECT_EQ(text(v), "---------------x");
    EXPECT_EQ(v->capacity, 20U);
    VectorPtr full = vector_of("abcdefghij");
    vec_setAt(full.get(), letter('x'), 0);
    EXPECT_EQ(full->capacity, 20U);
    VectorPtr shortened = vector_of("abcde");
    vec_clear(shortened.get());
    vec_setAt(shortened.get(), letter('x'), 3);
    EXPECT_EQ(text(shortened), "abcx");
    vec_removeAt(shortened.get(), 3);
    vec_setAt(shortened.get(), letter('y'), 4);
    EXPECT_EQ(text(shortened), "abc-y");
}

TEST(VectorTest, MoveToShiftsTowardsTheOldPlace) {
    struct {
        uint32_t from;
        uint32_t to;
        const char *result;
    } const cases[] = {{0, 4, "bcdea"}, {4, 0, "eabcd"}, {1, 3, "acdbe"}, {3, 1, "adbce"},
                       {2, 2, "abcde"}, {5, 0, "abcde"}, {3, 6, "abce-"}, {0, 30, "bcde-"}};
    for (const auto &c : cases) {
        VectorPtr v = vector_of("abcde");
        vec_moveTo(v.get(), c.from, c.to);
        EXPECT_EQ(text(v), c.result) << c.from << " to " << c.to;
    }
}

// Under a cursor that stands before element `at` of "abcd", and one below it on the stack at "b".
TEST(VectorTest, OpenCursorsFollowInsertionsAndRemovals) {
    struct {
        char change; // '+' inserts x
        uint32_t place;
        uint32_t at;
        const char *result;
        char next;
    } const cases[] = {
        {'+', 0, 2, "xabcd", 'c'}, {'+', 2, 2, "abxcd", 'c'}, {'+', 3, 2, "abcxd", 'c'},
        {'+', 9, 4, "abcdx", '-'}, {'-', 0, 2, "bcd", 'c'},   {'-', 1, 2, "acd", 'c'},
        {'-', 2, 2, "abd", 'd'},   {'-', 3, 2, "abc", 'c'},   {'-', 4, 0, "abcd", 'a'},
    };
    for (const auto &c : cases) {
        VectorPtr v = vector_of("abcd");
        vec_first(v.get());
        vec_iterStart(v.get());
        for (uint32_t i = 0; i < c.at; i++)
            vec_next(v.get());
        if (c.change == '+')
            EXPECT_EQ(vec_insertAt(v.get(), letter('x'), c.place), std::min(c.place, 4U));
        else
            EXPECT_EQ(vec_removeAt(v.get(), c.place), c.place < 4 ? 1 : 0);
        EXPECT_EQ(text(v), c.result);
        EXPECT_EQ(letter_at(vec_next(v.get())), c.next) << c.result << ' ' << c.at;
        EXPECT_EQ(vec_iterEnd(v.get(), 0), 0);
        bool b_removed = c.change == '-' && c.place == 1;
        EXPECT_EQ(letter_at(vec_next(v.get())), b_removed ? 'c' : 'b') << c.result;
    }
}

TEST(VectorTest, LoopMayRemoveWhatItHandlesAndBeLeft) {
    VectorPtr v = vector_of("abcde");
    std::string seen;
    for (const auto *element : VecEach<const char>(v)) {
        seen += *element;
        if (*element == 'd')
            break;
        vec_remove(v.get(), element);
    }
    EXPECT_EQ(seen, "abcd");
    EXPECT_EQ(text(v), "de");
    EXPECT_EQ(v->iterator, nullptr);
}

TEST(VectorTest, CopyingAndAppendingAll) {
    VectorPtr v(vec_copy(VectorPtr(vec_new("test", 1)).get(), "test", 2));
    vec_appendAll(v.get(), vector_of("aba").get());
    EXPECT_EQ(vec_appendAll(v.get(), v.get()), 3U);
    vec_iterStart(v.get());
    VectorPtr copy(vec_copy(v.get(), "test", 3));
    EXPECT_EQ(copy->iterator, nullptr);
    EXPECT_EQ(vec_mergeUnique(copy.get(), vector_of("cbcd").get()), 4U);
    EXPECT_EQ(text(copy), "abaabacd");
    EXPECT_EQ(text(v), "abaaba");
}

TEST(VectorTest, NullAndMisuse) {
    for (auto *element : VecEach<char>(nullptr))
        FAIL() << element;
    EXPECT_EQ(vec_iterEnd(nullptr, 0), 0);
    EXPECT_DEATH(vec_iterEnd(nullptr, 1), "more == 0");
    EXPECT_DEATH(vec_append(nullptr, nullptr), "p != NULL");
    VectorPtr v(vec_new("test", 1));
    EXPECT_DEATH(vec_remove(v.get(), nullptr), "p->data != NULL");
    EXPECT_DEATH(vec_next(v.get()), "p->iterator != NULL");
    EXPECT_DEATH(vec_appendAll(v.get(), nullptr), "n != NULL");
    vec_append(v.get(), letter('a'));
    vec_clear(v.get());
    EXPECT_EQ(vec_remove(v.get(), letter('a')), 0);
    VectorPtr never(vec_newSized(0, "test", 2));
    EXPECT_DEATH(vec_setAt(never.get(), nullptr, 3), "p->data != NULL");
}

TEST(VectorTest, CapacityBeyond32BitsIsOutOfMemory) {
    VectorPtr v(vec_newSized(1U << 29, "test", 1));
    EXPECT_EXIT(vec_append(v.get(), nullptr), testing::ExitedWithCode(1), "of memory");
    EXPECT_EXIT(vec_setAt(v.get(), nullptr, UINT32_MAX), testing::ExitedWithCode(1), "of memory");
}

TEST(VectorTest, ReportCountsLivingAndDeadBySite) {
    auto make = [](const char *file, uint32_t line, uint32_t count) {
        VectorPtr v(vec_new(file, line));
        for (uint32_t i = 0; i < count; i++)
            vec_append(v.get(), nullptr);
        return v;
    };
    vec_trackInit(true);
    const char *const b_file = "dir/b.cpp";
    make(b_file, 5, 3);
    make(b_file, 5, 25);
    VectorPtr b = make(b_file, 5, 12);
    vec_clear(b.get());
    VectorPtr a = make("a.cpp", 12345678, 2);
    VectorPtr z = make("z.cpp", 4, 2);
    vec_trackInit(false);
    VectorPtr copy(vec_copy(b.get(), "copy.cpp", 1)); // of a tracked one: tracked
    VectorPtr untracked = make(b_file, 5, 100);

    LogCapture log;
    vec_masterReport();
    auto pointer = [](const VectorPtr &v) { return static_cast<void *>(v.get()); };
    OwnedString expected = str_format(
        "# Living Vector Master List:\n"
        "# ptr    file:line    max_count/capacity    alive\n"
        "# %p    copy.cpp:1    0/20    Y\n"
        "# %p    dir/b.cpp:5    12/20    Y\n"
        "# %p    a.cpp:12345678    2/10    Y\n"
        "# %p    z.cpp:4    2/10    Y\n"
        "# Vector Master List Summary:\n"
        "#                                                                  Living              "
        "Dead                Total\n"
        "#                                file:line                         vectors/capacity    "
        "vectors/capacity    vectors/capacity\n"
        "#                               z.cpp:4                            1/10    0/0    0/0\n"
        "#                               a.cpp:12345678                        1/10    0/0    0/0\n"
        "#                            copy.cpp:1                            1/20    0/0    0/0\n"
        "#                           dir/b.cpp:5                            1/20    2/50    0/0\n",
        pointer(copy), pointer(b), pointer(a), pointer(z));
    EXPECT_EQ(log.lines_with(""), expected.get());
    a->master->flags = 0;
    EXPECT_DEATH(vec_free(a.get()), "is_alive.p.");
    a->master->flags = 1;
}
