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

// Receives the result for a file, with the path and the tag it was added with. False ends the
// whole: nothing more is received.
using FileDigestFn = bool (*)(void *context, const char *path, void *tag, const FileDigest &result);

// Results are handed over in the order in which the files were added, whatever order they end in:
// a file is opened when a lane is free for it, ahead of its turn, but what became of that is told
// in its turn.
class FileDigests {
  public:
    FileDigests(FileDigestFn receiver, void *receiver_context)
        : receive(receiver), context(receiver_context) {}
    ~FileDigests();
    FileDigests(const FileDigests &) = delete;
    FileDigests &operator=(const FileDigests &) = delete;

    // All of these are false once the receiver has ended the whole.

    // Hashes until a lane is free.
    bool wait_for_lane();

    // Takes the next file, when there is a lane for it.
    bool add(const char *path, void *tag);

    // The same for a path of which host_stat has said `found`, null if that failed; it is to be
    // asked when there is a lane, so that the file is opened a moment later.
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
        uint64_t size = 0;             // that the file was found to have
        uint64_t length = 0;           // read so far
        const uint8_t *next = nullptr; // of the bytes read, what is not hashed yet
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
    std::deque<Job> jobs; // from the first that is not handed over on
    Lane lanes[2];
};

#endif
