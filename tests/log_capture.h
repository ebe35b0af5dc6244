// The debug log, written to a temporary file for as long as a test looks at it.
#ifndef TESTS_LOG_CAPTURE_H
#define TESTS_LOG_CAPTURE_H

#include "scratch.h"
#include "trace.h"

#include <sstream>
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
        std::istringstream log(read_all(trace_stream));
        std::string found;
        for (std::string line; std::getline(log, line);)
            if (line.find(word) != std::string::npos)
                found += line + "\n";
        return found;
    }
};

#endif
