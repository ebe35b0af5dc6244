#include "kestrel/progress.h"

#include "kestrel/output.h"
#include "manifest/filedigests.h"
#include "manifest/shahash.h"
#include "platform/osdep.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

ProgressPace progress_pace = {1, 0.2};

static bool is_on = false;       // this process shows the line, sooner or later
static bool is_counting = false; // or tells its parent
static bool is_drawn = false;
static HashingCounts own;
static Board *board = nullptr; // where tasks count; null for none
static double began = 0;       // in seconds, as now()
static double next = 0;        // drawing
static uint64_t total_lines = 0;
static size_t width = 79; // of the line, in columns
static void (*previous_hook)(HashingPoint, uint64_t) = nullptr;

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

// The time left. What is to come is as large, a file, as what was found so far, and to open a file
// takes about as long as to hash this many bytes.
static std::string time_left(const HashingCounts &counts, uint64_t total, double seconds) {
    constexpr double OPENING = 30000;
    const auto all = static_cast<double>(total), files = static_cast<double>(counts.files);
    const auto found = static_cast<double>(std::clamp<uint64_t>(counts.found, 1, total));
    const double bytes = static_cast<double>(counts.found_bytes) * all / found;
    const double done = static_cast<double>(counts.bytes) + files * OPENING;
    const double left = std::max(bytes + all * OPENING - done, 0.0) * seconds / done;
    return str_format(left < 120 ? "%.0f s left" : "%.0f min left", left < 120 ? left : left / 60)
        .get();
}

// Files can be counted twice: what a task has not finished is done again.
std::string progress_line(const HashingCounts &counts, uint64_t total, double seconds) {
    const uint64_t done = total != 0 ? std::min(counts.files, total) : counts.files;
    seconds = std::max(seconds, 0.001);
    std::string text = std::to_string(done);
    if (total != 0)
        text = std::to_string(done * 100 / total) + " %, " + text + " of " + std::to_string(total);
    text += " files, " +
            std::to_string(static_cast<uint64_t>(static_cast<double>(done) / seconds)) +
            " a second, " + in_units(counts.bytes);
    if (total != 0 && done != 0)
        text += ", " + time_left(counts, total, seconds);
    return text;
}

static void show(std::string line) {
    line.resize(width, ' ');
    fprintf(stderr, "\r%s\r", line.c_str());
    fflush(stderr);
}

// Tasks take away what their parent draws, so it says so before.
static void set_drawn(bool drawn) {
    is_drawn = drawn;
    if (board != nullptr)
        board->set_view(drawn ? Board::View::drawn : Board::View::watched);
}

static HashingCounts all_counts() {
    HashingCounts all = own;
    if (board != nullptr)
        board->add_counted(&all);
    return all;
}

static void draw() {
    if (!host_is_foreground(STDERR_DESCRIPTOR))
        return;
    set_drawn(true);
    show(progress_line(all_counts(), total_lines, now() - began));
}

void progress_poll() {
    const double time = is_counting ? now() : 0;
    if (!is_counting || time < next)
        return;
    next = time + progress_pace.interval;
    if (is_on)
        draw();
    else
        board->count(own);
}

void progress_wipe() {
    if (!is_on && board != nullptr)
        is_drawn = board->view() == Board::View::drawn;
    if (!is_drawn)
        return;
    if (is_on)
        set_drawn(false);
    if (host_is_foreground(STDERR_DESCRIPTOR))
        show("");
}

// --- Counting

static void count(HashingPoint point, uint64_t bytes) {
    if (point == HashingPoint::found) {
        own.found++;
        own.found_bytes += bytes;
    } else if (point == HashingPoint::reading) {
        own.bytes += bytes;
    } else if (point == HashingPoint::hashed) {
        own.files++;
    }
    progress_poll();
    if (previous_hook != nullptr)
        previous_hook(point, bytes);
}

// The last column stays free: some terminals begin a new line after it.
static void start_counting() {
    is_counting = true;
    own = {};
    width = static_cast<size_t>(std::clamp(host_terminal_width(STDERR_DESCRIPTOR) - 1, 1, 79));
    previous_hook = hashing_hook;
    hashing_hook = count;
    before_complaint_hook = progress_wipe;
    os_signal_hook = progress_wipe;
}

void progress_begin(uint64_t total) {
    if (is_counting || !is_terminal(STDERR_DESCRIPTOR))
        return;
    is_on = true;
    total_lines = total;
    began = now();
    next = began + progress_pace.silence;
    start_counting();
    atexit(progress_end);
}

bool progress_is_on() {
    return is_on;
}

void progress_end() {
    if (!is_counting)
        return;
    if (is_on)
        progress_wipe();
    else
        board->count(own);
    hashing_hook = previous_hook;
    before_complaint_hook = nullptr;
    os_signal_hook = nullptr;
    is_on = is_counting = false;
    board = nullptr;
}

// --- Tasks

void progress_begin_task(Board *shared) {
    if (is_counting || shared == nullptr || shared->view() == Board::View::none)
        return;
    board = shared;
    next = 0;
    start_counting();
}

void progress_share(const char *board_file) {
    if (!is_on)
        return;
    static std::unique_ptr<Board> shared;
    shared = std::make_unique<Board>(board_file, 0);
    if (!shared->usable()) {
        progress_end();
        return;
    }
    board = shared.get();
    set_drawn(is_drawn);
}
