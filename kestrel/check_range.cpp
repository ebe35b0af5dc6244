// --check: what a task does with its range of lines: verifies those of a manifest or, with
// --digests, hashes the files of a list.
#include "host/trace.h"
#include "kestrel/kestrel.h"
#include "kestrel/report.h"
#include "kestrel/steps.h"
#include "manifest/filedigests.h"
#include "manifest/linecheck.h"

#include <cerrno>
#include <cstdio>
#include <string_view>
#include <utility>

static constexpr const char *NO_LINES = "ERROR: no data was read from the manifest";

namespace {

// What --check asks for.
struct LineRange {
    int32_t position;
    uint32_t start;
    uint32_t end;
};

} // namespace

// Calls `take` with the number of each line up to the end of the range, and the line, until it
// returns false or the file ends. False, with the reason in `failure`, if that cannot be read.
template <class Take>
static bool read_range(FILE *file, const LineRange &range, Take take, const char **failure) {
    const bool seeking = range.position >= 1;
    bool readable = true;
    if (seeking) {
        TRACE_MESSAGE("Starting line is %d. Seek to manifest start position: %ld", range.start,
                      static_cast<long>(range.position));
        readable = host_seek(file, range.position);
    }
    if (readable) {
        TRACE_MESSAGE("Reading manifest from line %d to line %d", range.start, range.end);
        for (uint64_t i = seeking ? range.start : 0; i <= range.end; i++)
            if (const std::string_view line = shahash_next_line(file);
                line.empty() || !take(i, line))
                break;
        readable = ferror(file) == 0;
    }
    if (!readable)
        *failure = CANNOT_READ_MANIFEST;
    return readable;
}

// The log's text for a malformed line says which one it is in a line before it.
static const char *malformed(uint64_t number) {
    TRACE_MESSAGE("Line %llu of the manifest is malformed",
                  static_cast<unsigned long long>(number) + 1);
    return "Manifest data was malformed";
}

static void log_different(const ManifestLine &line) {
    TRACE_MESSAGE("File \"%s\" did not verify against manifest hash.", line.path.c_str());
}

// Such a line fails a check even before its range.
static bool is_no_text(std::string_view line) {
    return line.find('\0') != line.npos || line.size() > MANIFEST_LINE_LIMIT;
}

// The lines of the range, as far as the file has them and up to the first that cannot verify; null,
// with the reason in `failure`, for a manifest that cannot be read or holds a NUL or a line over
// the limit.
static BlockVectorPtr gather_lines(FILE *file, const LineRange &range, const char **failure) {
    BlockVectorPtr lines(vec_new(__FILE__, __LINE__));
    const auto gather = [&](uint64_t number, std::string_view line) {
        if (is_no_text(line)) {
            *failure = malformed(number);
            return false;
        }
        if (number < range.start)
            return true;
        vec_append(lines.get(), xstrndup(line.data(), line.size()).release());
        return shahash_line_can_verify(line);
    };
    return read_range(file, range, gather, failure) && *failure == nullptr ? std::move(lines)
                                                                           : nullptr;
}

// Verifies lines up to the first that fails: a malformed one is a `failure`, a file goes to the
// debug log.
static bool verify_lines(Vector *lines, uint32_t start, const char **failure) {
    LineCheck check([&](const FaultyLine &faulty) {
        if (faulty.fault == LineFault::malformed)
            *failure = malformed(start + faulty.number);
        else
            log_different(faulty.line);
        return false;
    });
    for (const char *line : VecEach<const char>(lines))
        if (!check.add(line))
            break;
    return check.finish();
}

// Verifies the lines of the range as they are read, all of them, and reports those that fail.
static bool report_lines(FILE *file, const LineRange &range, const char **failure) {
    uint64_t count = 0;
    LineCheck check(
        [&](const FaultyLine &faulty) {
            const uint64_t number = range.start + faulty.number;
            report_line(number + 1, faulty);
            if (faulty.fault == LineFault::malformed)
                malformed(number);
            else
                log_different(faulty.line);
            return true;
        },
        CheckFor::report);
    const auto verify = [&](uint64_t number, std::string_view line) {
        if (number >= range.start) {
            check.add(line);
            count++;
        } else if (is_no_text(line)) {
            *failure = malformed(number);
        }
        // Of a line over the limit the rest is left.
        while (line.size() > MANIFEST_LINE_LIMIT && line.back() != '\n')
            if (line = shahash_next_line(file); line.empty())
                break;
        return true;
    };
    const bool read = read_range(file, range, verify, failure);
    const bool passed = check.finish();
    report_count(count);
    if (read && count == 0)
        *failure = NO_LINES;
    return read && passed && *failure == nullptr;
}

static bool check_lines(FilePtr file, const LineRange &range, const char **failure) {
    if (report_is_on())
        return report_lines(file.get(), range, failure);
    const BlockVectorPtr lines = gather_lines(file.get(), range, failure);
    file.reset();
    if (lines == nullptr)
        return false;
    if (vec_size(lines.get()) != 0)
        return verify_lines(lines.get(), range.start, failure);
    *failure = NO_LINES;
    return false;
}

bool check_manifest_range(const char *manifest, const char *instdir, int32_t position,
                          uint32_t start, uint32_t end) {
    TRACE_ENTER();
    if (const char *missing = missing_installation(instdir); missing != nullptr)
        return TRACE_RESULT(false, "%s", missing);
    manifest = manifest_path(manifest, instdir);
    TRACE_MESSAGE("Performing partial check of manifest \"%s\" for installation \"%s\"", manifest,
                  instdir);
    const OwnedString before = os_getcwd();
    const char *failure = nullptr;
    Subject opened;
    FilePtr file = open_manifest(manifest, instdir, before.get(), &opened, &failure);
    if (file == nullptr)
        return TRACE_RESULT(false, "%s", failure);
    if (!check_lines(std::move(file), {position, start, end}, &failure)) {
        if (failure == nullptr)
            return false;
        report_error("%s", failure);
        return TRACE_RESULT(false, "%s", failure);
    }
    if (before != nullptr)
        enter_directory(before.get());
    return TRACE_RESULT(true, "All hashes in the range verified correctly");
}

// Writes the results of the files of a list, in order. Where descriptors run out it gives up: the
// parent, which hashes the files then, holds fewer.
static bool hash_lines(FILE *list, const LineRange &range, FILE *results, const char **failure) {
    FileHasher files([results](const char *, const FileDigest &result) {
        const bool starved = result.outcome == OpenOutcome::refused &&
                             (result.reason == EMFILE || result.reason == ENFILE);
        return !starved && fwrite(&result, sizeof result, 1, results) == 1;
    });
    const auto hash = [&](uint64_t number, std::string_view line) {
        const std::string path(line.substr(0, line.size() - 1));
        return number < range.start || files.add(path.c_str());
    };
    return read_range(list, range, hash, failure) && files.finish();
}

// In the directory that it was started in: the name of that may lead elsewhere by now.
bool hash_list_range(const char *list, int32_t position, uint32_t start, uint32_t end,
                     const char *digests) {
    TRACE_ENTER();
    const OwnedString before = os_getcwd();
    const char *failure = nullptr;
    Subject opened;
    const FilePtr file = open_manifest(list, ".", before.get(), &opened, &failure);
    if (file == nullptr)
        return TRACE_RESULT(false, "%s", failure);
    FILE *results = host_fopen(digests, "wb");
    if (results == nullptr ||
        !os_close_written(results,
                          hash_lines(file.get(), {position, start, end}, results, &failure)))
        return TRACE_RESULT(false, "Could not write the digests");
    return TRACE_RESULT(true, "All files in the range were hashed");
}
