// A task of -g is told its range of a list of files, and where that begins (--manifest, --check);
// which list and directory to expect (the environment); and the file for its results (--digests).
// It leaves that file, a FileDigest for each line in order, and its exit status.
#include "kestrel/hash_tasks.h"

#include "host/trace.h"
#include "kestrel/tasks.h"
#include "manifest/progress.h"
#include "platform/osdep.h"

#include <cerrno>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

// --- In a task

static std::string path_in(std::string_view line) {
    return std::string(line.substr(0, line.find('\n')));
}

// Writes the results of the files of a list, in order. Where descriptors run out it gives up: the
// parent, which hashes the files then, holds fewer.
static bool hash_lines(FILE *list, const LineRange &range, FILE *results) {
    const auto write = [results](const char *, const FileDigest &result) {
        const bool starved = result.outcome == OpenOutcome::refused &&
                             (result.reason == EMFILE || result.reason == ENFILE);
        return !starved && fwrite(&result, sizeof result, 1, results) == 1;
    };
    const auto path_at = [list](uint64_t offset) { return path_in(line_at(list, offset)); };
    FileHasher files(write, nullptr, {task_board(), path_at});
    const auto hash = [&](uint64_t number, std::string_view line, uint64_t offset) {
        return number < range.start || files.add(path_in(line).c_str(), offset);
    };
    return read_range(list, range, hash) && files.finish();
}

// In the directory that it was started in: the name of that may lead elsewhere by now.
bool hash_list_range(const char *list, const LineRange &range, const char *digests) {
    TRACE_ENTER();
    const FilePtr file(host_fopen_regular(list));
    FileState state;
    if (file == nullptr || !host_opened_state(host_fileno(file.get()), &state) ||
        !is_expected_file(state) || !is_expected_directory(directory_identity(".")))
        return TRACE_RESULT(false, "Could not open the list of files");
    FILE *results = host_fopen(digests, "wb");
    if (results == nullptr || !os_close_written(results, hash_lines(file.get(), range, results)))
        return TRACE_RESULT(false, "Could not write the digests");
    return TRACE_RESULT(true, "All files in the range were hashed");
}

// --- In their parent

// Writes the files to be hashed to a temporary file, one a line, and notes where the lines of each
// task begin. Null if the file cannot be written.
static OwnedString write_list(const PathOf &path_of, Plan *plan) {
    OwnedString list = os_tempname_plain();
    os_remove_at_exit(list.get());
    FILE *file = list != nullptr ? host_fopen(list.get(), "wb") : nullptr;
    if (file == nullptr)
        return nullptr;
    uint64_t offset = 0;
    auto task = plan->given.begin();
    for (uint32_t i = 0; i < plan->lines; i++) {
        if (task != plan->given.end() && task->range.start == i)
            task++->position = static_cast<uint32_t>(offset);
        const std::string line = path_of(i) + '\n';
        fputs(line.c_str(), file);
        offset += line.size();
    }
    return os_close_written(file, offset < MANIFEST_LIMIT) ? std::move(list) : nullptr;
}

// Starts the tasks, which refuse another list than the one written here, and another directory than
// this process's; false if the list cannot be written.
static bool start(const PathOf &path_of, Plan *plan) {
    const OwnedString list = write_list(path_of, plan);
    Subject subject;
    subject.directory = directory_identity(".");
    if (list == nullptr || !host_file_state(list.get(), &subject.file))
        return false;
    expect_subject(&subject);
    start_tasks(task_setting(list.get(), ".", "--digests="), *plan);
    expect_subject(nullptr);
    return true;
}

// The results that a task has written; empty unless they are all of its files'.
static std::vector<FileDigest> results_of(const Task &task) {
    const TraceSilence silence;
    std::vector<FileDigest> results;
    if (!wait_for_task(task.process, task.number) || task.part == nullptr)
        return results;
    const FilePtr file(host_fopen(task.part.get(), "rb"));
    results.resize(task.lines + 1);
    if (file == nullptr ||
        fread(results.data(), sizeof(FileDigest), results.size(), file.get()) != task.lines)
        return {};
    results.pop_back();
    return results;
}

static bool finish_task(const Task &task, const PathOf &path_of,
                        const FileHasher::Receiver &receive) {
    const auto path_in_task = [&](uint32_t number) { return path_of(task.range.start + number); };
    const std::vector<FileDigest> results = results_of(task);
    if (results.empty()) {
        TRACE_MESSAGE("Process %d did not hash its files: they are hashed here", task.number);
        return hash_files(static_cast<uint32_t>(task.lines), path_in_task, receive);
    }
    for (uint32_t i = 0; i < results.size(); i++)
        if (!receive(path_in_task(i).c_str(), results[i]))
            return false;
    return true;
}

// The log is about what was hashed, not about who did it, unless a task has failed. No task has a
// log: logs of tasks that stand beside this run's belong to a check.
bool hash_by_tasks(uint32_t count, const PathOf &path_of, const FileHasher::Receiver &receive) {
    progress_begin(count);
    Plan plan = {};
    {
        const TraceSilence silence;
        if (const uint32_t tasks = choose_task_count(count); tasks > 1 && count > tasks)
            plan = divide(count, tasks);
        if (!plan.given.empty() && !start(path_of, &plan))
            plan.given.clear();
    }
    if (plan.given.empty())
        return hash_files(count, path_of, receive);
    bool all = true;
    for (const Task &task : plan.given)
        all = finish_task(task, path_of, receive) && all;
    return all;
}
