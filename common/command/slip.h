// Arguments that are nearly an option.
#ifndef KESTREL_COMMAND_SLIP_H
#define KESTREL_COMMAND_SLIP_H

#include <string_view>

// Whether an argument may be a slip in writing an option, "--name" or "--name=". It begins with
// hyphens, or the dashes that word processors make of them; and its name is the option's, or one
// letter more, less or other, or two neighbours exchanged, make it so. The case of letters, the
// number of hyphens, and "=" with what follows do not count.
bool is_slip_in(std::string_view option, std::string_view argument);

#endif
