// The platform layer: host facts, programs, paths by the host's rules, files, temporaries, time,
// text and binary helpers. Nothing here reports to the user; failures are return values.
#ifndef KESTREL_PLATFORM_OSDEP_H
#define KESTREL_PLATFORM_OSDEP_H

#include "base/sorting.h"
#include "base/text.h"
#include "containers/vector.h"
#include "host/host.h"

#include <cstdint>
#include <cstdio>
#include <string>

// --- Host facts and processes (osdep_process.cpp)

// Processors to use, at least 1: with `use_env` what the environment variable
// bamboo_capability_Cores says, if it holds a number other than 0; else what the system says.
int32_t os_ncores(bool use_env);

OwnedString os_progpath();
const char *os_osname();
OwnedString os_hostname(); // "localhost"

// The host's kind: HOST_DRIVE_PATHS for drive letters and backslashes, else 0.
int32_t os_kind();

// The longest command line, in characters, that is passed to a program directly.
int32_t os_max_cmdline();

// Saves the standard output and error descriptors (once) and installs the handler that puts them
// back and ends the program with the signal's number as its status. Writes to a closed pipe, or
// beyond the limit of a file's size, then fail as others do.
void os_catch_signals();

// Called first, unless it is null, when a fatal signal has arrived.
extern void (*os_signal_hook)();

// A copy, in double quotes if it contains white space; nothing inside is escaped.
OwnedString os_quote_arg(const char *s);

// Runs a program to its end and returns its exit status, or -1 if it could not be started. The
// elements of `argv` (null-terminated) are replaced by new, quoted strings, which nobody frees.
int os_spawn(const char *path, const char **argv);

// Runs a program with the elements of a vector, the last of which is null, as os_spawn does. They
// are not to be used afterwards.
int os_spawn_vector(const char *path, const Vector *args);

// Runs a program with its output and error output caught, and returns a stream to read them from,
// to be closed with os_pclose; null on failure. `args` holds the program's path, its arguments and
// a null, and is consumed.
FILE *os_popen(Vector *args);
FILE *os_popenv(const char *prog, ...) __attribute__((sentinel));

// Closes a stream of os_popen and returns the program's exit status; -1, and nothing closed, for
// others.
int os_pclose(FILE *fp);

// --- Paths (osdep_path.cpp); see pathstyle.h for the rules

OwnedString os_join(const char *dir, const char *name);
OwnedString path_join(const char *dir, const char *name); // as os_join
const char *os_basename(const char *path);                // points into `path`
OwnedString os_basename_copy(const char *path);
OwnedString os_dirname(const char *path);
const char *os_extension(const char *path); // points into `path`
OwnedString os_stem(const char *path);
OwnedString os_stem_dot(const char *path);
int os_is_absolute(const char *path);
OwnedString os_normalise(const char *path);

// The path made absolute against the current directory, and normalised.
OwnedString os_fullpath(const char *path);

// The path relative to the current directory if that, as text, is a prefix of the full path; "."
// for the directory itself; else the full path. The prefix is not compared by components.
OwnedString os_relpath(const char *path);
OwnedString os_getcwd();
OwnedString os_shortpath(const char *path); // null on failure

// True if the entry exists and is stored under exactly the last component of `path`.
bool os_name_case_matches(const char *path);

// --- Files and directories (osdep_files.cpp)

int os_exists(const char *path);
int os_is_dir(const char *path);
bool os_is_regular(const char *path);   // reading anything else could block or never end
bool os_is_writable(const char *path);  // an existing file that may be written to
uint32_t os_filesize(const char *path); // low 32 bits; 0 for null or failure

// Makes a directory: 0 on success or if it is already one or a bare drive, 1 if it is something
// else, -1 for null; otherwise as os_mkdir_parents.
int os_mkdir(const char *path);

// Makes the directory and its missing parents; 0 on success.
int os_mkdir_parents(const char *path);

// Removes a directory with its contents: -1 if it is not one, else 0 or the result of the first
// failure. A directory that cannot be listed counts as removed but stays, even if it is empty.
int os_rmtree(const char *path);

// Copies a file's bytes, creating or replacing the destination; false, with the reason in errno, if
// that fails. A regular destination is replaced in one step when the copy is complete and on the
// disk, and is left as it was if anything fails. Where its directory does not permit that, and
// where it is not a regular file (a device, a pipe), it is written in place.
bool copyfile_helper(const char *from, const char *to);

// Copies as copyfile_helper does, for two paths that the caller knows to be two files: the other
// copies nothing if they look like one, as all files may on a file system without identities.
bool os_copy_to_other(const char *from, const char *to);

// Whether copyfile_helper could write to a path, as far as rights go; false with the reason in
// errno. For a missing file this is tried by making one beside it for a moment. A path that is
// neither file nor directory is taken to be writable and is not opened.
bool os_can_write(const char *path);

// Closes a file that was written to; false, with the first reason in errno, unless every byte has
// been handed to the system. `written` is false if the caller knows already that something failed.
bool os_close_written(FILE *file, bool written = true);

// Appends the rest of a stream to `text`; false if it cannot be read to its end or is longer than
// `most` bytes.
bool os_read_all(FILE *file, std::string *text, size_t most = SIZE_MAX);

// --- Temporary names (osdep_temp.cpp), in a directory of the process's own that goes at exit

// A path for a new file that begins with the tool's name (with "_" for white space) and ends in "."
// and `suffix` (its own leading dot will do); null if the directory cannot be made. Nothing is
// created.
OwnedString os_tempname(const char *suffix);
OwnedString os_tempname_plain();
OwnedString os_tempdir_new(); // made as a directory; null if that fails

// Registers a path for removal at exit; null is ignored.
void os_remove_at_exit(const char *path);
void os_rmdir_at_exit(const char *path);
void os_keep_temps(bool flag); // nothing is removed at exit

// Ends the programs of host_start_process, which may write temporaries, and removes all
// temporaries; for a signal's handler. What could not be removed is tried again at exit.
void os_remove_temps();

// --- Environment and time (osdep_time.cpp)

// Sets an environment variable: 0 on success and for a null name, else the host's result.
int os_setenv(const char *name, const char *value);

// The time, after fixing the process's time zone to EST0EDT on the first call. Null is allowed.
int64_t os_time(int64_t *t);

// --- 16-bit wide strings and case (osdep_text.cpp)

uint16_t *os_wcscpy(uint16_t *to, const uint16_t *from);
uint16_t *os_wcsdup(const uint16_t *s); // the caller frees it
size_t os_wcslen(const uint16_t *s);    // in elements
int os_wcscmp(const uint16_t *a, const uint16_t *b);
uint16_t *os_wcslwr(uint16_t *s);
char *os_strupr(char *s); // in place; null and empty come back as they are
char *os_strlwr(char *s);

// --- Fixed-width binary integers (osdep_binary.cpp): one value read or written, 1 or 0 returned

size_t os_read_u8(FILE *f, uint8_t *val);
size_t os_read_le16(FILE *f, uint16_t *val);
size_t os_read_be16(FILE *f, uint16_t *val);
size_t os_read_le32(FILE *f, uint32_t *val);
size_t os_read_be32(FILE *f, uint32_t *val);
size_t os_read_le64(FILE *f, uint64_t *val);
size_t os_read_be64(FILE *f, uint64_t *val);
size_t os_write_u8(FILE *f, uint8_t val);
size_t os_write_le16(FILE *f, uint16_t val);
size_t os_write_be16(FILE *f, uint16_t val);
size_t os_write_le32(FILE *f, uint32_t val);
size_t os_write_be32(FILE *f, uint32_t val);
size_t os_write_le64(FILE *f, uint64_t val);
size_t os_write_be64(FILE *f, uint64_t val);

#endif
