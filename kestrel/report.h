// The report of a run (--report): what is wrong, one record each, and a last record that says that
// nothing is left out.
//
// A record is a line of fields separated by tabs: its kind; the number of the manifest's line, from
// 1, or 0; a path as the manifest has it, or a text; and, where there is one, the reason. Control
// characters are shown as "?".
#ifndef KESTREL_KESTREL_REPORT_H
#define KESTREL_KESTREL_REPORT_H

#include "manifest/linecheck.h"

#include <cstdint>
#include <string>

// Begins the report in a file, or on standard output for null. False, after a message on standard
// error, if it cannot be written, or would be written over the manifest (null for none).
bool report_begin(const char *path, const char *manifest);

// Whether there is a report. Without one the functions below write nothing, but still count, and
// keep the first reason.
bool report_is_on();

// Returns the file that the report is in, as it was given; null for none.
const char *report_path();

// Whether a path leads to the report's file.
bool report_is_in(const char *path);

// Records a line that does not verify; the first line of the manifest is number 1.
void report_line(uint64_t number, const FaultyLine &faulty);

// Records an error, which concerns no single line. Returns its text, interned.
const char *report_error(const char *format, ...) PRINTF_LIKE(1, 2);

// The first reason for failing that a report would have had, if there is none; empty if that is
// not known, or has been told.
std::string report_first_reason();

// Notes that standard error has told the reason.
void report_reason_told();

// Counts entries that --exclude has left out of a new manifest.
void report_excluded(uint64_t entries);

// Counts a file of a new manifest; its size is in bytes.
void report_file(uint64_t size);

// Notes that files are looked for which the manifest does not list.
void report_extra_search();

// Records a file that the manifest does not list.
void report_extra(const char *path);

// Records what no function above is for: its kind, its path or a text, and a reason unless that is
// null.
void report_record(const char *kind, const char *text, const char *reason = nullptr);

// Adds to the totals of the last record: lines, and how many of these were not checked.
void report_count(uint64_t lines, uint64_t unchecked = 0);

// Counts lines as unchecked until the total is `lines`, the number in the manifest.
void report_cover(uint64_t lines);

// Appends the report that a task has written to a file about so many lines. False if it is
// incomplete, or the path is null: the lines that have no record then count as unchecked, and the
// whole report is incomplete too.
bool report_part(const char *path, uint64_t lines);

// Writes the last record: what became of the lines; or the files and bytes of a new manifest.
// False, after a message on standard error, if the report is incomplete or could not be written to
// its end.
bool report_end_check();
bool report_end_generate();

#endif
