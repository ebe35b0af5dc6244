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
#include <list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

class Board;

struct FileDigest {
    OpenOutcome outcome;
    int reason; // errno, if it was not opened and read; 0: it is not a regular file
    uint8_t digest[SHA256_DIGEST_SIZE]; // of the whole file, when it was opened and read
    uint64_t size;                      // bytes of it, then
};

// What a process that hashes has just done, for the progress line and for tests. Only the first two
// have a number of bytes; that of the others is 0.
enum class HashingPoint {
    found,    // looked for a file of so many bytes
    reading,  // read so many bytes of one
    hashed,   // ended one of its own, with or without a digest
    offered,  // put one on the board
    taken,    // took an offer, its own or another's
    writing,  // is about to write an offer's state to the board, from when on it counts
    awaiting, // found its offer taken by another process, and is about to wait for that
};

// Called by hashing_at(), unless it is null.
extern void (*hashing_hook)(HashingPoint point, uint64_t bytes);
void hashing_at(HashingPoint point, uint64_t bytes = 0);

// The text of a FileDigest's reason.
const char *file_reason(int reason);

// What a process shares with other tasks of a run: the board, which stays the caller's, or null;
// and a function that gives the path of the file whose line is at an offset in the file that all of
// them read; empty if there is none.
struct SharedWork {
    Board *board = nullptr;
    std::function<std::string(uint64_t offset)> path_at = {};
};

// Hashes small files as soon as there is one for each lane, while the system still has their names
// at hand, and large ones when all files are known, or as many as fit into the memory for that, the
// largest first, so that at the end no lane has a long way to go alone. With a board, the largest
// files are hashed by whoever has nothing better to do. The results, failures included, are handed
// over in the order in which the files were added.
class FileHasher {
  public:
    // Takes a result; false stops everything: no further ones are handed over.
    using Receiver = std::function<bool(const char *path, const FileDigest &result)>;

    // Says of each result, as soon as it is there, whether the receiver will go on after it. Files
    // added later are not hashed if not. `number` counts the files in the order of adding, from 0.
    using Judge = std::function<bool(uint64_t number, const FileDigest &result)>;

    explicit FileHasher(Receiver receiver, Judge goes_on = nullptr, SharedWork with = {})
        : receive(std::move(receiver)), judge(std::move(goes_on)), shared(std::move(with)) {}
    ~FileHasher();
    FileHasher(const FileHasher &) = delete;
    FileHasher &operator=(const FileHasher &) = delete;

    // Adds a file that was looked for, or looks for it; its line is at an offset in the file that
    // all tasks read. False once the receiver has stopped everything.
    bool add(const char *path, const StatResult &found, uint64_t place = 0);
    bool add(const char *path, uint64_t place = 0) {
        return add(path, host_stat_result(path), place);
    }

    // Hashes what is left and hands it over. False if the receiver has stopped everything.
    bool finish();

  private:
    // The memory, in bytes, that files not handed over may take; the receiver takes about as much.
    // So much that a large file seldom comes so late that it goes on alone.
    static constexpr size_t MOST_KNOWN = 2 << 20;
    static constexpr size_t READ_SIZE = 32768;
    static constexpr size_t CACHE_LINE = 64; // the system copies fastest to the start of one

    static constexpr uint32_t NO_OFFER = UINT32_MAX;

    static constexpr uint64_t FOREIGN = UINT64_MAX;

    struct Job {
        std::string path;
        HostStat found = {};
        uint64_t number = FOREIGN; // in the order of adding; FOREIGN for another process's
        bool done = false;
        bool is_taken = false;     // from the board
        uint32_t offer = NO_OFFER; // on the board
        FileDigest result = {};
        size_t known() const { return sizeof(Job) + path.size(); } // bytes
    };
    struct ForeignJob {
        Job job;
        FileState seen = {}; // by its owner
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

    bool is_full() const { return known >= MOST_KNOWN || last != FOREIGN; }
    bool offer(Job &job, uint64_t place);
    void drop_behind();
    void queue_large();
    void hash_waiting();
    bool advance(bool is_limited);
    void take_offer(bool is_limited);
    bool await_offer();
    void step();
    void change_file(Lane &lane);
    bool start(Lane &lane);
    bool is_as_seen(const Job &job, int descriptor) const;
    void read(Lane &lane);
    void end(Lane &lane, OpenOutcome outcome);
    void hash_blocks();
    void complete(Job &job);
    void hand_over();

    Receiver receive;
    Judge judge;
    SharedWork shared;
    bool ended = false;
    uint64_t added = 0;
    uint64_t last = FOREIGN;       // the first that the receiver does not go on after
    size_t known = 0;              // bytes about the jobs
    std::deque<Job> jobs;          // not handed over yet, in order
    std::vector<Job *> large;      // that need more than one buffer, and do not wait for a lane yet
    std::vector<Job *> waiting;    // for a lane; the next one is the last
    std::vector<Job *> offered;    // on the board, and not taken by this process
    std::list<ForeignJob> foreign; // taken by this process
    unsigned steps_to_wait = 0;    // before the board is asked again
    size_t lane_count = sha256_best_lanes();
    size_t busy = 0; // lanes that have a file
    std::unique_ptr<Lane[]> lanes{new Lane[lane_count]};
};

using PathOf = std::function<std::string(uint32_t number)>; // from 0

// A way to hash so many files: their results are handed over in order. False if the receiver has
// stopped it, or if the results cannot be used.
using HashFiles =
    std::function<bool(uint32_t count, const PathOf &path_of, const FileHasher::Receiver &receive)>;

// Hashes so many files in this process.
bool hash_files(uint32_t count, const PathOf &path_of, const FileHasher::Receiver &receive);

#endif
