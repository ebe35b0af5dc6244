#include "kestrel/output.h"

#include "containers/stringcache.h"
#include "kestrel/settings.h"
#include "platform/osdep.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

static int output_error = 0; // why the first write that failed did so

bool is_terminal(int descriptor) {
    const char *terminal = host_getenv("TERM");
    return host_terminal_width(descriptor) != 0 &&
           (terminal == nullptr || strcmp(terminal, "dumb") != 0);
}

void print(std::string_view text) {
    if (output_error != 0)
        return;
    fwrite(text.data(), 1, text.size(), stdout);
    output_error = ferror(stdout) != 0 ? errno : 0;
}

// Some file systems report only when a descriptor is closed, whichever, that they are full.
static bool reaches_output() {
    if (fflush(stdout) != 0)
        return false;
    const int copy = host_dup(host_fileno(stdout));
    return copy == -1 || host_close(copy) == 0;
}

bool flush_output() {
    static bool reported = false;
    if (output_error == 0 && !reaches_output())
        output_error = errno;
    if (output_error != 0 && !std::exchange(reported, true))
        fprintf(stderr, "Cannot write to standard output: %s\n", host_strerror(output_error));
    return output_error == 0;
}

void announce(const char *action, const char *manifest, const char *instdir) {
    if (settings.verbose == 0)
        return;
    print(sc_format("%s manifest \"%s\" for installation \"%s\"\n", action,
                    str_printable(manifest).get(), str_printable(instdir).get()));
    flush_output();
}
