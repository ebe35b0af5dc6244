#include "kestrel/steps.h"

#include "containers/stringcache.h"
#include "host/trace.h"
#include "kestrel/report.h"
#include "manifest/filedigests.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

const char *program_name = nullptr;
int32_t verbose = 1;
int32_t task_limit = -1;
bool extra_wanted = false;

const char *manifest_path(const char *manifest, const char *instdir) {
    return manifest != nullptr ? manifest : sc_pathJoin(instdir, "manifest");
}

static int output_error = 0; // why the first write that failed did so

void print(std::string_view text) {
    if (output_error != 0)
        return;
    fwrite(text.data(), 1, text.size(), stdout);
    output_error = ferror(stdout) != 0 ? errno : 0;
}

// Some file systems report only when a descriptor is closed, whichever, that they are full.
static bool reaches_output() {
    if (fflush(stdout) != 0)
        return false;
    const int copy = host_dup(host_fileno(stdout));
    return copy == -1 || host_close(copy) == 0;
}

bool flush_output() {
    static bool reported = false;
    if (output_error == 0 && !reaches_output())
        output_error = errno;
    if (output_error != 0 && !std::exchange(reported, true))
        fprintf(stderr, "Cannot write to standard output: %s\n", host_strerror(output_error));
    return output_error == 0;
}

void announce(const char *action, const char *manifest, const char *instdir) {
    if (verbose == 0)
        return;
    print(sc_format("%s manifest \"%s\" for installation \"%s\"\n", action,
                    str_printable(manifest).get(), str_printable(instdir).get()));
    flush_output();
}

const char *missing_installation(const char *instdir) {
    if (os_exists(instdir) != 0)
        return nullptr;
    return report_error("Given installation path \"%s\" does not exist", instdir);
}

bool enter_directory(const char *directory) {
    if (!host_chdir(directory))
        return false;
    TRACE_MESSAGE("Working directory changed to \"%s\"", directory);
    return true;
}

// The environment variables that pass an expected subject on; empty if anything will do.
static constexpr const char *EXPECTED_MANIFEST = "kestrel_expected_manifest";
static constexpr const char *EXPECTED_DIRECTORY = "kestrel_expected_directory";

// A text of its own for what is unknown.
static std::string identity_text(const FileIdentity &identity) {
    if (!identity.known)
        return host_unique_seed().get();
    return str_format("%llx:%llx:%llx:%s", static_cast<unsigned long long>(identity.volume),
                      static_cast<unsigned long long>(identity.high),
                      static_cast<unsigned long long>(identity.low), identity.place.c_str())
        .get();
}

static std::string state_text(const FileState &state) {
    return identity_text(state.identity) +
           str_format(":%llx:%llx", static_cast<unsigned long long>(state.size),
                      static_cast<unsigned long long>(state.changed))
               .get();
}

// The place too: some file systems give all files one number, or none.
std::string directory_identity(const char *path) {
    FileIdentity identity = {};
    host_file_identity(path, &identity);
    const OwnedString place = host_real_path(path);
    return identity_text(identity) + " " + (place != nullptr ? place.get() : "");
}

void expect_subject(const Subject *subject) {
    os_setenv(EXPECTED_MANIFEST, subject != nullptr ? state_text(subject->manifest).c_str() : "");
    os_setenv(EXPECTED_DIRECTORY, subject != nullptr ? subject->directory.c_str() : "");
}

static bool is_expected(const char *variable, const std::string &found) {
    const char *expected = host_getenv(variable);
    return expected == nullptr || *expected == '\0' || expected == found;
}

static const char *moved_text(const char *instdir) {
    return sc_format("Installation path \"%s\" does not lead to the same directory any more",
                     instdir);
}

const char *moved_installation(const char *instdir, const std::string &directory) {
    if (directory_identity(instdir) == directory)
        return nullptr;
    const char *failure = report_error("%s", moved_text(instdir));
    TRACE_MESSAGE("%s", failure);
    return failure;
}

// The system's reason goes to the report only: the log's texts are fixed.
static FilePtr fail(const char **failure, const char *text, const char *reason = nullptr) {
    *failure = text;
    report_error("%s%s%s", text, reason != nullptr ? ": " : "", reason != nullptr ? reason : "");
    return nullptr;
}

FilePtr open_manifest(const char *manifest, const char *instdir, const char *before,
                      Subject *subject, const char **failure) {
    // Without a current directory a relative path has stayed one, and would lead elsewhere.
    errno = ENOENT;
    if ((before == nullptr && os_is_absolute(manifest) == 0) || !enter_directory(instdir)) {
        const char *reason = host_strerror(errno);
        return fail(failure, sc_format("Could not change to directory: \"%s\"", instdir), reason);
    }
    subject->directory = directory_identity(".");
    if (!is_expected(EXPECTED_DIRECTORY, subject->directory))
        return fail(failure, moved_text(instdir));
    FilePtr file(host_fopen_regular(manifest));
    if (file == nullptr || !host_opened_state(file.get(), &subject->manifest)) {
        const char *reason = file_reason(errno);
        return fail(failure, sc_format("Could not open manifest file \"%s\"", manifest), reason);
    }
    if (subject->manifest.size >= MANIFEST_LIMIT)
        return fail(failure, MANIFEST_TOO_LARGE);
    if (!is_expected(EXPECTED_MANIFEST, state_text(subject->manifest)))
        return fail(failure, sc_format("Manifest \"%s\" changed during the check", manifest));
    return file;
}
