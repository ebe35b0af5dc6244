// SHA-256 of many files, as many at a time as the processor can: one stream leaves most of a core
// idle.
#ifndef COMMON_FILEDIGESTS_H
#define COMMON_FILEDIGESTS_H

#include "digest/sha256.h"
#include "host/osdep_host.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <utility>

struct FileDigest {
    OpenOutcome outcome;
    int reason;                         // unless it was opened and read, for file_reason()
    uint8_t digest[SHA256_DIGEST_SIZE]; // of the whole file, when it was opened and read
};

// Called, unless it is null, after each read of a file with the number of bytes, and with 0 when a
// file's result has been handed over.
extern void (*hashing_hook)(uint64_t bytes);

// Why a file could not be read: the system's text for an errno, or that it is not a file for 0.
const char *file_reason(int reason);

// Hashes files and hands over their results in the order in which the files were added, whatever
// order they finish in. A file is opened when a lane is free for it, ahead of its turn, but its
// result, failures included, waits for its turn.
class FileHasher {
  public:
    // False stops everything: no further results are handed over.
    using Receiver = std::function<bool(const char *path, const FileDigest &result)>;

    explicit FileHasher(Receiver receiver) : receive(std::move(receiver)) {}
    ~FileHasher();
    FileHasher(const FileHasher &) = delete;
    FileHasher &operator=(const FileHasher &) = delete;

    // All of these return false once the receiver has stopped everything.

    // Hashes until a lane is free.
    bool wait_for_lane();

    // Takes the next file, when there is a lane for it. `found` is the result of host_stat, null if
    // that failed. Call host_stat after wait_for_lane(), so that little time passes before the file
    // is opened.
    bool add(const char *path, const HostStat *found);

    // Hashes what is left and hands it over.
    bool finish();

  private:
    static constexpr size_t READ_SIZE = 16384;
    static constexpr size_t CACHE_LINE = 64; // the system copies fastest to the start of one

    struct Job {
        std::string path;
        bool done;
        FileDigest result;
    };

    // A file being hashed; none while `job` is null. The lanes do not lie a multiple of 4 KiB
    // apart, where their buffers would evict each other from the first cache.
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

    Lane *free_lane();
    bool can_wait_for_descriptor();
    bool start(Lane &lane, Job &job, const HostStat *found);
    bool refill(Lane &lane);
    void end(Lane &lane, OpenOutcome outcome);
    void hash_rest(Lane &lane);
    void hash_blocks();
    void advance();
    bool hand_over();

    Receiver receive;
    bool ended = false;
    std::deque<Job> jobs; // all that are not handed over yet, in order
    size_t lane_count = sha256_best_lanes();
    size_t busy = 0; // lanes that have a file
    std::unique_ptr<Lane[]> lanes{new Lane[lane_count]};
};

// The same for files that each have a tag, which is kept until it is handed over with the result.
template <class Tag> class FileDigests {
  public:
    using Receiver = std::function<bool(const char *path, Tag tag, const FileDigest &result)>;

    explicit FileDigests(Receiver receiver) : receive(std::move(receiver)) {}

    // As in FileHasher.
    bool wait_for_lane() { return files.wait_for_lane(); }
    bool finish() { return files.finish(); }
    bool add(const char *path, Tag tag, const HostStat *found) {
        tags.push_back(std::move(tag));
        return files.add(path, found);
    }

    // Looks for the file itself, when there is a lane for it.
    bool add(const char *path, Tag tag) {
        HostStat found;
        return wait_for_lane() &&
               add(path, std::move(tag), host_stat(path, &found) ? &found : nullptr);
    }

  private:
    bool hand_over(const char *path, const FileDigest &result) {
        Tag tag = std::move(tags.front());
        tags.pop_front();
        return receive(path, std::move(tag), result);
    }

    Receiver receive;
    std::deque<Tag> tags; // of the files that are not handed over yet, in order
    FileHasher files{
        [this](const char *path, const FileDigest &result) { return hand_over(path, result); }};
};

#endif
