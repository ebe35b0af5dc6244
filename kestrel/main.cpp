// The program's entry: options, their validation and the choice of the mode.
#include "command/cmdline.h"
#include "containers/stringcache.h"
#include "debuglog/package.h"
#include "host/trace.h"
#include "kestrel/kestrel.h"
#include "kestrel/steps.h"
#include "runtime.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

static constexpr int VERSION_MAJOR = 2;
static constexpr int VERSION_MINOR = 41;

namespace {

struct Options {
    const char *manifest = nullptr;
    const char *instdir = nullptr;
    bool generate = false;
    bool check = false;
    bool range_check = false;
    int32_t position = -1;
    int32_t start = -1;
    int32_t end = -1;
};

} // namespace

// A run whose output could not be written has not succeeded.
void cleanup(int status) {
    TRACE_ENTER();
    if (!flush_output() && status == 0)
        status = 1;
    TRACE_MESSAGE("Exiting with status code %d", status);
    package_finish();
    TRACE_EXIT();
    exit(status);
}

static void print_option(const char *name, const char *text) {
    printf("  %-25s    %s\n", name, text);
}

static void print_usage() {
    printf("Norvane Kestrel V%d.%02d\n", VERSION_MAJOR, VERSION_MINOR);
    puts("Copyright (c) 2023 Norvane\n");
    puts("Options:");
    print_option("-g", "Generate a manifest containing hashes of files found under the directory "
                       "specified by --instdir");
    print_option("-c", "Check a manifest containing hashes of files found under the directory "
                       "specified by --instdir");
    print_option("-v", "Turn on verbose (default is on)");
    print_option("-h", "Display this help text");
    print_option("--manifest=<argument>", "The path to the manifest file");
    print_option("--instdir=<argument>",
                 "The top-level directory where under the files to be verified or hashed exist");
    print_option("--tasks=<argument>", "Specify how many parallel tasks should be used. If not "
                                       "specified, it will be calculated automatically");
    print_option("--help", "Display this help text");
    puts("\n\n"
         "Example usage:\n"
         "  To generate a new manifest file named \"foo\" for the files under the directory "
         "\"bar\", use;\n"
         "    kestrel -v -g --manifest=foo --instdir=bar\n"
         "\n"
         "  To check hashes in manifest file \"foo\" against the files under the directory "
         "\"bar\", use;\n"
         "    kestrel -v -c --manifest=foo --instdir=bar\n");
}

// --- Options

static const char *absolute_path(const char *path) {
    return os_is_absolute(path) ? sc_strdup(path) : sc_strdup(os_fullpath(path).get());
}

// "<position>,<start>,<end>"; false if it is not of that form. A range check is quiet.
static bool read_range(const char *text, Options &options) {
    verbose = 0;
    const char *first = strchr(text, ',');
    const char *second = first != nullptr ? strchr(first + 1, ',') : nullptr;
    if (second == nullptr) {
        fputs("Invalid syntax for option: --check\n", stderr);
        return false;
    }
    options.position = str_to_int32(text);
    options.start = str_to_int32(first + 1);
    options.end = str_to_int32(second + 1);
    options.range_check = true;
    TRACE_MESSAGE("Got range check option; Start position: %ld, start line: %d, end line: %d",
                  static_cast<long>(options.position), options.start, options.end);
    return true;
}

// Arguments that are not options are ignored. False if an option is malformed.
static bool read_option(const char *argument, Options &options) {
    const std::string_view option = argument;
    const auto value_of = [&](std::string_view prefix) {
        return option.starts_with(prefix) ? argument + prefix.size() : nullptr;
    };
    if (const char *path = value_of("--manifest=")) {
        options.manifest = absolute_path(path);
        TRACE_MESSAGE("Manifest file set to \"%s\"", options.manifest);
    } else if (const char *directory = value_of("--instdir=")) {
        options.instdir = absolute_path(directory);
        TRACE_MESSAGE("Install directory set to \"%s\"", options.instdir);
    } else if (option == "-v") {
        verbose++;
        TRACE_MESSAGE("Got verbose option");
    } else if (option == "-g") {
        options.generate = true;
        TRACE_MESSAGE("Got generate option");
    } else if (option == "-c") {
        options.check = true;
        TRACE_MESSAGE("Got check option");
    } else if (option == "-h" || option == "--help") {
        print_usage();
        cleanup(0);
    } else if (const char *range = value_of("--check=")) {
        return read_range(range, options);
    } else if (const char *tasks = value_of("--tasks=")) {
        task_limit = str_to_int32(tasks);
        TRACE_MESSAGE("Got task limit option for %d tasks", task_limit);
    }
    return true;
}

// --- Modes

namespace {

// How the run ends; `result` is for the debug log, null for none.
struct Ending {
    int status;
    const char *result = nullptr;
};

} // namespace

static void print_verdict(bool passed) {
    if (verbose != 0)
        printf("Verification %s\n", passed ? "passed" : "failed");
}

static Ending generate(const Options &options) {
    if (options.check) {
        print_usage();
        fputs("Both the generate -g and check -c options were provided. Only one can be accepted\n",
              stderr);
        return {1, "Both the generate and check options were given"};
    }
    if (!generate_manifest(options.manifest, options.instdir)) {
        fputs("There was a problem generating the manifest file\n", stderr);
        return {1, "Could not create manifest"};
    }
    if (verbose != 0)
        puts("Manifest file successfully created");
    return {0, "Manifest was successfully created"};
}

// If a range is given too, the whole check runs first, and the range decides.
static Ending check(const Options &options) {
    if (!options.check && !options.range_check) {
        print_usage();
        fputs("Missing generate -g or check -c options. One of them must be provided\n", stderr);
        return {1, "No generate/check/range check option was given"};
    }
    bool passed = false;
    if (options.check) {
        passed = check_manifest(options.manifest, options.instdir);
        TRACE_MESSAGE("Verification %s", passed ? "passed" : "failed");
    }
    if (options.range_check) {
        passed = check_manifest_range(options.manifest, options.instdir, options.position,
                                      static_cast<uint32_t>(options.start),
                                      static_cast<uint32_t>(options.end));
        TRACE_MESSAGE("Verification %s", passed ? "passed" : "failed");
    }
    print_verdict(passed);
    return {passed ? 0 : 1};
}

int main(int argc, char **argv) {
    runtime_init("kestrel", cleanup);
    os_catch_signals();
    program_name = sc_strdup(argc > 0 ? argv[0] : nullptr);
    Vector *arguments = cmdline_args(argc, argv);
    TRACE_ENTER();

    Options options;
    bool sound = true;
    for (const char *argument : VecEach<const char>(arguments))
        if (sound)
            sound = read_option(argument, options);
    vec_free(arguments);
    if (sound && options.instdir == nullptr) {
        print_usage();
        TRACE_MESSAGE("Installation directory was not specified");
        fputs("Missing installation directory. Please specify the tool path with the option: "
              "--instdir=path\n",
              stderr);
        cleanup(1);
    }
    Ending ending = {1, "Invalid syntax for --check option"};
    if (sound)
        ending = options.generate ? generate(options) : check(options);
    if (ending.result != nullptr)
        TRACE_EXIT("%s", ending.result);
    else
        TRACE_EXIT();
    cleanup(ending.status);
}
