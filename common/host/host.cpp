// What the primitives of host.h have in common on both hosts.
#include "host/host.h"

#include "base/text.h"

#include <cerrno>
#include <cstring>

const char *host_tool_name = "tool";

int32_t host_kind() {
    return host_path_style().drives ? HOST_DRIVE_PATHS : 0;
}

StatResult host_stat_result(const char *path) {
    HostStat status;
    return host_stat(path, &status) ? StatResult{status} : StatResult{{}, errno};
}

OpenOutcome host_open_regular(const char *path, const HostStat &found, int *descriptor) {
    if (found.kind != FileKind::regular) {
        const bool directory = found.kind == FileKind::directory;
        errno = directory ? EISDIR : 0;
        return directory ? OpenOutcome::refused : OpenOutcome::special;
    }
    *descriptor = host_open(path);
    return *descriptor == -1 ? OpenOutcome::refused : OpenOutcome::opened;
}

FILE *host_fopen_regular(const char *path) {
    HostStat status;
    int descriptor;
    if (!host_stat(path, &status) ||
        host_open_regular(path, status, &descriptor) != OpenOutcome::opened)
        return nullptr;
    const bool regular = host_is_regular(descriptor);
    FILE *stream = regular ? host_fdopen(descriptor) : nullptr;
    if (stream == nullptr)
        host_close(descriptor);
    if (!regular)
        errno = 0;
    return stream;
}

bool host_file_identity(const char *path, FileIdentity *result) {
    FileState state;
    if (!host_file_state(path, &state))
        return false;
    *result = state.identity;
    return true;
}

static bool is_number(const FileNumber &number) {
    const auto is_none = [](uint64_t half) { return half == 0 || half == UINT64_MAX; };
    return !is_none(number.high) || !is_none(number.low);
}

FileIdentity identity_of(const FileNumber &wide, const FileNumber &narrow,
                         const std::string &place) {
    for (const FileNumber &number : {wide, narrow})
        if (is_number(number))
            return {true, number.volume, number.high, number.low};
    return {!place.empty(), 0, 0, 0, place};
}

std::string identity_text(const FileIdentity &identity) {
    if (!identity.known)
        return host_unique_seed().get();
    return str_format("%llx:%llx:%llx:%s", static_cast<unsigned long long>(identity.volume),
                      static_cast<unsigned long long>(identity.high),
                      static_cast<unsigned long long>(identity.low), identity.place.c_str())
        .get();
}

std::string state_text(const FileState &state) {
    return identity_text(state.identity) +
           str_format(":%llx:%llx", static_cast<unsigned long long>(state.size),
                      static_cast<unsigned long long>(state.changed))
               .get();
}

// A file that is being written to may change between the two looks at it, so it is looked at again.
bool host_same_file(const char *a, const char *b) {
    constexpr int MOST_TRIES = 100;
    FileState first, second, again;
    for (int i = 0; i < MOST_TRIES && host_file_states(a, b, &first, &second) &&
                    first.identity == second.identity;
         i++) {
        if (first == second)
            return true;
        if (host_file_state(a, &again) && again == first)
            return false;
    }
    return false;
}

bool host_is_terminal(int descriptor) {
    const char *terminal = host_getenv("TERM");
    return host_terminal_width(descriptor) != 0 &&
           (terminal == nullptr || strcmp(terminal, "dumb") != 0);
}
