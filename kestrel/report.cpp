#include "kestrel/report.h"

#include "containers/stringcache.h"
#include "kestrel/output.h"
#include "kestrel/settings.h"
#include "manifest/progress.h"
#include "platform/osdep.h"

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

// In the order of LineFault.
static constexpr std::string_view FAULTS[] = {"different", "missing", "unreadable", "malformed",
                                              "outside"};

// So much is shown of a malformed line, which can be of any length.
static constexpr size_t MALFORMED_LIMIT = 1000;

static FILE *stream = nullptr;
static const char *file_path = nullptr; // null for standard output
static int first_error = 0;             // of writing it there
static uint64_t line_count = 0;
static uint64_t unchecked_count = 0;
static uint64_t fault_counts[std::size(FAULTS)];
static uint64_t file_count = 0;
static uint64_t byte_count = 0;
static bool extra_searched = false;
static uint64_t extra_count = 0;
static uint64_t excluded_count = 0;
static bool is_incomplete = false;
static std::optional<std::string> first_reason;

static bool report_unwritten() {
    fprintf(stderr, "Cannot write report \"%s\": %s\n", str_printable(file_path).get(),
            host_strerror(errno));
    return false;
}

static bool refuse() {
    fputs("The report would be written over the manifest\n", stderr);
    return false;
}

// A manifest that is not there is the report's file as soon as that has been made in its place.
bool report_begin(const char *path, const char *manifest) {
    file_path = path;
    if (path == nullptr) {
        stream = stdout;
        return true;
    }
    const auto is_manifest = [&] { return manifest != nullptr && host_same_file(path, manifest); };
    if (is_manifest())
        return refuse();
    stream = host_fopen(path, "w");
    if (stream == nullptr)
        return report_unwritten();
    if (is_manifest()) {
        fclose(std::exchange(stream, nullptr));
        host_remove(host_resolve_links(path).get());
        return refuse();
    }
    return true;
}

bool report_is_on() {
    return stream != nullptr;
}

const char *report_path() {
    return stream != nullptr ? file_path : nullptr;
}

bool report_is_in(const char *path) {
    return report_path() != nullptr && host_same_file(path, file_path);
}

// --- Records

// Once a write has failed nothing more is written: a later one may succeed, and its record would
// stand behind a gap.
static void write_text(std::string_view text) {
    if (stream == stdout) {
        progress_wipe();
        print(text);
    } else if (first_error == 0) {
        fwrite(text.data(), 1, text.size(), stream);
        first_error = ferror(stream) != 0 ? errno : 0;
    }
}

static void write_record(std::string_view kind, uint64_t line, const char *text,
                         const char *reason) {
    if (stream == nullptr)
        return;
    std::string record =
        std::string(kind) + '\t' + std::to_string(line) + '\t' + str_printable(text).get();
    if (reason != nullptr)
        record += std::string("\t") + str_printable(reason).get();
    write_text(record + '\n');
}

static void note_reason(const std::string &reason) {
    if (!first_reason)
        first_reason = str_printable(reason.c_str()).get();
}

std::string report_first_reason() {
    return first_reason.value_or("");
}

void report_reason_told() {
    first_reason = "";
}

void report_record(const char *kind, const char *text, const char *reason) {
    write_record(kind, 0, text, reason);
}

void report_line(uint64_t number, const FaultyLine &faulty) {
    const auto fault = static_cast<size_t>(faulty.fault);
    fault_counts[fault]++;
    std::string text = faulty.line.path;
    if (faulty.fault == LineFault::malformed && text.size() > MALFORMED_LIMIT)
        text.replace(MALFORMED_LIMIT, text.npos, "...");
    const char *reason =
        faulty.fault == LineFault::unreadable ? file_reason(faulty.reason) : nullptr;
    note_reason(std::string(FAULTS[fault]) + ": " + text.substr(0, text.find('\0')) + " (line " +
                std::to_string(number) + (reason != nullptr ? std::string(", ") + reason : "") +
                "); --report names all that fail");
    write_record(FAULTS[fault], number, text.c_str(), reason);
}

void report_file(uint64_t size) {
    file_count++;
    byte_count += size;
}

void report_excluded(uint64_t entries) {
    excluded_count += entries;
}

void report_extra_search() {
    extra_searched = true;
}

void report_extra(const char *path) {
    extra_count++;
    report_record("extra", path);
}

const char *report_error(const char *format, ...) {
    const char *text;
    WITH_VA_LIST(args, format, text = sc_vformat(format, args));
    note_reason(text);
    report_record("error", text);
    return text;
}

void report_count(uint64_t lines, uint64_t unchecked) {
    line_count += lines;
    unchecked_count += unchecked;
}

// --- The reports of tasks

static constexpr std::string_view END = "end\t";

// Copies a record, and counts the line that it is about; false for the last one.
static bool take_record(std::string_view record, uint64_t *faults) {
    if (record.starts_with(END))
        return false;
    const std::string_view kind = record.substr(0, record.find('\t'));
    for (size_t fault = 0; fault < std::size(FAULTS); fault++)
        if (kind == FAULTS[fault]) {
            fault_counts[fault]++;
            ++*faults;
        }
    write_text(record);
    return true;
}

bool report_part(const char *path, uint64_t lines) {
    if (stream == nullptr)
        return true;
    std::string text;
    uint64_t faults = 0;
    uint64_t good = 0;
    bool complete = false;
    if (const FilePtr file(path != nullptr ? host_fopen(path, "r") : nullptr); file != nullptr)
        complete = os_read_all(file.get(), &text);
    size_t at = 0;
    for (size_t end; (end = text.find('\n', at)) != text.npos; at = end + 1)
        if (!take_record(std::string_view(text).substr(at, end + 1 - at), &faults))
            break;
    // The sentence of report_end_check().
    complete = complete && sscanf(text.c_str() + at, "end\t%*u\t%" SCNu64 " good,", &good) == 1;
    is_incomplete = is_incomplete || !complete;
    const uint64_t known = faults + (complete ? good : 0);
    report_count(std::max(lines, known), std::max(lines, known) - known);
    return complete;
}

void report_cover(uint64_t lines) {
    if (lines > line_count)
        report_count(lines - line_count, lines - line_count);
}

// --- The last record

static bool end_with(uint64_t number, const std::string &text, const char *addition) {
    if (stream == nullptr)
        return true;
    write_record("end", number, text.c_str(), addition);
    FILE *const written = stream;
    stream = nullptr;
    if (written != stdout && !os_close_written(written, first_error == 0)) {
        errno = first_error != 0 ? first_error : errno;
        return report_unwritten();
    }
    if (is_incomplete)
        fputs("The report does not cover every line\n", stderr);
    return !is_incomplete;
}

bool report_end_check() {
    uint64_t good = line_count - unchecked_count;
    std::string faults;
    for (size_t fault = 0; fault < std::size(FAULTS); fault++) {
        good -= fault_counts[fault];
        faults += std::to_string(fault_counts[fault]) + " " + std::string(FAULTS[fault]) + ", ";
    }
    return end_with(line_count,
                    std::to_string(good) + " good, " + faults + std::to_string(unchecked_count) +
                        " unchecked",
                    extra_searched ? (std::to_string(extra_count) + " extra").c_str() : nullptr);
}

bool report_end_generate() {
    return end_with(
        file_count, std::to_string(file_count) + " files, " + std::to_string(byte_count) + " bytes",
        settings.excluded.empty() ? nullptr
                                  : (std::to_string(excluded_count) + " excluded").c_str());
}
