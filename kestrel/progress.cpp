#include "kestrel/progress.h"

#include "kestrel/output.h"
#include "manifest/filedigests.h"
#include "manifest/shahash.h"
#include "platform/osdep.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>

ProgressPace progress_pace = {1, 0.2};

static bool is_on = false;             // this process shows the line, sooner or later
static ProgressTally own;              // as long as there are no tasks
static ProgressTally *tally = nullptr; // null while nothing is counted
static std::string shared_name;        // of the one that tasks share
static double began = 0;               // in seconds, as now()
static double next = 0;                // drawing
static uint64_t total_lines = 0;
static size_t width = 79; // of the line, in columns
static void (*previous_hook)(uint64_t) = nullptr;

static double now() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

// --- The line

static std::string in_units(uint64_t bytes) {
    static constexpr const char *UNITS[] = {"kB", "MB", "GB", "TB"};
    double value = static_cast<double>(bytes) / 1000;
    size_t unit = 0;
    for (; value >= 1000 && unit + 1 < std::size(UNITS); unit++)
        value /= 1000;
    return str_format(value < 10 ? "%.1f %s" : "%.0f %s", value, UNITS[unit]).get();
}

static std::string time_left(double seconds) {
    return str_format(seconds < 120 ? "%.0f s left" : "%.0f min left",
                      seconds < 120 ? seconds : seconds / 60)
        .get();
}

// Files can be counted twice: what a task has not finished is done again.
std::string progress_line(const ProgressCounts &counts, uint64_t total, double seconds) {
    const uint64_t done = total != 0 ? std::min(counts.files, total) : counts.files;
    const auto files = static_cast<double>(done);
    seconds = std::max(seconds, 0.001);
    std::string text = std::to_string(done);
    if (total != 0)
        text = std::to_string(done * 100 / total) + " %, " + text + " of " + std::to_string(total);
    text += " files, " + std::to_string(static_cast<uint64_t>(files / seconds)) + " a second, " +
            in_units(counts.bytes);
    if (total != 0 && done != 0)
        text += ", " + time_left(seconds / files * static_cast<double>(total - done));
    return text;
}

static void show(std::string line) {
    line.resize(width, ' ');
    fprintf(stderr, "\r%s\r", line.c_str());
    fflush(stderr);
}

// Tasks take away what their parent draws, so it says so before.
void progress_poll() {
    const double time = now();
    if (!is_on || time < next)
        return;
    next = time + progress_pace.interval;
    if (!host_is_foreground(STDERR_DESCRIPTOR))
        return;
    tally->is_drawn = true;
    show(progress_line({tally->files, tally->bytes}, total_lines, time - began));
}

void progress_wipe() {
    if (tally == nullptr || !tally->is_drawn)
        return;
    if (is_on)
        tally->is_drawn = false;
    if (host_is_foreground(STDERR_DESCRIPTOR))
        show("");
}

// --- Counting

static void count(uint64_t bytes) {
    tally->bytes += bytes;
    tally->files += bytes == 0 ? 1 : 0;
    progress_poll();
    if (previous_hook != nullptr)
        previous_hook(bytes);
}

// The last column stays free: some terminals begin a new line after it.
static void start_counting(ProgressTally *counts) {
    tally = counts;
    width = static_cast<size_t>(std::clamp(host_terminal_width(STDERR_DESCRIPTOR) - 1, 1, 79));
    previous_hook = hashing_hook;
    hashing_hook = count;
    before_complaint_hook = progress_wipe;
    os_signal_hook = progress_wipe;
}

void progress_begin(uint64_t total) {
    if (tally != nullptr || !is_terminal(STDERR_DESCRIPTOR))
        return;
    is_on = true;
    total_lines = total;
    began = now();
    next = began + progress_pace.silence;
    start_counting(&own);
    atexit(progress_end);
}

bool progress_is_on() {
    return is_on;
}

void progress_end() {
    if (tally == nullptr)
        return;
    if (is_on)
        progress_wipe();
    hashing_hook = previous_hook;
    before_complaint_hook = nullptr;
    os_signal_hook = nullptr;
    is_on = false;
    tally = nullptr;
}

// --- Tasks

void progress_begin_task(const char *name) {
    void *shared = tally == nullptr ? host_open_shared(name, sizeof(ProgressTally)) : nullptr;
    if (shared != nullptr)
        start_counting(static_cast<ProgressTally *>(shared));
}

const char *progress_name() {
    if (is_on && tally == &own) {
        void *shared = host_make_shared(sizeof(ProgressTally), &shared_name);
        if (shared != nullptr)
            tally = new (shared) ProgressTally{};
        else
            progress_end(); // nobody would know how far the tasks are
    }
    return is_on ? shared_name.c_str() : nullptr;
}
