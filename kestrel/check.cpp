// -c: checks a whole manifest, divided among copies of the program that run side by side.
#include "cmdline.h"
#include "kestrel.h"
#include "shahash.h"
#include "stringcache.h"
#include "trace.h"
#include "zvdebug.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// --- The index: where each line begins

// Element k is a cell with the offset of line k; the last one's is the end of the file.
using LineIndex = BlockVectorPtr;

// False if there is no memory for the cell.
static bool append_offset(Vector *index, uint32_t offset) {
    auto *cell = static_cast<uint32_t *>(malloc(sizeof(uint32_t)));
    if (cell == nullptr)
        return false;
    *cell = offset;
    vec_append(index, cell);
    return true;
}

// Null, with the reason in `failure`, if the manifest cannot be indexed.
static LineIndex index_lines(FILE *file, const char **failure) {
    LineIndex index(vec_new(__FILE__, __LINE__));
    *failure = "Could not allocate memory";
    if (!append_offset(index.get(), 0))
        return nullptr;
    uint64_t offset = 0;
    for (std::string_view line; !(line = sc_readLineBytes(file)).empty();) {
        offset += line.size();
        if (offset > INT32_MAX) {
            *failure = "Manifest is too large";
            return nullptr;
        }
        if (!append_offset(index.get(), static_cast<uint32_t>(offset)))
            return nullptr;
    }
    *failure = "Could not read manifest file";
    return ferror(file) == 0 ? std::move(index) : nullptr;
}

// A line beyond the index has no position.
static uint32_t position_of(const LineIndex &index, uint32_t line) {
    const auto *cell = vec_at<uint32_t>(index.get(), line);
    return cell != nullptr ? *cell : 0;
}

// --- Division into tasks

uint32_t adjusted_task_count(uint32_t lines, int32_t processors) {
    constexpr uint32_t most = INT32_MAX / 4;
    const uint32_t cores = std::min(static_cast<uint32_t>(std::max(processors, 1)), most);
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
    TRACE_EXIT("returning string: \"%s\"", result != nullptr ? result : "(null)");
    return result;
}

ProcessHandle runProgram(const char *exe, Vector *args) {
    TRACE_ENTER();
    std::vector<const char *> argv;
    for (const char *argument : VecEach<const char>(args))
        if (argument != nullptr)
            argv.push_back(argument);
    argv.push_back(nullptr);
    const ProcessHandle process = host_start_process(exe, argv.data(), vecString(args));
    if (process != 0)
        TRACE_EXIT("Successfully created process with id %lld", static_cast<long long>(process));
    else
        TRACE_EXIT("Could not create process for \"%s\"", exe);
    return process;
}

// Without a separator at the end, which would escape the quote that may follow it.
static const char *without_end_separators(const char *directory) {
    const PathStyle &style = host_path_style();
    size_t length = strlen(directory);
    while (length > 1 && path_is_separator(style, directory[length - 1]) &&
           !(style.drives && directory[length - 2] == ':'))
        length--;
    return sc_ncopy(directory, length);
}

// The debug option of the task for a range, which logs beside this process's own log under a name
// of its own; null when nothing is logged. A comma would end the name and a plus sign at its start
// has a meaning, so a name with the one is not passed on and one with the other is led by ".".
static const char *debug_argument(const TaskRange &range) {
    if (trace_flags == 0)
        return nullptr;
    const char *name = sc_format("kestrel_%u-%u.out", range.start, range.end);
    if (const char *log = zvdebug_out_path())
        name = sc_concat(sc_ncopy(log, static_cast<size_t>(os_basename(log) - log)), name);
    if (strchr(name, ',') != nullptr)
        return nullptr;
    if (*name == '+')
        name = sc_pathJoin(".", name);
    return sc_format("--zvdebug=on,out:%s", name);
}

// What every task is told.
struct TaskSetting {
    const char *exe;
    const char *manifest_option;
    const char *instdir_option;
};

static ProcessHandle start_task(const TaskSetting &setting, uint32_t position,
                                const TaskRange &range) {
    const VectorPtr args(vec_new(__FILE__, __LINE__));
    vec_append(args.get(), setting.exe);
    vec_append(args.get(), setting.manifest_option);
    vec_append(args.get(), setting.instdir_option);
    vec_append(args.get(),
               sc_format("--check=%ld,%u,%u", static_cast<long>(position), range.start, range.end));
    if (const char *debug = debug_argument(range))
        vec_append(args.get(), debug);
    vec_append(args.get(), nullptr);
    return runProgram(setting.exe, args.get());
}

// --- The check

bool wait_for_task(ProcessHandle process, uint32_t number) {
    TRACE_MESSAGE("Waiting for process %d to finish", number);
    int status = 1;
    if (process == 0)
        TRACE_MESSAGE("proc id is zero, process mustn't have started");
    else if (!host_wait_process(process, &status))
        status = 1;
    if (status == 0)
        TRACE_MESSAGE("Process %d successfully verify its hashes", number);
    else
        TRACE_MESSAGE("Process %d did not successfully verify its hashes", number);
    return status == 0;
}

// All tasks are started before any is waited for, and all are waited for even after a failure.
static bool run_tasks(const TaskSetting &setting, const LineIndex &index, uint32_t tasks,
                      ProcessHandle *handles) {
    const uint32_t lines = vec_size(index.get()) - 1;
    TRACE_MESSAGE("Each core will do %d hashes", lines / tasks);
    for (uint32_t i = 0; i < tasks; i++) {
        const TaskRange range = task_range(lines, tasks, i);
        TRACE_MESSAGE("Starting process %d", i);
        handles[i] = start_task(setting, position_of(index, range.start), range);
        TRACE_MESSAGE("got proc id %lld\n", static_cast<long long>(handles[i]));
    }
    bool passed = true;
    for (uint32_t i = 0; i < tasks; i++)
        passed = wait_for_task(handles[i], i) && passed;
    return passed;
}

bool check_manifest(const char *manifest, const char *instdir) {
    TRACE_ENTER();
    if (!os_exists(instdir)) {
        TRACE_EXIT("Given installation path \"%s\" does not exist", instdir);
        return false;
    }
    manifest = manifest_path(manifest, instdir);
    if (verbose != 0)
        printf("Checking manifest \"%s\" for installation \"%s\"\n", manifest, instdir);
    const OwnedString before = os_getcwd();
    const char *failure = nullptr;
    FilePtr file = open_manifest(manifest, instdir, before.get(), &failure);
    if (file == nullptr) {
        TRACE_EXIT("%s", failure);
        return false;
    }
    LineIndex index = index_lines(file.get(), &failure);
    file.reset();
    if (index == nullptr) {
        TRACE_EXIT("%s", failure);
        return false;
    }
    if (before != nullptr)
        enter_directory(before.get());

    const uint32_t lines = vec_size(index.get()) - 1;
    const uint32_t tasks = choose_task_count(lines);
    if (tasks == 1) {
        TRACE_EXIT("Only 1 core available, doing manifest directly...");
        index.reset();
        return check_manifest_range(manifest, instdir, 0, 0, lines);
    }
    const std::unique_ptr<ProcessHandle[], FreeDeleter> handles(
        static_cast<ProcessHandle *>(calloc(tasks, sizeof(ProcessHandle))));
    const OwnedString exe = os_progpath();
    if (handles == nullptr) {
        TRACE_EXIT("Could not allocate memory");
        return false;
    }
    const TaskSetting setting = {
        exe != nullptr ? sc_strdup(exe.get()) : "",
        sc_format("--manifest=%s", cmdline_escape(manifest)),
        sc_format("--instdir=%s", cmdline_escape(without_end_separators(instdir)))};
    const bool passed = run_tasks(setting, index, tasks, handles.get());
    TRACE_EXIT("Hash verification %s", passed ? "passed" : "failed");
    return passed;
}
