#include "command/slip.h"

#include "platform/osdep.h"

#include <string>

static bool is_near(std::string_view a, std::string_view b) {
    while (!a.empty() && !b.empty() && a.front() == b.front()) {
        a.remove_prefix(1);
        b.remove_prefix(1);
    }
    while (!a.empty() && !b.empty() && a.back() == b.back()) {
        a.remove_suffix(1);
        b.remove_suffix(1);
    }
    return (a.size() <= 1 && b.size() <= 1) ||
           (a.size() == 2 && b.size() == 2 && a[0] == b[1] && a[1] == b[0]);
}

static std::string_view without_hyphens(std::string_view argument) {
    for (;;) {
        if (argument.starts_with('-'))
            argument.remove_prefix(1);
        else if (argument.size() > 2 && argument.starts_with("\xe2\x80") && argument[2] >= '\x90' &&
                 argument[2] <= '\x95') // U+2010 to U+2015
            argument.remove_prefix(3);
        else
            return argument;
    }
}

static std::string name_of(std::string_view argument) {
    std::string name(without_hyphens(argument.substr(0, argument.find('='))));
    os_strlwr(name.data());
    return name;
}

bool is_slip_in(std::string_view option, std::string_view argument) {
    return without_hyphens(argument) != argument && is_near(name_of(option), name_of(argument));
}
