// A board of large files, which the tasks of a run share: each offers its own, and whoever has
// nothing better to do hashes what is offered.
//
// The board is a small file that is read and written in place. Every change is a transaction: lock,
// read, write, unlock. What a process holds, it holds by locks of that file, which the system takes
// back when the process ends, however it ends; a state in the table is only a word beside a lock.
// So a task that dies keeps nobody waiting. One that is stopped delays those who need what it
// holds; if that is the table, all others work alone after some seconds.
#ifndef KESTREL_MANIFEST_BOARD_H
#define KESTREL_MANIFEST_BOARD_H

#include "host/host.h"

#include <cstdint>
#include <optional>
#include <vector>

// What a process has found and hashed so far.
struct HashingCounts {
    uint64_t found = 0;       // files that were looked for
    uint64_t found_bytes = 0; // of them
    uint64_t files = 0;       // that are done
    uint64_t bytes = 0;       // that were hashed
};

class Board {
  public:
    // Files of at least this size, in bytes, are offered: smaller ones are not worth a transaction.
    static constexpr uint64_t LEAST_SIZE = 1 << 20;

    // Writes a board for so many tasks, with room for `files` offers, or for the most there can be,
    // to a new file. So many tasks hash offers at a time as there are processors: each of them has
    // taken one of as many seats, which are locks, too. All of it is written, so that a full disk
    // is found out here. False if that fails, or if there are too many tasks.
    static bool make(const char *path, uint32_t tasks, uint32_t files, uint32_t processors);

    // Opens a board as one of its tasks, counted from 0. It cannot be used if `path` is null or not
    // a board's, or once the system fails: then nothing is held, and nothing is offered or taken.
    Board(const char *path, uint32_t number);
    ~Board() { give_up(); }
    Board(const Board &) = delete;
    Board &operator=(const Board &) = delete;
    bool usable() const { return file != -1; }

    // --- For who needs a digest

    // Offers the file of the line at an offset in the file with all tasks' lines, as it was seen.
    // Gives the offer's number; none if the board is full, or the system has no number for the
    // file.
    std::optional<uint32_t> offer(uint64_t place, const FileState &seen);

    // Takes back an offer, unless somebody has taken it; nobody begins it any more.
    void withdraw(uint32_t number);

    // Waits for what comes of one's own offer, holding nothing that others could wait for.
    enum class Outcome {
        done,
        undone, // it could not be hashed, or who took it has ended: the owner has to
        open    // nobody has taken it so far: the owner takes it if it can, or waits again
    };
    Outcome await(uint32_t number, uint8_t *digest);

    // --- For who has nothing better to do

    struct Offer {
        uint32_t number;
        bool is_own;
        uint64_t place; // of the file's line
        FileState seen;
    };

    // What a process is hashing at the moment.
    struct Load {
        uint64_t rest;   // bytes to go
        uint64_t spare;  // a file of that many bytes costs it nothing: a lane is idle meanwhile
        bool is_limited; // to its own offers
    };

    // Takes the largest open offer that leaves others their share; none if there is no such offer,
    // or all seats are taken. If nothing has changed for a second, own offers need no seat.
    std::optional<Offer> take(const Load &load);

    // Ends what was taken: with the digest, or null if the file is not as it was seen, or cannot be
    // read.
    void finish(uint32_t number, const uint8_t *digest);

    // --- For the line that shows the progress

    // Whether anybody watches the counts, and whether the line is shown, so that a task takes it
    // away before it prints anything.
    enum class View { none, watched, drawn };
    View view();
    void set_view(View view);

    // Writes what this task has counted.
    void count(const HashingCounts &counts);

    // Adds what all tasks have counted.
    void add_counted(HashingCounts *all);

  private:
    enum class State : uint32_t { open, taken, done, undone, withdrawn };

    struct Header {
        uint32_t magic;
        uint32_t tasks;
        uint32_t processors;
        uint32_t places; // for offers
        uint32_t used;   // of the places
        View view;
    };
    struct Entry {
        State state;
        uint32_t owner;
        uint64_t place;
        uint64_t volume, high, low; // the identity
        uint64_t size;              // bytes
        uint64_t changed;
        uint8_t digest[32]; // valid when it is done
    };
    class Transaction;

    uint64_t counts_at(uint32_t of_task) const;
    uint64_t entry_at(uint32_t number) const;
    uint32_t lock_of(uint32_t number) const { return 1 + header.processors + number; }
    bool lock_table();
    bool read_table(uint32_t first, uint32_t count);
    bool write(uint64_t offset, const void *bytes, size_t size);
    bool write_state(uint32_t number, State state);
    uint64_t open_bytes() const;
    void wait_for_change();
    bool sit();
    void rise();
    void give_up();

    int file = -1;
    uint32_t task;
    Header header = {};
    std::vector<Entry> entries; // as they were when they were read last
    uint32_t first_open = 0;    // all before it have been taken or withdrawn, for good
    uint32_t next_seat;         // to try
    uint32_t seat = 0;          // its lock; 0 for none
    uint64_t quiet_states = 0;  // of all entries, summed up, when this process looked last
    int quiet = 0;              // milliseconds for which they have stayed so
};

#endif
