// A small world of files for one test: a directory of its own, removed when the process ends.
#ifndef KESTREL_TESTS_SUPPORT_SCRATCH_H
#define KESTREL_TESTS_SUPPORT_SCRATCH_H

#include "platform/osdep.h"

#include <string>

// Writes a file byte for byte; false if it cannot be opened.
inline bool write_file(const std::string &path, const std::string &bytes) {
    const FilePtr file(host_fopen(path.c_str(), "wb"));
    return file != nullptr && fwrite(bytes.data(), 1, bytes.size(), file.get()) == bytes.size();
}

class Scratch {
  public:
    std::string path(const char *name) const { return os_join(root.get(), name).get(); }
    const char *directory() const { return root.get(); }

    // Writes a file; returns its path.
    std::string write(const char *name, const std::string &text) const {
        const std::string file = path(name);
        write_file(file, text);
        return file;
    }

  private:
    OwnedString root = os_tempdir_new();
};

// The bytes of a file, or what is left to read of a stream, which stays open.
inline std::string read_all(FILE *f) {
    std::string text;
    for (int c = getc(f); c != EOF; c = getc(f))
        text += static_cast<char>(c);
    return text;
}

inline std::string read_file(const std::string &path) {
    const FilePtr f(host_fopen(path.c_str(), "rb"));
    return f != nullptr ? read_all(f.get()) : "(not there)";
}

inline std::string native_join(const char *dir, const char *name) {
    return os_join(dir, name).get();
}

// A result as text that compares, null included.
inline std::string text_of(const char *s) {
    return s != nullptr ? s : "(null)";
}

inline std::string text_of(const OwnedString &s) {
    return text_of(s.get());
}

// A program that lies beside the tests.
inline std::string built_program(const char *name) {
    const std::string path = os_join(os_dirname(os_progpath().get()).get(), name).get();
    return os_exists(path.c_str()) ? path : path + ".exe";
}

inline std::string child_program() {
    return built_program("child");
}

#endif
