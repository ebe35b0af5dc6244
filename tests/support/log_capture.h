// The debug log, written to a temporary file for as long as a test looks at it.
#ifndef KESTREL_TESTS_SUPPORT_LOG_CAPTURE_H
#define KESTREL_TESTS_SUPPORT_LOG_CAPTURE_H

#include "host/trace.h"
#include "support/files.h"
#include "support/scratch.h"

#include <gtest/gtest.h>
#include <sstream>
#include <string>

class LogCapture {
  public:
    LogCapture() { trace_use(tmpfile(), nullptr); }
    ~LogCapture() { trace_use(nullptr, nullptr); }

    // The lines that hold `word`; all for an empty one.
    static std::string lines_with(const std::string &word) {
        rewind(trace_log());
        std::istringstream log(read_all(trace_log()));
        std::string found;
        for (std::string line; std::getline(log, line);)
            if (line.find(word) != line.npos)
                found += line + "\n";
        return found;
    }

    // What the functions of a source file wrote, without locations and indents.
    static std::string texts_of(const std::string &source) {
        std::istringstream lines(lines_with(source + ":"));
        std::string texts;
        for (std::string line; std::getline(lines, line);)
            if (line.starts_with(source))
                texts += line.substr(line.find_first_not_of(' ', line.find("> ") + 1)) + "\n";
        return texts;
    }

    // What was written since the last call.
    std::string take() {
        fseek(trace_log(), taken, SEEK_SET);
        const std::string text = read_all(trace_log());
        taken += static_cast<long>(text.size());
        return text;
    }

  private:
    long taken = 0;
};

// Everything that a test calls is logged: however a function is left, its exit must be in the log,
// or all that follows is indented too far.
class Logged : public testing::Test {
  protected:
    Logged() { trace_flags = TRACE_GENERAL; }
    ~Logged() override {
        EXPECT_EQ(trace_depth(), 0u);
        trace_flags = 0;
    }

    // A path in the test's own directory, by the host's rules.
    std::string at(const std::string &path) const { return scratch.path(native(path).c_str()); }

    Scratch scratch;
    LogCapture log;
};

#endif
