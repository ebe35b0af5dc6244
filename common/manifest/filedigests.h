// SHA-256 of many files, as many at a time as the processor can: one stream leaves most of a core
// idle.
#ifndef KESTREL_MANIFEST_FILEDIGESTS_H
#define KESTREL_MANIFEST_FILEDIGESTS_H

#include "digest/sha256.h"
#include "host/host.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

struct FileDigest {
    OpenOutcome outcome;
    int reason;                         // unless it was opened and read, for file_reason()
    uint8_t digest[SHA256_DIGEST_SIZE]; // of the whole file, when it was opened and read
};

// Called, unless it is null, after each read of a file with the number of bytes, and with 0 when a
// file is done.
extern void (*hashing_hook)(uint64_t bytes);

// Why a file could not be read: the system's text for an errno, or that it is not a file for 0.
const char *file_reason(int reason);

// Hashes small files as soon as there is one for each lane, while the system still has their names
// at hand, and large ones when enough files are known, the largest first, so that at the end no
// lane has a long way to go alone. The results, failures included, are handed over in the order in
// which the files were added.
class FileHasher {
  public:
    // False stops everything: no further results are handed over.
    using Receiver = std::function<bool(const char *path, const FileDigest &result)>;

    explicit FileHasher(Receiver receiver) : receive(std::move(receiver)) {}
    ~FileHasher();
    FileHasher(const FileHasher &) = delete;
    FileHasher &operator=(const FileHasher &) = delete;

    // These return false once the receiver has stopped everything.

    // Adds a file that was looked for, or looks for it.
    bool add(const char *path, const StatResult &found);
    bool add(const char *path) { return add(path, host_stat_result(path)); }

    // Hashes what is left and hands it over.
    bool finish();

  private:
    static constexpr size_t MOST_JOBS = 2048; // at a time
    static constexpr size_t READ_SIZE = 32768;
    static constexpr size_t CACHE_LINE = 64; // the system copies fastest to the start of one

    struct Job {
        std::string path;
        HostStat found;
        bool done;
        FileDigest result;
    };

    // A file being hashed; none while `job` is null. The lanes do not lie a multiple of 4 KiB
    // apart, where their buffers would evict each other from the first cache.
    struct Lane {
        Job *job = nullptr;
        int descriptor = -1;
        size_t held = 0;               // bytes of a small file that were at hand when it was opened
        uint64_t length = 0;           // of what was read so far
        const uint8_t *next = nullptr; // of the blocks read and not hashed yet
        size_t blocks = 0;
        bool is_last = false; // whether they end with the padding
        uint32_t state[SHA256_STATE_WORDS];
        alignas(CACHE_LINE) uint8_t buffer[READ_SIZE + SHA256_MOST_PADDING];
    };

    void queue_large();
    void hash_waiting();
    void step();
    void change_file(Lane &lane);
    bool start(Lane &lane);
    void read(Lane &lane);
    void end(Lane &lane, OpenOutcome outcome);
    void hash_blocks();
    void complete(Job &job);
    void hand_over();

    Receiver receive;
    bool ended = false;
    std::deque<Job> jobs;       // not handed over yet, in order
    std::vector<Job *> large;   // that need more than one buffer, and do not wait for a lane yet
    std::vector<Job *> waiting; // for a lane; the next one is the last
    size_t lane_count = sha256_best_lanes();
    size_t busy = 0; // lanes that have a file
    std::unique_ptr<Lane[]> lanes{new Lane[lane_count]};
};

// A way to hash so many files: their results are handed over in order. False if the receiver has
// stopped it, or if the results cannot be used.
using PathOf = std::function<std::string(uint32_t number)>; // from 0
using HashFiles =
    std::function<bool(uint32_t count, const PathOf &path_of, const FileHasher::Receiver &receive)>;

// In this process.
bool hash_files(uint32_t count, const PathOf &path_of, const FileHasher::Receiver &receive);

#endif
