#include "platform/osdep.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <string>
#include <utility>

// Readers of the log know the two vectors below by these positions.
static constexpr uint32_t TEMP_DIRS_LINE = 186;
static constexpr uint32_t TEMP_FILES_LINE = 189;

static OwnedString temp_dir; // null until the first temporary name
static uint32_t temp_counter = 0;
static Vector *temp_dirs_to_remove = nullptr; // owned absolute paths, as in the next
static Vector *temp_files_to_remove = nullptr;
static uint32_t owner = 0; // the process that registered them
static bool exit_cleanup_registered = false;
static bool keep_temps = false;
static bool struck = false; // by a fatal signal

// --- At exit

static void forget(Vector **paths) {
    Vector *forgotten = std::exchange(*paths, nullptr);
    for (char *path : VecEach<char>(forgotten))
        free(path);
    vec_free(forgotten);
}

// Removes the registered files, and the directories that are empty then; false if some stay. Calls
// nothing that allocates: a signal may have struck inside the heap.
static bool remove_registered() {
    for (uint32_t i = 0; i < vec_size(temp_files_to_remove); i++)
        if (const char *path = vec_at<char>(temp_files_to_remove, i))
            host_remove(path);
    bool removed = true;
    for (uint32_t i = 0; i < vec_size(temp_dirs_to_remove); i++)
        if (const char *path = vec_at<char>(temp_dirs_to_remove, i))
            removed = (host_rmdir(path) || errno == ENOENT) && removed;
    return removed;
}

// Failures are ignored: nobody is left to report them to. A forked copy of the process leaves its
// parent's temporaries alone. Programs that were started may make files until they have ended.
static void remove_temps() {
    if (temp_files_to_remove == nullptr || temp_dirs_to_remove == nullptr || keep_temps ||
        host_process_id() != owner)
        return;
    host_end_started();
    if (remove_registered())
        return;
    host_wait_started();
    for (uint32_t i = 0; i < vec_size(temp_dirs_to_remove); i++)
        os_rmtree(vec_at<char>(temp_dirs_to_remove, i));
}

void os_remove_temps() {
    struck = true;
    remove_temps();
}

// A signal may strike in here, and its handler comes back to what is not removed yet: so nothing is
// forgotten before the end. After a signal the heap is left alone.
static void exit_cleanup() {
    remove_temps();
    if (struck)
        return;
    forget(&temp_files_to_remove);
    forget(&temp_dirs_to_remove);
    temp_dir.reset();
}

static void make_vectors() {
    if (temp_dirs_to_remove != nullptr)
        return;
    temp_dirs_to_remove = vec_new(__FILE__, TEMP_DIRS_LINE);
    temp_files_to_remove = vec_new(__FILE__, TEMP_FILES_LINE);
    owner = host_process_id();
    if (!exit_cleanup_registered)
        exit_cleanup_registered = atexit(exit_cleanup) == 0;
}

void os_remove_at_exit(const char *path) {
    if (path == nullptr)
        return;
    make_vectors();
    vec_append(temp_files_to_remove, host_absolute_path(path).release());
}

void os_rmdir_at_exit(const char *path) {
    if (path == nullptr)
        return;
    make_vectors();
    vec_append(temp_dirs_to_remove, host_absolute_path(path).release());
}

void os_keep_temps(bool flag) {
    keep_temps = flag;
}

// --- The directory and the names in it

// The base directory, ready for a name to follow. Only the drive-letter host is used to one that is
// relative to the current directory.
static std::string temp_base() {
    std::string base;
    for (const char *variable : host_temp_variables())
        if (const char *value = host_getenv(variable); base.empty() && value != nullptr)
            if (host_path_style().drives || os_is_absolute(value))
                base = value;
    if (base.empty())
        base = host_temp_default();
    const PathStyle &style = host_path_style();
    if (base.back() != style.separator && !(style.drives && base.back() == ':'))
        base += style.separator;
    return base;
}

// The directory is registered before it is made: a signal in between would leave it on the disk.
static bool make_temp_dir() {
    const std::string base = temp_base();
    if (os_mkdir(base.c_str()) != 0)
        return false;
    for (char letter = 'A'; letter <= 'Z'; letter++) {
        const std::string path = base + "zv" + letter + host_unique_seed().get();
        if (os_exists(path.c_str()))
            continue;
        os_rmdir_at_exit(path.c_str());
        if (host_mkdir_private(path.c_str())) {
            temp_dir = xstrdup(path.c_str());
            return true;
        }
        free(vec_pop(temp_dirs_to_remove));
    }
    return false;
}

OwnedString os_tempname(const char *suffix) {
    if (temp_dir == nullptr && !make_temp_dir())
        return nullptr;
    std::string name = host_tool_name;
    std::replace_if(
        name.begin(), name.end(), [](unsigned char c) { return isspace(c) != 0; }, '_');
    name += "_tmp_" + std::to_string(temp_counter++);
    if (suffix != nullptr) {
        if (suffix[0] != '.')
            name += '.';
        name += suffix;
    }
    return os_join(temp_dir.get(), name.c_str());
}

OwnedString os_tempname_plain() {
    return os_tempname(nullptr);
}

OwnedString os_tempdir_new() {
    OwnedString path = os_tempname(nullptr);
    return path != nullptr && os_mkdir(path.get()) == 0 ? std::move(path) : nullptr;
}
