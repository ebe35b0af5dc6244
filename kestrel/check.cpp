// -c: checks a whole manifest, divided among copies of the program that run side by side, or a
// range of it, which is what such a copy does.
//
// A task is told its range, and where that begins (--check); which manifest and directory to expect
// (the environment); and, for a report, the file for its own (--report). It leaves its exit status,
// and that file, which report_part() reads.
#include "host/trace.h"
#include "kestrel/kestrel.h"
#include "kestrel/manifest.h"
#include "kestrel/output.h"
#include "kestrel/report.h"
#include "kestrel/settings.h"
#include "kestrel/tasks.h"
#include "manifest/linecheck.h"
#include "manifest/progress.h"

#include <string>
#include <string_view>

// --- A range of lines

static constexpr const char *NO_LINES = "ERROR: no data was read from the manifest";

// The log's text for a malformed line says which one it is in a line before it.
static const char *malformed(uint64_t number) {
    TRACE_MESSAGE("Line %llu of the manifest is malformed",
                  static_cast<unsigned long long>(number) + 1);
    return "Manifest data was malformed";
}

static void log_different(const ManifestLine &line) {
    TRACE_MESSAGE("File \"%s\" did not verify against manifest hash.", line.path.c_str());
}

// As a report calls it: a verdict looks for the file of any line that has fields.
static FaultyLine as_reported(const FaultyLine &faulty) {
    FaultyLine reported = faulty;
    const std::string line = faulty.line.digest + " " + faulty.line.path;
    if (faulty.fault != LineFault::malformed && !shahash_line_can_verify(line)) {
        reported.fault = LineFault::malformed;
        reported.line.path = line;
    }
    return reported;
}

// Such a line fails a check even before its range.
static bool is_no_text(std::string_view line) {
    return line.find('\0') != line.npos || line.size() > MANIFEST_LINE_LIMIT;
}

// Verifies the lines of the range as they are read. With a report it takes all of them, else it
// ends at the first that cannot verify; `failure` is why the range fails, if it is not a file.
static bool verify_lines(ManifestFile &manifest, const LineRange &range, const char **failure) {
    const bool all = report_is_on();
    uint64_t count = 0;
    LineCheck check(
        [&](const FaultyLine &faulty) {
            const uint64_t number = range.start + faulty.number;
            report_line(number + 1, as_reported(faulty));
            if (faulty.fault != LineFault::malformed)
                log_different(faulty.line);
            else if (const char *text = malformed(number); !all)
                *failure = text;
            return all;
        },
        all ? CheckFor::report : CheckFor::verdict,
        {task_board(), [&](uint64_t offset) { return manifest.path_at(offset); }});
    const auto verify = [&](uint64_t number, std::string_view line, uint64_t offset) {
        bool goes_on = true;
        if (number >= range.start) {
            goes_on = check.add(line, offset) && (all || shahash_line_can_verify(line));
            count++;
        } else if (is_no_text(line)) {
            *failure = malformed(number);
            goes_on = all;
        }
        return goes_on;
    };
    const bool read = manifest.read(range, verify);
    const bool passed = check.finish();
    report_count(count);
    if (read && count == 0 && (all || *failure == nullptr))
        *failure = NO_LINES;
    return read && passed && *failure == nullptr;
}

bool check_manifest_range(const char *manifest, const char *instdir, int32_t position,
                          uint32_t start, uint32_t end) {
    TRACE_ENTER();
    if (const char *missing = missing_installation(instdir); missing != nullptr)
        return TRACE_RESULT(false, "%s", missing);
    manifest = manifest_path(manifest, instdir);
    TRACE_MESSAGE("Performing partial check of manifest \"%s\" for installation \"%s\"", manifest,
                  instdir);
    ManifestFile file(manifest, instdir);
    const char *failure = nullptr;
    const bool passed = file && verify_lines(file, {position, start, end}, &failure);
    if (failure != nullptr)
        file.fail(failure);
    if (!file)
        return TRACE_RESULT(false, "%s", file.failure());
    if (!passed)
        return false;
    file.leave();
    return TRACE_RESULT(true, "All hashes in the range verified correctly");
}

// --- A whole manifest

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

// Waits for a task, and takes in its report.
static bool finish_task(const Task &task) {
    int status;
    const bool passed = wait_for_task(task.process, task.number, &status);
    const bool complete = report_part(task.part.get(), task.lines);
    // The programs' own statuses are 0 and 1; a signal that is caught leaves its number. Larger
    // ones than a signal's are the system's.
    constexpr int KILLED = 128, LARGEST = 255;
    if (task.process == 0)
        report_error("%s could not be started: %s", task_name(task), host_strerror(task.reason));
    else if (status < 0 || status > LARGEST)
        report_error("%s crashed with status 0x%X", task_name(task), static_cast<unsigned>(status));
    else if (status > 1)
        report_error("%s ended by signal %d", task_name(task),
                     status > KILLED ? status - KILLED : status);
    else if (!complete)
        report_error("%s left no complete report", task_name(task));
    return passed;
}

// What is left when the lines have been checked. Manifest and directory are those whose lines were
// counted until the end. False if something is wrong after all.
static bool finish_check(const char *manifest, const char *instdir, uint32_t lines,
                         const char *opened, const Subject &subject) {
    report_cover(lines);
    progress_end();
    const bool complete = !settings.extra || find_extra_files(manifest, instdir);
    expect_subject(nullptr);
    const bool unchanged = changed_manifest(opened, subject.file) == nullptr;
    return moved_installation(instdir, subject.directory) == nullptr && unchanged && complete;
}

bool check_manifest(const char *manifest, const char *instdir) {
    TRACE_ENTER();
    if (const char *missing = missing_installation(instdir); missing != nullptr)
        return TRACE_RESULT(false, "%s", missing);
    manifest = manifest_path(manifest, instdir);
    announce("Checking", manifest, instdir);
    expect_subject(nullptr);
    // Open to the end: file systems that make up identities keep those of open files.
    ManifestFile file(manifest, instdir);
    const HeldDirectory held(".");
    uint32_t lines = 0;
    if (!file || !file.count_lines(&lines))
        return TRACE_RESULT(false, "%s", file.failure());
    const OwnedString opened = host_absolute_path(manifest);
    file.leave();

    progress_begin(lines);
    const uint32_t tasks = choose_task_count(lines);
    expect_subject(&file.subject);
    if (tasks == 1) {
        TRACE_EXIT("Only 1 core available, doing manifest directly...");
        const bool passed = check_manifest_range(manifest, instdir, 0, 0, lines);
        return finish_check(manifest, instdir, lines, opened.get(), file.subject) && passed;
    }
    Plan plan = divide(lines, tasks);
    if (!file.locate(&plan)) {
        expect_subject(nullptr);
        report_cover(lines);
        return TRACE_RESULT(false, "%s", file.failure());
    }
    const TaskSetting setting =
        task_setting(manifest, instdir, report_is_on() ? "--report=" : nullptr);
    bool passed = run_tasks(setting, std::move(plan), finish_task);
    passed = finish_check(manifest, instdir, lines, opened.get(), file.subject) && passed;
    return TRACE_RESULT(passed, "Hash verification %s", passed ? "passed" : "failed");
}
