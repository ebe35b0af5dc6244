// The program's entry: options, their validation and the choice of the mode.
#include "command/cmdline.h"
#include "debuglog/package.h"
#include "host/trace.h"
#include "kestrel/hash_tasks.h"
#include "kestrel/kestrel.h"
#include "kestrel/options.h"
#include "kestrel/output.h"
#include "kestrel/report.h"
#include "kestrel/settings.h"
#include "kestrel/tasks.h"
#include "manifest/progress.h"
#include "runtime.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>

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

static bool begin_report() {
    return report_begin(settings.report_file,
                        settings.instdir != nullptr
                            ? manifest_path(settings.manifest, settings.instdir)
                            : settings.manifest);
}

// Reports what is not done although it was asked for; false if the run fails for it.
static bool report_ignored() {
    if (!settings.report)
        return true;
    bool heeded = true;
    const auto ignored = [&heeded](const char *text) {
        TRACE_MESSAGE("%s", text);
        heeded = false;
    };
    if (settings.extra && !settings.check)
        ignored(report_error("--extra is for -c, and was ignored"));
    for (const char *argument : settings.ignored)
        ignored(report_error("Argument \"%s\" was ignored", argument));
    return heeded;
}

// The whole report of a run that does nothing; `reason` may be null.
static void report_refusal(const char *reason) {
    if (reason != nullptr)
        report_error("%s", reason);
    report_ignored();
    report_end_check();
}

// Tells a person who has not asked for a report why the run has failed; `unknown` may be empty.
static void print_reason(const char *unknown) {
    if (settings.report || settings.verbose == 0 || !host_is_terminal(STDERR_DESCRIPTOR) ||
        !host_is_foreground(STDERR_DESCRIPTOR))
        return;
    const std::string reason = report_first_reason();
    const std::string text = !reason.empty() ? reason : unknown;
    if (!text.empty())
        fprintf(stderr, "%s\n", text.c_str());
}

static void print_verdict(bool passed) {
    if (settings.verbose != 0)
        print(passed ? "Verification passed\n" : "Verification failed\n");
}

static Ending generate() {
    if (settings.check) {
        print_usage();
        fputs("Both the generate -g and check -c options were provided. Only one can be accepted\n",
              stderr);
        return {1, "Both the generate and check options were given"};
    }
    const bool generated =
        report_ignored() && generate_manifest(settings.manifest, settings.instdir);
    const bool written = report_end_generate();
    if (!generated) {
        flush_output(); // records come first where both streams are one
        print_reason("");
        fputs("There was a problem generating the manifest file\n", stderr);
        return {1, "Could not create manifest"};
    }
    if (settings.verbose != 0)
        print("Manifest file successfully created\n");
    return {written ? 0 : 1, "Manifest was successfully created"};
}

// An option that a check would not heed; null if there is none. Nobody is to rely on it.
static const char *idle_option() {
    if (settings.sorted)
        return "--sort is for -g";
    return settings.excluded.empty() || (settings.check && settings.extra)
               ? nullptr
               : "--exclude is for -g, and for -c with --extra";
}

// If a range is given too, the whole check runs first, and the range decides.
static Ending check() {
    if (!settings.check && !settings.range_check) {
        print_usage();
        fputs("Missing generate -g or check -c options. One of them must be provided\n", stderr);
        return {1, "No generate/check/range check option was given"};
    }
    if (const char *idle = idle_option(); idle != nullptr) {
        fprintf(stderr, "%s\n", idle);
        return {1, idle};
    }
    bool passed = false;
    if (settings.check) {
        passed = check_manifest(settings.manifest, settings.instdir);
        TRACE_MESSAGE("Verification %s", passed ? "passed" : "failed");
    }
    if (settings.range_check) {
        passed = check_manifest_range(settings.manifest, settings.instdir, settings.position,
                                      static_cast<uint32_t>(settings.start),
                                      static_cast<uint32_t>(settings.end));
        TRACE_MESSAGE("Verification %s", passed ? "passed" : "failed");
    }
    progress_end();
    passed = report_ignored() && passed;
    const bool written = report_end_check();
    if (!passed)
        print_reason("Not every line could be verified; --report says which and why");
    print_verdict(passed);
    return {passed && written ? 0 : 1};
}

// What a task does for -g. That a signal ends it is for the parent to say, which sees it.
static Ending hash() {
    for (const int number : host_caught_signals())
        host_on_signal(number, SIG_DFL);
    const bool hashed = hash_list_range(settings.manifest,
                                        {settings.position, static_cast<uint32_t>(settings.start),
                                         static_cast<uint32_t>(settings.end)},
                                        settings.digests);
    progress_end();
    return {hashed ? 0 : 1};
}

static Ending run() {
    if (settings.generate)
        return generate();
    const bool is_list = settings.digests != nullptr && settings.manifest != nullptr;
    return is_list && settings.range_check && !settings.check ? hash() : check();
}

int main(int argc, char **argv) {
    runtime_init("kestrel", cleanup);
    os_catch_signals();
    host_arguments(&argc, &argv);
    Vector *arguments = cmdline_args(argc, argv);
    TRACE_ENTER();

    bool sound = true;
    for (const char *argument : VecEach<const char>(arguments)) {
        sound = read_option(argument);
        if (!sound)
            break;
    }
    vec_free(arguments);
    if (settings.range_check) {
        end_with_parent();
        progress_begin_task(task_board());
    }
    if (sound && settings.instdir == nullptr) {
        print_usage();
        TRACE_MESSAGE("Installation directory was not specified");
        fputs("Missing installation directory. Please specify the tool path with the option: "
              "--instdir=path\n",
              stderr);
        if (settings.report && begin_report())
            report_refusal("Installation directory was not specified");
        cleanup(1);
    }
    Ending ending = {1, settings.refusal};
    if (settings.report && !begin_report())
        ending.result = "Could not write the report";
    else if (sound)
        ending = run();
    if (report_is_on())
        report_refusal(ending.result);
    if (ending.result != nullptr)
        TRACE_EXIT("%s", ending.result);
    else
        TRACE_EXIT();
    cleanup(ending.status);
}
