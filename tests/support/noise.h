// Noise that is the same in every run and on every host.
#ifndef KESTREL_TESTS_SUPPORT_NOISE_H
#define KESTREL_TESTS_SUPPORT_NOISE_H

#include <cstdint>
#include <random>
#include <string>

using Random = std::mt19937;

// A number below `end`.
inline uint32_t below(Random &random, size_t end) {
    return static_cast<uint32_t>(random() % end);
}

// `size` bytes as a string, or as another container of bytes.
template <class Bytes = std::string> Bytes noise(size_t size, uint32_t seed) {
    Random random(seed);
    Bytes bytes(size, 0);
    for (auto &byte : bytes)
        byte = static_cast<typename Bytes::value_type>(random() >> 24);
    return bytes;
}

// Up to `longest` characters of an alphabet.
inline std::string noise_of(Random &random, const std::string &alphabet, size_t longest) {
    std::string text(below(random, longest + 1), '\0');
    for (char &c : text)
        c = alphabet[below(random, alphabet.size())];
    return text;
}

#endif
