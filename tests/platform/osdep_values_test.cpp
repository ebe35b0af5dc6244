#include "platform/osdep.h"
#include "support/scratch.h"

#include <cstring>
#include <ctime>
#include <gtest/gtest.h>

TEST(OsText, WideStringsAndCase) {
    const uint16_t none[] = {0};
    const uint16_t low[] = {'A', 0x141, 0x7fff, 'x', 0};
    const uint16_t high[] = {'A', 0x141, 0x8000, 0};
    const uint16_t *ascending[] = {none, low, high}; // elements are unsigned
    for (int i = 0; i < 3; i++)
        for (int j = 0; j < 3; j++)
            EXPECT_EQ(os_wcscmp(ascending[i], ascending[j]), i < j ? -1 : i > j) << i << j;
    EXPECT_EQ(os_wcslen(low), 4u);
    uint16_t *copy = os_wcsdup(high);
    EXPECT_EQ(os_wcscmp(copy, high), 0);
    const uint16_t lower[] = {'a', 0x141, 0x8000, 0};
    EXPECT_EQ(os_wcscmp(os_wcslwr(copy), lower), 0);
    free(copy);

    char text[] = "aZ9_\xe4";
    EXPECT_STREQ(os_strupr(text), "AZ9_\xe4");
    EXPECT_STREQ(os_strlwr(text), "az9_\xe4");
    EXPECT_EQ(os_strupr(nullptr), nullptr);
    EXPECT_EQ(os_strlwr(nullptr), nullptr);
}

// One value through a writer, as bytes, and back through the reader. Where that finds no more it
// turns the bytes all the same: what was the value then looks as in the file.
template <class T>
static void expect_bytes(size_t (*write)(FILE *, T), size_t (*read)(FILE *, T *), uint64_t value,
                         const std::string &bytes) {
    const Scratch scratch;
    const FilePtr f(host_fopen(scratch.path("value").c_str(), "w+b"));
    EXPECT_EQ(write(f.get(), static_cast<T>(value)), 1u);
    rewind(f.get());
    EXPECT_EQ(read_all(f.get()), bytes);
    rewind(f.get());
    T back = 0;
    EXPECT_EQ(read(f.get(), &back), 1u);
    EXPECT_EQ(back, value);
    EXPECT_EQ(read(f.get(), &back), 0u);
    EXPECT_EQ(memcmp(&back, bytes.data(), sizeof back), 0) << value;
}

TEST(OsBinary, ByteOrders) {
    expect_bytes(os_write_u8, os_read_u8, 0x0a, "\x0a");
    expect_bytes(os_write_le16, os_read_le16, 0x1234, "\x34\x12");
    expect_bytes(os_write_be16, os_read_be16, 0x1234, "\x12\x34");
    expect_bytes(os_write_le32, os_read_le32, 0x12345678, "\x78\x56\x34\x12");
    expect_bytes(os_write_be32, os_read_be32, 0x12345678, "\x12\x34\x56\x78");
    expect_bytes(os_write_le64, os_read_le64, 0x123456789abcdef0,
                 "\xf0\xde\xbc\x9a\x78\x56\x34\x12");
    expect_bytes(os_write_be64, os_read_be64, 0x123456789abcdef0,
                 "\x12\x34\x56\x78\x9a\xbc\xde\xf0");
}

TEST(OsBinary, NullsAreAsserted) {
    uint16_t value = 0;
    EXPECT_DEATH(os_read_be16(nullptr, &value), "f != \\(\\(void \\*\\)0\\)");
    EXPECT_DEATH(os_read_be16(stdin, nullptr), "val != \\(\\(void \\*\\)0\\)");
    EXPECT_DEATH(os_write_be16(nullptr, value), "f != \\(\\(void \\*\\)0\\)");
}

// Before any other test asks for the zone, which Wine does not forget.
static const int64_t started = os_time(nullptr);

TEST(OsTime, EnvironmentAndZone) {
    EXPECT_EQ(os_setenv(nullptr, "x"), 0);
    const std::string long_value(5000, 'v');
    EXPECT_EQ(os_setenv("KESTREL_TEST_VALUE", long_value.c_str()), 0);
    EXPECT_EQ(getenv("KESTREL_TEST_VALUE"), long_value);

    int64_t stored = 0;
    const int64_t now = os_time(&stored);
    EXPECT_EQ(now, stored);
    EXPECT_GE(now, started);
    EXPECT_NEAR(static_cast<double>(now), static_cast<double>(time(nullptr)), 5);
    EXPECT_GE(os_time(nullptr), now);
    EXPECT_STREQ(getenv("TZ"), "EST0EDT");
    const time_t winter = 1705320000; // 2024-01-15 12:00 UTC
    const time_t summer = 1721044800; // 2024-07-15 12:00 UTC
    EXPECT_EQ(localtime(&winter)->tm_hour, 12);
    EXPECT_EQ(localtime(&summer)->tm_hour, 13);
    os_setenv("TZ", "UTC0");
    os_time(nullptr); // sets the zone once only
    EXPECT_STREQ(getenv("TZ"), "UTC0");
    os_setenv("TZ", "EST0EDT");
}
