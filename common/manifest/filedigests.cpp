#include "manifest/filedigests.h"

#include "manifest/board.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

void (*hashing_hook)(HashingPoint point, uint64_t bytes) = nullptr;

void hashing_at(HashingPoint point, uint64_t bytes) {
    if (hashing_hook != nullptr)
        hashing_hook(point, bytes);
}

const char *file_reason(int reason) {
    return reason != 0 ? host_strerror(reason) : "Not a regular file";
}

FileHasher::~FileHasher() {
    for (size_t i = 0; i < lane_count; i++)
        if (lanes[i].job != nullptr)
            host_close(lanes[i].descriptor);
}

bool FileHasher::add(const char *path, const StatResult &found, uint64_t place) {
    if (ended)
        return false;
    Job &job = jobs.emplace_back();
    job.path = path;
    job.found = found.status.value_or(HostStat());
    job.number = added++;
    job.result = {OpenOutcome::missing, found.reason, {}, 0};
    known += job.known();
    hashing_at(HashingPoint::found, job.found.size);
    if (!found.status)
        complete(job);
    else if (!offer(job, place))
        (job.found.size > READ_SIZE ? large : waiting).push_back(&job);
    if (is_full())
        queue_large();
    if (waiting.size() >= lane_count)
        hash_waiting();
    while (!ended && is_full() && advance(true)) {
    }
    return !ended;
}

bool FileHasher::finish() {
    queue_large();
    hash_waiting();
    while (!ended && advance(last != FOREIGN)) {
    }
    return !ended;
}

// Lets the large files wait for a lane, too, the largest first.
void FileHasher::queue_large() {
    waiting.insert(waiting.end(), large.rbegin(), large.rend());
    large.clear();
    std::stable_sort(waiting.begin(), waiting.end(),
                     [](const Job *a, const Job *b) { return a->found.size < b->found.size; });
}

void FileHasher::hash_waiting() {
    while (!ended && !waiting.empty())
        step();
}

// Does some of what is left: hashes files, or waits for one that another process hashes. False if
// nothing is left, but for other processes' files if it is limited to its own.
bool FileHasher::advance(bool is_limited) {
    take_offer(is_limited);
    if (waiting.empty() && busy == 0)
        return await_offer();
    step();
    return true;
}

// Forgets the files behind the last one that counts.
void FileHasher::drop_behind() {
    const auto is_behind = [this](const Job *job) {
        return job->number != FOREIGN && job->number > last;
    };
    for (const Job *job : offered)
        if (is_behind(job))
            shared.board->withdraw(job->offer);
    for (std::vector<Job *> *some : {&large, &waiting, &offered})
        std::erase_if(*some, is_behind);
}

// --- The board

bool FileHasher::offer(Job &job, uint64_t place) {
    FileState seen;
    if (shared.board == nullptr || !shared.board->usable() || job.found.kind != FileKind::regular ||
        job.found.size < Board::LEAST_SIZE || !host_file_state(job.path.c_str(), &seen) ||
        seen.size != job.found.size)
        return false;
    const std::optional<uint32_t> number = shared.board->offer(place, seen);
    if (number)
        offered.push_back(&job);
    job.offer = number.value_or(NO_OFFER);
    return number.has_value();
}

// If a lane is idle, and none of one's own files waits for it.
void FileHasher::take_offer(bool is_limited) {
    constexpr unsigned STEPS = 64; // a transaction costs less than a hundredth of these
    if (shared.board == nullptr || !waiting.empty() || busy == lane_count)
        return;
    if (steps_to_wait != 0) {
        steps_to_wait--;
        return;
    }
    Board::Load load = {0, 0, is_limited};
    for (size_t i = 0; i < lane_count; i++) {
        const Lane &lane = lanes[i];
        const uint64_t size = lane.job != nullptr ? lane.job->found.size : 0;
        const uint64_t rest = size - std::min(size, lane.length);
        load.rest += rest;
        load.spare = std::max(load.spare, rest);
    }
    if (!sha256_has_idle_lane(busy))
        load.spare = 0;
    const std::optional<Board::Offer> taken = shared.board->take(load);
    if (!taken) {
        steps_to_wait = busy != 0 ? STEPS : 0;
    } else if (taken->is_own) {
        const auto own = std::find_if(offered.begin(), offered.end(),
                                      [&](const Job *job) { return job->offer == taken->number; });
        (*own)->is_taken = true;
        waiting.push_back(*own);
        offered.erase(own);
    } else {
        ForeignJob &other = foreign.emplace_back();
        other.seen = taken->seen;
        other.job.path = shared.path_at(taken->place);
        other.job.found = {FileKind::regular, taken->seen.size};
        other.job.is_taken = true;
        other.job.offer = taken->number;
        waiting.push_back(&other.job);
    }
}

// Waits for one's own offers that other processes have taken; false if there is none.
bool FileHasher::await_offer() {
    if (offered.empty())
        return false;
    Job &job = *offered.front();
    const Board::Outcome outcome = shared.board->await(job.offer, job.result.digest);
    if (outcome == Board::Outcome::open)
        return true;
    offered.erase(offered.begin());
    if (outcome == Board::Outcome::undone) {
        waiting.push_back(&job);
        return true;
    }
    job.result.outcome = OpenOutcome::opened;
    job.result.size = job.found.size;
    complete(job);
    return true;
}

// Whether the file is the one that the owner of a foreign job has seen. True for one's own.
bool FileHasher::is_as_seen(const Job &job, int descriptor) const {
    const auto is_it = [&](const ForeignJob &other) { return &other.job == &job; };
    const auto found = std::find_if(foreign.begin(), foreign.end(), is_it);
    FileState now;
    return found == foreign.end() || (host_opened_state(descriptor, &now) && now == found->seen);
}

// --- Lanes

// Gives every lane blocks, as far as there are files for it, and hashes as many as all of them
// have. Files are opened before any is waited for, so that the system can read them at the same
// time.
void FileHasher::step() {
    for (size_t i = 0; i < lane_count; i++)
        if (lanes[i].blocks == 0)
            change_file(lanes[i]);
    for (size_t i = 0; i < lane_count; i++)
        if (lanes[i].blocks == 0 && lanes[i].job != nullptr)
            read(lanes[i]);
    hash_blocks();
}

// Ends a file that has been hashed to its end, and begins with the next.
void FileHasher::change_file(Lane &lane) {
    if (lane.job != nullptr && lane.is_last)
        end(lane, OpenOutcome::opened);
    while (lane.job == nullptr && !ended && start(lane)) {
    }
}

// Opens the next file, which may fail; false if there is none, or not now: where few descriptors
// are allowed, fewer lanes have to do.
bool FileHasher::start(Lane &lane) {
    if (waiting.empty())
        return false;
    Job &job = *waiting.back();
    job.result.outcome = host_open_regular(job.path.c_str(), job.found, &lane.descriptor);
    job.result.reason = errno;
    if ((errno == EMFILE || errno == ENFILE) && job.result.outcome == OpenOutcome::refused &&
        busy != 0)
        return false;
    waiting.pop_back();
    if (job.result.outcome == OpenOutcome::opened && !is_as_seen(job, lane.descriptor)) {
        host_close(lane.descriptor);
        job.result.outcome = OpenOutcome::refused;
    }
    if (job.result.outcome == OpenOutcome::opened) {
        busy++;
        lane.job = &job;
        lane.length = 0;
        sha256_start(lane.state);
        if (job.found.size > READ_SIZE)
            host_expect_reading(lane.descriptor);
        else
            lane.held = host_read_cached(lane.descriptor, lane.buffer, READ_SIZE);
        return true;
    }
    if (job.result.outcome == OpenOutcome::refused) // it may be gone
        if (const StatResult now = host_stat_result(job.path.c_str()); !now.status)
            job.result = {OpenOutcome::missing, now.reason, {}, 0};
    complete(job);
    return true;
}

// Fills the buffer, up to the end of the file, where the padding follows. An error leaves the file
// without a digest.
//
// Between host_stat and opening, a FIFO, a directory or a device can take the place of a file, and
// would read as an empty file or for ever. So if the length read is not the one found, or 0, the
// descriptor is checked again; not for every file, because that would cost each a system call.
void FileHasher::read(Lane &lane) {
    errno = 0; // for what is not a file any more
    size_t held = std::exchange(lane.held, 0);
    int64_t got = 1;
    while (held < READ_SIZE && got > 0) {
        got = host_read(lane.descriptor, lane.buffer + held, READ_SIZE - held);
        held += got > 0 ? static_cast<size_t>(got) : 0;
    }
    lane.length += held;
    const uint64_t found = lane.job->found.size;
    const bool as_found = got > 0 ? lane.length <= found : lane.length == found && found != 0;
    if (got < 0 || (!as_found && !host_is_regular(lane.descriptor))) {
        end(lane, OpenOutcome::refused);
        return;
    }
    if (held != 0)
        hashing_at(HashingPoint::reading, held);
    lane.is_last = got == 0;
    if (lane.is_last)
        held += sha256_pad(lane.buffer + held, lane.length);
    lane.next = lane.buffer;
    lane.blocks = held / SHA256_BLOCK_SIZE;
}

void FileHasher::end(Lane &lane, OpenOutcome outcome) {
    Job &job = *std::exchange(lane.job, nullptr);
    job.result.reason = errno;
    job.result.outcome = is_as_seen(job, lane.descriptor) ? outcome : OpenOutcome::refused;
    job.result.size = lane.length;
    sha256_digest(lane.state, job.result.digest);
    host_close(lane.descriptor);
    busy--;
    steps_to_wait = 0;
    complete(job);
}

void FileHasher::hash_blocks() {
    Lane *some[SHA256_MOST_LANES];
    uint32_t *states[SHA256_MOST_LANES] = {};
    const uint8_t *bytes[SHA256_MOST_LANES] = {};
    size_t count = 0;
    size_t blocks = SIZE_MAX;
    for (size_t i = 0; i < lane_count; i++) {
        Lane &lane = lanes[i];
        if (lane.blocks == 0)
            continue;
        some[count] = &lane;
        states[count] = lane.state;
        bytes[count++] = lane.next;
        blocks = std::min(blocks, lane.blocks);
    }
    sha256_update_many(states, bytes, count, blocks);
    for (size_t i = 0; i < count; i++) {
        some[i]->next += blocks * SHA256_BLOCK_SIZE;
        some[i]->blocks -= blocks;
    }
}

void FileHasher::complete(Job &job) {
    if (job.is_taken) {
        const bool as_found =
            job.result.outcome == OpenOutcome::opened && job.result.size == job.found.size;
        shared.board->finish(job.offer, as_found ? job.result.digest : nullptr);
    }
    if (job.number == FOREIGN) {
        foreign.remove_if([&](const ForeignJob &other) { return &other.job == &job; });
        return;
    }
    job.done = true;
    hashing_at(HashingPoint::hashed);
    if (judge != nullptr && job.number < last && !judge(job.number, job.result)) {
        last = job.number;
        drop_behind();
    }
    hand_over();
}

// Hands over what is done, up to the first that is not.
void FileHasher::hand_over() {
    for (; !ended && !jobs.empty() && jobs.front().done; jobs.pop_front()) {
        known -= jobs.front().known();
        ended = !receive(jobs.front().path.c_str(), jobs.front().result);
    }
}

bool hash_files(uint32_t count, const PathOf &path_of, const FileHasher::Receiver &receive) {
    FileHasher files(receive);
    for (uint32_t i = 0; i < count; i++)
        if (!files.add(path_of(i).c_str()))
            return false;
    return files.finish();
}
