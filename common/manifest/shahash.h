// Digests of files; manifests written, read and checked, and their lines.
//
// A manifest is text without header or trailer, one line per file: 64 lower-case hexadecimal digits
// of the file's SHA-256, a space, an asterisk and the path relative to the installation directory,
// which begins with ".\" and joins its components with single backslashes on every host.
#ifndef KESTREL_MANIFEST_SHAHASH_H
#define KESTREL_MANIFEST_SHAHASH_H

#include "base/xalloc.h"
#include "containers/vector.h"
#include "manifest/filedigests.h"
#include "manifest/pathpattern.h"

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

// --- Digests of files. A digest is SHA256_DIGEST_SIZE or SHA1_DIGEST_SIZE bytes, owned by the
// caller; a text is interned lower-case hexadecimal.

// The digest of an open file's rest, read straight from its descriptor in blocks of 16 KiB: nothing
// may have been read through the stream, which must be binary. A read error ends it like the end of
// the file.
OwnedBytes sha256_stream(FILE *file);
OwnedBytes sha1_stream(FILE *file);

// The digest of a named file, read like an open one; if it cannot be opened the process ends.
OwnedBytes sha256_file(const char *path);
OwnedBytes sha1_file(const char *path);
const char *sha256_file_hex(const char *path);
const char *sha1_file_hex(const char *path);

// The text of a digest.
const char *sha256_hex(const uint8_t *digest);
std::string sha256_text(const uint8_t *digest); // not interned
const char *sha1_hex(const uint8_t *digest);

// The digest written as 64 (40) hexadecimal digits of either case. Nothing is rejected: a character
// below "A" counts as its distance from "0", any other as its code less 55, in four bits; a text
// that is too short is filled up with "0".
OwnedBytes sha256_from_hex(const char *text);
OwnedBytes sha1_from_hex(const char *text);

// Called, unless it is null, before a line is printed on standard error.
extern void (*before_complaint_hook)();

// Prints a line on standard error.
void shahash_complain(const char *format, ...) PRINTF_LIKE(1, 2);

// Reports on standard error which file cannot be opened or read, and ends the process with status
// 1.
[[noreturn]] void shahash_fatal_cannot_open(const char *path);

// --- Manifest

// A line of a manifest.
struct ManifestEntry {
    const char *path;   // as in the manifest; the entry's own
    const char *digest; // interned: the digits, or what a line that was read has in their place,
                        // of any length; null for a file that could not be read
};

// Frees a vector of entries with them and their paths.
void shahash_free_entries(Vector *entries);

// Functions that a walk calls when it is to go on after problems.
struct WalkReport {
    bool (*leaves_out)(const char *path); // whether the file that `path` opens is not to be listed
    void (*file)(uint64_t size);          // counts a file of so many bytes

    // Takes an event, a path as in the manifest, and a detail or null:
    // "skipped" is a directory that this user may not list, "link" one that leads to the detail,
    // outside of the tree. The others keep a manifest from being written: "unlisted" is a name that
    // cannot stand in one, "unreadable" a file or directory with the reason, and "error" the
    // manifest itself, with a text in the path's place.
    void (*record)(const char *event, const char *path, const char *detail);

    void (*excluded)(uint64_t entries); // counts entries that patterns have left out
};

// What a manifest lists, and in which order.
struct WalkChoice {
    const PathPatterns *excluded = nullptr; // left out, and not entered; null for nothing
    bool sorted = false;                    // by the bytes of the paths, not in listing order
};

// Writes the manifest of all files under `dir`. Nothing appears at `manifest` before it is
// complete, and a manifest that stood there stays if anything fails, except where only writing in
// place is permitted (copyfile_helper). `flags` is for the walk, which ignores it; the second
// function gives it the host's, of os_kind(). A file that cannot be opened or read ends the
// process, unless there is a report.
bool shahash_write_manifest(uint32_t flags, const char *dir, const char *manifest,
                            const WalkReport *report = nullptr, const HashFiles &hash = hash_files,
                            const WalkChoice &choice = {});
bool shahash_write_manifest_default_flags(const char *dir, const char *manifest,
                                          const WalkReport *report = nullptr,
                                          const HashFiles &hash = hash_files,
                                          const WalkChoice &choice = {});

// Appends a ManifestEntry for every file under `dir`, depth first in listing order, with `relative`
// in the place of `dir` in its path; when all are there, `hash` hashes the files. What `excluded`
// matches is left out (null for nothing), and a directory that this user may not list, below `dir`.
// False, after a line on standard error, if a name cannot stand in a manifest or a directory cannot
// be read for another reason; with a report the walk goes on in all cases.
bool shahash_walk(uint32_t flags, Vector *files, const char *dir, const char *relative,
                  const WalkReport *report = nullptr, const HashFiles &hash = hash_files,
                  const PathPatterns *excluded = nullptr);

// Whether the file's digest is `digest`, byte for byte. False for null, for a missing file and for
// one that is neither a file nor a directory; a file that cannot be opened or read ends the
// process. In the path, backslashes separate on every host.
bool shahash_verify_file(const char *digest, const char *path);

// Whether a line can hold the name as a component of its path; the last one must not end in white
// space.
bool shahash_name_fits(std::string_view name, bool is_last);

// The line for an entry, with LF, which a text stream turns into the host's line end.
std::string shahash_format_line(const ManifestEntry &entry);

// The two fields of a manifest line.
struct ManifestLine {
    std::string digest; // up to the first space
    std::string path;   // the rest, without white space around it and without one leading asterisk
};

// The longest line allowed, in bytes: a file without line ends must not fill memory.
constexpr size_t MANIFEST_LINE_LIMIT = 1 << 20;

// The next line of an open manifest, line end included; empty at its end. Of a line over the limit,
// a piece longer than the limit. Valid as long as the string cache keeps it (sc_readLineBytes).
std::string_view shahash_next_line(FILE *file);

// A path of a manifest with the host's separators.
std::string shahash_native_path(std::string path);

// Splits a line into its fields. False, and they are unchanged, for a line without a space, with a
// NUL or over the limit.
bool shahash_parse_line(std::string_view line, ManifestLine *fields);

// Whether a file can verify against a line: it begins with 64 lower-case digits and a space, and is
// not too long. A check without a report ends at any other line.
bool shahash_line_can_verify(std::string_view line);

// The entries of a whole manifest, each path joined to `base`, none if it is empty; null if it
// cannot be read, or if a line is malformed or its path leads out. To be freed by
// shahash_free_entries.
Vector *shahash_read_manifest(const char *manifest, const char *base);

// Checks every line of a manifest, after changing to `dir` (and back) when it is given; stops at
// the first line that is malformed, missing or different, or whose path leads out. False for an
// empty manifest, as one that was cut off can be.
bool shahash_check_manifest(const char *manifest, const char *dir);

// Checks a vector of ManifestEntry, all of them; false if a path is null, empty or missing, or a
// file differs. True for a vector without entries: whoever has read a manifest asks vec_size.
bool shahash_check_entries(Vector *entries);

#endif
