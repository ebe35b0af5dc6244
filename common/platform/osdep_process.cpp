#include "base/text.h"
#include "containers/hash.h"
#include "platform/osdep.h"

#include <algorithm>
#include <cassert>
#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <string_view>

// --- Host facts

int32_t os_ncores(bool use_env) {
    const char *announced = use_env ? host_getenv("bamboo_capability_Cores") : nullptr;
    const int cores = announced != nullptr ? str_to_int32(announced) : 0;
    return std::max(cores != 0 ? cores : host_processor_count(), 1);
}

OwnedString os_progpath() {
    return host_program_path();
}

const char *os_osname() {
    return host_osname();
}

OwnedString os_hostname() {
    return xstrdup("localhost");
}

int32_t os_kind() {
    return host_kind();
}

int32_t os_max_cmdline() {
    return 7191;
}

// --- Fatal signals

static int saved_stdout_fd = -1;
static int saved_stderr_fd = -1;
static bool signals_installed = false;

// Text that the stream still holds goes where the stream was redirected to.
static void restore_stream(int *saved, int descriptor, FILE *stream, std::string_view farewell) {
    if (*saved == -1)
        return;
    fflush(stream);
    host_dup2(*saved, descriptor);
    host_close(*saved);
    *saved = -1;
    host_write(descriptor, farewell); // the stream might need memory for a buffer
}

// The status that the program ends with after a signal; 0 before one.
static volatile sig_atomic_t dying = 0;

void (*os_signal_hook)() = nullptr;

static void give_up(int) {
    _Exit(dying);
}

static bool is_fault(int number) {
    return number == SIGFPE || number == SIGSEGV || number == SIGABRT;
}

// exit() may fail or wait for ever if the signal has struck inside the heap, a stream or exit()
// itself. A second fault or the time limit then ends the program with the status of the first
// signal. Further interruptions leave exit() time to remove the temporaries.
static void fatal_signal(int number) {
    host_on_signal(number, fatal_signal); // again, where a handler is called once
    if (dying != 0 && !is_fault(number))
        return;
    if (dying != 0)
        give_up(number);
    const std::span<const int> caught = host_caught_signals();
    dying = std::find(caught.begin(), caught.end(), number) != caught.end() ? number : 1;
    host_limit_exit(give_up);
    os_remove_temps(); // before anything that may have to wait
    if (os_signal_hook != nullptr)
        os_signal_hook();
    restore_stream(&saved_stdout_fd, STDOUT_DESCRIPTOR, stdout, "\n");
    restore_stream(&saved_stderr_fd, STDERR_DESCRIPTOR, stderr, "");
    if (is_fault(number))
        fputs("\n\nAn unexpected problem has been encountered and the program must quit; contact "
              "Norvane support with details\n\n",
              stderr);
    exit(dying);
}

// Not ignored, which programs that are started would inherit.
static void let_write_fail(int) {}

void os_catch_signals() {
    if (saved_stdout_fd == -1)
        saved_stdout_fd = host_dup(STDOUT_DESCRIPTOR);
    if (saved_stderr_fd == -1)
        saved_stderr_fd = host_dup(STDERR_DESCRIPTOR);
    for (const int number : host_caught_signals())
        host_on_signal(number, fatal_signal);
    for (const int number : host_write_signals())
        host_on_signal(number, let_write_fail);
    signals_installed = true;
}

// --- Running programs

OwnedString os_quote_arg(const char *s) {
    for (const char *c = s; *c != '\0'; c++)
        if (isspace(static_cast<unsigned char>(*c)))
            return str_concat_free(str_concat("\"", s), "\"");
    return xstrdup(s);
}

int os_spawn(const char *path, const char **argv) {
    for (const char **argument = argv; *argument != nullptr; argument++)
        *argument = os_quote_arg(*argument).release();
    const int status = host_spawn_wait(path, argv);
    if (signals_installed)
        os_catch_signals();
    return status;
}

int os_spawn_vector(const char *path, const Vector *args) {
    const auto argv = const_cast<const char **>(reinterpret_cast<char **>(args->data));
    const int status = os_spawn(path, argv);
    const int reason = errno;
    for (const char **argument = argv; *argument != nullptr; argument++)
        free(const_cast<char *>(*argument));
    errno = reason;
    return status;
}

// The exit statuses of programs whose output is still to be read, by stream.
static HashTable *pipe_status_tab = nullptr;

// Runs the program that `args` begins with.
static int run_vector(Vector *args) {
    if (vec_top(args) != nullptr)
        vec_append(args, nullptr);
    errno = 0;
    return os_spawn_vector(vec_at<const char>(args, 0), args);
}

static bool redirect(FILE *stream, int descriptor, FILE *to) {
    fflush(stream);
    return host_dup2(host_fileno(to), descriptor) != -1;
}

static void restore(int saved, int descriptor) {
    host_dup2(saved, descriptor);
    host_close(saved);
}

// Runs the program with its output caught in the file; false if it could not be run, and then the
// standard descriptors keep pointing to that file on purpose.
static bool run_caught(Vector *args, FILE *caught, int saved_out, int saved_err, int *status) {
    *status = -1;
    if (redirect(stdout, STDOUT_DESCRIPTOR, caught) && redirect(stderr, STDERR_DESCRIPTOR, caught))
        *status = run_vector(args);
    fclose(caught);
    if (*status == -1)
        return false;
    restore(saved_out, STDOUT_DESCRIPTOR);
    restore(saved_err, STDERR_DESCRIPTOR);
    return true;
}

FILE *os_popen(Vector *args) {
    const VectorPtr owned(args);
    if (vec_size(args) == 0 || !os_exists(vec_at<char>(args, 0)))
        return nullptr;
    const int saved_out = host_dup(STDOUT_DESCRIPTOR);
    const int saved_err = host_dup(STDERR_DESCRIPTOR);
    const bool saved = saved_out != -1 && saved_err != -1;
    const OwnedString path = saved ? os_tempname(nullptr) : nullptr;
    FILE *caught = path != nullptr ? host_fopen(path.get(), "w") : nullptr;
    if (caught == nullptr) {
        for (const int descriptor : {saved_out, saved_err})
            if (descriptor != -1)
                host_close(descriptor);
        return nullptr;
    }
    int status = 0;
    if (!run_caught(args, caught, saved_out, saved_err, &status))
        return nullptr;
    FILE *fp = host_fopen(path.get(), "r");
    if (fp == nullptr)
        return nullptr;
    if (pipe_status_tab == nullptr)
        pipe_status_tab = hash_new(5, nullptr, nullptr, __FILE__, __LINE__);
    else
        assert(!hash_haskey(pipe_status_tab, fp));
    hash_insert(pipe_status_tab, fp, reinterpret_cast<void *>(intptr_t{status}), __FILE__,
                __LINE__);
    return fp;
}

FILE *os_popenv(const char *prog, ...) {
    Vector *args = vec_new(__FILE__, __LINE__);
    vec_append(args, prog);
    va_list list;
    va_start(list, prog);
    for (const char *argument = prog; argument != nullptr; vec_append(args, argument))
        argument = va_arg(list, const char *);
    va_end(list);
    return os_popen(args);
}

int os_pclose(FILE *fp) {
    if (fp == nullptr || pipe_status_tab == nullptr || !hash_haskey(pipe_status_tab, fp))
        return -1;
    const auto status = reinterpret_cast<intptr_t>(hash_remove(pipe_status_tab, fp));
    fclose(fp);
    return static_cast<int>(status);
}
