// Vectors of strings, and the strings in them.
#ifndef KESTREL_TESTS_SUPPORT_WORDS_H
#define KESTREL_TESTS_SUPPORT_WORDS_H

#include "containers/stringcache.h"

#include <string>
#include <vector>

using Words = std::vector<std::string>;

inline VectorPtr vector_of(const Words &words) {
    VectorPtr vector(vec_new(__FILE__, __LINE__));
    for (const std::string &word : words)
        vec_append(vector.get(), sc_strdup(word.c_str()));
    return vector;
}

inline Words words_of(const VectorPtr &vector) {
    Words words;
    for (const char *word : VecEach<const char>(vector))
        words.emplace_back(word);
    return words;
}

#endif
