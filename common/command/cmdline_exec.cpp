#include "command/cmdline.h"

#include "containers/stringcache.h"
#include "debuglog/debugger.h"
#include "debuglog/package.h"
#include "host/trace.h"
#include "messages/alert.h"
#include "platform/osdep.h"

#include <cstdio>
#include <cstring>
#include <string>

// Reports an error of this module; returns the status that goes with it.
static int report_error(const char *text) {
    const char *program = cmdline_progname();
    alert_adhoc("E", "%s: fatal error: %s", program != nullptr ? program : "(null)", text);
    return 1;
}

// Elements 1 onward, joined by spaces.
static std::string argument_text(Vector *options) {
    std::string text;
    for (uint32_t i = 1; i < vec_size(options); i++)
        text += (i > 1 ? " " : "") + std::string(vec_at<const char>(options, i));
    return text;
}

// --- Command files

// The separators of the words in a command file.
static constexpr const char *WHITE_SPACE = " \t\n\r";

// The option in the form in which the expansion of a command file reads it.
static const char *command_file_word(const char *option) {
    const char *word = sc_escape(option, "\\ '\"", '\\');
    return strpbrk(word, WHITE_SPACE) != nullptr ? sc_quote(word, '"') : word;
}

static bool write_command_file(const char *path, Vector *options) {
    FILE *file = host_fopen(path, "w");
    if (file == nullptr) {
        TRACE_REPORT("cmdline_exe", "Could not create command file \"%s\"", path);
        return false;
    }
    for (uint32_t i = 1; i < vec_size(options); i++) {
        const char *word = command_file_word(vec_at<const char>(options, i));
        TRACE_MESSAGE("Writing option to command file: %s", word);
        fprintf(file, "%s\n", word);
    }
    return os_close_written(file);
}

// Writes the options to a command file and returns the argument that names it; null after an error
// message.
static const char *make_command_file(Vector *options) {
    const OwnedString path = os_tempname("cmd");
    if (path == nullptr) {
        TRACE_REPORT("cmdline_spawn",
                     "qrncc_spawn could not get a temp file name, exiting with status 1");
        report_error("Could not create temporary file");
        return nullptr;
    }
    TRACE_MESSAGE("Command file name: \"%s\"", path.get());
    if (!write_command_file(path.get(), options)) {
        TRACE_REPORT("cmdline_spawn",
                     "qrncc_spawn could not create a temp file, exiting with status 1");
        report_error("Could not open temporary file");
        return nullptr;
    }
    return sc_format("@%s", path.get());
}

static bool needs_command_file(const char *program, const std::string &text, uint32_t mode) {
    if (mode == EXEC_COMMAND_FILE)
        return true;
    if (mode != EXEC_AUTOMATIC) {
        if (mode != EXEC_DIRECT)
            DEBUG_ASSERT(0);
        return false;
    }
    const size_t length = strlen(program) + text.size() + 1;
    if (length <= static_cast<size_t>(os_max_cmdline()))
        return false;
    TRACE_MESSAGE("Command line length is too long for OS (%u), using command file",
                  static_cast<unsigned>(length));
    return true;
}

// --- Running

// Runs the program with its output going to a temporary file that is then removed. What was
// redirected before a failure stays so. Returns why that failed, or null.
static const char *run_discarding(const char *program, Vector *args, int *status) {
    const int saved_out = host_dup(STDOUT_DESCRIPTOR);
    if (saved_out == -1)
        return "stdout dup failed";
    const int saved_err = host_dup(STDERR_DESCRIPTOR);
    if (saved_err == -1)
        return "stderr dup failed";
    const OwnedString tmpfile = os_tempname_plain();
    if (tmpfile == nullptr)
        return "obtaining temp filename failed";
    TRACE_MESSAGE("tmpfile = \"%s\"", tmpfile.get());
    FILE *caught = host_fopen(tmpfile.get(), "w");
    if (caught == nullptr)
        return "fopen to write to tmpfile failed";
    if (host_dup2(host_fileno(caught), STDOUT_DESCRIPTOR) == -1)
        return "redirect stdout failed";
    if (host_dup2(host_fileno(caught), STDERR_DESCRIPTOR) == -1)
        return "redirect stderr failed";
    *status = db_debugger(program, args, false);
    fclose(caught);
    if (host_dup2(saved_out, STDOUT_DESCRIPTOR) == -1)
        return "dup2 restore stdout failed";
    if (host_close(saved_out) != 0)
        return "could not close saved stdout";
    if (host_dup2(saved_err, STDERR_DESCRIPTOR) == -1)
        return "dup2 restore stderr failed";
    if (host_close(saved_err) != 0)
        return "could not close saved stderr";
    if (os_exists(tmpfile.get()))
        host_remove(tmpfile.get());
    return nullptr;
}

static int run(const char *program, Vector *args, int32_t echo) {
    fflush(stdout);
    fflush(stderr);
    int status = 1;
    if (echo >= 0) {
        status = db_debugger(program, args, false);
    } else if (const char *failure = run_discarding(program, args, &status)) {
        TRACE_REPORT("cmdline_exe", "%s", failure);
        TRACE_REPORT("cmdline_spawn",
                     "qrncc_spawn could not redirect stdout/stderr, exiting with status 1");
        return report_error("Could not redirect stdout/stderr");
    }
    TRACE_REPORT("cmdline_exe", "Execution returned %d", status);
    return status;
}

int cmdline_exe(Vector *options, uint32_t mode, int32_t echo) {
    TRACE_ENTER();
    DEBUG_ASSERT(vec_size(options) > 0);
    const char *program = vec_at<const char>(options, 0);
    if (program == nullptr)
        return 1;
    const std::string text = argument_text(options);
    std::string shown = text;
    const VectorPtr args(vec_new(__FILE__, __LINE__));
    if (needs_command_file(program, text, mode)) {
        const char *file = make_command_file(options);
        if (file == nullptr)
            return 1;
        vec_append(args.get(), program);
        vec_append(args.get(), file);
        shown = file + (" [ " + text + " ]");
    } else {
        vec_appendAll(args.get(), options);
    }
    if (echo > 0)
        printf("%s %s\n", program, shown.c_str());
    TRACE_MESSAGE("Executing: %s %s", program, shown.c_str());
    const int status = run(program, args.get(), echo);
    return TRACE_RESULT(status, "%d", status);
}

int cmdline_spawn(Vector *options, uint32_t mode, int32_t echo) {
    TRACE_ENTER();
    int status = 1;
    if (vec_size(options) == 0) {
        TRACE_REPORT("cmdline_spawn", "no options were found, exiting with status 1");
        report_error("no input files\nprogram terminated.");
    } else {
        TRACE_MESSAGE("Executing driver: \"%s\"", vec_at<const char>(options, 0));
        status = cmdline_exe(options, mode, echo);
        TRACE_REPORT("cmdline_spawn", "Returning status: %d", status);
    }
    return status;
}

int cmdline_driver(int argc, const char *const *argv, OptionsFn options_process, uint32_t mode,
                   const int32_t *echo) {
    os_catch_signals();
    DEBUG_ASSERT(options_process != NULL);
    DEBUG_ASSERT(argv != NULL);
    const VectorPtr arguments(cmdline_args(argc, argv));
    TRACE_ENTER();
    Vector *options = options_process != nullptr ? options_process(arguments.get()) : nullptr;
    package_set_app(host_tool_name);
    const int status = cmdline_spawn(options, mode, echo != nullptr ? *echo : 0);
    TRACE_REPORT("cmdline_driver", "Returning status: %d", status);
    package_finish();
    return status;
}
