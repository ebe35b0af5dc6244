// The primitives of host.h on Linux.
#include "base/text.h"
#include "host/argsplit.h"
#include "host/host.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <list>
#include <poll.h>
#include <sched.h>
#include <sys/auxv.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

// Repeats a system call while signals interrupt it.
template <class Call> static auto uninterrupted(Call call) {
    auto result = call();
    while (result == -1 && errno == EINTR)
        result = call();
    return result;
}

// The target of a link, read with a buffer that grows until it fits; null if `path` is not a link.
static OwnedString read_link(const char *path) {
    std::string target(256, '\0');
    for (;;) {
        const ssize_t length = readlink(path, target.data(), target.size());
        if (length < 0)
            return nullptr;
        if (static_cast<size_t>(length) < target.size())
            return xstrndup(target.data(), static_cast<size_t>(length));
        target.resize(target.size() * 2);
    }
}

// --- Facts

const PathStyle &host_path_style() {
    return slash_path_style;
}

const char *host_osname() {
    return "Linux";
}

int host_processor_count() {
    // The set must be as large as the kernel's own, or the call fails with EINVAL.
    for (int capacity = CPU_SETSIZE; capacity <= (1 << 20); capacity *= 2) {
        std::vector<cpu_set_t> set(CPU_ALLOC_SIZE(capacity) / sizeof(cpu_set_t));
        const size_t bytes = set.size() * sizeof(cpu_set_t);
        if (sched_getaffinity(0, bytes, set.data()) == 0)
            return CPU_COUNT_S(bytes, set.data());
        if (errno != EINVAL)
            break;
    }
    return static_cast<int>(sysconf(_SC_NPROCESSORS_ONLN));
}

// The path that this program was started with. A relative one is completed before main() can change
// the current directory. Empty if the system does not know it.
static const OwnedString started_as = [] {
    const auto path = reinterpret_cast<const char *>(getauxval(AT_EXECFN));
    return host_absolute_path(path != nullptr ? path : "");
}();

OwnedString host_program_path() {
    OwnedString path = read_link("/proc/self/exe");
    return path != nullptr ? std::move(path) : OwnedString(realpath(started_as.get(), nullptr));
}

uint32_t host_process_id() {
    return static_cast<uint32_t>(getpid());
}

OwnedString host_unique_seed() {
    unsigned long long bits = 0;
    if (getrandom(&bits, sizeof bits, 0) != sizeof bits) {
        timespec now = {};
        clock_gettime(CLOCK_MONOTONIC, &now);
        bits = static_cast<unsigned long long>(getpid()) << 40 ^
               static_cast<unsigned long long>(now.tv_sec) << 30 ^
               static_cast<unsigned long long>(now.tv_nsec);
    }
    return str_format("%llx", bits);
}

std::span<const char *const> host_temp_variables() {
    static constexpr std::array<const char *, 3> NAMES = {"TEMP", "TMP", "TMPDIR"};
    return NAMES;
}

// Not the current directory, which may be the tree that is being hashed.
const char *host_temp_default() {
    return "/tmp";
}

std::span<const int> host_caught_signals() {
    static constexpr std::array<int, 7> SIGNALS = {SIGHUP,  SIGINT,  SIGQUIT, SIGTERM,
                                                   SIGABRT, SIGSEGV, SIGFPE};
    return SIGNALS;
}

std::span<const int> host_write_signals() {
    static constexpr std::array<int, 2> SIGNALS = {SIGPIPE, SIGXFSZ};
    return SIGNALS;
}

// The stack that a handler runs on, because the program's own may have overflowed.
static bool use_signal_stack() {
    alignas(16) static std::array<char, 1 << 18> memory;
    stack_t stack = {};
    stack.ss_sp = memory.data();
    stack.ss_size = memory.size();
    return sigaltstack(&stack, nullptr) == 0;
}

// A signal may strike again in its own handler: a fault there would otherwise be left to the
// kernel.
void host_on_signal(int number, void (*handler)(int)) {
    [[maybe_unused]] static const bool has_stack = use_signal_stack();
    struct sigaction action = {}, before = {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART | SA_ONSTACK | SA_NODEFER;
    if (sigaction(number, &action, &before) == 0 && before.sa_handler == SIG_IGN)
        sigaction(number, &before, nullptr);
}

void host_limit_exit(void (*give_up)(int)) {
    signal(SIGALRM, give_up);
    sigset_t limit;
    sigemptyset(&limit);
    sigaddset(&limit, SIGALRM);
    sigprocmask(SIG_UNBLOCK, &limit, nullptr);
    alarm(2);
}

void host_arguments(int *, char ***) {}

const char *host_getenv(const char *name) {
    return getenv(name);
}

int host_setenv(const char *name, const char *value) {
    return setenv(name, value, 1);
}

void host_tzset() {
    tzset();
}

const char *host_strerror(int number) {
    return strerror(number);
}

// --- Files and directories

static FileKind kind_of(mode_t mode) {
    if (S_ISREG(mode))
        return FileKind::regular;
    return S_ISDIR(mode) ? FileKind::directory : FileKind::other;
}

bool host_stat(const char *path, HostStat *result) {
    struct stat status = {};
    if (stat(path, &status) != 0)
        return false;
    *result = {kind_of(status.st_mode), static_cast<uint64_t>(status.st_size)};
    return true;
}

bool host_is_link(const char *path) {
    struct stat status = {};
    return lstat(path, &status) == 0 && S_ISLNK(status.st_mode);
}

// The time of the status is the one that no program can set back.
static FileState state_of(const struct stat &status) {
    const timespec &time = status.st_ctim;
    return {{true, status.st_dev, 0, status.st_ino, {}},
            static_cast<uint64_t>(status.st_size),
            static_cast<uint64_t>(time.tv_sec) * 1000000000 + static_cast<uint64_t>(time.tv_nsec)};
}

bool host_file_state(const char *path, FileState *result) {
    struct stat status = {};
    if (stat(path, &status) != 0)
        return false;
    *result = state_of(status);
    return true;
}

bool host_opened_state(int descriptor, FileState *result) {
    struct stat status = {};
    if (fstat(descriptor, &status) != 0)
        return false;
    *result = state_of(status);
    return true;
}

bool host_file_states(const char *a, const char *b, FileState *first, FileState *second) {
    return host_file_state(a, first) && host_file_state(b, second);
}

// Unlike the other host's, fopen opens directories here, which then read as empty.
FILE *host_fopen(const char *path, const char *mode) {
    FILE *stream = fopen(path, (std::string(mode) + 'e').c_str());
    struct stat status = {};
    if (stream != nullptr && fstat(fileno(stream), &status) == 0 && S_ISDIR(status.st_mode)) {
        fclose(stream);
        errno = EISDIR;
        return nullptr;
    }
    return stream;
}

// A regular file would block only while another program holds a lease on it; that program is asked
// to give way while we wait.
static int open_at_once(const char *path, int access) {
    constexpr mode_t RIGHTS = 0666;
    const int flags = access | O_NOCTTY | O_CLOEXEC;
    const int descriptor = uninterrupted([&] { return open(path, flags | O_NONBLOCK, RIGHTS); });
    if (descriptor != -1 || errno != EWOULDBLOCK)
        return descriptor;
    return uninterrupted([&] { return open(path, flags, RIGHTS); });
}

int host_open(const char *path) {
    return open_at_once(path, O_RDONLY);
}

// POSIX_FADV_WILLNEED, too, made checks of large files on a disk slower: with many under way it
// fills the disk's queue with what is needed last.
void host_expect_reading(int descriptor) {
    posix_fadvise(descriptor, 0, 0, POSIX_FADV_SEQUENTIAL);
}

bool host_is_regular(int descriptor) {
    struct stat status = {};
    return fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
}

FILE *host_fdopen(int descriptor) {
    return fdopen(descriptor, "rb");
}

// Always for appending: a program that was started to append may share the log.
FILE *host_open_log(const char *path, bool append) {
    const int access = O_WRONLY | O_CREAT | (append ? 0 : O_TRUNC);
    const int descriptor = open_at_once(path, access);
    if (descriptor == -1)
        return nullptr;
    fcntl(descriptor, F_SETFL, O_APPEND); // a full pipe is waited for
    return fdopen(descriptor, "a");
}

// Not through the stream, which would split a text that is longer than its buffer.
bool host_append(FILE *log, const std::string &text) {
    bool written = fflush(log) == 0;
    for (size_t done = 0; written && done < text.size();) {
        const ssize_t count = uninterrupted(
            [&] { return write(fileno(log), text.data() + done, text.size() - done); });
        written = count > 0;
        done += written ? static_cast<size_t>(count) : 0;
    }
    return written;
}

bool host_seek(FILE *stream, int64_t offset) {
    return fseeko(stream, offset, SEEK_SET) == 0;
}

int64_t host_read(int descriptor, void *buffer, size_t size) {
    return uninterrupted([&] { return read(descriptor, buffer, size); });
}

bool host_write(int descriptor, std::string_view text) {
    return uninterrupted([&] { return write(descriptor, text.data(), text.size()); }) ==
           static_cast<ssize_t>(text.size());
}

// Not every file system knows RWF_NOWAIT.
size_t host_read_cached(int descriptor, void *buffer, size_t size) {
    static bool known = true;
    const iovec part = {buffer, size};
    const ssize_t got = known ? preadv2(descriptor, &part, 1, -1, RWF_NOWAIT) : -1;
    if (got >= 0)
        return static_cast<size_t>(got);
    known = known && errno != EOPNOTSUPP && errno != ENOSYS;
    posix_fadvise(descriptor, 0, 0, POSIX_FADV_WILLNEED);
    return 0;
}

// By the system call: readdir() takes a directory that was removed meanwhile for one that is at its
// end.
Listing host_list_directory(const char *path, std::vector<DirectoryEntry> *entries) {
    alignas(dirent64) std::array<char, 32768> block;
    const int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK;
    const int directory = uninterrupted([&] { return open(path, flags); });
    if (directory == -1)
        return errno == EACCES || errno == EPERM ? Listing::denied : Listing::unopened;
    long size;
    while ((size = uninterrupted([&] {
                return syscall(SYS_getdents64, directory, block.data(), block.size());
            })) > 0)
        for (long at = 0; at < size;) {
            const auto *found = reinterpret_cast<const dirent64 *>(block.data() + at);
            if (strcmp(found->d_name, ".") != 0 && strcmp(found->d_name, "..") != 0)
                entries->push_back({found->d_name, true, found->d_type == DT_REG});
            at += found->d_reclen;
        }
    const int failure = errno;
    close(directory);
    errno = failure;
    return size == 0 ? Listing::complete : Listing::broken;
}

bool host_make_file(const char *path) {
    const int descriptor = open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    return descriptor != -1 && close(descriptor) == 0;
}

bool host_mkdir(const char *path) {
    return mkdir(path, 0777) == 0;
}

bool host_mkdir_private(const char *path) {
    return mkdir(path, 0700) == 0;
}

bool host_rmdir(const char *path) {
    return rmdir(path) == 0;
}

bool host_remove(const char *path) {
    return unlink(path) == 0;
}

// Some file systems do not support this, and then there is nothing to wait for.
bool host_flush_to_disk(int descriptor) {
    return uninterrupted([&] { return fsync(descriptor); }) == 0 || errno == EINVAL ||
           errno == ENOSYS || errno == EOPNOTSUPP;
}

// A directory that may not be read cannot be flushed, and is passed over. If flushing fails that is
// an error of the disk, whatever its reason would mean to the caller.
static bool flush_directory_of(const char *path) {
    const OwnedString directory = path_dirname(slash_path_style, path);
    const int descriptor = open(directory != nullptr ? directory.get() : ".",
                                O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK);
    if (descriptor == -1)
        return true;
    const bool flushed = host_flush_to_disk(descriptor);
    close(descriptor);
    if (!flushed)
        errno = EIO;
    return flushed;
}

bool host_replace(const char *from, const char *to) {
    return rename(from, to) == 0 && flush_directory_of(to);
}

// Some file systems cannot check and rename in one step.
bool host_rename_new(const char *from, const char *to) {
    if (renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0)
        return true;
    if (errno != EINVAL && errno != ENOSYS)
        return false;
    return link(from, to) == 0 && unlink(from) == 0;
}

// Whoever may not give a file away may still give it to another group of his.
void host_copy_rights(const char *from, const char *to) {
    struct stat wanted = {}, made = {};
    if (stat(from, &wanted) != 0 || stat(to, &made) != 0)
        return;
    const bool owned = wanted.st_uid == made.st_uid && wanted.st_gid == made.st_gid;
    [[maybe_unused]] const bool given = owned || chown(to, wanted.st_uid, wanted.st_gid) == 0 ||
                                        chown(to, static_cast<uid_t>(-1), wanted.st_gid) == 0;
    chmod(to, wanted.st_mode & 0777);
}

OwnedString host_resolve_links(const char *path) {
    constexpr int LONGEST_CHAIN = 40; // as the kernel's
    std::string resolved = path;
    for (int i = 0; i < LONGEST_CHAIN; i++) {
        const OwnedString target = read_link(resolved.c_str());
        if (target == nullptr)
            break;
        if (target.get()[0] == '/')
            resolved.clear();
        else
            resolved.resize(resolved.rfind('/') + 1); // npos + 1 is 0
        resolved += target.get();
    }
    return xstrdup(resolved.c_str());
}

OwnedString host_real_path(const char *path) {
    return OwnedString(realpath(path, nullptr));
}

OwnedString host_absolute_path(const char *path) {
    const OwnedString directory = path[0] == '/' ? nullptr : host_getcwd();
    return directory == nullptr ? xstrdup(path)
                                : path_join_style(slash_path_style, directory.get(), path);
}

OwnedString host_getcwd() {
    return OwnedString(getcwd(nullptr, 0));
}

bool host_chdir(const char *path) {
    return chdir(path) == 0;
}

OwnedString host_shortpath(const char *path) {
    HostStat status;
    return host_stat(path, &status) ? xstrdup(path) : nullptr;
}

// Reads the directory, because a file system that ignores case would open other spellings too.
OwnedString host_stored_name(const char *path) {
    const std::string name = path_basename(slash_path_style, path);
    const OwnedString directory = path_dirname(slash_path_style, path);
    std::vector<DirectoryEntry> entries;
    const Listing listing =
        host_list_directory(directory != nullptr ? directory.get() : ".", &entries);
    if (listing == Listing::denied || listing == Listing::unopened)
        return nullptr;
    const auto has_name = [&](const DirectoryEntry &entry) { return entry.name == name; };
    const bool found =
        name == "." || name == ".." || std::any_of(entries.begin(), entries.end(), has_name);
    return found ? xstrdup(name.c_str()) : nullptr;
}

// The lock belongs to the open file description, not to the process, which may close other
// descriptors of the file. A lock of flock() would block those who already run us under flock(1).
static bool lock_bytes(int descriptor, int command, short type, off_t start, off_t length) {
    struct flock bytes = {};
    bytes.l_type = type;
    bytes.l_start = start;
    bytes.l_len = length;
    return uninterrupted([&] { return fcntl(descriptor, command, &bytes); }) == 0;
}

static bool lock_whole(int descriptor, int command) {
    return lock_bytes(descriptor, command, F_WRLCK, 0, 0);
}

bool host_lock_opened(FILE *stream) {
    constexpr int MOST_TRIES = 500;
    for (int i = 1; !lock_whole(fileno(stream), F_OFD_SETLK); i++) {
        if ((errno != EAGAIN && errno != EACCES) || i == MOST_TRIES)
            return false;
        host_pause(10);
    }
    return true;
}

int host_open_shared(const char *path) {
    return open_at_once(path, O_RDWR);
}

// Moves all of so many bytes with a call like pread.
template <class Call> static bool move_at(Call call, uint64_t offset, size_t size) {
    for (size_t moved = 0; moved < size;) {
        const ssize_t some =
            uninterrupted([&] { return call(moved, static_cast<off_t>(offset + moved)); });
        if (some == 0)
            errno = EIO;
        if (some <= 0)
            return false;
        moved += static_cast<size_t>(some);
    }
    return true;
}

bool host_read_at(int descriptor, uint64_t offset, void *buffer, size_t size) {
    const auto read = [&](size_t moved, off_t place) {
        return pread(descriptor, static_cast<char *>(buffer) + moved, size - moved, place);
    };
    return move_at(read, offset, size);
}

bool host_write_at(int descriptor, uint64_t offset, const void *bytes, size_t size) {
    const auto write = [&](size_t moved, off_t place) {
        return pwrite(descriptor, static_cast<const char *>(bytes) + moved, size - moved, place);
    };
    return move_at(write, offset, size);
}

// Far behind the end of the file, as on the other host, where data that is locked cannot be read.
static constexpr off_t NUMBERS = off_t{1} << 40;

bool host_lock_number(int descriptor, uint32_t number, bool wait) {
    if (lock_bytes(descriptor, wait ? F_OFD_SETLKW : F_OFD_SETLK, F_WRLCK, NUMBERS + number, 1))
        return true;
    if (errno == EACCES)
        errno = EWOULDBLOCK;
    return false;
}

void host_unlock_number(int descriptor, uint32_t number) {
    lock_bytes(descriptor, F_OFD_SETLK, F_UNLCK, NUMBERS + number, 1);
}

bool host_truncate(FILE *stream, int64_t size) {
    return uninterrupted([&] { return ftruncate(fileno(stream), size); }) == 0;
}

// The lock is on the file itself, and is taken again if another file has taken its name meanwhile.
HostLock host_lock(const char *path) {
    for (;;) {
        struct stat named = {}, held = {};
        if (stat(path, &named) != 0 || !S_ISREG(named.st_mode))
            return -1;
        const int descriptor = open_at_once(path, O_RDWR);
        if (descriptor == -1)
            return -1;
        const bool locked = lock_whole(descriptor, F_OFD_SETLKW);
        if (locked && fstat(descriptor, &held) == 0 && stat(path, &named) == 0 &&
            held.st_dev == named.st_dev && held.st_ino == named.st_ino)
            return descriptor;
        close(descriptor);
        if (!locked)
            return -1;
    }
}

void host_unlock(HostLock lock) {
    if (lock != -1)
        close(static_cast<int>(lock));
}

// --- Descriptors

void host_open_standard_streams() {
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; descriptor++)
        if (fcntl(descriptor, F_GETFD) == -1)
            open("/dev/null", O_RDWR); // which takes the lowest number, this one
}

int host_terminal_width(int descriptor) {
    winsize size = {};
    if (isatty(descriptor) == 0)
        return 0;
    return ioctl(descriptor, TIOCGWINSZ, &size) == 0 && size.ws_col != 0 ? size.ws_col : 80;
}

bool host_is_foreground(int descriptor) {
    const pid_t group = tcgetpgrp(descriptor);
    return group == -1 || group == getpgrp();
}

int host_fileno(FILE *stream) {
    return fileno(stream);
}

int host_dup(int descriptor) {
    return fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
}

int host_dup2(int from, int to) {
    return uninterrupted([&] { return dup2(from, to); });
}

int host_close(int descriptor) {
    return close(descriptor);
}

// --- Processes

namespace {

// What a new process becomes.
struct Start {
    const char *path;
    char *const *argv;
    pid_t parent;     // to end with, or 0
    sigset_t signals; // blocked in the program
    volatile int failure;
};

} // namespace

// The programs of host_start_process that have not been waited for, the oldest first. A signal's
// handler reads it, so it changes only while signals are blocked; and it is never destroyed.
static std::list<pid_t> &started = *new std::list<pid_t>;

static void block_signals(sigset_t *before) {
    sigset_t all;
    sigfillset(&all);
    sigprocmask(SIG_SETMASK, &all, before);
}

// Runs in the memory of the parent, which waits, so only system calls are made. The parent's signal
// handlers must not run here: signals stay blocked until all handlers are reset.
[[noreturn, gnu::noinline]] static void become_program(Start *start) {
    struct sigaction action = {};
    for (int number = 1; number < NSIG; number++) {
        if (sigaction(number, nullptr, &action) != 0 || action.sa_handler == SIG_IGN ||
            action.sa_handler == SIG_DFL)
            continue;
        action.sa_handler = SIG_DFL;
        sigaction(number, &action, nullptr);
    }
    if (start->parent != 0)
        host_end_with(static_cast<uint32_t>(start->parent));
    sigprocmask(SIG_SETMASK, &start->signals, nullptr);
    execve(start->path, start->argv, environ);
    start->failure = errno;
    _exit(1);
}

// 0, with errno set, if the program cannot be started. No memory is copied, however much this
// process holds. A program that is `tied` ends when this process does.
static pid_t start_program(const char *path, char *const *argv, bool tied) {
    // A parent that ignored SIGCHLD has us ignore it too, and statuses would be lost.
    signal(SIGCHLD, SIG_DFL);
    Start start = {path, argv, tied ? getpid() : 0, {}, 0};
    std::list<pid_t> entry(1); // made while signals may come
    block_signals(&start.signals);
    const pid_t child = vfork();
    if (child == 0)
        become_program(&start);
    const int failure = child == -1 ? errno : start.failure;
    if (child != -1 && failure != 0)
        uninterrupted([&] { return waitpid(child, nullptr, 0); });
    if (tied && failure == 0) {
        entry.front() = child;
        started.splice(started.end(), entry);
    }
    sigprocmask(SIG_SETMASK, &start.signals, nullptr);
    errno = failure;
    return failure == 0 ? child : 0;
}

void host_pause(int milliseconds) {
    const timespec pause = {milliseconds / 1000, milliseconds % 1000 * 1'000'000L};
    nanosleep(&pause, nullptr);
}

ProcessHandle host_start_process(const char *exe, const char *const *argv, const char *) {
    return start_program(exe, const_cast<char *const *>(argv), true);
}

// Waits without taking the status, which keeps the number from being given to another process.
// True if the program has ended, or cannot be waited for. Systems older than descriptors for
// processes (Linux 5.3) are asked again and again.
static bool await_end(pid_t child, int milliseconds) {
    if (milliseconds != NO_LIMIT) {
        const auto descriptor = static_cast<int>(syscall(SYS_pidfd_open, child, 0));
        pollfd ended = {descriptor, POLLIN, 0};
        poll(&ended, 1, descriptor != -1 ? milliseconds : std::min(milliseconds, 10));
        if (descriptor != -1)
            close(descriptor);
    }
    siginfo_t state = {};
    const int options = WEXITED | WNOWAIT | (milliseconds != NO_LIMIT ? WNOHANG : 0);
    return uninterrupted(
               [&] { return waitid(P_PID, static_cast<id_t>(child), &state, options); }) != 0 ||
           state.si_pid == child;
}

// The number is forgotten before it is free. Programs are mostly waited for in order, so it is
// found at once.
bool host_wait_process(ProcessHandle process, int *status, int milliseconds) {
    const pid_t child = static_cast<pid_t>(process);
    if (child <= 0)
        return true;
    if (!await_end(child, milliseconds))
        return false;
    std::list<pid_t> forgotten; // freed when signals may come again
    sigset_t signals;
    block_signals(&signals);
    if (const auto entry = std::find(started.begin(), started.end(), child); entry != started.end())
        forgotten.splice(forgotten.end(), started, entry);
    int state = 0;
    if (uninterrupted([&] { return waitpid(child, &state, 0); }) == child)
        *status = WIFEXITED(state) ? WEXITSTATUS(state) : 128 + WTERMSIG(state);
    sigprocmask(SIG_SETMASK, &signals, nullptr);
    return true;
}

void host_end_started() {
    for (const pid_t child : started)
        kill(child, SIGKILL);
}

void host_wait_started() {
    for (const pid_t child : started)
        await_end(child, NO_LIMIT);
}

void host_end_with(uint32_t parent) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (static_cast<uint32_t>(getppid()) != parent)
        _exit(1);
}

int host_spawn_wait(const char *path, const char *const *argv) {
    // The program's name is not joined and split with the others: a name may contain quotes here,
    // which one of the host that passes a single string cannot. Only those around it are dropped.
    std::string name = argv[0] != nullptr ? argv[0] : path;
    if (name.size() > 1 && name.front() == '"' && name.back() == '"')
        name = name.substr(1, name.size() - 2);
    std::string command_line;
    for (size_t i = 1; argv[0] != nullptr && argv[i] != nullptr; i++)
        command_line += (i > 1 ? " " : "") + std::string(argv[i]);
    std::vector<std::string> arguments = split_command_line(command_line.c_str());
    arguments.insert(arguments.begin(), name);
    std::vector<char *> pointers;
    for (std::string &argument : arguments)
        pointers.push_back(argument.data());
    pointers.push_back(nullptr);

    int status = -1;
    const pid_t child = start_program(path, pointers.data(), false);
    host_wait_process(child, &status);
    return status;
}
