#include "debuglog/package.h"

#include "containers/hash.h"
#include "containers/stringcache.h"
#include "debuglog/zvdebug.h"
#include "platform/osdep.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <miniz.h>
#include <string>

static const char *application = "qrn";

// --- Adding files

// With slashes, and for an absolute path below "SYSTEM_ROOT" instead of its root.
static std::string archive_name(const char *file) {
    std::string name = file;
    if (os_is_absolute(file)) {
        const size_t root = host_path_style().drives ? strlen("C:\\") : strlen("/");
        name = os_join("SYSTEM_ROOT", file + std::min(root, name.size())).get();
    }
    std::replace(name.begin(), name.end(), '\\', '/');
    return name;
}

namespace {

// One file on its way into the package.
struct Addition {
    const char *package;
    const char *file;
    const char *comment;
};

} // namespace

// Whether the file is an archive of that many files, as the next run will read it.
static bool holds(const char *archive, mz_uint files) {
    mz_zip_archive zip = {};
    const bool right =
        mz_zip_reader_init_file(&zip, archive, 0) && mz_zip_reader_get_num_files(&zip) == files;
    mz_zip_end(&zip);
    return right;
}

// Adds the comment to an archive of `size` bytes that was written without one: the length of the
// comment is the last thing in it.
static bool append_comment(const char *path, mz_uint64 size, const std::string &comment) {
    if (comment.empty())
        return true;
    const FilePtr file(host_fopen(path, "r+b"));
    return file != nullptr && host_seek(file.get(), static_cast<int64_t>(size) - 2) &&
           os_write_le16(file.get(), static_cast<uint16_t>(comment.size())) == 1 &&
           fwrite(comment.data(), 1, comment.size(), file.get()) == comment.size() &&
           fflush(file.get()) == 0;
}

// Adds the file to the archive that `zip` is writing to `path`, closes it and, if it is complete,
// has `place` move it to where the package belongs. Every step is taken, and warned about, whatever
// happened in the one before. A failure to place the archive is warned about like one of the last
// step.
template <class Place>
static void write_addition(mz_zip_archive *zip, const Addition &add, const char *path,
                           const std::string &archive_comment, Place place) {
    constexpr mz_uint LEVEL_AND_FLAGS = 6 | MZ_ZIP_FLAG_CASE_SENSITIVE;
    const std::string name = archive_name(add.file);
    const size_t length = add.comment != nullptr ? strlen(add.comment) : 0;
    const auto kept = static_cast<mz_uint16>(std::min<size_t>(length, UINT16_MAX));
    const mz_uint files = mz_zip_reader_get_num_files(zip) + 1;
    const bool added =
        os_is_regular(add.file) &&
        mz_zip_writer_add_file(zip, name.c_str(), add.file, add.comment, kept, LEVEL_AND_FLAGS);
    if (!added)
        zvdebug_warn("Unable to add archive \"%s\" (from \"%s\") to package zip (%s)", name.c_str(),
                     add.file, add.package);
    const bool finalized = mz_zip_writer_finalize_archive(zip);
    if (!finalized)
        zvdebug_warn("Unable to finalize package zip (%s) after adding \"%s\"", add.package,
                     add.file);
    const mz_uint64 size = mz_zip_get_archive_size(zip);
    bool ended = mz_zip_writer_end(zip);
    mz_zip_end(zip); // what could not be turned into a writer is still open
    if (added && finalized && ended)
        ended = append_comment(path, size, archive_comment) && holds(path, files) && place();
    if (!ended)
        zvdebug_warn("Unable to end package zip (%s) after adding \"%s\"", add.package, add.file);
}

// The archive grows under another name beside its own. False if another process has made one
// meanwhile.
static bool start_package(const Addition &add) {
    const OwnedString target = host_resolve_links(add.package);
    const std::string growing =
        target.get() + (".zv" + std::string(host_unique_seed().get())) + ".tmp";
    bool overtaken = false;
    mz_zip_archive zip = {};
    os_remove_at_exit(growing.c_str());
    if (!mz_zip_writer_init_file(&zip, growing.c_str(), 0)) {
        zvdebug_warn("Unable to init package zip file (%s) to add \"%s\"", add.package, add.file);
        return true;
    }
    write_addition(&zip, add, growing.c_str(), "", [&] {
        const bool placed = host_rename_new(growing.c_str(), target.get());
        overtaken = !placed && os_exists(add.package);
        return placed || overtaken;
    });
    host_remove(growing.c_str());
    return !overtaken;
}

// The archive's comment; false if its last record does not follow its directory. The library
// accepts the last record anywhere, even inside a comment or after other text, and would overwrite
// what precedes it.
static bool read_comment(mz_zip_archive *zip, std::string &comment) {
    constexpr mz_uint64 ZIP64_RECORDS = 56 + 20;
    unsigned char record[22];
    const mz_uint64 at = zip->m_central_directory_file_ofs + mz_zip_get_central_dir_size(zip) +
                         (mz_zip_is_zip64(zip) ? ZIP64_RECORDS : 0);
    if (mz_zip_read_archive_data(zip, at, record, sizeof record) != sizeof record ||
        memcmp(record, "PK\5\6", 4) != 0)
        return false;
    comment.resize(static_cast<size_t>(record[20] | record[21] << 8));
    return mz_zip_read_archive_data(zip, at + sizeof record, comment.data(), comment.size()) ==
           comment.size();
}

// Appending overwrites the archive's directory before it is whole again, so it happens to a copy.
static void append_to_package(const Addition &add) {
    const OwnedString copy = os_is_regular(add.package) ? os_tempname("zip") : nullptr;
    os_remove_at_exit(copy.get());
    mz_zip_archive zip = {};
    std::string comment;
    if (copy == nullptr || !copyfile_helper(add.package, copy.get()) ||
        !mz_zip_reader_init_file(&zip, copy.get(), 0) || !read_comment(&zip, comment)) {
        zvdebug_warn("Unable to open package zip file (%s) for reading to append \"%s\"",
                     add.package, add.file);
        mz_zip_end(&zip);
    } else {
        // What stays a reader is handed on all the same: every further step fails and warns.
        if (!os_is_writable(add.package) || !mz_zip_writer_init_from_reader(&zip, copy.get()))
            zvdebug_warn(
                "Unable to covert package zip file (%s) reader to a writer to append \"%s\"",
                add.package, add.file);
        write_addition(&zip, add, copy.get(), comment,
                       [&] { return copyfile_helper(copy.get(), add.package); });
    }
    if (copy != nullptr)
        host_remove(copy.get());
}

// Processes that find an archive add to it one by one. Among those that find none, the first to
// complete its archive has made the package, and the others find that.
void package_add(const char *file, const char *comment) {
    const char *package = zvdebug_zip_path();
    if (package == nullptr)
        return;
    DEBUG_ASSERT(file != NULL);
    if (!os_exists(file))
        return;
    const Addition add = {package, file, comment};
    for (bool done = false; !done;) {
        HostLock lock = host_lock(package);
        const bool exists = os_exists(package) != 0;
        if (exists && lock == -1)
            lock = host_lock(package); // it may have been made meanwhile
        if (exists)
            append_to_package(add);
        done = exists || start_package(add);
        host_unlock(lock);
    }
}

void package_add_file(const char *file) {
    package_add(file, nullptr);
}

// --- The run

void package_set_app(const char *name) {
    application = sc_strdup(name);
}

// A check that fails leaves the current directory at the installation, where the paths of the log
// and the package would lead to other files.
static void return_to_start() {
    if (zvdebug_zip_path() != nullptr && zvdebug_directory() != nullptr)
        host_chdir(zvdebug_directory());
}

void package_finish() {
    return_to_start();
    const FILE *gFile = trace_log(); // named as the assertion says
    const bool log_of_another = strcmp(application, host_tool_name) != 0 && zvdebug_out_given();
    if (!log_of_another && trace_path() != nullptr) {
        DEBUG_ASSERT(gFile != NULL);
        package_add_file(trace_path());
    }
    if ((trace_flags & TRACE_ADT) != 0) {
        hash_masterReport();
        vec_masterReport();
    }
}
