// SHA-256 of many files, two at a time: one stream leaves half of a processor's core idle.
#ifndef COMMON_FILEDIGESTS_H
#define COMMON_FILEDIGESTS_H

#include "digest/sha256.h"
#include "host/osdep_host.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>

struct FileDigest {
    OpenOutcome outcome;
    uint8_t digest[SHA256_DIGEST_SIZE]; // of the whole file, when it was opened and read
};

// Receives the result for a file, with the path and the tag it was added with; the tag stays the
// caller's. False stops everything: no further results are handed over.
using FileDigestFn = bool (*)(void *context, const char *path, void *tag, const FileDigest &result);

// Results are handed over in the order in which the files were added, whatever order they finish
// in. A file is opened when a lane is free for it, ahead of its turn, but its result, failures
// included, waits for its turn.
class FileDigests {
  public:
    FileDigests(FileDigestFn receiver, void *receiver_context)
        : receive(receiver), context(receiver_context) {}
    ~FileDigests();
    FileDigests(const FileDigests &) = delete;
    FileDigests &operator=(const FileDigests &) = delete;

    // All of these return false once the receiver has stopped everything.

    // Hashes until a lane is free.
    bool wait_for_lane();

    // Takes the next file, when there is a lane for it.
    bool add(const char *path, void *tag);

    // The same with the result of host_stat, null if that failed. Call host_stat after
    // wait_for_lane(), so that little time passes before the file is opened.
    bool add(const char *path, void *tag, const HostStat *found);

    // Hashes what is left and hands it over.
    bool finish();

  private:
    static constexpr size_t READ_SIZE = 16384;
    static constexpr size_t CACHE_LINE = 64; // what the system copies to fastest

    struct Job {
        std::string path;
        void *tag;
        bool done;
        FileDigest result;
    };

    // A file being hashed; none while `job` is null.
    struct Lane {
        Job *job = nullptr;
        int descriptor = -1;
        uint64_t size = 0;             // as host_stat found it
        uint64_t length = 0;           // read so far
        const uint8_t *next = nullptr; // of the bytes read and not hashed yet
        size_t left = 0;
        Sha256Context ctx;
        alignas(CACHE_LINE) uint8_t buffer[READ_SIZE];
    };

    bool start(Lane &lane, Job &job, const HostStat *found);
    bool refill(Lane &lane);
    void end(Lane &lane, OpenOutcome outcome);
    void hash_pair(size_t blocks);
    void hash_rest(Lane &lane);
    void advance();
    bool hand_over();

    FileDigestFn receive;
    void *context;
    bool ended = false;
    std::deque<Job> jobs; // all that are not handed over yet, in order
    Lane lanes[2];
};

#endif
