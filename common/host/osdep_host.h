// The seam between the hosts: what each of them does in its own way, as small primitives. The two
// implementations are osdep_posix.cpp and osdep_windows.cpp; nothing else knows which host it is
// on. Paths are in the narrow code page (UTF-8 on both hosts). Unless it says otherwise a primitive
// that fails leaves its reason in errno.
#ifndef COMMON_OSDEP_HOST_H
#define COMMON_OSDEP_HOST_H

#include "base/xalloc.h"
#include "host/pathstyle.h"

#include <cstdint>
#include <cstdio>
#include <span>
#include <string>
#include <vector>

// --- Facts

// The tool that this runtime serves, in lower case, as its files and messages name it. "tool" until
// runtime_init() is told another.
extern const char *host_tool_name;

const PathStyle &host_path_style();

// HOST_DRIVE_PATHS on the host with drive letters and backslashes, 0 elsewhere.
constexpr int32_t HOST_DRIVE_PATHS = 0x10000;
int32_t host_kind();
const char *host_osname();

// Processors the system reports; may be below 1 when it does not know.
int host_processor_count();

// The running program's own full path; null if the system does not tell.
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

// Signals that come with the failure of a write, which is told of without them.
std::span<const int> host_write_signals();

// Installs a handler, for good: it may be entered again from within, and has a stack to run on even
// when the program's own is used up, as far as the host can. A signal that is ignored stays so, as
// whoever started the program wants it.
void host_on_signal(int number, void (*handler)(int));

// Lets exit() take two seconds from within a signal's handler before `give_up` is called: the
// signal may have struck where exit() then waits for ever.
void host_limit_exit(void (*give_up)(int));

// Enters a variable into the environment, which keeps a copy; 0 on success.
int host_setenv(const char *name, const char *value);
void host_tzset();

// --- Files and directories

enum class FileKind { regular, directory, other };

struct HostStat {
    FileKind kind;
    uint64_t size; // bytes
};

// Links are followed.
bool host_stat(const char *path, HostStat *result);

// Whether `path` itself is a link to a file or directory.
bool host_is_link(const char *path);

// What makes a file the same file under another name.
struct FileIdentity {
    uint64_t volume;
    uint64_t file;
    bool operator==(const FileIdentity &) const = default;
};
bool host_file_identity(const char *path, FileIdentity *result);
bool host_same_file(const char *a, const char *b); // false if either is missing

// What differs when a file has been written to, or another one has taken its name.
struct FileState {
    FileIdentity identity;
    uint64_t size;    // bytes
    uint64_t changed; // the time of that, in the host's own units
    bool operator==(const FileState &) const = default;
};
bool host_file_state(const char *path, FileState *result);
bool host_opened_state(FILE *stream, FileState *result);

struct FileCloser {
    void operator()(FILE *stream) const { std::fclose(stream); }
};
using FilePtr = std::unique_ptr<FILE, FileCloser>;

// fopen, with a stream that programs started later do not inherit.
FILE *host_fopen(const char *path, const char *mode);

// Opens a regular file for reading in binary. Anything else fails: a FIFO or a device can neither
// block nor answer, because it is not opened in the first place.
FILE *host_fopen_regular(const char *path);

// The same as a descriptor, or what became of it otherwise. `found` is what host_stat has said of
// the path, null if that failed. The name may have changed hands since: see host_is_regular.
enum class OpenOutcome {
    opened,
    missing,
    special, // neither a file nor a directory
    refused  // a directory, or a file that cannot be opened or read
};
OpenOutcome host_open_regular(const char *path, const HostStat *found, int *descriptor);

// Opens whatever stands at `path` for reading in binary, without waiting for a FIFO or a device; -1
// on failure.
int host_open(const char *path);

// Whether the descriptor is a regular file's.
bool host_is_regular(int descriptor);

// A stream that reads a descriptor in binary and closes it; null on failure.
FILE *host_fdopen(int descriptor);

// Opens a log for host_append, as text, and empties it first unless `append`. A FIFO that nobody
// reads fails instead of waiting for a reader.
FILE *host_open_log(const char *path, bool append);

// Writes to the end of a log in one piece: what other processes write there stands before or behind
// it, and nothing is lost.
bool host_append(FILE *log, const std::string &text);

FILE *host_freopen(const char *path, const char *mode, FILE *stream);

// fseek over 64-bit offsets from the start of the file.
bool host_seek(FILE *stream, int64_t offset);

// Up to `size` bytes straight from the descriptor; 0 at the end, -1 on error. Interrupted calls are
// repeated.
int64_t host_read(int descriptor, void *buffer, size_t size);

struct DirectoryEntry {
    std::string name;
    bool reachable; // whether this spelling leads back to the entry; if not, it is approximate
};

// Appends what is in the directory but for "." and "..", in the system's order. Of a directory that
// breaks off, what was read is there.
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
bool host_mkdir_private(const char *path); // for this user alone, where the host has modes
bool host_rmdir(const char *path);
bool host_remove(const char *path); // a file, or a link whatever it leads to

// Waits until what was written to the descriptor of a file is on the disk. A file system that
// cannot say so is no failure.
bool host_flush_to_disk(int descriptor);

// Renames a file over whatever file stands at `to`, and waits until that is on the disk, as above.
bool host_replace(const char *from, const char *to);

// Renames a file to a name that nothing stands at: errno is EEXIST if something does.
bool host_rename_new(const char *from, const char *to);

// Gives `to` the access rights of `from`, as far as the host has any.
void host_copy_mode(const char *from, const char *to);

// The file a link leads to in the end; a copy of `path` when it is none.
OwnedString host_resolve_links(const char *path);

// `path` from the root, so that it outlives a change of the current directory. Links are kept.
OwnedString host_absolute_path(const char *path);

OwnedString host_getcwd();
bool host_chdir(const char *path);

// The host's short form of an existing path (the path itself where there is none); null on failure.
OwnedString host_shortpath(const char *path);

// The last component of `path` as the directory stores it, case included; null if there is no such
// entry.
OwnedString host_stored_name(const char *path);

// Waits for the lock that keeps processes apart which change a file by replacing it. It is held
// until it is given up or its holder ends, in whatever way, and leaves nothing behind. -1 if it
// cannot be had: no file that may be written to, which the other host can do without, or no locks.
using HostLock = intptr_t;
HostLock host_lock(const char *path);
void host_unlock(HostLock lock); // -1 is ignored

// --- Descriptors

// Opens whatever of standard input, output and error is closed to nowhere, so that no file that is
// opened later takes its place.
void host_open_standard_streams();

int host_fileno(FILE *stream);
int host_dup(int descriptor); // the duplicate is not inherited by started programs
int host_dup2(int from, int to);
int host_close(int descriptor);

// --- Processes

// A started program, to be waited for once; 0 is none.
using ProcessHandle = intptr_t;

// Starts `exe` without a console window and without waiting. It is ended when this process ends,
// however that happens. The program receives `argv` (null-terminated), or `command_line` where the
// host passes one string; both say the same. 0 if it could not be started.
ProcessHandle host_start_process(const char *exe, const char *const *argv,
                                 const char *command_line);

// Waits for a started program and gives its exit status: false if the status cannot be had. A
// program that died of a signal has a nonzero status.
bool host_wait_process(ProcessHandle process, int *status);

// Runs a program to its end and returns its exit status, or -1 with errno set if it could not be
// started. The arguments are joined by blanks and split again by the started program as
// split_command_line() does, on every host.
int host_spawn_wait(const char *path, const char *const *argv);

#endif
