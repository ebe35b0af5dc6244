#include "kestrel/options.h"

#include "command/slip.h"
#include "containers/stringcache.h"
#include "host/trace.h"
#include "kestrel/kestrel.h"
#include "kestrel/output.h"
#include "kestrel/progress.h"
#include "kestrel/settings.h"
#include "platform/osdep.h"

#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

static const char *absolute_path(const char *path) {
    return os_is_absolute(path) ? sc_strdup(path) : sc_strdup(os_fullpath(path).get());
}

// --- The readers of single options. Each is given the option's value; false if it is malformed.

static bool read_generate(const char *) {
    settings.generate = true;
    TRACE_MESSAGE("Got generate option");
    return true;
}

static bool read_check(const char *) {
    settings.check = true;
    TRACE_MESSAGE("Got check option");
    return true;
}

static bool read_verbose(const char *) {
    settings.verbose++;
    TRACE_MESSAGE("Got verbose option");
    return true;
}

static bool read_help(const char *) {
    print_usage();
    cleanup(0);
}

static bool read_version(const char *) {
    print("kestrel " KESTREL_VERSION "\n");
    cleanup(0);
}

static bool read_manifest(const char *value) {
    settings.manifest = absolute_path(value);
    TRACE_MESSAGE("Manifest file set to \"%s\"", settings.manifest);
    return true;
}

static bool read_instdir(const char *value) {
    settings.instdir = absolute_path(value);
    TRACE_MESSAGE("Install directory set to \"%s\"", settings.instdir);
    return true;
}

static bool read_tasks(const char *value) {
    settings.task_limit = str_to_int32(value);
    TRACE_MESSAGE("Got task limit option for %d tasks", settings.task_limit);
    return true;
}

// "<position>,<start>,<end>". A range check is quiet.
static bool read_range(const char *value) {
    settings.verbose = 0;
    const char *first = strchr(value, ',');
    const char *second = first != nullptr ? strchr(first + 1, ',') : nullptr;
    if (second == nullptr) {
        fputs("Invalid syntax for option: --check\n", stderr);
        settings.refusal = "Invalid syntax for --check option";
        return false;
    }
    settings.position = str_to_int32(value);
    settings.start = str_to_int32(first + 1);
    settings.end = str_to_int32(second + 1);
    settings.range_check = true;
    TRACE_MESSAGE("Got range check option; Start position: %ld, start line: %d, end line: %d",
                  static_cast<long>(settings.position), settings.start, settings.end);
    return true;
}

static bool read_digests(const char *value) {
    settings.digests = absolute_path(value);
    TRACE_MESSAGE("Digests file set to \"%s\"", settings.digests);
    return true;
}

static bool read_report(const char *) {
    settings.report = true;
    settings.report_file = nullptr;
    TRACE_MESSAGE("Got report option");
    return true;
}

static bool read_report_file(const char *value) {
    settings.report = true;
    settings.report_file = absolute_path(value);
    TRACE_MESSAGE("Report file set to \"%s\"", settings.report_file);
    return true;
}

static bool read_progress(const char *value) {
    progress_begin_task(value);
    return true;
}

// The debug log's own: it has been read before all others.
static bool pass_over(const char *) {
    return true;
}

static bool read_extra(const char *) {
    settings.report = true;
    settings.extra = true;
    TRACE_MESSAGE("Got extra option");
    return true;
}

static bool read_exclude(const char *value) {
    std::optional<PathPattern> pattern = path_pattern(host_path_style(), value);
    if (!pattern) {
        settings.refusal =
            sc_format("Invalid syntax for option: --exclude=%s", str_printable(value).get());
        fprintf(stderr, "%s\n", settings.refusal);
        return false;
    }
    settings.excluded.push_back(std::move(*pattern));
    TRACE_MESSAGE("Got exclude option for \"%s\"", value);
    return true;
}

static bool read_sort(const char *) {
    settings.sorted = true;
    TRACE_MESSAGE("Got sort option");
    return true;
}

// --- All options

namespace {

struct Option {
    std::string_view name; // a value follows a name that ends in "="
    const char *help;      // null for one that the help text leaves out
    bool (*read)(const char *value);
    bool is_guarded = false; // a slip in it is refused: without it the check would say less
};

} // namespace

// In the order of the help text. The manual page and the completion have the same options.
static constexpr Option OPTIONS[] = {
    {"-g",
     "Generate a manifest containing hashes of files found under the directory specified by "
     "--instdir",
     read_generate},
    {"-c",
     "Check a manifest containing hashes of files found under the directory specified by --instdir",
     read_check},
    {"-v", "Turn on verbose (default is on)", read_verbose},
    {"-h", "Display this help text", read_help},
    {"--manifest=", "The path to the manifest file", read_manifest},
    {"--instdir=", "The top-level directory where under the files to be verified or hashed exist",
     read_instdir},
    {"--tasks=",
     "Specify how many parallel tasks should be used. If not specified, it will be calculated "
     "automatically",
     read_tasks},
    {"--help", "Display this help text", read_help},
    {"--version", nullptr, read_version, true},
    {"--report", nullptr, read_report, true},
    {"--report=", nullptr, read_report_file},
    {"--extra", nullptr, read_extra, true},
    {"--exclude=", nullptr, read_exclude, true},
    {"--sort", nullptr, read_sort, true},
    {"--check=", nullptr, read_range},
    {"--digests=", nullptr, read_digests},
    {"--progress=", nullptr, read_progress},
    {"--zvdebug=", nullptr, pass_over},
};

// Arguments that are not options are ignored, but the debug log takes any that begins like its own.
static bool read_unknown(const char *argument) {
    for (const Option &option : OPTIONS)
        if (option.is_guarded && is_slip_in(option.name, argument)) {
            settings.refusal = sc_format("Argument \"%s\" is not an option; is %s meant?",
                                         str_printable(argument).get(), option.name.data());
            fprintf(stderr, "%s\n", settings.refusal);
            return false;
        }
    if (!std::string_view(argument).starts_with("--zvdebug"))
        settings.ignored.push_back(argument);
    return true;
}

bool read_option(const char *argument) {
    const std::string_view text = argument;
    for (const Option &option : OPTIONS) {
        const bool with_value = option.name.ends_with('=');
        if (with_value ? text.starts_with(option.name) : text == option.name)
            return option.read(argument + option.name.size());
    }
    return read_unknown(argument);
}

void print_usage() {
    print("Norvane Kestrel V" KESTREL_VERSION "\n"
          "Copyright (c) 2023 Norvane\n\n"
          "Options:\n");
    for (const Option &option : OPTIONS) {
        const std::string name =
            std::string(option.name) + (option.name.ends_with('=') ? "<argument>" : "");
        if (option.help != nullptr)
            print(sc_format("  %-25s    %s\n", name.c_str(), option.help));
    }
    print("\n\n"
          "Example usage:\n"
          "  To generate a new manifest file named \"foo\" for the files under the directory "
          "\"bar\", use;\n"
          "    kestrel -v -g --manifest=foo --instdir=bar\n"
          "\n"
          "  To check hashes in manifest file \"foo\" against the files under the directory "
          "\"bar\", use;\n"
          "    kestrel -v -c --manifest=foo --instdir=bar\n\n");
}
