// -g: writes the manifest of an installation.
#include "host/trace.h"
#include "kestrel/kestrel.h"
#include "kestrel/progress.h"
#include "kestrel/report.h"
#include "kestrel/steps.h"
#include "kestrel/tasks.h"
#include "manifest/shahash.h"
#include "platform/osdep.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <deque>
#include <string>
#include <utility>
#include <vector>

// --- Hashing by tasks

// Writes the files to be hashed to a temporary file, one a line, and replaces numbers of lines, in
// ascending order, by the offsets at which these begin. Null if the file cannot be written.
static OwnedString write_list(uint32_t count, const PathOf &path_of,
                              std::vector<uint32_t> &places) {
    OwnedString list = os_tempname_plain();
    os_remove_at_exit(list.get());
    FILE *file = list != nullptr ? host_fopen(list.get(), "wb") : nullptr;
    if (file == nullptr)
        return nullptr;
    uint64_t offset = 0;
    auto place = places.begin();
    for (uint32_t i = 0; i < count; i++) {
        if (place != places.end() && *place == i)
            *place++ = static_cast<uint32_t>(offset);
        const std::string line = path_of(i) + '\n';
        fputs(line.c_str(), file);
        offset += line.size();
    }
    return os_close_written(file, offset < MANIFEST_LIMIT) ? std::move(list) : nullptr;
}

// The results that a task has written; empty unless they are all of its files'.
static std::vector<FileDigest> results_of(const Task &task) {
    int status;
    std::vector<FileDigest> results;
    if (!await_task(task.process, &status) || task.part == nullptr)
        return results;
    const FilePtr file(host_fopen(task.part.get(), "rb"));
    results.resize(task.lines + 1);
    if (file == nullptr ||
        fread(results.data(), sizeof(FileDigest), results.size(), file.get()) != task.lines)
        return {};
    results.pop_back();
    return results;
}

// Starts the tasks for a list of files; none if the list cannot be written.
static std::deque<Task> start_hashing(uint32_t count, const PathOf &path_of, uint32_t tasks) {
    std::vector<uint32_t> places = first_lines(count, tasks);
    const OwnedString list = write_list(count, path_of, places);
    Subject subject;
    subject.directory = directory_identity(".");
    if (list == nullptr || !host_file_state(list.get(), &subject.manifest))
        return {};
    expect_subject(&subject);
    std::deque<Task> started =
        start_tasks(task_setting(list.get(), ".", "--digests="), count, tasks, places.data());
    expect_subject(nullptr);
    return started;
}

// What a task has not done, for whatever reason, is done here.
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

// Tasks refuse another list than the one written here, and another directory than this process's.
// The log is about what was hashed, not about who did it, unless a task has failed. No task has a
// log: logs of tasks that stand beside this run's belong to a check.
static bool hash_by_tasks(uint32_t count, const PathOf &path_of,
                          const FileHasher::Receiver &receive) {
    progress_begin(count);
    std::deque<Task> started;
    {
        const TraceSilence silence;
        const uint32_t tasks = choose_task_count(count);
        if (tasks > 1 && count > tasks)
            started = start_hashing(count, path_of, tasks);
    }
    if (started.empty())
        return hash_files(count, path_of, receive);
    bool all = true;
    for (const Task &task : started)
        all = finish_task(task, path_of, receive) && all;
    return all;
}

// --- The manifest

static constexpr WalkReport RECORDS = {report_is_in, report_file, report_record};

// Whether the path still leads to the directory; a line on standard error says if not.
static bool is_still_there(const char *instdir, const std::string &directory) {
    const char *moved = moved_installation(instdir, directory);
    if (moved != nullptr)
        shahash_complain("%s", str_printable(moved).get());
    return moved == nullptr;
}

// The walk begins at ".", so that every path in the manifest is relative to the installation.
// The hosts' kinds have their own entries, which do the same. The installation is `directory`: if
// its path leads elsewhere when all files are hashed, the old manifest stays.
static bool write_manifest(const char *manifest, const char *instdir,
                           const std::string &directory) {
    const WalkReport *const report = report_is_on() ? &RECORDS : nullptr;
    const auto hash = [&](uint32_t count, const PathOf &path_of,
                          const FileHasher::Receiver &receive) {
        return hash_by_tasks(count, path_of, receive) && is_still_there(instdir, directory);
    };
    return (os_kind() & HOST_DRIVE_PATHS) != 0
               ? shahash_write_manifest(HOST_DRIVE_PATHS, ".", manifest, report, hash)
               : shahash_write_manifest_default_flags(".", manifest, report, hash);
}

bool generate_manifest(const char *manifest, const char *instdir) {
    TRACE_ENTER();
    if (const char *missing = missing_installation(instdir); missing != nullptr)
        return TRACE_RESULT(false, "%s", missing);
    manifest = manifest_path(manifest, instdir);
    TRACE_MESSAGE("Generate manifest \"%s\" for installation \"%s\"", manifest, instdir);
    announce("Generating", manifest, instdir);
    const OwnedString before = os_getcwd();
    if (before == nullptr || !enter_directory(instdir)) {
        report_error("Could not change to directory: \"%s\": %s", instdir, host_strerror(errno));
        return TRACE_RESULT(false, "Could not change to directory: \"%s\"\n", instdir);
    }
    const std::string directory = directory_identity(".");
    bool written = write_manifest(manifest, instdir, directory);
    progress_end();
    written = written && is_still_there(instdir, directory);
    if (!written)
        TRACE_MESSAGE("Could not generate manifest");
    if (!enter_directory(before.get())) {
        report_error("Could not change to directory: \"%s\"", instdir);
        return TRACE_RESULT(false, "Could not change to directory: \"%s\"\n", instdir);
    }
    // Whether or not it was written: the text is fixed, and the line above it says so if not.
    TRACE_MESSAGE("Compiler integrity hash file saved to: %s\n", manifest);
    return written;
}
