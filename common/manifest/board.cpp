#include "manifest/board.h"

#include "manifest/filedigests.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>

static constexpr uint32_t MAGIC = 0x6b62'6f31; // another layout gets another one
static constexpr uint32_t MOST_TASKS = 4096;
static constexpr uint32_t MOST_PLACES = 8192;
static constexpr uint32_t TABLE = 0; // its lock; those of seats, then of offers, follow

// --- The file: a header, the counts of each task and of who has started them, and the offers

uint64_t Board::counts_at(uint32_t of_task) const {
    return sizeof(Header) + uint64_t{of_task} * sizeof(HashingCounts);
}

uint64_t Board::entry_at(uint32_t number) const {
    return counts_at(header.tasks) + uint64_t{number} * sizeof(Entry);
}

bool Board::make(const char *path, uint32_t tasks, uint32_t files, uint32_t processors) {
    Board board(nullptr, 0);
    board.header = {MAGIC, tasks,     std::max(processors, 1U), std::min(files, MOST_PLACES),
                    0,     View::none};
    board.file = tasks <= MOST_TASKS && host_make_file(path) ? host_open_shared(path) : -1;
    if (board.file == -1)
        return false;
    std::vector<uint8_t> bytes(board.entry_at(board.header.places));
    memcpy(bytes.data(), &board.header, sizeof board.header);
    return host_write_at(board.file, 0, bytes.data(), bytes.size());
}

Board::Board(const char *path, uint32_t number) : task(number), next_seat(number) {
    file = path != nullptr ? host_open_shared(path) : -1;
    if (file != -1 && (!host_read_at(file, 0, &header, sizeof header) || header.magic != MAGIC ||
                       header.tasks > MOST_TASKS || task >= header.tasks ||
                       header.places > MOST_PLACES || header.processors == 0))
        give_up();
}

// Also frees all that is held.
void Board::give_up() {
    if (file != -1)
        host_close(file);
    file = -1;
    seat = 0;
}

// --- Transactions

// Some entries, or all from one on, read under the table's lock, which is held meanwhile.
class Board::Transaction {
  public:
    explicit Transaction(Board &of, uint32_t first = 0, uint32_t count = MOST_PLACES)
        : board(of), held(of.lock_table()) {
        if (held && !board.read_table(first, count)) {
            board.give_up();
            held = false;
        }
    }
    ~Transaction() {
        if (held && board.usable())
            host_unlock_number(board.file, TABLE);
    }
    Transaction(const Transaction &) = delete;
    Transaction &operator=(const Transaction &) = delete;
    explicit operator bool() const { return held; }

  private:
    Board &board;
    bool held;
};

// A transaction is short, unless who is in one has been stopped: then this process works alone.
bool Board::lock_table() {
    constexpr int MOST_TRIES = 10000;
    for (int i = 1; usable(); i++) {
        if (host_lock_number(file, TABLE, false))
            return true;
        if (errno != EWOULDBLOCK || i == MOST_TRIES)
            give_up();
        else
            host_pause(i < MOST_TRIES / 2 ? 0 : 1);
    }
    return false;
}

bool Board::read_table(uint32_t first, uint32_t count) {
    constexpr size_t at = offsetof(Header, used);
    if (!host_read_at(file, at, &header.used, sizeof header.used) || header.used > header.places ||
        header.used < entries.size())
        return false;
    entries.resize(header.used);
    count = std::min(count, header.used - std::min(first, header.used));
    return count == 0 ||
           host_read_at(file, entry_at(first), &entries[first], count * sizeof(Entry));
}

bool Board::write(uint64_t offset, const void *bytes, size_t size) {
    if (host_write_at(file, offset, bytes, size))
        return true;
    give_up();
    return false;
}

// After all else about the offer: what it says counts from then on.
bool Board::write_state(uint32_t number, State state) {
    hashing_at(HashingPoint::writing);
    entries[number].state = state;
    return write(entry_at(number) + offsetof(Entry, state), &state, sizeof state);
}

// --- Offers

std::optional<uint32_t> Board::offer(uint64_t place, const FileState &seen) {
    const FileIdentity &identity = seen.identity;
    if (!identity.known || !identity.place.empty())
        return {};
    const Transaction table(*this, 0, 0);
    if (!table || header.used == header.places)
        return {};
    const uint32_t number = header.used++;
    const Entry entry = {State::open,     task,          place,
                         identity.volume, identity.high, identity.low,
                         seen.size,       seen.changed,  {}};
    if (!write(entry_at(number), &entry, sizeof entry))
        return {};
    hashing_at(HashingPoint::writing);
    if (!write(offsetof(Header, used), &header.used, sizeof header.used))
        return {};
    hashing_at(HashingPoint::offered);
    return number;
}

void Board::withdraw(uint32_t number) {
    const Transaction table(*this, number, 1);
    if (table && entries[number].state == State::open)
        write_state(number, State::withdrawn);
}

uint64_t Board::open_bytes() const {
    uint64_t open = 0;
    for (const Entry &entry : entries)
        open += entry.state == State::open ? entry.size : 0;
    return open;
}

// Others are busy: not longer than they need at least for what nobody has taken.
void Board::wait_for_change() {
    constexpr uint64_t AT_MOST = 4'000'000; // bytes a processor hashes in a millisecond
    if (const Transaction table(*this); !table)
        return;
    const uint64_t needed = open_bytes() / header.processors / AT_MOST;
    const auto pause = static_cast<int>(std::clamp<uint64_t>(needed, 1, 100));
    uint64_t states = 0;
    for (const Entry &entry : entries)
        states += static_cast<uint64_t>(entry.state);
    quiet = states == quiet_states ? quiet + pause : 0;
    quiet_states = states;
    host_pause(pause);
}

Board::Outcome Board::await(uint32_t number, uint8_t *digest) {
    const auto state = [&] {
        const Transaction table(*this, number, 1);
        if (table && entries[number].state == State::done)
            std::copy_n(entries[number].digest, sizeof entries[number].digest, digest);
        return table ? entries[number].state : State::undone;
    };
    rise();
    State now = state();
    if (now == State::open) {
        wait_for_change();
        return Outcome::open;
    }
    if (now == State::taken) {
        hashing_at(HashingPoint::awaiting);
        if (host_lock_number(file, lock_of(number), true))
            host_unlock_number(file, lock_of(number));
        else
            give_up();
        now = state();
    }
    return now == State::done ? Outcome::done : Outcome::undone;
}

// --- Work

// As many processes hash offers as there are processors. If nothing has happened for a while, those
// that sit have been stopped, and another one may stand.
bool Board::sit() {
    constexpr uint32_t MOST_TRIES = 4; // at a time
    for (uint32_t i = 0; seat == 0 && i < MOST_TRIES; i++) {
        const uint32_t lock = 1 + next_seat++ % header.processors;
        if (host_lock_number(file, lock, false))
            seat = lock;
        else if (errno != EWOULDBLOCK)
            give_up();
        if (!usable())
            return false;
    }
    constexpr int LONG = 1000; // milliseconds
    return seat != 0 || quiet >= LONG;
}

void Board::rise() {
    if (usable() && seat != 0)
        host_unlock_number(file, seat);
    seat = 0;
}

// A process takes a file more only while what it has to do stays within its share of all that is
// not done: at the end no processor is idle while another has two files. So two processors fill
// their lanes, and sixty-four take one file each. A file that costs nothing is taken beyond that.
std::optional<Board::Offer> Board::take(const Load &load) {
    if (!usable() || !sit())
        return {};
    const Transaction table(*this, first_open);
    if (!table)
        return {};
    while (first_open < entries.size() && entries[first_open].state != State::open)
        first_open++;
    const uint64_t share = (open_bytes() + load.rest) / header.processors;
    const uint64_t most =
        load.rest == 0 ? UINT64_MAX : std::max(share - std::min(share, load.rest), load.spare);
    const Entry *largest = nullptr;
    for (const Entry &entry : entries)
        if (entry.state == State::open && entry.size <= most &&
            (entry.owner == task || (!load.is_limited && seat != 0)) &&
            (largest == nullptr || entry.size > largest->size))
            largest = &entry;
    if (largest == nullptr)
        return {};
    const auto number = static_cast<uint32_t>(largest - entries.data());
    if (!host_lock_number(file, lock_of(number), false)) {
        give_up();
        return {};
    }
    if (!write_state(number, State::taken))
        return {};
    hashing_at(HashingPoint::taken);
    const Entry &taken = entries[number];
    return Offer{number,
                 taken.owner == task,
                 taken.place,
                 {{true, taken.volume, taken.high, taken.low, {}}, taken.size, taken.changed}};
}

void Board::finish(uint32_t number, const uint8_t *digest) {
    {
        const Transaction table(*this, number, 1);
        if (!table)
            return;
        if (digest != nullptr &&
            !write(entry_at(number) + offsetof(Entry, digest), digest, sizeof Entry::digest))
            return;
        if (!write_state(number, digest != nullptr ? State::done : State::undone))
            return;
    }
    host_unlock_number(file, lock_of(number));
}

// --- Counts

Board::View Board::view() {
    View view = View::none;
    if (usable() && !host_read_at(file, offsetof(Header, view), &view, sizeof view))
        view = View::none;
    return view;
}

void Board::set_view(View view) {
    if (usable())
        host_write_at(file, offsetof(Header, view), &view, sizeof view);
}

void Board::count(const HashingCounts &counts) {
    if (usable())
        host_write_at(file, counts_at(task), &counts, sizeof counts);
}

void Board::add_counted(HashingCounts *all) {
    std::vector<HashingCounts> each(header.tasks);
    if (!usable() || !host_read_at(file, counts_at(0), each.data(), each.size() * sizeof each[0]))
        return;
    for (const HashingCounts &counts : each) {
        all->found += counts.found;
        all->found_bytes += counts.found_bytes;
        all->files += counts.files;
        all->bytes += counts.bytes;
    }
}
