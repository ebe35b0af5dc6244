// The program that tests start. Without an option of the table in main() it prints its arguments.
#include "debuglog/package.h"
#include "debuglog/zvdebug.h"
#include "platform/osdep.h"
#include "support/scratch.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <thread>

static void pause_for(int milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

// Makes temporaries, in `second` if there is no other place, and shows their names. They must go at
// exit, although the program has changed its directory by then; unless `second` is "keep".
static int temporaries(const char *second) {
    os_keep_temps(second != nullptr && std::string_view(second) == "keep");
    for (const char *suffix : {"out", ".out", static_cast<const char *>(nullptr), ""}) {
        OwnedString name = os_tempname(suffix);
        if (name == nullptr && second != nullptr && os_setenv("TEMP", second) == 0)
            name = os_tempname(suffix);
        if (name == nullptr)
            return 1;
        puts(name.get());
        fclose(host_fopen(name.get(), "w"));
    }
    const OwnedString directory = os_tempdir_new();
    puts(directory.get());
    fclose(host_fopen(os_join(directory.get(), "inner").get(), "w"));
    fclose(host_fopen("registered.txt", "w"));
    os_remove_at_exit("never made");
    os_remove_at_exit("registered.txt");
    host_mkdir("registered");
    os_rmdir_at_exit("registered");
    return host_chdir("..") ? 0 : 1;
}

// Stands in for a debugger, which is given a script, "--", a program and its arguments.
static int debug(const char *script, char **program) {
    printf("%s\n%s", script, read_file(script).c_str());
    for (; *program != nullptr; program++)
        printf("\n<%s>", *program);
    return 9;
}

// Packs a file, and logs long lines, when nobody holds the lock of the file.
static int log_along(const char *zvdebug) {
    zvdebug_parse(zvdebug);
    host_unlock(host_lock("go"));
    for (int i = 0; i < 8; i++)
        package_add_file("go");
    for (int i = 0; i < 40; i++)
        trace_puts(std::string(70000, 'x').c_str());
    return 0;
}

// Runs this program with other arguments.
static int spawn(const char *first, const char *second) {
    const OwnedString program = os_progpath();
    const char *argv[] = {program.get(), first, second, nullptr};
    const int status = os_spawn(program.get(), argv);
    for (const char *argument : argv)
        free(const_cast<char *>(argument));
    return status;
}

static volatile char *volatile nowhere = reinterpret_cast<char *>(intptr_t{16});

static int overflow(const volatile char *above) {
    volatile char frame[4096];
    frame[0] = *above;
    return *above == '\0' ? 0 : overflow(frame) + frame[0];
}

// Dies of a signal, with a temporary made and both standard streams redirected to a file in
// `directory`, as runs of programs do.
static int die(const char *directory, int number, std::string_view how) {
    for (const int caught : host_caught_signals())
        signal(caught, SIG_DFL); // whatever the tests were started with
    if (how == "ignored")
        signal(number, SIG_IGN);
    if (how == "hang")
        atexit([] { pause_for(10'000), _Exit(99); });
    if (how == "fault")
        atexit([] { *nowhere = 0; });
    os_catch_signals();
    if (how.empty())
        signal(number, SIG_DFL); // until a program has been run
    os_setenv("TEMP", directory);
    static const OwnedString temporary = os_tempname_plain();
    fclose(host_fopen(temporary.get(), "w"));
    os_remove_at_exit(temporary.get());
    os_signal_hook = [] { fputs(os_exists(temporary.get()) ? "too early" : "", stderr); };
    if (how == "again") // before the temporary is removed
        atexit([] { raise(SIGTERM); });
    FILE *f = host_fopen(os_join(directory, "caught").get(), "w");
    host_dup2(host_fileno(f), 1);
    host_dup2(host_fileno(f), 2);
    spawn("--exit", "0"); // after which the handler is installed anew
    fputs("held", stdout);
    return how == "overflow" ? overflow(directory) : raise(number);
}

// Locks the file, says so in it, and says later that it still runs.
static int hold(const char *file) {
    const HostLock lock = host_lock(file);
    fputs("held", FilePtr(host_fopen(file, "a")).get());
    pause_for(20'000);
    fputs(" still", FilePtr(host_fopen(file, "a")).get());
    host_unlock(lock);
    return 0;
}

// Starts a copy that holds the lock, and leaves it running.
static int orphan(const char *file) {
    const OwnedString program = os_progpath();
    const char *argv[] = {program.get(), "--hold", file, nullptr};
    const std::string line = std::string(program.get()) + " --hold \"" + file + '"';
    host_start_process(program.get(), argv, line.c_str());
    while (os_filesize(file) == 0)
        pause_for(1);
    raise(9); // SIGKILL, where there is one
    _Exit(0);
}

// Shows the reasons for which a file cannot be written to, found out before and after.
static int copy(const char *from, const char *to) {
    errno = 99;
    const int before = os_can_write(to) ? 0 : errno;
    errno = 99;
    const int after = copyfile_helper(from, to) ? 0 : errno;
    return printf("%d %d\n", before, after) < 0;
}

static int write_until_that_fails() {
    while (puts("text") >= 0 && fflush(stdout) == 0) {
    }
    return 3;
}

static int next_descriptor(const char *file) {
    host_open_standard_streams();
    return host_fileno(host_fopen(file, "w"));
}

int main(int argc, char **argv) {
    host_arguments(&argc, &argv);
    if (argc > 1 && std::string_view(argv[1]) == "--catch") {
        os_catch_signals();
        argc--;
        argv++;
    }
    const struct {
        std::string_view option;
        int (*run)(char **); // with what follows the option
    } modes[] = {
        {"--copy", [](char **a) { return copy(a[0], a[1]); }},
        {"--die", [](char **a) { return die(a[0], atoi(a[1]), a[2] != nullptr ? a[2] : ""); }},
        {"--exit", [](char **a) { return atoi(a[0]); }},
        {"--hold", [](char **a) { return hold(a[0]); }},
        {"--inherited", [](char **a) { return host_dup(atoi(a[0])) != -1 ? 1 : 0; }},
        {"--log", [](char **a) { return log_along(a[0]); }},
        {"--mkdir", [](char **a) { return os_mkdir(a[0]); }},
        {"--name", [](char **a) { return printf("%s\n%s\n", a[-2], a[0]) < 0 ? 1 : 0; }},
        {"--opened", [](char **a) { return next_descriptor(a[0]); }},
        {"--orphan", [](char **a) { return orphan(a[0]); }},
        {"--raise", [](char **a) { return raise(atoi(a[0])); }},
        {"--rename", [](char **a) { return host_rename_new(a[0], a[1]) ? 0 : errno; }},
        {"--rmtree", [](char **a) { return os_rmtree(a[0]); }},
        {"--spawn", [](char **a) { return spawn(a[0], a[1]); }},
        {"--stderr", [](char **a) { return fputs(a[0], stderr) < 0 ? 1 : 0; }},
        {"--temps", [](char **a) { return temporaries(a[0]); }},
        {"--where", [](char **) { return host_chdir("/") ? puts(os_progpath().get()) : 1; }},
        {"--write", [](char **) { return write_until_that_fails(); }},
        {"-s", [](char **a) { return debug(a[0], a + 1); }}};
    for (const auto &mode : modes)
        if (argc > 1 && mode.option == argv[1])
            return mode.run(argv + 2);
    for (int i = 1; i < argc; i++)
        printf("<%s>\n", argv[i]);
}
