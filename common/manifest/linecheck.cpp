#include "manifest/linecheck.h"

#include "host/trace.h"

#include <cerrno>

bool LineCheck::add(std::string_view line) {
    ManifestLine fields;
    const bool sound = shahash_parse_line(line, &fields) &&
                       (purpose == CheckFor::verdict || shahash_line_can_verify(line));
    if (sound && !path_leads_out(host_path_style(), fields.path))
        return add_file(std::move(fields));
    if (!sound)
        fields.path = line.substr(0, line.find_first_of("\r\n"));
    lines.push_back(
        {added++, sound ? LineFault::outside : LineFault::malformed, std::move(fields)});
    return files.add("", StatResult()); // fails in its turn
}

bool LineCheck::add_file(ManifestLine line) {
    const std::string path = shahash_native_path(line.path);
    lines.push_back({added++, {}, std::move(line)});
    return files.add(path.c_str());
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
        if (purpose == CheckFor::verdict)
            shahash_fatal_cannot_open(path);
    }
    if (result.outcome == OpenOutcome::opened && sha256_text(result.digest) == pending.line.digest)
        return true;
    passed = false;
    return receive != nullptr && receive({pending.number, pending.known.value_or(fault_of(result)),
                                          std::move(pending.line), result.reason});
}
