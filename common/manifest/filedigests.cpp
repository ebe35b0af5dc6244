#include "manifest/filedigests.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

void (*hashing_hook)(uint64_t bytes) = nullptr;

static void show_progress(uint64_t bytes) {
    if (hashing_hook != nullptr)
        hashing_hook(bytes);
}

const char *file_reason(int reason) {
    return reason != 0 ? host_strerror(reason) : "Not a regular file";
}

FileHasher::~FileHasher() {
    for (size_t i = 0; i < lane_count; i++)
        if (lanes[i].job != nullptr)
            host_close(lanes[i].descriptor);
}

bool FileHasher::add(const char *path, const StatResult &found) {
    const FileDigest missing = {OpenOutcome::missing, found.reason, {}};
    if (ended)
        return false;
    jobs.push_back({path, found.status.value_or(HostStat()), false, missing});
    if (!found.status)
        complete(jobs.back());
    else
        (found.status->size > READ_SIZE ? large : waiting).push_back(&jobs.back());
    if (jobs.size() == MOST_JOBS)
        queue_large();
    if (waiting.size() >= lane_count)
        hash_waiting();
    while (jobs.size() == MOST_JOBS) // none while everything is stopped
        step();
    return !ended;
}

bool FileHasher::finish() {
    queue_large();
    hash_waiting();
    while (!ended && busy != 0)
        step();
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
            job.result = {OpenOutcome::missing, now.reason, {}};
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
        show_progress(held);
    lane.is_last = got == 0;
    if (lane.is_last)
        held += sha256_pad(lane.buffer + held, lane.length);
    lane.next = lane.buffer;
    lane.blocks = held / SHA256_BLOCK_SIZE;
}

void FileHasher::end(Lane &lane, OpenOutcome outcome) {
    Job &job = *std::exchange(lane.job, nullptr);
    job.result.reason = errno;
    job.result.outcome = outcome;
    sha256_digest(lane.state, job.result.digest);
    host_close(lane.descriptor);
    busy--;
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
    job.done = true;
    show_progress(0);
    hand_over();
}

// Hands over what is done, up to the first that is not.
void FileHasher::hand_over() {
    for (; !ended && !jobs.empty() && jobs.front().done; jobs.pop_front())
        ended = !receive(jobs.front().path.c_str(), jobs.front().result);
}

bool hash_files(uint32_t count, const PathOf &path_of, const FileHasher::Receiver &receive) {
    FileHasher files(receive);
    for (uint32_t i = 0; i < count; i++)
        if (!files.add(path_of(i).c_str()))
            return false;
    return files.finish();
}
