#include "manifest/linecheck.h"

#include "host/trace.h"
#include "platform/osdep.h"

#include <cerrno>

bool LineCheck::add(std::string_view line) {
    ManifestLine fields;
    const bool sound = shahash_parse_line(line, &fields) &&
                       (purpose == CheckFor::verdict || shahash_line_can_verify(line));
    if (sound && !path_leads_out(host_path_style(), fields.path))
        return add_file(std::move(fields));
    if (!sound)
        fields.path = line.substr(0, line.find_first_of("\r\n"));
    // No file is looked for, and the line fails as if it were missing, in its turn.
    const LineFault fault = sound ? LineFault::outside : LineFault::malformed;
    return files.add("", {added++, fault, std::move(fields), 0}, StatResult());
}

bool LineCheck::add_file(ManifestLine line) {
    const std::string path = shahash_native_path(line.path);
    return files.add(path.c_str(), {added++, LineFault::missing, std::move(line), 0});
}

bool LineCheck::finish() {
    return files.finish() && passed;
}

// Whether there is nothing at the path, and no other reason why it is not found.
static bool is_missing(const FileDigest &result) {
    return result.outcome == OpenOutcome::missing &&
           (result.reason == ENOENT || result.reason == ENOTDIR);
}

bool LineCheck::judge(const char *path, FaultyLine faulty, const FileDigest &result) {
    if (result.outcome == OpenOutcome::refused) {
        TRACE_MESSAGE("Cannot read file \"%s\": %s", path, file_reason(result.reason));
        if (purpose == CheckFor::verdict)
            shahash_fatal_cannot_open(path);
    }
    if (result.outcome == OpenOutcome::opened)
        faulty.fault = LineFault::different;
    else if (faulty.fault == LineFault::missing && !is_missing(result))
        faulty.fault = LineFault::unreadable;
    if (faulty.fault == LineFault::different && sha256_text(result.digest) == faulty.line.digest)
        return true;
    passed = false;
    faulty.reason = result.reason;
    return receive != nullptr && receive(faulty);
}
