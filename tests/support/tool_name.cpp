// The tests, and the program that they start, are the tool's.
#include "host/host.h"

[[maybe_unused]] static const char *const named = host_tool_name = "kestrel";
