// The program's entry: options, their validation and the choice of the mode.
#include "command/cmdline.h"
#include "containers/stringcache.h"
#include "debuglog/package.h"
#include "host/trace.h"
#include "kestrel/kestrel.h"
#include "kestrel/options.h"
#include "kestrel/progress.h"
#include "kestrel/report.h"
#include "kestrel/steps.h"
#include "kestrel/tasks.h"
#include "runtime.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>

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

// --- Modes

namespace {

// How the run ends; `result` is for the debug log, null for none.
struct Ending {
    int status;
    const char *result = nullptr;
};

} // namespace

static bool begin_report(const Options &options) {
    return report_begin(options.report_file, options.instdir != nullptr
                                                 ? manifest_path(options.manifest, options.instdir)
                                                 : options.manifest);
}

// Reports what is not done although it was asked for; false if the run fails for it.
static bool report_ignored(const Options &options) {
    if (!options.report)
        return true;
    bool heeded = true;
    const auto ignored = [&heeded](const char *text) {
        TRACE_MESSAGE("%s", text);
        heeded = false;
    };
    if (extra_wanted && !options.check)
        ignored(report_error("--extra is for -c, and was ignored"));
    for (const char *argument : options.ignored)
        ignored(report_error("Argument \"%s\" was ignored", argument));
    return heeded;
}

// The whole report of a run that does nothing; `reason` may be null.
static void report_refusal(const Options &options, const char *reason) {
    if (reason != nullptr)
        report_error("%s", reason);
    report_ignored(options);
    report_end_check();
}

static void print_verdict(bool passed) {
    if (verbose != 0)
        print(passed ? "Verification passed\n" : "Verification failed\n");
}

static Ending generate(const Options &options) {
    if (options.check) {
        print_usage();
        fputs("Both the generate -g and check -c options were provided. Only one can be accepted\n",
              stderr);
        return {1, "Both the generate and check options were given"};
    }
    const bool generated =
        report_ignored(options) && generate_manifest(options.manifest, options.instdir);
    const bool written = report_end_generate();
    if (!generated) {
        flush_output(); // records come first where both streams are one
        fputs("There was a problem generating the manifest file\n", stderr);
        return {1, "Could not create manifest"};
    }
    if (verbose != 0)
        print("Manifest file successfully created\n");
    return {written ? 0 : 1, "Manifest was successfully created"};
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
    progress_end();
    passed = report_ignored(options) && passed;
    const bool written = report_end_check();
    print_verdict(passed);
    return {passed && written ? 0 : 1};
}

// What a task does for -g. That a signal ends it is for the parent to say, which sees it.
static Ending hash(const Options &options) {
    for (const int number : host_caught_signals())
        host_on_signal(number, SIG_DFL);
    const bool hashed =
        hash_list_range(options.manifest, options.position, static_cast<uint32_t>(options.start),
                        static_cast<uint32_t>(options.end), options.digests);
    progress_end();
    return {hashed ? 0 : 1};
}

static Ending run(const Options &options) {
    if (options.generate)
        return generate(options);
    const bool is_list = options.digests != nullptr && options.manifest != nullptr;
    return is_list && options.range_check && !options.check ? hash(options) : check(options);
}

int main(int argc, char **argv) {
    runtime_init("kestrel", cleanup);
    os_catch_signals();
    host_arguments(&argc, &argv);
    program_name = sc_strdup(argc > 0 ? argv[0] : nullptr);
    Vector *arguments = cmdline_args(argc, argv);
    TRACE_ENTER();

    Options options;
    bool sound = true;
    for (const char *argument : VecEach<const char>(arguments)) {
        sound = read_option(argument, options);
        if (!sound)
            break;
    }
    vec_free(arguments);
    if (options.range_check)
        end_with_parent();
    if (sound && options.instdir == nullptr) {
        print_usage();
        TRACE_MESSAGE("Installation directory was not specified");
        fputs("Missing installation directory. Please specify the tool path with the option: "
              "--instdir=path\n",
              stderr);
        if (options.report && begin_report(options))
            report_refusal(options, "Installation directory was not specified");
        cleanup(1);
    }
    Ending ending = {1, options.refusal};
    if (options.report && !begin_report(options))
        ending.result = "Could not write the report";
    else if (sound)
        ending = run(options);
    if (report_is_on())
        report_refusal(options, ending.result);
    if (ending.result != nullptr)
        TRACE_EXIT("%s", ending.result);
    else
        TRACE_EXIT();
    cleanup(ending.status);
}
