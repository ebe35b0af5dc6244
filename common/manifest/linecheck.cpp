#include "manifest/linecheck.h"

#include "host/trace.h"

#include <cerrno>

static bool stands(const ManifestLine &line, const FileDigest &result) {
    return result.outcome == OpenOutcome::opened && sha256_text(result.digest) == line.digest;
}

LineCheck::LineCheck(Receiver receiver, CheckFor check_for, SharedWork shared)
    : receive(std::move(receiver)), purpose(check_for),
      files([this](const char *path, const FileDigest &result) { return judge(path, result); },
            [this](uint64_t number, const FileDigest &result) {
                return purpose != CheckFor::verdict ||
                       stands(lines[number - lines.front().number].line, result);
            },
            std::move(shared)) {}

bool LineCheck::add(std::string_view line, uint64_t place) {
    ManifestLine fields;
    const bool sound = shahash_parse_line(line, &fields) &&
                       (purpose != CheckFor::report || shahash_line_can_verify(line));
    if (sound && !path_leads_out(host_path_style(), fields.path))
        return add_file(std::move(fields), place);
    if (!sound)
        fields.path = line.substr(0, line.find_first_of("\r\n"));
    lines.push_back(
        {added++, sound ? LineFault::outside : LineFault::malformed, std::move(fields)});
    return files.add("", StatResult()); // fails in its turn
}

bool LineCheck::add_file(ManifestLine line, uint64_t place) {
    const std::string path = shahash_native_path(line.path);
    lines.push_back({added++, {}, std::move(line)});
    return files.add(path.c_str(), place);
}

bool LineCheck::finish() {
    return files.finish() && passed;
}

// What is wrong with a file whose digest is not the line's. One that is not found for another
// reason than that there is nothing at the path may still be there.
static LineFault fault_of(const FileDigest &result) {
    if (result.outcome == OpenOutcome::opened)
        return LineFault::different;
    const bool nothing = result.reason == ENOENT || result.reason == ENOTDIR;
    return result.outcome == OpenOutcome::missing && nothing ? LineFault::missing
                                                             : LineFault::unreadable;
}

bool LineCheck::judge(const char *path, const FileDigest &result) {
    PendingLine pending = std::move(lines.front());
    lines.pop_front();
    if (result.outcome == OpenOutcome::refused) {
        TRACE_MESSAGE("Cannot read file \"%s\": %s", path, file_reason(result.reason));
        if (purpose != CheckFor::report)
            shahash_fatal_cannot_open(path);
    }
    if (stands(pending.line, result))
        return true;
    passed = false;
    return receive != nullptr && receive({pending.number, pending.known.value_or(fault_of(result)),
                                          std::move(pending.line), result.reason});
}
