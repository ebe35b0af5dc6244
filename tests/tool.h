// Running the tool as its users do, and an installation for it to work on.
#ifndef TESTS_TOOL_H
#define TESTS_TOOL_H

#include "cmdline.h"
#include "scratch.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <sstream>
#include <vector>

using Lines = std::vector<std::string>;

inline Lines split(const std::string &text) {
    Lines lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line); lines.push_back(line))
        std::erase(line, '\r');
    return lines;
}

inline std::string joined(const Lines &lines, const char *line_end) {
    std::string text;
    for (const std::string &line : lines)
        text += line + line_end;
    return text;
}

// What a run has come to. The hosts' line ends are made one.
struct Outcome {
    int status;
    std::string out, err;
    bool operator==(const Outcome &) const = default;
};

inline std::ostream &operator<<(std::ostream &to, const Outcome &outcome) {
    return to << "status " << outcome.status << "\n-- out:\n"
              << outcome.out << "-- err:\n"
              << outcome.err;
}

// Leads a standard stream, also that of started programs, to a file.
class Caught {
  public:
    explicit Caught(FILE *stream)
        : number(host_fileno(stream)), saved(host_dup(number)),
          file(host_fopen(scratch.path("caught").c_str(), "w+b")) {
        fflush(stream);
        host_dup2(host_fileno(file.get()), number);
    }
    ~Caught() {
        host_dup2(saved, number);
        host_close(saved);
    }
    std::string text() const {
        rewind(file.get());
        std::string read = read_all(file.get());
        std::erase(read, '\r');
        return read;
    }

  private:
    const Scratch scratch;
    const int number, saved;
    const FilePtr file;
};

// The argument as it must stand in a command line to arrive as `text`.
inline std::string in_quotes(const std::string &text) {
    std::string result = "\"";
    size_t backslashes = 0;
    for (const char c : text) {
        if (c == '"')
            result.append(backslashes + 1, '\\');
        backslashes = c == '\\' ? backslashes + 1 : 0;
        result += c;
    }
    return result.append(backslashes, '\\') + '"';
}

// Runs the tool. Where there is a shell, `script` can prepare the ground; the shell's process
// becomes the tool's.
inline Outcome kestrel(const Lines &arguments, const std::string &script = "") {
    const OwnedString directory = os_dirname(os_progpath().get());
    std::string program = native_join(directory.get(), "kestrel");
    if (!os_exists(program.c_str()))
        program += ".exe";
    Lines words = {program};
    if (!script.empty())
        words = {"/bin/sh", "-c", script + "\nexec \"$@\"", "sh", program};
    for (const std::string &argument : arguments)
        words.push_back(cmdline_escape(argument.c_str()));
    const std::string path = words[0];
    std::vector<const char *> argv;
    for (std::string &word : words) {
        word = in_quotes(word);
        argv.push_back(word.c_str());
    }
    argv.push_back(nullptr);
    const Caught out(stdout), err(stderr);
    const int status = host_spawn_wait(path.c_str(), argv.data());
    return {status, out.text(), err.text()};
}

// A tree of small files and its manifest beside it, in a directory that may have an odd name.
class Installation {
  public:
    explicit Installation(const std::string &name = "dir", int files = 20)
        : top(scratch.path(name.c_str())), tree(native_join(top.c_str(), "tree")),
          manifest(native_join(top.c_str(), "manifest")) {
        host_mkdir(top.c_str());
        host_mkdir(tree.c_str());
        for (int i = 0; i < files; i++)
            add("f" + std::to_string(i), std::to_string(i));
    }

    static void write(const std::string &path, const std::string &bytes) {
        FILE *f = host_fopen(path.c_str(), "wb");
        ASSERT_NE(f, nullptr) << path;
        fwrite(bytes.data(), 1, bytes.size(), f);
        fclose(f);
    }

    void add(const std::string &name, const std::string &bytes) const {
        write(native_join(tree.c_str(), name.c_str()), bytes);
    }

    // Runs -g; the lines of the manifest.
    Lines generate() const {
        EXPECT_EQ(run({"-g"}), generated());
        return split(read_file(manifest));
    }

    Outcome run(Lines arguments, const std::string &script = "") const {
        arguments.insert(arguments.begin(), {"--manifest=" + manifest, "--instdir=" + tree});
        return kestrel(arguments, script);
    }

    Outcome check(size_t tasks) const { return run({"-c", "--tasks=" + std::to_string(tasks)}); }

    // The outcomes of a regular -g, of one that failed and of a check.
    Outcome generated() const {
        return {0, announced("Generating") + "Manifest file successfully created\n", ""};
    }
    Outcome not_generated(const std::string &complaint = "") const {
        return {1, announced("Generating"),
                complaint + "There was a problem generating the manifest file\n"};
    }
    Outcome verdict(bool passed) const {
        return {passed ? 0 : 1,
                announced("Checking") + "Verification " + (passed ? "passed\n" : "failed\n"), ""};
    }

    std::string announced(const char *mode) const {
        return std::string(mode) + " manifest \"" + str_printable(manifest.c_str()).get() +
               "\" for installation \"" + str_printable(tree.c_str()).get() + "\"\n";
    }

    const Scratch scratch;
    const std::string top, tree, manifest;
};

#endif
