#include "manifest/linecheck.h"

#include "platform/osdep.h"

bool LineCheck::add(std::string_view line) {
    ManifestLine fields;
    const bool sound = shahash_parse_line(line, &fields);
    if (sound && !path_leads_out(host_path_style(), fields.path))
        return add_file(std::move(fields));
    // No file is looked for, and the line fails as if it were missing, in its turn.
    const LineFault fault = sound ? LineFault::different : LineFault::malformed;
    return files.add("", {std::move(fields), fault}, nullptr);
}

bool LineCheck::add_file(ManifestLine line) {
    const std::string path = shahash_native_path(line.path);
    return files.add(path.c_str(), {std::move(line), LineFault::different});
}

bool LineCheck::finish() {
    return files.finish() && passed;
}

bool LineCheck::judge(const char *path, const Tag &tag, const FileDigest &result) {
    if (result.outcome == OpenOutcome::refused)
        shahash_fatal_cannot_open(path);
    if (result.outcome == OpenOutcome::opened && sha256_text(result.digest) == tag.line.digest)
        return true;
    passed = false;
    return receive != nullptr && receive(tag.line, tag.fault);
}
