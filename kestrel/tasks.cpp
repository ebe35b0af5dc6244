#include "kestrel/tasks.h"

#include "command/cmdline.h"
#include "containers/stringcache.h"
#include "debuglog/zvdebug.h"
#include "host/trace.h"
#include "kestrel/report.h"
#include "kestrel/settings.h"
#include "manifest/progress.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <string>
#include <utility>

// --- The plan

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

static TaskRange task_range(const Plan &plan, uint32_t index) {
    const uint64_t each = plan.lines / plan.tasks;
    const uint64_t start = index == 0 ? 0 : index * each + 1;
    const uint64_t end = index + 1 == plan.tasks ? plan.lines : (index + 1) * each;
    return {static_cast<uint32_t>(start), static_cast<uint32_t>(end)};
}

// The task after `task`. With fewer lines than tasks only the first and the last have any, and
// without a log the others leave no trace: they are skipped.
static uint32_t next_task(const Plan &plan, uint32_t task) {
    return task == 0 && plan.lines < plan.tasks && trace_flags == 0 ? plan.tasks - 1 : task + 1;
}

Plan divide(uint32_t lines, uint32_t tasks) {
    Plan plan = {lines, tasks, {}};
    for (uint32_t i = 0; i < tasks; i = next_task(plan, i)) {
        const TaskRange range = task_range(plan, i);
        if (range.start <= range.end && range.start < lines)
            plan.given.push_back(
                {i, range, std::min<uint64_t>(uint64_t{range.end} + 1, lines) - range.start});
    }
    return plan;
}

uint32_t choose_task_count(uint32_t lines) {
    if (settings.task_limit > 0) {
        TRACE_MESSAGE("Number of cores set by --tasks to %d", settings.task_limit);
        return static_cast<uint32_t>(settings.task_limit);
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
        TRACE_MESSAGE("The system's reason: %s", host_strerror(errno));
        return TRACE_RESULT(process, "Could not create process for \"%s\"", exe);
    }
    return TRACE_RESULT(process, "Successfully created process with id %lld",
                        static_cast<long long>(process));
}

// Without separators at the end, which would escape the quote that may follow.
static const char *without_end_separators(const char *directory) {
    return sc_ncopy(directory, path_trimmed_length(host_path_style(), directory));
}

TaskSetting task_setting(const char *file, const char *instdir, const char *part_option) {
    const OwnedString exe = os_progpath();
    return {exe != nullptr ? sc_strdup(exe.get()) : "",
            sc_format("--manifest=%s", cmdline_escape(file)),
            sc_format("--instdir=%s", cmdline_escape(without_end_separators(instdir))),
            part_option};
}

static ProcessHandle start_task(const TaskSetting &setting, const Task &task) {
    const VectorPtr args(vec_new(__FILE__, __LINE__));
    const auto [start, end] = task.range;
    vec_append(args.get(), setting.exe);
    vec_append(args.get(), setting.file_option);
    vec_append(args.get(), setting.instdir_option);
    vec_append(args.get(),
               sc_format("--check=%ld,%u,%u", static_cast<long>(task.position), start, end));
    if (task.part != nullptr)
        vec_append(args.get(),
                   sc_format("%s%s", setting.part_option, cmdline_escape(task.part.get())));
    const char *log = sc_format("%s_%u-%u.out", host_tool_name, start, end);
    if (const char *debug = zvdebug_beside(log))
        vec_append(args.get(), debug);
    vec_append(args.get(), nullptr);
    return runProgram(setting.exe, args.get());
}

// --- All tasks of a run

bool wait_for_task(ProcessHandle process, uint32_t number, int *status) {
    int got;
    int &result = status != nullptr ? *status : got;
    result = 1;
    TRACE_MESSAGE("Waiting for process %d to finish", number);
    if (process == 0)
        TRACE_MESSAGE("proc id is zero, process mustn't have started");
    do
        progress_poll();
    while (!host_wait_process(process, &result, progress_is_on() ? 200 : NO_LIMIT));
    if (result == 0)
        TRACE_MESSAGE("Process %d successfully verify its hashes", number);
    else
        TRACE_MESSAGE("Process %d did not successfully verify its hashes", number);
    return result == 0;
}

const char *task_name(const Task &task) {
    return sc_format("Task %u (lines %llu to %llu)", task.number, task.range.start + 1ULL,
                     task.range.start + static_cast<unsigned long long>(task.lines));
}

// The environment variable that tells a task which process it belongs to.
static constexpr const char *PARENT = "kestrel_parent";

void end_with_parent() {
    const char *parent = host_getenv(PARENT);
    if (parent != nullptr && *parent != '\0')
        host_end_with(static_cast<uint32_t>(strtoul(parent, nullptr, 10)));
}

// The environment variable that tells a task which board it shares: its number there, a comma, and
// the board's file.
static constexpr const char *BOARD = "kestrel_board";

Board *task_board() {
    const char *told = host_getenv(BOARD);
    const char *comma = told != nullptr ? strchr(told, ',') : nullptr;
    if (comma == nullptr)
        return nullptr;
    static Board board(comma + 1, static_cast<uint32_t>(strtoul(told, nullptr, 10)));
    return &board;
}

// The file of a board for the tasks; null if there is none, and each of them works alone.
static OwnedString new_board(const Plan &plan) {
    const TraceSilence silence;
    OwnedString board = plan.given.size() > 1 ? os_tempname_plain() : nullptr;
    os_remove_at_exit(board.get());
    if (board != nullptr && !Board::make(board.get(), static_cast<uint32_t>(plan.given.size()),
                                         plan.lines, static_cast<uint32_t>(os_ncores(true))))
        board.reset();
    progress_share(board.get());
    return board;
}

// A file for what a task writes; null if there can be none.
static OwnedString new_part() {
    static bool reported = false;
    OwnedString part = os_tempname_plain();
    if (part == nullptr && !std::exchange(reported, true))
        report_error("Cannot write temporary file: %s", host_strerror(errno));
    os_remove_at_exit(part.get());
    return part;
}

void start_tasks(const TaskSetting &setting, Plan &plan) {
    TRACE_MESSAGE("Each core will do %d hashes", plan.lines / plan.tasks);
    os_setenv(PARENT, std::to_string(host_process_id()).c_str());
    const OwnedString board = new_board(plan);
    uint32_t number = 0; // on the board
    auto task = plan.given.begin();
    for (uint32_t i = 0; i < plan.tasks; i = next_task(plan, i)) {
        TRACE_MESSAGE("Starting process %d", i);
        ProcessHandle process = 0;
        if (task != plan.given.end() && task->number == i) {
            task->part = setting.part_option != nullptr ? new_part() : nullptr;
            if (board != nullptr)
                os_setenv(BOARD, (std::to_string(number++) + "," + board.get()).c_str());
            task->process = process = start_task(setting, *task);
            task++->reason = errno;
        }
        TRACE_MESSAGE("got proc id %lld\n", static_cast<long long>(process));
    }
    os_setenv(PARENT, "");
    os_setenv(BOARD, "");
}

bool run_tasks(const TaskSetting &setting, Plan plan, const FinishTask &finish) {
    start_tasks(setting, plan);
    bool passed = plan.lines > plan.tasks; // with as many tasks as lines some get no line
    if (plan.lines == 0)
        report_error("The manifest is empty");
    else if (!passed)
        report_error("%zu of %u tasks had no line to check; use --tasks=1",
                     plan.tasks - plan.given.size(), plan.tasks);
    for (uint32_t i = 0; i < plan.tasks; i = next_task(plan, i)) {
        if (plan.given.empty() || plan.given.front().number != i) {
            wait_for_task(0, i);
            continue;
        }
        passed = finish(plan.given.front()) && passed;
        plan.given.pop_front();
    }
    return passed;
}
