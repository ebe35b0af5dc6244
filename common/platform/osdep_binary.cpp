#include "platform/osdep.h"

#include <algorithm>
#include <bit>
#include <cassert>

static_assert(std::endian::native == std::endian::little, "little-endian values move unchanged");

template <std::endian order, class T> static void to_or_from_stream_order(T *val) {
    if constexpr (order == std::endian::big) {
        auto *bytes = reinterpret_cast<unsigned char *>(val);
        std::reverse(bytes, bytes + sizeof *val);
    }
}

// The bytes are put in order whether or not they could be read.
template <std::endian order, class T> static size_t read_value(FILE *f, T *val) {
    // clang-format off
    assert(f != ((void *)0));
    assert(val != ((void *)0));
    // clang-format on
    const size_t count = fread(val, sizeof *val, 1, f);
    to_or_from_stream_order<order>(val);
    return count;
}

template <std::endian order, class T> static size_t write_value(FILE *f, T val) {
    // clang-format off
    assert(f != ((void *)0));
    // clang-format on
    to_or_from_stream_order<order>(&val);
    return fwrite(&val, sizeof val, 1, f);
}

// One function for each width and order.
#define READER(name, type, order)                                                                  \
    size_t name(FILE *f, type val) {                                                               \
        return read_value<std::endian::order>(f, val);                                             \
    }
#define WRITER(name, type, order)                                                                  \
    size_t name(FILE *f, type val) {                                                               \
        return write_value<std::endian::order>(f, val);                                            \
    }

READER(os_read_u8, uint8_t *, little)
READER(os_read_le16, uint16_t *, little)
READER(os_read_be16, uint16_t *, big)
READER(os_read_le32, uint32_t *, little)
READER(os_read_be32, uint32_t *, big)
READER(os_read_le64, uint64_t *, little)
READER(os_read_be64, uint64_t *, big)
WRITER(os_write_u8, uint8_t, little)
WRITER(os_write_le16, uint16_t, little)
WRITER(os_write_be16, uint16_t, big)
WRITER(os_write_le32, uint32_t, little)
WRITER(os_write_be32, uint32_t, big)
WRITER(os_write_le64, uint64_t, little)
WRITER(os_write_be64, uint64_t, big)
