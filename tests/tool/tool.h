// Running the tool as its users do, and an installation for it to work on.
#ifndef KESTREL_TESTS_TOOL_TOOL_H
#define KESTREL_TESTS_TOOL_TOOL_H

#include "command/cmdline.h"
#include "support/scratch.h"

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
    return to << outcome.status << "\n-- out:\n" << outcome.out << "-- err:\n" << outcome.err;
}

// The argument as it must stand in a command line to arrive as `text`.
inline std::string in_quotes(const std::string &text) {
    std::string result = "\"";
    const auto double_backslashes = [&] {
        result.append(result.size() - 1 - result.find_last_not_of('\\'), '\\');
    };
    for (const char c : text) {
        if (c == '"') {
            double_backslashes();
            result += '\\';
        }
        result += c;
    }
    double_backslashes();
    return result + '"';
}

// Runs the tool, or a copy of it. Where there is a shell, `script` can prepare the ground; the
// shell's process becomes the tool's.
inline Outcome kestrel(const Lines &arguments, const std::string &script = "",
                       const char *program = "kestrel") {
    Lines words = {built_program(program)};
    if (!script.empty())
        words = {"/bin/sh", "-c", script + "\nexec \"$@\"", "sh", words[0]};
    for (const std::string &argument : arguments)
        words.push_back(cmdline_escape(argument.c_str()));
    const std::string path = words[0];
    std::vector<const char *> argv;
    for (std::string &word : words)
        argv.push_back((word = in_quotes(word)).c_str());
    argv.push_back(nullptr);

    const Scratch scratch;
    FILE *const streams[] = {stdout, stderr};
    FilePtr caught[2];
    int saved[2];
    for (const int i : {0, 1}) {
        caught[i].reset(host_fopen(scratch.path(i == 0 ? "out" : "err").c_str(), "w+b"));
        fflush(streams[i]);
        saved[i] = host_dup(i + 1);
        host_dup2(host_fileno(caught[i].get()), i + 1);
    }
    Outcome outcome = {host_spawn_wait(path.c_str(), argv.data()), "", ""};
    for (const int i : {0, 1}) {
        host_dup2(saved[i], i + 1);
        host_close(saved[i]);
        rewind(caught[i].get());
        std::string &text = i == 0 ? outcome.out : outcome.err;
        text = read_all(caught[i].get());
        std::erase(text, '\r');
    }
    return outcome;
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
        ASSERT_TRUE(write_file(path, bytes)) << path;
    }

    void add(const std::string &name, const std::string &bytes) const {
        write(native_join(tree.c_str(), name.c_str()), bytes);
    }

    // Runs -g; the lines of the manifest.
    Lines generate() const {
        EXPECT_EQ(run({"-g"}), generated());
        return split(read_file(manifest));
    }

    // A script finds itself in `top`.
    Outcome run(Lines arguments, const std::string &script = "",
                const char *program = "kestrel") const {
        arguments.insert(arguments.begin(), {"--manifest=" + manifest, "--instdir=" + tree});
        return kestrel(arguments, script.empty() ? "" : "cd '" + top + "'\n" + script, program);
    }

    // The same, in which the first process that hashes does something
    // (tests/support/interrupt.cpp).
    Outcome interrupted(const std::string &what, Lines arguments,
                        const std::string &script = "") const {
        const std::string done = native_join(scratch.directory(), "interrupted");
        host_remove(done.c_str());
        os_setenv("KESTREL_INTERRUPT", what.c_str());
        os_setenv("KESTREL_INTERRUPTED", done.c_str());
        const Outcome outcome = run(std::move(arguments), script, "kestrel_interrupted");
        os_setenv("KESTREL_INTERRUPT", "");
        EXPECT_TRUE(os_exists(done.c_str())) << "not interrupted: " << what;
        return outcome;
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

// Whether runs can have a terminal of their own here.
inline bool has_terminals() {
    return os_kind() == 0 && kestrel({}, "exec script -qec true /dev/null </dev/null").status == 0;
}

// Runs a copy of the program that draws all the time, on a terminal of its own; what that gets.
inline std::string on_terminal(const Installation &inst, const std::string &command) {
    inst.run({"-h"}, "export SHELL=/bin/sh TERM=xterm K=\"$(dirname \"$1\")/kestrel_eager "
                     "--instdir=tree --manifest=manifest\"\nset -- script -qec '" +
                         command + "' /dev/null\nexec </dev/null >terminal");
    return read_file(native_join(inst.top.c_str(), "terminal"));
}

// What is left on a terminal, without the blanks at the ends of lines.
inline std::string screen_of(const std::string &output) {
    std::string screen;
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);) {
        std::string shown;
        std::istringstream pieces(line);
        for (std::string piece; std::getline(pieces, piece, '\r');)
            shown.replace(0, piece.size(), piece);
        screen += shown.substr(0, shown.find_last_not_of(' ') + 1) + '\n';
    }
    return screen;
}

#endif
