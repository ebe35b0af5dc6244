// The files of -g, hashed by copies of the program.
#ifndef KESTREL_KESTREL_HASH_TASKS_H
#define KESTREL_KESTREL_HASH_TASKS_H

#include "kestrel/manifest.h"
#include "manifest/filedigests.h"

#include <cstdint>

// Hashes so many files below the current directory by tasks; in this process if there are not more
// files than tasks, and what a task has not done. Result and `receive` are those of HashFiles.
bool hash_by_tasks(uint32_t count, const PathOf &path_of, const FileHasher::Receiver &receive);

// In a task: hashes the files whose paths are the lines of a range of a list, from the current
// directory, and writes a FileDigest of each to the file `digests`; false if that is not complete.
bool hash_list_range(const char *list, const LineRange &range, const char *digests);

#endif
