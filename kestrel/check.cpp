// -c: checks a whole manifest, divided among copies of the program that run side by side.
#include "host/trace.h"
#include "kestrel/kestrel.h"
#include "kestrel/progress.h"
#include "kestrel/report.h"
#include "kestrel/steps.h"
#include "kestrel/tasks.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <vector>

namespace {

// Keeps a directory open: the identity of one that is gone can be given to another.
class HeldDirectory {
  public:
    explicit HeldDirectory(const char *path) : descriptor(host_open(path)) {}
    ~HeldDirectory() {
        if (descriptor != -1) // which some may enter and not read
            host_close(descriptor);
    }
    HeldDirectory(const HeldDirectory &) = delete;
    HeldDirectory &operator=(const HeldDirectory &) = delete;

  private:
    int descriptor;
};

} // namespace

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

// --- The check

// Waits for a task, and takes in its report.
static bool finish_task(const Task &task) {
    int status;
    const bool passed = wait_for_task(task.process, task.number, &status);
    const bool complete = report_part(task.part.get(), task.lines);
    // The programs' own statuses are 0 and 1; a signal that is caught leaves its number. On Windows
    // those of a crash are negative.
    constexpr int KILLED = 128;
    if (task.process == 0)
        report_error("%s could not be started: %s", task_name(task), host_strerror(task.reason));
    else if (status < 0)
        report_error("%s crashed with status 0x%X", task_name(task), static_cast<unsigned>(status));
    else if (status > 1)
        report_error("%s ended by signal %d", task_name(task),
                     status > KILLED ? status - KILLED : status);
    else if (!complete)
        report_error("%s left no complete report", task_name(task));
    return passed;
}

// The verdict of the tasks; false, with the reason in `failure`, if they cannot be started at all.
static bool check_by_tasks(const char *manifest, const char *instdir, FILE *file, uint32_t lines,
                           uint32_t tasks, const char **failure) {
    std::vector<uint32_t> positions = first_lines(lines, tasks);
    if (!find_lines(file, positions, failure))
        return false;
    const TaskSetting setting =
        task_setting(manifest, instdir, report_is_on() ? "--report=" : nullptr);
    return finish_tasks(start_tasks(setting, lines, tasks, positions.data()), lines, tasks,
                        finish_task);
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

// What is left when the lines have been checked. Manifest and directory are those whose lines were
// counted until the end. False if something is wrong after all.
static bool finish_check(const char *manifest, const char *instdir, uint32_t lines,
                         const char *opened, const Subject &subject) {
    report_cover(lines);
    progress_end();
    const bool complete = !extra_wanted || find_extra_files(manifest, instdir);
    expect_subject(nullptr);
    const bool unchanged = is_unchanged(opened, subject.manifest);
    return moved_installation(instdir, subject.directory) == nullptr && unchanged && complete;
}

bool check_manifest(const char *manifest, const char *instdir) {
    TRACE_ENTER();
    if (const char *missing = missing_installation(instdir); missing != nullptr)
        return TRACE_RESULT(false, "%s", missing);
    manifest = manifest_path(manifest, instdir);
    announce("Checking", manifest, instdir);
    expect_subject(nullptr);
    const OwnedString before = os_getcwd();
    const char *failure = nullptr;
    Subject subject;
    uint32_t lines = 0;
    // Open to the end: file systems that make up identities keep those of open files.
    const FilePtr file = open_manifest(manifest, instdir, before.get(), &subject, &failure);
    if (file == nullptr)
        return TRACE_RESULT(false, "%s", failure);
    const HeldDirectory held(".");
    if (!count_lines(file.get(), &lines, &failure)) {
        report_error("%s", failure);
        return TRACE_RESULT(false, "%s", failure);
    }
    const OwnedString opened = host_absolute_path(manifest);
    if (before != nullptr)
        enter_directory(before.get());

    progress_begin(lines);
    const uint32_t tasks = choose_task_count(lines);
    expect_subject(&subject);
    if (tasks == 1) {
        TRACE_EXIT("Only 1 core available, doing manifest directly...");
        const bool passed = check_manifest_range(manifest, instdir, 0, 0, lines);
        return finish_check(manifest, instdir, lines, opened.get(), subject) && passed;
    }
    bool passed = check_by_tasks(manifest, instdir, file.get(), lines, tasks, &failure);
    if (failure != nullptr) {
        expect_subject(nullptr);
        report_error("%s", failure);
        report_cover(lines);
        return TRACE_RESULT(false, "%s", failure);
    }
    passed = finish_check(manifest, instdir, lines, opened.get(), subject) && passed;
    return TRACE_RESULT(passed, "Hash verification %s", passed ? "passed" : "failed");
}
