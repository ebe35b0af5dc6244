// The program that tests start. Without an option of the list in main() it prints its arguments.
#include "osdep.h"
#include "package.h"
#include "zvdebug.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

// Makes temporaries and shows their names. They must go at exit, although the program has changed
// its directory by then. With "keep" as the second argument they stay.
static int temporaries(const char *keep) {
    os_keep_temps(keep != nullptr);
    for (const char *suffix : {"out", ".out", static_cast<const char *>(nullptr), ""}) {
        const OwnedString name = os_tempname(suffix);
        if (name == nullptr)
            return 1;
        puts(name.get());
        fclose(host_fopen(name.get(), "w"));
    }
    const OwnedString directory = os_tempdir_new();
    puts(directory.get());
    fclose(host_fopen(os_join(directory.get(), "inner").get(), "w"));
    fclose(host_fopen("registered.txt", "w"));
    os_remove_at_exit("registered.txt");
    os_remove_at_exit("never made");
    return host_chdir("..") ? 0 : 1;
}

// Stands in for a debugger, which is given a script, "--", a program and its arguments.
static int debug(const char *script, char **program) {
    puts(script);
    FILE *f = host_fopen(script, "rb");
    for (int c = getc(f); c != EOF; c = getc(f))
        putchar(c);
    fclose(f);
    for (; *program != nullptr; ++program)
        printf("\n<%s>", *program);
    return 9;
}

// Packs a file when it is there, and logs long lines.
static int log_along(const char *zvdebug) {
    zvdebug_parse(zvdebug);
    while (!os_exists("go")) {
    }
    for (int i = 0; i < 8; ++i)
        package_add_file("go");
    for (int i = 0; i < 40; ++i)
        trace_puts(std::string(70000, 'x').c_str());
    return 0;
}

int main(int argc, char **argv) {
    const std::string_view option = argc > 1 ? argv[1] : "";
    const char *value = argc > 2 ? argv[2] : nullptr;
    if (option == "--exit")
        return atoi(value);
    if (option == "--raise")
        return raise(atoi(value));
    if (option == "--stderr")
        return fputs(value, stderr) < 0;
    if (option == "--temps")
        return temporaries(value);
    if (option == "--inherited") // a descriptor of the starting program
        return host_dup(atoi(value)) != -1;
    if (option == "--log")
        return log_along(value);
    if (option == "-s")
        return debug(value, argv + 3);
    for (int i = 1; i < argc; ++i)
        printf("<%s>\n", argv[i]);
}
