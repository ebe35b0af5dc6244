#include "containers/vector.h"

#include "base/text.h"
#include "support/log_capture.h"
#include "support/noise.h"

#include <algorithm>
#include <functional>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <vector>

static const char *letter(char c) {
    static constexpr char LETTERS[] = "abcdefghijklmnopqrstuvwxyz";
    return &LETTERS[c - 'a'];
}

static VectorPtr vector_of(const char *letters) {
    VectorPtr v(vec_new("test", 1));
    for (; *letters != '\0'; letters++)
        vec_append(v.get(), letter(*letters));
    return v;
}

namespace {

// The expected content of a vector and, in `slots`, what lies beyond its elements too.
struct Model {
    uint32_t initial_capacity;
    uint32_t count = 0;
    std::vector<const void *> slots = {};
    std::vector<uint32_t> cursors = {}; // the top one last

    auto at(uint32_t i) { return slots.begin() + i; }
    const void *element(uint32_t i) { return i < count ? slots[i] : nullptr; }
    uint32_t index_of(const void *e) {
        const auto found = std::find(at(0), at(count), e);
        return found == at(count) ? VEC_NOT_FOUND : static_cast<uint32_t>(found - at(0));
    }
    void grow(uint32_t i) {
        size_t capacity = slots.empty() ? initial_capacity : slots.size();
        while (capacity <= std::max(i, count))
            capacity *= 2;
        slots.resize(capacity > slots.size() ? count
                                             : capacity); // elements move over, not the rest
        slots.resize(capacity);
    }
    void set(uint32_t i, const void *e, bool unique = false) {
        if (unique && index_of(e) != VEC_NOT_FOUND)
            return;
        grow(i);
        slots[i] = e;
        count = std::max(count, i + 1);
    }
    void move(uint32_t from, uint32_t to) {
        const void *e = slots[from];
        slots.erase(at(from));
        slots.insert(at(to), e);
    }
    uint32_t insert(uint32_t i, const void *e) {
        i = std::min(i, count);
        set(count, e);
        move(count - 1, i);
        for (uint32_t &cursor : cursors)
            cursor += cursor >= i ? 1 : 0;
        return i;
    }
    int remove(uint32_t i) {
        if (i >= count)
            return 0;
        slots.erase(at(i));
        slots.insert(at(--count), nullptr);
        for (uint32_t &cursor : cursors)
            cursor -= cursor > i ? 1 : 0;
        return 1;
    }
    const void *first() { return cursors.push_back(0), next(); }
    const void *next() { return cursors.back() < count ? slots[cursors.back()++] : nullptr; }
};

} // namespace

static void expect_same(Vector *v, Model &model) {
    std::vector<const void *> elements;
    for (const auto *element : VecEach<const char>(v))
        elements.push_back(element);
    ASSERT_EQ(elements, (std::vector<const void *>(model.at(0), model.at(model.count))));
    EXPECT_EQ(vec_size(v), model.count);
    for (uint32_t i = 0; i <= model.count; i++)
        ASSERT_EQ(vec_elementAt(v, i), model.element(i)) << i;
    EXPECT_EQ(vec_top(v), model.element(model.count - 1));
    EXPECT_EQ(vec_indexOf(v, letter('d')), model.index_of(letter('d')));
    ASSERT_EQ(v->capacity, model.slots.size());
    ASSERT_EQ(v->iterator == nullptr, model.cursors.empty());
    if (v->iterator != nullptr) {
        EXPECT_EQ(vec_hasMore(v), model.cursors.back() < model.count);
        EXPECT_EQ(vec_peek(v), model.element(model.cursors.back()));
    }
}

// One operation of any kind, on both.
static void change(Vector *v, Model &model, Random &random) {
    const char *e = below(random, 8) == 0 ? nullptr : letter("abcdef"[below(random, 6)]);
    const uint32_t i = below(random, model.count + 4), j = below(random, model.count + 4);
    const VectorPtr other = vector_of("abgb");
    Vector *from = model.count < 9 && i % 2 == 0 ? v : other.get();
    const std::vector<const void *> added(from->data, from->data + from->count);
    const auto add_all = [&](bool unique) {
        for (const void *each : added)
            model.set(model.count, each, unique);
        return added.size();
    };
    const std::function<void()> operations[] = {
        [&] { vec_append(v, e), model.set(model.count, e); },
        [&] { vec_appendUnique(v, e), model.set(model.count, e, true); },
        [&] { EXPECT_EQ(vec_insertAt(v, e, i), model.insert(i, e)); },
        [&] { vec_setAt(v, e, i), model.set(i, e); },
        [&] { vec_moveTo(v, i, j), i < model.count ? model.grow(j), model.move(i, j) : void(); },
        [&] { EXPECT_EQ(vec_removeAt(v, i), model.remove(i)); },
        [&] { EXPECT_EQ(v->data != nullptr && vec_remove(v, e), model.remove(model.index_of(e))); },
        [&] { EXPECT_EQ(vec_pop(v), model.count > 0 ? model.slots[--model.count] : nullptr); },
        [&] { i == 0 ? vec_clear(v), model.count = 0 : 0; },
        [&] { EXPECT_EQ(vec_appendAll(v, from), add_all(false)); },
        [&] { EXPECT_EQ(vec_mergeUnique(v, from), add_all(true)); },
        [&] { vec_iterStart(v), model.cursors.push_back(0); },
        [&] { EXPECT_EQ(vec_first(v), model.first()); },
        // With a cursor:
        [&] { vec_iterEnd(v, 0), model.cursors.pop_back(); },
        [&] { EXPECT_EQ(vec_iterEnd(v, 5), 5); },
        [&] { EXPECT_EQ(vec_next(v), model.next()); },
        [&] { EXPECT_EQ(vec_next(v), model.next()); },
    };
    operations[below(random, std::size(operations) - (model.cursors.empty() ? 4 : 0))]();
}

TEST(Vector, DoesWhatTheModelDoes) {
    Random random(1);
    for (uint32_t round = 0; round < 30 && !HasFailure(); round++) {
        Model model = {1 + round % 10};
        const VectorPtr before(vec_new("test", 1));
        const VectorPtr v(vec_newSized(model.initial_capacity, "test", 1));
        EXPECT_EQ(v->serial, before->serial + 1);
        for (int step = 0; step < 200 && !HasFailure(); step++) {
            change(v.get(), model, random);
            expect_same(v.get(), model);
        }
        const VectorPtr copy(vec_copy(v.get(), "test", 2));
        EXPECT_EQ(copy->serial, v->serial);
        model.cursors.clear();
        expect_same(copy.get(), model);
    }
}

TEST(Vector, NullAndMisuse) {
    for (auto *element : VecEach<char>(nullptr))
        FAIL() << element;
    EXPECT_EQ(vec_copy(nullptr, "test", 1), nullptr);
    vec_free(nullptr);
    vec_masterReport(); // of no vectors
    EXPECT_EQ(vec_iterEnd(nullptr, 0), 0);
    EXPECT_DEATH(vec_iterEnd(nullptr, 1), "more == 0");
    EXPECT_DEATH(vec_append(nullptr, nullptr), "p != NULL");
    const VectorPtr v(vec_new("test", 1));
    EXPECT_DEATH(vec_remove(v.get(), nullptr), "p->data != NULL");
    EXPECT_DEATH(vec_next(v.get()), "p->iterator != NULL");
    EXPECT_DEATH(vec_appendAll(v.get(), nullptr), "n != NULL");
    vec_append(v.get(), letter('a'));
    vec_clear(v.get());
    EXPECT_EQ(vec_remove(v.get(), letter('a')), 0);
    const VectorPtr never(vec_newSized(0, "test", 2));
    EXPECT_DEATH(vec_setAt(never.get(), nullptr, 3), "p->data != NULL");
    const VectorPtr vast(vec_newSized(1u << 29, "test", 1));
    EXPECT_EXIT(vec_append(vast.get(), nullptr), testing::ExitedWithCode(1), "of memory");
    EXPECT_EXIT(vec_setAt(vast.get(), nullptr, UINT32_MAX), testing::ExitedWithCode(1),
                "of memory");
}

static VectorPtr make(const char *file, uint32_t line, uint32_t count) {
    VectorPtr v(vec_new(file, line));
    for (uint32_t i = 0; i < count; i++)
        vec_append(v.get(), nullptr);
    return v;
}

TEST(Vector, ReportCountsLivingAndDeadBySite) {
    vec_trackInit(true);
    const char *const b_file = "dir/b.cpp";
    const char z_file[] = "z.cpp", z_again[] = "z.cpp"; // sites are compared by pointer
    make(b_file, 5, 3);
    make(b_file, 5, 25);
    const VectorPtr b = make(b_file, 5, 12);
    vec_clear(b.get());
    const VectorPtr a = make("a.cpp", 12345678, 2), z = make(z_file, 4, 2);
    const VectorPtr z2 = make(z_again, 4, 1), z3 = make(z_file, 3, 1), least = make(z_file, 9, 1);
    vec_setAt(z2.get(), nullptr, 1);
    vec_insertAt(z3.get(), nullptr, 0);
    vec_trackInit(false);
    const VectorPtr copy(vec_copy(b.get(), "copy.cpp", 1)); // of a tracked one: tracked
    const VectorPtr untracked = make(b_file, 5, 100);

    LogCapture log;
    vec_masterReport();
    const auto pointer = [](const VectorPtr &v) { return static_cast<void *>(v.get()); };
    // Equal records are in the order of the records' addresses.
    const bool z_first = std::less<>()(z->master, z2->master);
    const OwnedString expected = str_format(
        "# Living Vector Master List:\n"
        "# ptr    file:line    max_count/capacity    alive\n"
        "# %p    copy.cpp:1    0/20    Y\n"
        "# %p    dir/b.cpp:5    12/20    Y\n"
        "# %p    z.cpp:9    1/10    Y\n"
        "# %p    a.cpp:12345678    2/10    Y\n"
        "# %p    z.cpp:3    2/10    Y\n"
        "# %p    z.cpp:4    2/10    Y\n"
        "# %p    z.cpp:4    2/10    Y\n"
        "# Vector Master List Summary:\n"
        "#                                                                  Living              "
        "Dead                Total\n"
        "#                                file:line                         vectors/capacity    "
        "vectors/capacity    vectors/capacity\n"
        "#                               z.cpp:4                            1/10    0/0    0/0\n"
        "#                               z.cpp:4                            1/10    0/0    0/0\n"
        "#                               z.cpp:3                            1/10    0/0    0/0\n"
        "#                               a.cpp:12345678                        1/10    0/0    0/0\n"
        "#                               z.cpp:9                            1/10    0/0    0/0\n"
        "#                            copy.cpp:1                            1/20    0/0    0/0\n"
        "#                           dir/b.cpp:5                            1/20    2/50    0/0\n",
        pointer(copy), pointer(b), pointer(least), pointer(a), pointer(z3),
        pointer(z_first ? z : z2), pointer(z_first ? z2 : z));
    EXPECT_EQ(log.lines_with(""), expected.get());
    a->master->flags = 0;
    EXPECT_DEATH(vec_free(a.get()), "is_alive.p.");
    a->master->flags = 1;
}
