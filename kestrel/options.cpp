#include "kestrel/options.h"

#include "command/slip.h"
#include "containers/stringcache.h"
#include "host/trace.h"
#include "kestrel/kestrel.h"
#include "kestrel/output.h"
#include "kestrel/settings.h"
#include "platform/osdep.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

// Sets a path, which the debug log calls by a name.
static void set_path(const char **setting, const char *path, const char *name) {
    *setting = sc_strdup(os_is_absolute(path) ? path : os_fullpath(path).get());
    TRACE_MESSAGE("%s set to \"%s\"", name, *setting);
}

// --- The readers of single options, which are given the option's value

static void read_generate(const char *) {
    settings.generate = true;
    TRACE_MESSAGE("Got generate option");
}

static void read_check(const char *) {
    settings.check = true;
    TRACE_MESSAGE("Got check option");
}

static void read_verbose(const char *) {
    settings.verbose++;
    TRACE_MESSAGE("Got verbose option");
}

static void read_help(const char *) {
    print_usage();
    cleanup(0);
}

static void read_version(const char *) {
    print("kestrel " KESTREL_VERSION "\n");
    cleanup(0);
}

static void read_manifest(const char *value) {
    set_path(&settings.manifest, value, "Manifest file");
}

static void read_instdir(const char *value) {
    set_path(&settings.instdir, value, "Install directory");
}

static void read_tasks(const char *value) {
    settings.task_limit = str_to_int32(value);
    TRACE_MESSAGE("Got task limit option for %d tasks", settings.task_limit);
}

// "<position>,<start>,<end>". A range check is quiet.
static void read_range(const char *value) {
    settings.verbose = 0;
    const char *first = strchr(value, ',');
    const char *second = first != nullptr ? strchr(first + 1, ',') : nullptr;
    if (second == nullptr) {
        fputs("Invalid syntax for option: --check\n", stderr);
        settings.refusal = "Invalid syntax for --check option";
        return;
    }
    settings.position = str_to_int32(value);
    settings.start = str_to_int32(first + 1);
    settings.end = str_to_int32(second + 1);
    settings.range_check = true;
    TRACE_MESSAGE("Got range check option; Start position: %ld, start line: %d, end line: %d",
                  static_cast<long>(settings.position), settings.start, settings.end);
}

static void read_digests(const char *value) {
    set_path(&settings.digests, value, "Digests file");
}

static void read_report(const char *) {
    settings.report = true;
    settings.report_file = nullptr;
    TRACE_MESSAGE("Got report option");
}

static void read_report_file(const char *value) {
    settings.report = true;
    set_path(&settings.report_file, value, "Report file");
}

// The debug log's own: it has been read before all others.
static void pass_over(const char *) {}

static void read_extra(const char *) {
    settings.report = true;
    settings.extra = true;
    TRACE_MESSAGE("Got extra option");
}

// --- All options

namespace {

struct Option {
    std::string_view name; // a value follows a name that ends in "="
    const char *help;      // null for one that the help text leaves out
    void (*read)(const char *value);
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
    {"--check=", nullptr, read_range},
    {"--digests=", nullptr, read_digests},
    {"--zvdebug=", nullptr, pass_over},
};

// Arguments that are not options are ignored, but the debug log takes any that begins like its own.
static void read_unknown(const char *argument) {
    for (const Option &option : OPTIONS)
        if (option.is_guarded && is_slip_in(option.name, argument)) {
            settings.refusal = sc_format("Argument \"%s\" is not an option; is %s meant?",
                                         str_printable(argument).get(), option.name.data());
            fprintf(stderr, "%s\n", settings.refusal);
            return;
        }
    if (!std::string_view(argument).starts_with("--zvdebug"))
        settings.ignored.push_back(argument);
}

bool read_option(const char *argument) {
    const std::string_view text = argument;
    const auto *const option =
        std::find_if(std::begin(OPTIONS), std::end(OPTIONS), [&](const Option &known) {
            return known.name.ends_with('=') ? text.starts_with(known.name) : text == known.name;
        });
    if (option != std::end(OPTIONS))
        option->read(argument + option->name.size());
    else
        read_unknown(argument);
    return settings.refusal == nullptr;
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
