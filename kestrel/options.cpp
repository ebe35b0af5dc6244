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
#include <utility>

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

static void read_exclude(const char *value) {
    std::optional<PathPattern> pattern = path_pattern(host_path_style(), value);
    if (!pattern) {
        settings.refusal =
            sc_format("Invalid syntax for option: --exclude=%s", str_printable(value).get());
        fprintf(stderr, "%s\n", settings.refusal);
        return;
    }
    settings.excluded.push_back(std::move(*pattern));
    TRACE_MESSAGE("Got exclude option for \"%s\"", value);
}

static void read_sort(const char *) {
    settings.sorted = true;
    TRACE_MESSAGE("Got sort option");
}

// --- All options

namespace {

struct Option {
    std::string_view name; // a value follows a name that ends in "="
    const char *value;     // what that is; null for none
    const char *help;      // null for what only tasks are given
    void (*read)(const char *value);
    bool is_further = false; // the help has it on a terminal only
    bool is_guarded = false; // a slip in it is refused: the run would do other than is asked for
};

} // namespace

// In the order of the help text. The manual page and the completion have the same options.
static constexpr Option OPTIONS[] = {
    {"-g", nullptr,
     "Generate a manifest containing hashes of files found under the directory specified by "
     "--instdir",
     read_generate},
    {"-c", nullptr,
     "Check a manifest containing hashes of files found under the directory specified by --instdir",
     read_check},
    {"-v", nullptr, "Turn on verbose (default is on)", read_verbose},
    {"-h", nullptr, "Display this help text", read_help},
    {"--manifest=", "file", "The path to the manifest file", read_manifest},
    {"--instdir=", "directory",
     "The top-level directory where under the files to be verified or hashed exist", read_instdir},
    {"--tasks=", "n",
     "Specify how many parallel tasks should be used. If not specified, it will be calculated "
     "automatically",
     read_tasks},
    {"--help", nullptr, "Display this help text", read_help},
    {"--version", nullptr, "Print the version", read_version, true, true},
    {"--report", nullptr, "Check every line, and say what is wrong, or why nothing can be checked",
     read_report, true, true},
    {"--report=", "file", "The same, to a file", read_report_file, true},
    {"--extra", nullptr, "With -c: also report files that the manifest does not list", read_extra,
     true, true},
    {"--exclude=", "pattern",
     "With -g or --extra: leave out what matches, like \"*.pyc\" or \"/build\"", read_exclude, true,
     true},
    {"--sort", nullptr, "With -g: list files by their paths; equal trees have equal manifests",
     read_sort, true, true},
    {"--zvdebug=", "items", "Write a log of what the program does, like --zvdebug=on,out:<file>",
     pass_over, true},
    {"--check=", nullptr, nullptr, read_range},
    {"--digests=", nullptr, nullptr, read_digests},
};

// Arguments that are not options are ignored, which only a terminal hears of unless there is a
// report. The debug log takes any that begins like its own.
static void ignore(const char *argument) {
    if (std::string_view(argument).starts_with("--zvdebug"))
        return;
    settings.ignored.push_back(argument);
    if (!host_is_terminal(STDERR_DESCRIPTOR) || !host_is_foreground(STDERR_DESCRIPTOR))
        return;
    for (const Option &option : OPTIONS)
        if (option.value != nullptr && option.name.substr(0, option.name.size() - 1) == argument) {
            fprintf(stderr, "A value follows \"=\": %s<%s>\n", option.name.data(), option.value);
            return;
        }
    fprintf(stderr, "Argument \"%s\" is not an option, and was ignored\n",
            str_printable(argument).get());
}

static void read_unknown(const char *argument) {
    for (const Option &option : OPTIONS)
        if (option.is_guarded && is_slip_in(option.name, argument)) {
            settings.refusal = sc_format("Argument \"%s\" is not an option; is %s meant?",
                                         str_printable(argument).get(), option.name.data());
            fprintf(stderr, "%s\n", settings.refusal);
            return;
        }
    ignore(argument);
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

static void print_options(bool further) {
    for (const Option &option : OPTIONS) {
        if (option.help == nullptr || option.is_further != further)
            continue;
        std::string name(option.name);
        if (option.value != nullptr)
            name += std::string("<") + (further ? option.value : "argument") + ">";
        print(sc_format("  %-25s    %s\n", name.c_str(), option.help));
    }
}

// Programs may compare the text: what is added to it is for a person's eyes.
void print_usage() {
    print("Norvane Kestrel V" KESTREL_VERSION "\n"
          "Copyright (c) 2023 Norvane\n\n"
          "Options:\n");
    print_options(false);
    print("\n\n"
          "Example usage:\n"
          "  To generate a new manifest file named \"foo\" for the files under the directory "
          "\"bar\", use;\n"
          "    kestrel -v -g --manifest=foo --instdir=bar\n"
          "\n"
          "  To check hashes in manifest file \"foo\" against the files under the directory "
          "\"bar\", use;\n"
          "    kestrel -v -c --manifest=foo --instdir=bar\n\n");
    if (!host_is_terminal(STDOUT_DESCRIPTOR))
        return;
    print("Further options, which the manual describes (kestrel.1, docs/kestrel.md):\n");
    print_options(true);
    print("\n");
}
