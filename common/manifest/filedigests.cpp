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
    for (const Lane &lane : lanes)
        if (lane.job != nullptr)
            host_close(lane.descriptor);
}

bool FileHasher::wait_for_lane() {
    while (!ended && lanes[0].job != nullptr && lanes[1].job != nullptr)
        advance();
    return !ended;
}

bool FileHasher::add(const char *path, const HostStat *found) {
    if (!wait_for_lane())
        return false;
    Lane &lane = lanes[0].job == nullptr ? lanes[0] : lanes[1];
    Job &job = jobs.emplace_back(Job{path, false, {}});
    return start(lane, job, found) || hand_over();
}

bool FileHasher::finish() {
    while (!ended && (lanes[0].job != nullptr || lanes[1].job != nullptr))
        advance();
    return !ended;
}

// False if the file was not opened; the job is done then.
bool FileHasher::start(Lane &lane, Job &job, const HostStat *found) {
    job.result.outcome = host_open_regular(job.path.c_str(), found, &lane.descriptor);
    const bool special = job.result.outcome == OpenOutcome::special;
    job.result.reason = special ? 0 : errno; // for a missing file that of host_stat
    job.done = job.result.outcome != OpenOutcome::opened;
    if (job.done)
        return false;
    assert(found != nullptr);
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
}

void FileHasher::hash_rest(Lane &lane) {
    sha256_update(&lane.ctx, lane.next, lane.left);
    lane.left = 0;
}

// One step: reads where nothing is left, then hashes as many whole blocks as both lanes have. What
// has no partner is hashed alone: the end of a file, a lane while the other is empty, and the rest
// of a block of which one part was read before.
void FileHasher::advance() {
    for (Lane &lane : lanes)
        if (lane.job != nullptr && !refill(lane)) {
            hand_over();
            return;
        }
    const bool alone = lanes[0].job == nullptr || lanes[1].job == nullptr;
    if (!alone)
        hash_pair(std::min(lanes[0].left, lanes[1].left) / SHA256_BLOCK_SIZE);
    for (Lane &lane : lanes)
        if (lane.job != nullptr &&
            (alone || lane.left < SHA256_BLOCK_SIZE || lane.ctx.datalen != 0))
            hash_rest(lane);
}

// Does nothing while a lane is in the middle of a block.
void FileHasher::hash_pair(size_t blocks) {
    if (lanes[0].ctx.datalen != 0 || lanes[1].ctx.datalen != 0)
        return;
    Sha256Context *const contexts[2] = {&lanes[0].ctx, &lanes[1].ctx};
    const uint8_t *const bytes[2] = {lanes[0].next, lanes[1].next};
    sha256_update_many(contexts, bytes, 2, blocks);
    for (Lane &lane : lanes) {
        lane.next += blocks * SHA256_BLOCK_SIZE;
        lane.left -= blocks * SHA256_BLOCK_SIZE;
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
