#include "platform/osdep.h"

#include "base/text.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

int os_exists(const char *path) {
    HostStat status;
    return path != nullptr && host_stat(path, &status);
}

int os_is_dir(const char *path) {
    HostStat status;
    return path != nullptr && host_stat(path, &status) && status.kind == FileKind::directory;
}

bool os_is_regular(const char *path) {
    HostStat status;
    return path != nullptr && host_stat(path, &status) && status.kind == FileKind::regular;
}

uint32_t os_filesize(const char *path) {
    HostStat status;
    return path != nullptr && host_stat(path, &status) ? static_cast<uint32_t>(status.size) : 0;
}

// --- Making directories

int os_mkdir(const char *path) {
    if (path == nullptr)
        return -1;
    if (path_is_bare_drive(host_path_style(), path) || os_is_dir(path))
        return 0;
    return os_exists(path) ? 1 : os_mkdir_parents(path);
}

int os_mkdir_parents(const char *path) {
    // An empty parent is the top directory of a drive, and the top is its own parent, whether it
    // can be examined or not. If the path ends in a separator, making the parents has made the
    // directory itself.
    const OwnedString parent = os_dirname(path);
    const bool parent_stands =
        parent == nullptr || *parent == '\0' || strcmp(parent.get(), path) == 0 ||
        path_is_bare_drive(host_path_style(), parent.get()) || os_is_dir(parent.get());
    if (!parent_stands && (os_exists(parent.get()) || os_mkdir_parents(parent.get()) != 0))
        return 1;
    return host_mkdir(path) || (!parent_stands && os_is_dir(path)) ? 0 : 1;
}

// --- Removing them

static int remove_tree(const char *path);

// Links themselves are removed, wherever they lead: their targets are not ours.
static int remove_entry(const char *path) {
    if (!host_is_link(path) && os_is_dir(path))
        return remove_tree(path);
    return host_remove(path) ? 0 : -1;
}

static int remove_tree(const char *path) {
    if (!os_is_dir(path))
        return -1; // gone since it was listed
    std::vector<DirectoryEntry> entries;
    const Listing listing = host_list_directory(path, &entries);
    if (listing == Listing::denied || listing == Listing::unopened)
        return 0;
    for (const DirectoryEntry &entry : entries)
        if (const int failure = remove_entry(os_join(path, entry.name.c_str()).get()))
            return failure;
    return host_rmdir(path) ? 0 : -1;
}

int os_rmtree(const char *path) {
    return os_is_dir(path) ? remove_entry(path) : -1;
}

// --- Whole files

bool os_close_written(FILE *file, bool written) {
    const int reason = errno;
    const bool complete = written && ferror(file) == 0;
    if (fclose(file) == 0 && complete)
        return true;
    if (!complete)
        errno = reason;
    return false;
}

bool os_read_all(FILE *file, std::string *text, size_t most) {
    char block[4096];
    for (size_t got; text->size() <= most && (got = fread(block, 1, sizeof block, file)) > 0;)
        text->append(block, got);
    return ferror(file) == 0 && text->size() <= most;
}

// --- Copying files

// Adds the number of bytes to `copied`.
static bool copy_bytes(FILE *source, FILE *target, uint64_t *copied) {
    static std::array<char, 65536> buffer;
    size_t size = 0;
    while ((size = fread(buffer.data(), 1, buffer.size(), source)) > 0) {
        if (fwrite(buffer.data(), 1, size, target) != size)
            return false;
        *copied += size;
    }
    return ferror(source) == 0 && fflush(target) == 0;
}

static bool flush(FILE *target) {
    return fflush(target) == 0 && host_flush_to_disk(host_fileno(target));
}

// Writes a copy to `target`, which may be null, and closes it. False unless every byte was read and
// has been handed to the system or, if `durable`, to the disk.
static bool write_copy(FILE *source, FILE *target, bool durable) {
    uint64_t copied = 0;
    return target != nullptr && os_close_written(target, copy_bytes(source, target, &copied) &&
                                                             (!durable || flush(target)));
}

// Whether the file still begins with a NUL and has the size of what was written to it.
static bool is_ours(FILE *target, uint64_t size) {
    FileState state;
    errno = EBUSY;
    return host_seek(target, 0) && getc(target) == '\0' &&
           host_opened_state(host_fileno(target), &state) && state.size == size;
}

// The old file is lost with the first byte, and an incomplete new one could be taken for a complete
// one. So it begins with a NUL, which no text contains, until everything else is on the disk.
static bool overwrite(FILE *source, FILE *target) {
    const int first = getc(source);
    if (first == EOF)
        return ferror(source) == 0 && host_truncate(target, 0) && flush(target);
    uint64_t size = 1;
    return putc('\0', target) != EOF && fflush(target) == 0 && host_truncate(target, 1) &&
           copy_bytes(source, target, &size) && flush(target) && is_ours(target, size) &&
           host_seek(target, 0) && putc(first, target) != EOF && flush(target);
}

// Those who write to the same file at the same time wait for each other.
static bool write_in_place(FILE *source, const char *to, bool exists) {
    if (!exists && !host_make_file(to) && errno != EEXIST)
        return false;
    FILE *target = host_fopen(to, "r+b");
    return target != nullptr &&
           os_close_written(target, host_lock_opened(target) && overwrite(source, target));
}

// A new name in the directory of `path`: what precedes its last component by position. (The
// precedence of separators would find another directory for "a\b/c".)
static std::string sibling_of(const std::string &path) {
    const PathStyle &style = host_path_style();
    size_t end = path.size();
    while (end > 0 && !path_is_separator(style, path[end - 1]) &&
           !(style.drives && path[end - 1] == ':'))
        end--;
    return path.substr(0, end) + "zv" + host_unique_seed().get() + ".tmp";
}

// A new file that an interrupted run removes at exit; null on failure.
static FILE *make_sibling(const std::string &sibling) {
    os_remove_at_exit(sibling.c_str());
    return host_fopen(sibling.c_str(), "wb");
}

// Some directories take new files and release none.
static bool remove_sibling(const std::string &sibling) {
    if (host_remove(sibling.c_str()) || errno == ENOENT)
        return true;
    const int reason = errno;
    fprintf(stderr, "Cannot remove file \"%s\": %s\n", str_printable(sibling.c_str()).get(),
            host_strerror(reason));
    errno = reason;
    return false;
}

bool os_is_writable(const char *path) {
    return FilePtr(host_fopen(path, "r+b")) != nullptr;
}

bool os_can_write(const char *path) {
    HostStat status;
    if (path == nullptr || *path == '\0') {
        errno = ENOENT;
        return false;
    }
    if (!host_stat(path, &status)) {
        if (errno != ENOENT)
            return false;
        const std::string sibling = sibling_of(host_resolve_links(path).get());
        const bool made = FilePtr(make_sibling(sibling)) != nullptr; // and closed
        return made && remove_sibling(sibling);
    }
    if (status.kind == FileKind::directory)
        errno = EISDIR;
    return status.kind == FileKind::other ||
           (status.kind == FileKind::regular && os_is_writable(path));
}

namespace {

// Forbidden: the directory accepts no new file, or does not release the old one, because it is
// protected or sticky, or because something is mounted on the file.
enum class Replacement { done, failed, forbidden };

} // namespace

// The copy grows under a name of its own.
static Replacement replace_with_copy(FILE *source, const char *to, bool exists) {
    const std::string sibling = sibling_of(to);
    FILE *target = make_sibling(sibling);
    if (target == nullptr) {
        const bool forbidden = errno == EACCES || errno == EPERM || errno == EROFS;
        return forbidden ? Replacement::forbidden : Replacement::failed;
    }
    const bool written = write_copy(source, target, true);
    if (written && exists)
        host_copy_rights(to, sibling.c_str());
    if (written && host_replace(sibling.c_str(), to))
        return Replacement::done;
    const int reason = errno;
    remove_sibling(sibling);
    errno = reason;
    const bool forbidden = written && (reason == EACCES || reason == EPERM || reason == EBUSY ||
                                       reason == EROFS || reason == EXDEV);
    return forbidden ? Replacement::forbidden : Replacement::failed;
}

static bool copy_to_file(FILE *source, const char *to, bool exists) {
    // Renaming would also replace a file that is protected against writing.
    if (exists && !os_is_writable(to))
        return false;
    const Replacement outcome = replace_with_copy(source, to, exists);
    if (outcome != Replacement::forbidden)
        return outcome == Replacement::done;
    return host_seek(source, 0) && write_in_place(source, to, exists);
}

static bool copy_to(FILE *source, const char *to) {
    HostStat old;
    const bool exists = host_stat(to, &old);
    if (!exists && errno != ENOENT)
        return false;
    if (exists && old.kind == FileKind::directory) {
        errno = EISDIR;
        return false;
    }
    // The name of a link need not lead back to the open file behind it (/dev/stdout).
    const OwnedString target = host_resolve_links(to);
    const bool leads_back = strcmp(to, target.get()) == 0 || host_same_file(to, target.get());
    if (exists && (old.kind != FileKind::regular || !leads_back))
        return write_copy(source, host_fopen(to, "wb"), false);
    return copy_to_file(source, target.get(), exists);
}

// A file that is copied to itself is complete already, and need not be writable.
static bool copy_file(const char *from, const char *to, bool may_be_same) {
    FILE *source = from != nullptr && to != nullptr ? host_fopen(from, "rb") : nullptr;
    if (source == nullptr)
        return false;
    const bool done = (may_be_same && host_same_file(from, to)) || copy_to(source, to);
    const int reason = errno;
    fclose(source);
    errno = reason;
    return done;
}

bool copyfile_helper(const char *from, const char *to) {
    return copy_file(from, to, true);
}

bool os_copy_to_other(const char *from, const char *to) {
    return copy_file(from, to, false);
}
