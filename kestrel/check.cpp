// -c: checks a whole manifest, divided among copies of the program that run side by side.
#include "command/cmdline.h"
#include "containers/stringcache.h"
#include "debuglog/zvdebug.h"
#include "host/trace.h"
#include "kestrel/kestrel.h"
#include "kestrel/progress.h"
#include "kestrel/report.h"
#include "kestrel/steps.h"
#include "manifest/shahash.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <memory>
#include <string>
#include <utility>
#include <vector>

// --- Lines and where they begin

// Calls `begin` with the offset of each line; false, with the reason in `failure`, if the manifest
// cannot be read to its end.
template <class Begin> static bool each_line(FILE *file, Begin begin, const char **failure) {
    static std::array<char, 65536> block;
    uint64_t offset = 0;
    bool at_start = true;
    while (const size_t got = fread(block.data(), 1, block.size(), file)) {
        if (offset + got >= MANIFEST_LIMIT) {
            *failure = MANIFEST_TOO_LARGE; // it has grown
            return false;
        }
        for (const char *next = block.data(), *const end = next + got; next != end;) {
            if (at_start)
                begin(static_cast<uint32_t>(offset + static_cast<size_t>(next - block.data())));
            const void *feed = memchr(next, '\n', static_cast<size_t>(end - next));
            at_start = feed != nullptr;
            next = at_start ? static_cast<const char *>(feed) + 1 : end;
        }
        offset += got;
    }
    if (ferror(file) == 0)
        return true;
    *failure = CANNOT_READ_MANIFEST;
    return false;
}

static bool count_lines(FILE *file, uint32_t *lines, const char **failure) {
    *lines = 0;
    return each_line(
        file, [&](uint32_t) { ++*lines; }, failure);
}

// Replaces line numbers, in ascending order, by the offsets at which these lines begin.
static bool find_lines(FILE *file, std::vector<uint32_t> &lines, const char **failure) {
    rewind(file);
    uint32_t line = 0;
    size_t found = 0;
    const auto begin = [&](uint32_t offset) {
        if (found < lines.size() && lines[found] == line)
            lines[found++] = offset;
        line++;
    };
    if (!each_line(file, begin, failure))
        return false;
    if (found == lines.size())
        return true;
    *failure = CANNOT_READ_MANIFEST; // it has shrunk
    return false;
}

// --- Division into tasks

uint32_t adjusted_task_count(uint32_t lines, int32_t processors) {
    constexpr uint32_t MOST = INT32_MAX / 4;
    const uint32_t cores = std::min(static_cast<uint32_t>(std::max(processors, 1)), MOST);
    if (cores == 1)
        return 1;
    uint32_t tasks = 4 * cores;
    while (tasks > 1 && lines > tasks && lines / tasks <= 100)
        tasks--;
    return tasks;
}

TaskRange task_range(uint32_t lines, uint32_t tasks, uint32_t index) {
    const uint64_t each = lines / tasks;
    const uint64_t start = index == 0 ? 0 : index * each + 1;
    const uint64_t end = index + 1 == tasks ? lines : (index + 1) * each;
    return {static_cast<uint32_t>(start), static_cast<uint32_t>(end)};
}

// Whether a task has lines to check. If there are as many tasks as lines, or more, some have none;
// these are not started and have failed.
static bool has_lines(const TaskRange &range, uint32_t lines) {
    return range.start <= range.end && range.start < lines;
}

// The task after `task`. With fewer lines than tasks only the first and the last have any, and
// without a log the others leave no trace: they are skipped.
static uint32_t next_task(uint32_t task, uint32_t lines, uint32_t tasks) {
    return task == 0 && lines < tasks && trace_flags == 0 ? tasks - 1 : task + 1;
}

// The first lines of the tasks that have any.
static std::vector<uint32_t> first_lines(uint32_t lines, uint32_t tasks) {
    std::vector<uint32_t> first;
    for (uint32_t i = 0; i < tasks; i = next_task(i, lines, tasks))
        if (const TaskRange range = task_range(lines, tasks, i); has_lines(range, lines))
            first.push_back(range.start);
    return first;
}

static uint32_t choose_task_count(uint32_t lines) {
    if (task_limit > 0) {
        TRACE_MESSAGE("Number of cores set by --tasks to %d", task_limit);
        return static_cast<uint32_t>(task_limit);
    }
    const int32_t processors = os_ncores(true);
    TRACE_MESSAGE("Number of cores detected is: %d", processors);
    const uint32_t tasks = adjusted_task_count(lines, processors);
    TRACE_MESSAGE("Adjusted number of cores is: %d", tasks);
    return tasks;
}

// --- Starting copies of the program

const char *vecString(Vector *args) {
    TRACE_ENTER();
    const char *result = nullptr;
    if (vec_size(args) != 0) {
        std::string text;
        for (const char *argument : VecEach<const char>(args)) {
            if (argument == nullptr)
                continue;
            const bool quoted = strpbrk(argument, " \t\n\r") != nullptr;
            text += quoted ? "\"" : "";
            for (const char *c = argument; *c != '\0'; c++) {
                if (*c == '"')
                    text += '\\';
                text += *c;
            }
            text += quoted ? "\" " : " ";
        }
        result = sc_strdup(text.c_str());
    }
    return TRACE_RESULT(result, "returning string: \"%s\"", result != nullptr ? result : "(null)");
}

ProcessHandle runProgram(const char *exe, Vector *args) {
    TRACE_ENTER();
    std::vector<const char *> argv;
    for (const char *argument : VecEach<const char>(args))
        if (argument != nullptr)
            argv.push_back(argument);
    argv.push_back(nullptr);
    const ProcessHandle process = host_start_process(exe, argv.data(), vecString(args));
    if (process == 0) {
        TRACE_MESSAGE("The system's reason: %s", strerror(errno));
        return TRACE_RESULT(process, "Could not create process for \"%s\"", exe);
    }
    return TRACE_RESULT(process, "Successfully created process with id %lld",
                        static_cast<long long>(process));
}

// Without separators at the end, which would escape the quote that may follow.
static const char *without_end_separators(const char *directory) {
    return sc_ncopy(directory, path_trimmed_length(host_path_style(), directory));
}

namespace {

// The options that all tasks share.
struct TaskSetting {
    const char *exe;
    const char *manifest_option;
    const char *instdir_option;
};

} // namespace

// `part` is the file for the task's report, null for none.
static ProcessHandle start_task(const TaskSetting &setting, uint32_t position,
                                const TaskRange &range, const char *part) {
    const VectorPtr args(vec_new(__FILE__, __LINE__));
    vec_append(args.get(), setting.exe);
    vec_append(args.get(), setting.manifest_option);
    vec_append(args.get(), setting.instdir_option);
    vec_append(args.get(),
               sc_format("--check=%ld,%u,%u", static_cast<long>(position), range.start, range.end));
    if (part != nullptr)
        vec_append(args.get(), sc_format("--report=%s", cmdline_escape(part)));
    if (const char *counts = progress_add_task(); counts != nullptr)
        vec_append(args.get(), sc_format("--progress=%s", cmdline_escape(counts)));
    const char *log = sc_format("%s_%u-%u.out", host_tool_name, range.start, range.end);
    if (const char *debug = zvdebug_beside(log))
        vec_append(args.get(), debug);
    vec_append(args.get(), nullptr);
    return runProgram(setting.exe, args.get());
}

// --- The check

bool wait_for_task(ProcessHandle process, uint32_t number, int *status) {
    TRACE_MESSAGE("Waiting for process %d to finish", number);
    int got = 1;
    if (process == 0) {
        TRACE_MESSAGE("proc id is zero, process mustn't have started");
    } else {
        while (progress_is_on() && !host_await_end(process, 200))
            progress_poll();
        if (!host_wait_process(process, &got))
            got = 1;
    }
    if (status != nullptr)
        *status = got;
    if (got == 0)
        TRACE_MESSAGE("Process %d successfully verify its hashes", number);
    else
        TRACE_MESSAGE("Process %d did not successfully verify its hashes", number);
    return got == 0;
}

// How many lines a range has.
static uint64_t lines_in(const TaskRange &range, uint32_t lines) {
    return std::min<uint64_t>(uint64_t{range.end} + 1, lines) - range.start;
}

static const char *name_of(uint32_t task, const TaskRange &range, uint32_t lines) {
    return sc_format("Task %u (lines %llu to %llu)", task, range.start + 1ULL,
                     range.start + static_cast<unsigned long long>(lines_in(range, lines)));
}

// A file for a task's report; null without a report, or if there can be none.
static OwnedString new_part() {
    if (!report_is_on())
        return nullptr;
    static bool reported = false;
    OwnedString part = os_tempname_plain();
    if (part == nullptr && !std::exchange(reported, true))
        report_error("Cannot write temporary file: %s", strerror(errno));
    os_remove_at_exit(part.get());
    return part;
}

// Waits for a task that has been given lines, and takes in its report.
static bool finish_task(ProcessHandle process, uint32_t task, const TaskRange &range,
                        uint32_t lines, const char *part) {
    int status;
    const bool passed = wait_for_task(process, task, &status);
    const bool complete = report_part(part, lines_in(range, lines));
    if (process == 0 || (complete && status <= 1))
        return passed;
    // The programs' own statuses are 0 and 1; a signal that is caught leaves its number.
    constexpr int KILLED = 128;
    const char *name = name_of(task, range, lines);
    if (status > 1)
        report_error("%s ended by signal %d", name, status > KILLED ? status - KILLED : status);
    else
        report_error("%s left no complete report", name);
    return passed;
}

// All tasks are started before any is waited for, and all are waited for even after a failure.
// `positions` are those of the tasks that have lines.
static bool run_tasks(const TaskSetting &setting, uint32_t lines, uint32_t tasks,
                      const uint32_t *positions, ProcessHandle *handles) {
    TRACE_MESSAGE("Each core will do %d hashes", lines / tasks);
    std::deque<OwnedString> parts; // of the report, by the tasks that have lines
    for (uint32_t i = 0; i < tasks; i = next_task(i, lines, tasks)) {
        const TaskRange range = task_range(lines, tasks, i);
        TRACE_MESSAGE("Starting process %d", i);
        if (has_lines(range, lines)) {
            parts.push_back(new_part());
            handles[i] = start_task(setting, *positions++, range, parts.back().get());
            if (handles[i] == 0) {
                const char *reason = strerror(errno);
                report_error("%s could not be started: %s", name_of(i, range, lines), reason);
            }
        }
        TRACE_MESSAGE("got proc id %lld\n", static_cast<long long>(handles[i]));
    }
    bool passed = lines > tasks; // or some have none
    if (!passed)
        report_error("%zu of %u tasks had no line to check; use --tasks=1", tasks - parts.size(),
                     tasks);
    for (uint32_t i = 0; i < tasks; i = next_task(i, lines, tasks)) {
        const TaskRange range = task_range(lines, tasks, i);
        if (!has_lines(range, lines)) {
            wait_for_task(handles[i], i);
            continue;
        }
        passed = finish_task(handles[i], i, range, lines, parts.front().get()) && passed;
        parts.pop_front();
    }
    return passed;
}

static TaskSetting task_setting(const char *manifest, const char *instdir) {
    const OwnedString exe = os_progpath();
    return {exe != nullptr ? sc_strdup(exe.get()) : "",
            sc_format("--manifest=%s", cmdline_escape(manifest)),
            sc_format("--instdir=%s", cmdline_escape(without_end_separators(instdir)))};
}

// The verdict of the tasks; false, with the reason in `failure`, if they cannot be started at all.
static bool check_by_tasks(const TaskSetting &setting, FILE *file, uint32_t lines, uint32_t tasks,
                           const char **failure) {
    std::vector<uint32_t> positions = first_lines(lines, tasks);
    if (!find_lines(file, positions, failure))
        return false;
    const std::unique_ptr<ProcessHandle[], FreeDeleter> handles(
        static_cast<ProcessHandle *>(calloc(tasks, sizeof(ProcessHandle))));
    if (handles == nullptr) {
        *failure = "Could not allocate memory";
        return false;
    }
    return run_tasks(setting, lines, tasks, positions.data(), handles.get());
}

// Whether the manifest is still the one whose lines were counted. If not, what has passed is not
// what is there now.
static bool is_unchanged(const char *manifest, const FileState &counted) {
    FileState now;
    const bool unchanged = host_file_state(manifest, &now) && now == counted;
    if (!unchanged) {
        const char *failure = report_error("Manifest \"%s\" changed during the check", manifest);
        TRACE_MESSAGE("%s", failure);
    }
    return unchanged;
}

// What is left when the lines have been checked; the manifest is the one that was counted until the
// end. False if something is wrong after all.
static bool finish_check(const char *manifest, const char *instdir, uint32_t lines,
                         const char *opened, const FileState &counted) {
    report_cover(lines);
    progress_end();
    const bool complete = !extra_wanted || find_extra_files(manifest, instdir);
    expect_manifest(nullptr);
    return is_unchanged(opened, counted) && complete;
}

bool check_manifest(const char *manifest, const char *instdir) {
    TRACE_ENTER();
    if (const char *missing = missing_installation(instdir); missing != nullptr)
        return TRACE_RESULT(false, "%s", missing);
    manifest = manifest_path(manifest, instdir);
    announce("Checking", manifest, instdir);
    expect_manifest(nullptr);
    const OwnedString before = os_getcwd();
    const char *failure = nullptr;
    FileState counted;
    uint32_t lines = 0;
    // Open to the end: file systems that make up identities keep those of open files.
    const FilePtr file = open_manifest(manifest, instdir, before.get(), &counted, &failure);
    if (file == nullptr)
        return TRACE_RESULT(false, "%s", failure);
    if (!count_lines(file.get(), &lines, &failure)) {
        report_error("%s", failure);
        return TRACE_RESULT(false, "%s", failure);
    }
    const OwnedString opened = host_absolute_path(manifest);
    if (before != nullptr)
        enter_directory(before.get());

    progress_begin(lines);
    const uint32_t tasks = choose_task_count(lines);
    expect_manifest(&counted);
    if (tasks == 1) {
        TRACE_EXIT("Only 1 core available, doing manifest directly...");
        const bool passed = check_manifest_range(manifest, instdir, 0, 0, lines);
        return finish_check(manifest, instdir, lines, opened.get(), counted) && passed;
    }
    bool passed =
        check_by_tasks(task_setting(manifest, instdir), file.get(), lines, tasks, &failure);
    if (failure != nullptr) {
        report_error("%s", failure);
        report_cover(lines);
        return TRACE_RESULT(false, "%s", failure);
    }
    passed = finish_check(manifest, instdir, lines, opened.get(), counted) && passed;
    return TRACE_RESULT(passed, "Hash verification %s", passed ? "passed" : "failed");
}
