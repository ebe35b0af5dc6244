// The debug log, written to a temporary file for as long as a test looks at it.
#ifndef TESTS_LOG_CAPTURE_H
#define TESTS_LOG_CAPTURE_H

#include "trace.h"

#include <string>

class LogCapture {
  public:
    LogCapture() { trace_stream = std::tmpfile(); }
    ~LogCapture() {
        std::fclose(trace_stream);
        trace_stream = nullptr;
    }

    // The lines that hold `word`; all for an empty one.
    static std::string lines_with(const std::string &word) {
        std::rewind(trace_stream);
        std::string found, line;
        for (int c = std::getc(trace_stream); c != EOF; c = std::getc(trace_stream)) {
            line += static_cast<char>(c);
            if (c == '\n' && line.find(word) != std::string::npos)
                found += line;
            if (c == '\n')
                line.clear();
        }
        return found;
    }
};

#endif
