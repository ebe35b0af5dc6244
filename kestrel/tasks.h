// Copies of the program that run side by side, each on a range of the lines of one file.
#ifndef KESTREL_KESTREL_TASKS_H
#define KESTREL_KESTREL_TASKS_H

#include "containers/vector.h"
#include "manifest/board.h"
#include "platform/osdep.h"

#include <cstdint>
#include <deque>
#include <functional>

// --- The plan

// Returns the number of tasks for so many lines if none is asked for: one if there is only one
// processor; else four per processor, which is lowered, unless there are no more lines than that,
// until each does more than 100 lines or one is left.
uint32_t adjusted_task_count(uint32_t lines, int32_t processors);

// Returns what --tasks asks for, or adjusted_task_count() for this machine. The debug log says how
// it was found.
uint32_t choose_task_count(uint32_t lines);

// A range of lines, both ends included. The end of the last task's range is one past the last line.
struct TaskRange {
    uint32_t start;
    uint32_t end;
};

// A copy that is given lines.
struct Task {
    uint32_t number;
    TaskRange range;
    uint64_t lines;             // in the range
    uint32_t position = 0;      // offset of the first of them in their file
    OwnedString part = nullptr; // the file that it writes; null if there is none
    ProcessHandle process = 0;  // 0 if it could not be started
    int reason = 0;             // errno, if not
};

// The tasks of a run.
struct Plan {
    uint32_t lines;
    uint32_t tasks;         // ranges that the lines are divided into, some of which may be empty
    std::deque<Task> given; // those that have lines, in ascending order
};

// Divides lines among tasks, each line to one. With q = lines / tasks, rounded down, the first task
// has q + 1 lines, the last those that are left, and each other one q. With as many tasks as lines,
// or more, some have none.
Plan divide(uint32_t lines, uint32_t tasks);

// --- Programs

// Starts a copy of the program, or another program; 0 if it could not be started. `args` begins
// with the program's path; null entries are left out.
ProcessHandle runProgram(const char *exe, Vector *args);

// Waits for a copy, shows the progress meanwhile, and logs how it has ended. True if it could be
// started, and its status, which goes to `status`, is 0.
bool wait_for_task(ProcessHandle process, uint32_t number, int *status = nullptr);

// Joins arguments to one command line (interned): double quotes escaped, arguments with white space
// quoted, each followed by a space. Null for null or an empty vector.
const char *vecString(Vector *args);

// --- All tasks of a run

// What the tasks of a run have in common. The strings are interned.
struct TaskSetting {
    const char *exe;
    const char *file_option; // for the file with the lines
    const char *instdir_option;
    const char *part_option; // whose value is a file that the task writes; null for none
};
TaskSetting task_setting(const char *file, const char *instdir, const char *part_option);

// Names a task in messages; lines are counted from 1. Interned.
const char *task_name(const Task &task);

// Starts all tasks that have lines, with a board for their large files if there can be one. They
// accept only what expect_subject() has been told of.
void start_tasks(const TaskSetting &setting, Plan &plan);

// Starts all tasks, and calls `finish` for each that has lines, started or not, in order, even
// after a failure; it has to wait for the task. True if all calls are, and every task has lines.
using FinishTask = std::function<bool(const Task &task)>;
bool run_tasks(const TaskSetting &setting, Plan plan, const FinishTask &finish);

// In a task: the board that start_tasks() has made for it and the others; null in other runs.
Board *task_board();

// In a task: has it end with the process that started it. Nothing in other runs.
void end_with_parent();

#endif
