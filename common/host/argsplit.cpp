#include "host/argsplit.h"

#include <cstring>

static bool is_space(char c) {
    return c == ' ' || c == '\t';
}

// Reads the argument that begins at `p`, and moves `p` past it.
static std::string read_argument(const char *&p) {
    std::string argument;
    bool quoted = false;
    while (*p != '\0' && (quoted || !is_space(*p))) {
        const size_t backslashes = strspn(p, "\\");
        p += backslashes;
        if (*p != '"') {
            argument.append(backslashes, '\\');
            if (backslashes == 0)
                argument += *p++;
            continue;
        }
        argument.append(backslashes / 2, '\\');
        if (backslashes % 2 != 0) {
            argument += *p++;
        } else if (quoted && p[1] == '"') {
            argument += '"';
            p += 2;
        } else {
            quoted = !quoted;
            p++;
        }
    }
    return argument;
}

std::vector<std::string> split_command_line(const char *command_line) {
    std::vector<std::string> arguments;
    for (const char *p = command_line; *(p += strspn(p, " \t")) != '\0';)
        arguments.push_back(read_argument(p));
    return arguments;
}
