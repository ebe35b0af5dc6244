// Digests of files.
#include "manifest/shahash.h"

#include "containers/stringcache.h"
#include "digest/sha1.h"
#include "digest/sha256.h"
#include "host/host.h"

static constexpr size_t READ_SIZE = 16384;

static OwnedBytes new_digest(size_t size) {
    return OwnedBytes(static_cast<uint8_t *>(xalloc(size)));
}

template <class Hash> static OwnedBytes digest_of_stream(FILE *file) {
    typename Hash::Context ctx;
    Hash::init(&ctx);
    uint8_t buffer[READ_SIZE];
    const int descriptor = host_fileno(file);
    for (int64_t got; (got = host_read(descriptor, buffer, sizeof buffer)) > 0;)
        Hash::update(&ctx, buffer, static_cast<size_t>(got));
    OwnedBytes digest = new_digest(Hash::size);
    Hash::final(&ctx, digest.get());
    return digest;
}

template <class Hash> static OwnedBytes digest_of_file(const char *path) {
    const FilePtr file(host_fopen_regular(path));
    if (file == nullptr)
        shahash_fatal_cannot_open(path);
    return digest_of_stream<Hash>(file.get());
}

// Lower-case hexadecimal, most significant digit first.
static std::string hex_text(const uint8_t *digest, size_t size) {
    std::string text(2 * size, '\0');
    for (size_t i = 0; i < size; i++) {
        text[2 * i] = "0123456789abcdef"[digest[i] >> 4];
        text[2 * i + 1] = "0123456789abcdef"[digest[i] & 15];
    }
    return text;
}

static int digit_value(char digit) {
    const int code = static_cast<unsigned char>(digit);
    return (code < 'A' ? code - '0' : code - 55) & 15;
}

static OwnedBytes digest_from_hex(const char *text, size_t size) {
    OwnedBytes digest = new_digest(size);
    const auto next = [&] { return *text != '\0' ? digit_value(*text++) : 0; };
    for (size_t i = 0; i < size; i++) {
        const int high = next();
        digest[i] = static_cast<uint8_t>(high << 4 | next());
    }
    return digest;
}

OwnedBytes sha256_stream(FILE *file) {
    return digest_of_stream<Sha256>(file);
}

OwnedBytes sha1_stream(FILE *file) {
    return digest_of_stream<Sha1>(file);
}

OwnedBytes sha256_file(const char *path) {
    return digest_of_file<Sha256>(path);
}

OwnedBytes sha1_file(const char *path) {
    return digest_of_file<Sha1>(path);
}

const char *sha256_file_hex(const char *path) {
    return sha256_hex(sha256_file(path).get());
}

const char *sha1_file_hex(const char *path) {
    return sha1_hex(sha1_file(path).get());
}

std::string sha256_text(const uint8_t *digest) {
    return hex_text(digest, SHA256_DIGEST_SIZE);
}

const char *sha256_hex(const uint8_t *digest) {
    return sc_strdup(sha256_text(digest).c_str());
}

const char *sha1_hex(const uint8_t *digest) {
    return sc_strdup(hex_text(digest, SHA1_DIGEST_SIZE).c_str());
}

OwnedBytes sha256_from_hex(const char *text) {
    return digest_from_hex(text, SHA256_DIGEST_SIZE);
}

OwnedBytes sha1_from_hex(const char *text) {
    return digest_from_hex(text, SHA1_DIGEST_SIZE);
}
