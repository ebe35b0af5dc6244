#include "manifest/filedigests.h"

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <cstring>

void (*hashing_hook)(uint64_t bytes) = nullptr;

static void show_progress(uint64_t bytes) {
    if (hashing_hook != nullptr)
        hashing_hook(bytes);
}

const char *file_reason(int reason) {
    return reason != 0 ? strerror(reason) : "Not a regular file";
}

FileHasher::~FileHasher() {
    for (size_t i = 0; i < lane_count; i++)
        if (lanes[i].job != nullptr)
            host_close(lanes[i].descriptor);
}

FileHasher::Lane *FileHasher::free_lane() {
    for (size_t i = 0; i < lane_count; i++)
        if (lanes[i].job == nullptr)
            return &lanes[i];
    return nullptr;
}

bool FileHasher::wait_for_lane() {
    while (!ended && busy == lane_count)
        advance();
    return !ended;
}

bool FileHasher::add(const char *path, const HostStat *found) {
    if (!wait_for_lane())
        return false;
    Job &job = jobs.emplace_back(Job{path, false, {}});
    return start(*free_lane(), job, found) || hand_over();
}

bool FileHasher::finish() {
    while (!ended && busy != 0)
        advance();
    return !ended;
}

// Where few descriptors are allowed, fewer lanes have to do: goes on until there may be another.
bool FileHasher::can_wait_for_descriptor() {
    if ((errno != EMFILE && errno != ENFILE) || busy == 0 || ended)
        return false;
    advance();
    return true;
}

// False if the file was not opened; the job is done then.
bool FileHasher::start(Lane &lane, Job &job, const HostStat *found) {
    do
        job.result.outcome = host_open_regular(job.path.c_str(), found, &lane.descriptor);
    while (job.result.outcome == OpenOutcome::refused && can_wait_for_descriptor());
    const bool special = job.result.outcome == OpenOutcome::special;
    job.result.reason = special ? 0 : errno; // for a missing file that of host_stat
    job.done = job.result.outcome != OpenOutcome::opened;
    if (job.done)
        return false;
    assert(found != nullptr);
    busy++;
    lane.job = &job;
    lane.size = found->size;
    lane.length = 0;
    lane.left = 0;
    sha256_init(&lane.ctx);
    return true;
}

// Reads on when nothing is left. At the end of the file, or at an error, which leaves the file
// without a digest, the lane is done and free: false.
//
// Between host_stat and opening, a FIFO, a directory or a device can take the place of a file, and
// would read as an empty file or for ever. So if the length read is not the one found, or 0, the
// descriptor is checked again; not for every file, because that would cost each a system call.
bool FileHasher::refill(Lane &lane) {
    if (lane.left != 0)
        return true;
    errno = 0; // for what is not a file any more
    const int64_t got = host_read(lane.descriptor, lane.buffer, READ_SIZE);
    lane.next = lane.buffer;
    lane.left = got > 0 ? static_cast<size_t>(got) : 0;
    lane.length += lane.left;
    if (lane.left != 0)
        show_progress(lane.left);
    const bool as_found =
        got > 0 ? lane.length <= lane.size : lane.length == lane.size && lane.length != 0;
    if (got < 0 || (!as_found && !host_is_regular(lane.descriptor)))
        end(lane, OpenOutcome::refused);
    else if (got == 0)
        end(lane, OpenOutcome::opened);
    return lane.job != nullptr;
}

void FileHasher::end(Lane &lane, OpenOutcome outcome) {
    lane.job->result.reason = errno;
    lane.job->result.outcome = outcome;
    sha256_final(&lane.ctx, lane.job->result.digest);
    host_close(lane.descriptor);
    lane.job->done = true;
    lane.job = nullptr;
    busy--;
}

void FileHasher::hash_rest(Lane &lane) {
    sha256_update(&lane.ctx, lane.next, lane.left);
    lane.left = 0;
}

// One step: reads where nothing is left, then hashes as many whole blocks as all lanes have that
// have any. The end of a file, and the rest of a block of which one part was read before, are
// hashed alone.
void FileHasher::advance() {
    for (size_t i = 0; i < lane_count; i++)
        if (lanes[i].job != nullptr && !refill(lanes[i])) {
            hand_over();
            return;
        }
    hash_blocks();
    for (size_t i = 0; i < lane_count; i++)
        if (lanes[i].job != nullptr &&
            (lanes[i].left < SHA256_BLOCK_SIZE || lanes[i].ctx.datalen != 0))
            hash_rest(lanes[i]);
}

void FileHasher::hash_blocks() {
    Lane *some[SHA256_MOST_LANES];
    Sha256Context *contexts[SHA256_MOST_LANES] = {};
    const uint8_t *bytes[SHA256_MOST_LANES] = {};
    size_t count = 0;
    size_t blocks = READ_SIZE / SHA256_BLOCK_SIZE;
    for (size_t i = 0; i < lane_count; i++) {
        Lane &lane = lanes[i];
        if (lane.job == nullptr || lane.ctx.datalen != 0 || lane.left < SHA256_BLOCK_SIZE)
            continue;
        some[count] = &lane;
        contexts[count] = &lane.ctx;
        bytes[count++] = lane.next;
        blocks = std::min(blocks, lane.left / SHA256_BLOCK_SIZE);
    }
    sha256_update_many(contexts, bytes, count, blocks);
    for (size_t i = 0; i < count; i++) {
        some[i]->next += blocks * SHA256_BLOCK_SIZE;
        some[i]->left -= blocks * SHA256_BLOCK_SIZE;
    }
}

// Hands over what is done, up to the first that is not; false when the receiver stops everything.
bool FileHasher::hand_over() {
    while (!ended && !jobs.empty() && jobs.front().done) {
        const Job &job = jobs.front();
        ended = !receive(job.path.c_str(), job.result);
        jobs.pop_front();
        show_progress(0);
    }
    return !ended;
}
