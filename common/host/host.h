// The seam between the hosts: what each of them does in its own way, as small primitives. The two
// implementations are host_posix.cpp and host_windows*.cpp; no other source asks the preprocessor
// which host it is on. Text is UTF-8. Unless it says otherwise, a primitive that fails leaves its
// reason in errno.
#ifndef KESTREL_HOST_HOST_H
#define KESTREL_HOST_HOST_H

#include "base/xalloc.h"
#include "host/pathstyle.h"

#include <cstdint>
#include <cstdio>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

// --- Facts

// The name of the tool that this runtime serves, in lower case, as its files and messages show it.
// "tool" until runtime_init() sets it.
extern const char *host_tool_name;

const PathStyle &host_path_style();

// HOST_DRIVE_PATHS on the host with drive letters and backslashes, 0 elsewhere.
constexpr int32_t HOST_DRIVE_PATHS = 0x10000;
int32_t host_kind();
const char *host_osname();

// The number of processors that the system reports; may be below 1 when it does not know.
int host_processor_count();

// The running program's own full path; null if the system does not know it.
OwnedString host_program_path();

uint32_t host_process_id();

// A short name, letters and digits only, that no other running process is likely to be given.
OwnedString host_unique_seed();

// Environment variables that may name the directory for temporaries, in order, and what to use when
// none is set.
std::span<const char *const> host_temp_variables();
const char *host_temp_default();

// Signals that end the program through the fatal handler, in order of installation.
std::span<const int> host_caught_signals();

// Signals that accompany a failed write, which is reported without them.
std::span<const int> host_write_signals();

// Installs a handler for good. The handler may be entered again while it runs, and as far as the
// host can it has a stack of its own, for when the program's is used up. A signal that is ignored
// stays ignored: whoever started the program wants it so.
void host_on_signal(int number, void (*handler)(int));

// Gives exit() two seconds inside a signal handler, then calls `give_up`: the signal may have
// struck at a place for which exit() would wait for ever.
void host_limit_exit(void (*give_up)(int));

// Replaces main()'s arguments by those that the system gives, in UTF-8. They stay valid.
void host_arguments(int *count, char ***arguments);

// The value of an environment variable, until it is asked for again; null if there is none.
const char *host_getenv(const char *name);

// Enters a variable into the environment, which keeps a copy; 0 on success.
int host_setenv(const char *name, const char *value);
void host_tzset();

// The text of a reason that a primitive has left in errno.
const char *host_strerror(int number);

// --- Files and directories

enum class FileKind { regular, directory, other };

struct HostStat {
    FileKind kind;
    uint64_t size; // bytes
};

// Looks at what stands at a path; links are followed.
bool host_stat(const char *path, HostStat *result);

// What host_stat has found, or the errno that says why it has found nothing.
struct StatResult {
    std::optional<HostStat> status;
    int reason = 0;
};
StatResult host_stat_result(const char *path);

// Whether `path` itself is a link to a file or directory.
bool host_is_link(const char *path);

// What makes a file the same file under another name. What is unknown is like nothing, not even
// itself.
struct FileIdentity {
    bool known = false;
    uint64_t volume = 0;
    uint64_t high = 0, low = 0; // the file's number on the volume
    std::string place = {};     // the file's path, where it has no number
    bool operator==(const FileIdentity &other) const {
        return known && other.known && volume == other.volume && high == other.high &&
               low == other.low && place == other.place;
    }
};
bool host_file_identity(const char *path, FileIdentity *result);

// A file's numbers as a file system gives them: all bits 0 or all 1 say that it has none.
struct FileNumber {
    uint64_t volume;
    uint64_t high, low;
};

// The identity of a file by the first usable one of two numbers, else by its path; unknown if that
// is empty too.
FileIdentity identity_of(const FileNumber &wide, const FileNumber &narrow,
                         const std::string &place);

// A file's state: it differs when the file has been written to, or another file has taken its name.
struct FileState {
    FileIdentity identity;
    uint64_t size;    // bytes
    uint64_t changed; // the time of that, in the host's own units
    bool operator==(const FileState &) const = default;
};
bool host_file_state(const char *path, FileState *result);
bool host_opened_state(int descriptor, FileState *result);

// Texts that compare as the identity or the state does: a file that is unknown gets one that no
// other has, not even itself the next time.
std::string identity_text(const FileIdentity &identity);
std::string state_text(const FileState &state);

// Looks at the states of two files, which are both held open meanwhile where numbers may be given
// again.
bool host_file_states(const char *a, const char *b, FileState *first, FileState *second);

// Whether two paths lead to the same file; false if either is missing. Their states are compared:
// some file systems give all files the same identity.
bool host_same_file(const char *a, const char *b);

struct FileCloser {
    void operator()(FILE *stream) const { fclose(stream); }
};
using FilePtr = std::unique_ptr<FILE, FileCloser>;

// Opens a stream as fopen does; programs started later do not inherit it.
FILE *host_fopen(const char *path, const char *mode);

// Opens a regular file for reading in binary. Anything else fails without being opened, so that a
// FIFO or a device can neither block nor answer; errno is then 0, or EISDIR for a directory.
FILE *host_fopen_regular(const char *path);

// What has come of opening a file that was looked for.
enum class OpenOutcome {
    opened,
    missing, // host_stat has failed
    special, // neither a file nor a directory
    refused  // a directory, or a file that cannot be opened or read
};

// Opens what host_stat has found at `path`, as host_fopen_regular does, and gives the descriptor.
// Another file may have taken the name since: see host_is_regular.
OpenOutcome host_open_regular(const char *path, const HostStat &found, int *descriptor);

// Opens whatever `path` names for reading in binary, without waiting for a FIFO or a device; -1 on
// failure.
int host_open(const char *path);

// Tells the system that a file will be read from its beginning to its end, so that it reads ahead.
void host_expect_reading(int descriptor);

// Whether the descriptor is a regular file's.
bool host_is_regular(int descriptor);

// A stream that reads a descriptor in binary and closes it; null on failure.
FILE *host_fdopen(int descriptor);

// Opens a log for host_append, as text, and empties it first unless `append`. A FIFO that nobody
// reads fails instead of waiting for a reader.
FILE *host_open_log(const char *path, bool append);

// Writes to the end of a log in one piece: what other processes write at the same time comes before
// or after it, and nothing is lost.
bool host_append(FILE *log, const std::string &text);

// Moves to an offset from the start of the file.
bool host_seek(FILE *stream, int64_t offset);

// Reads up to `size` bytes straight from the descriptor; 0 at the end, -1 on error. Interrupted
// calls are repeated.
int64_t host_read(int descriptor, void *buffer, size_t size);

// Writes a short text straight to the descriptor; false if not all of it was taken.
bool host_write(int descriptor, std::string_view text);

// Reads the first bytes of a file just opened, up to `size`, that are in memory. If there are none,
// or the system cannot tell, 0; Linux then begins to read the file. The end and errors are left to
// host_read.
size_t host_read_cached(int descriptor, void *buffer, size_t size);

struct DirectoryEntry {
    std::string name;
    bool reachable;  // whether a path with this name opens the entry; if not, it is approximate
    bool is_regular; // a file, as the listing says; if not, host_stat tells what it is
};

// Appends the entries of the directory except "." and "..", in the system's order. If reading
// breaks off, those read so far are there. A directory that is removed meanwhile is broken.
enum class Listing {
    complete,
    broken,
    denied,  // not opened: this user has no right to list it
    unopened // for any other reason
};
Listing host_list_directory(const char *path, std::vector<DirectoryEntry> *entries);

// Makes an empty file; false if anything stands at `path`, a link too.
bool host_make_file(const char *path);

bool host_mkdir(const char *path);
bool host_mkdir_private(const char *path); // for this user alone, where files have rights
bool host_rmdir(const char *path);
bool host_remove(const char *path); // a file, or a link whatever it leads to

// Waits until what was written to the file is on the disk. True also on a file system that cannot
// say.
bool host_flush_to_disk(int descriptor);

// Renames a file over the file at `to`, if any, and waits as host_flush_to_disk does.
bool host_replace(const char *from, const char *to);

// Renames a file to a name that is free: errno is EEXIST if it is not.
bool host_rename_new(const char *from, const char *to);

// Gives `to` the owner, the group and the access rights of `from`, as far as the host has them and
// the user may.
void host_copy_rights(const char *from, const char *to);

// The file a link leads to in the end; a copy of `path` if it is not a link.
OwnedString host_resolve_links(const char *path);

// Where an existing path leads, from the root and without links; null on failure.
OwnedString host_real_path(const char *path);

// The path from the root, so that it outlives a change of the current directory. Links are kept.
OwnedString host_absolute_path(const char *path);

OwnedString host_getcwd();
bool host_chdir(const char *path);

// The host's short form of an existing path (the path itself where there is none); null on failure.
OwnedString host_shortpath(const char *path);

// The last component of `path` as the directory stores it, case included; null if there is no such
// entry.
OwnedString host_stored_name(const char *path);

// Waits for the lock of processes that change the same file by replacing it. It is held until it is
// released or its holder ends in any way, and leaves nothing on the disk. -1 if it cannot be had:
// there is no such file that may be written to (the other host needs none), or no locks.
using HostLock = intptr_t;
HostLock host_lock(const char *path);
void host_unlock(HostLock lock); // -1 is ignored

// Takes the lock of processes that write to the same file in place, until the file is closed. Waits
// for it, but not longer than some seconds: who may only read the file can hold it too. The stream
// must be open for writing. False if the lock cannot be had.
bool host_lock_opened(FILE *stream);

// Cuts the file to so many bytes. Nothing that was written may be left in the stream.
bool host_truncate(FILE *stream, int64_t size);

// --- Files that processes share, read and written in place

// Opens an existing file for reading and writing; others may remove it meanwhile, and programs
// started later do not inherit it. A descriptor for host_close, or -1 on failure.
int host_open_shared(const char *path);

// Reads, or writes, all of so many bytes at an offset.
bool host_read_at(int descriptor, uint64_t offset, void *buffer, size_t size);
bool host_write_at(int descriptor, uint64_t offset, const void *bytes, size_t size);

// Locks a number of the file against every other opening of it, in this process too, until it is
// unlocked, the file is closed, or its holder ends in any way. Sleeps until it is free if it is to
// `wait`: circles are not noticed, so who waits holds none that another waits for. If not, errno is
// EWOULDBLOCK where another has it; any other one says that there are no locks.
bool host_lock_number(int descriptor, uint32_t number, bool wait);
void host_unlock_number(int descriptor, uint32_t number);

// --- Descriptors

constexpr int STDOUT_DESCRIPTOR = 1;
constexpr int STDERR_DESCRIPTOR = 2;

// Opens standard input, output and error to nowhere where they are closed, so that no file that is
// opened later takes their place.
void host_open_standard_streams();

// The width of a terminal in columns; 0 for what is none.
int host_terminal_width(int descriptor);

// Whether this process may write to the terminal without disturbing the one that its user works
// with, or being stopped: it is of the terminal's foreground, or there are no such groups.
bool host_is_foreground(int descriptor);

int host_fileno(FILE *stream);
int host_dup(int descriptor); // the duplicate is not inherited by started programs
int host_dup2(int from, int to);
int host_close(int descriptor);

// --- Processes

// Sleeps for about so many milliseconds.
void host_pause(int milliseconds);

// A started program, to be waited for once; 0 if there is none.
using ProcessHandle = intptr_t;

// Starts `exe` without a console window and without waiting. It is ended when this process ends,
// however that happens. The program receives `argv` (null-terminated), or `command_line` on the
// host that passes one string; both have the same content. 0 if it could not be started.
ProcessHandle host_start_process(const char *exe, const char *const *argv,
                                 const char *command_line);

// Waits until a started program has ended, for about so many milliseconds at most or without limit;
// false if it is still running. Gives its exit status, which is not 0 if it died of a signal;
// `status` stays as it is if there is none.
constexpr int NO_LIMIT = -1;
bool host_wait_process(ProcessHandle process, int *status, int milliseconds = NO_LIMIT);

// Ends all programs of host_start_process that have not been waited for. The first neither waits
// nor allocates, so that a signal's handler may call it; the second waits until they have ended.
void host_end_started();
void host_wait_started();

// Has this process end when `parent`, which has started it, does; ends it at once if that has
// happened. For a started program, where the system has undone what host_start_process has
// done, as for one with rights of its own.
void host_end_with(uint32_t parent);

// Runs a program to its end and returns its exit status, or -1 with errno set if it could not be
// started. The arguments are joined by spaces and split again by the started program as
// split_command_line() does, on every host; the first one, the program's name, only loses the
// quotes around it.
int host_spawn_wait(const char *path, const char *const *argv);

#endif
