#include "kestrel/progress.h"

#include "containers/stringcache.h"
#include "manifest/filedigests.h"
#include "manifest/shahash.h"
#include "platform/osdep.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

static constexpr Seconds SILENCE(1);    // that a run begins with
static constexpr Seconds INTERVAL(0.2); // between two drawings

static bool is_on = false;        // the line is shown, sooner or later
static FILE *task_file = nullptr; // where a task counts
static std::vector<const char *> task_paths;
static Clock::time_point began;
static Clock::time_point next;
static ProgressCounts own;
static uint64_t total_lines;
static bool is_drawn = false;
static size_t width = 79; // of the line, in columns

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

std::string progress_line(const ProgressCounts &counts, uint64_t total, double seconds) {
    const auto files = static_cast<double>(counts.files);
    std::string text = std::to_string(counts.files);
    if (total != 0)
        text = std::to_string(counts.files * 100 / total) + " %, " + text + " of " +
               std::to_string(total);
    text += " files, " + std::to_string(static_cast<uint64_t>(files / seconds)) + " a second, " +
            in_units(counts.bytes);
    if (total != 0 && counts.files != 0)
        text += ", " + time_left(seconds / files * static_cast<double>(total - counts.files));
    return text;
}

static void draw(const ProgressCounts &counts) {
    std::string line = progress_line(counts, total_lines, Seconds(Clock::now() - began).count());
    line.resize(width, ' ');
    fprintf(stderr, "\r%s\r", line.c_str());
    fflush(stderr);
    is_drawn = true;
}

void progress_wipe() {
    if (!is_drawn)
        return;
    is_drawn = task_file != nullptr;
    fprintf(stderr, "\r%*s\r", static_cast<int>(width), "");
    fflush(stderr);
}

// --- Counting

static bool is_time() {
    const Clock::time_point now = Clock::now();
    if (now < next)
        return false;
    next = now + std::chrono::duration_cast<Clock::duration>(INTERVAL);
    return true;
}

static void write_counts() {
    rewind(task_file);
    fwrite(&own, sizeof own, 1, task_file);
    fflush(task_file);
}

static void count(uint64_t bytes) {
    own.bytes += bytes;
    own.files += bytes == 0 ? 1 : 0;
    if (!is_time())
        return;
    if (task_file != nullptr)
        write_counts();
    else
        draw(own);
}

// The last column stays free: some terminals begin a new line after it.
static void start_counting(Seconds silence) {
    width = static_cast<size_t>(std::clamp(host_terminal_width(STDERR_DESCRIPTOR) - 1, 1, 79));
    own = {};
    began = Clock::now();
    next = began + std::chrono::duration_cast<Clock::duration>(silence);
    hashing_hook = count;
    before_complaint_hook = progress_wipe;
    os_signal_hook = progress_wipe;
}

void progress_begin(uint64_t total) {
    const char *terminal = getenv("TERM");
    if (task_file != nullptr || host_terminal_width(STDERR_DESCRIPTOR) == 0 ||
        (terminal != nullptr && strcmp(terminal, "dumb") == 0))
        return;
    static const bool wiped_at_exit = atexit(progress_end) == 0;
    is_on = wiped_at_exit;
    total_lines = total;
    start_counting(SILENCE);
}

bool progress_is_on() {
    return is_on;
}

void progress_end() {
    if (task_file != nullptr) {
        write_counts();
        return;
    }
    progress_wipe();
    hashing_hook = nullptr;
    before_complaint_hook = nullptr;
    os_signal_hook = nullptr;
    is_on = false;
}

// --- Tasks

void progress_begin_task(const char *path) {
    task_file = host_fopen(path, "wb");
    if (task_file == nullptr)
        return;
    start_counting(Seconds(0));
    is_drawn = true; // by the parent, for all that is known here
}

const char *progress_add_task() {
    const OwnedString path = is_on ? os_tempname_plain() : nullptr;
    if (path == nullptr)
        return nullptr;
    os_remove_at_exit(path.get());
    task_paths.push_back(sc_strdup(path.get()));
    return task_paths.back();
}

void progress_poll() {
    if (!is_on || !is_time())
        return;
    ProgressCounts sum = {};
    for (const char *path : task_paths) {
        ProgressCounts counts;
        const FilePtr file(host_fopen(path, "rb"));
        if (file == nullptr || fread(&counts, sizeof counts, 1, file.get()) != 1)
            continue;
        sum.files += counts.files;
        sum.bytes += counts.bytes;
    }
    draw(sum);
}
