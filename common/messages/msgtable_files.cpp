#include "messages/msgtable.h"

#include "base/text.h"
#include "containers/stringcache.h"
#include "host/trace.h"
#include "installation/registry.h"
#include "installation/zvinstdir.h"
#include "platform/osdep.h"

#include <charconv>
#include <cinttypes>
#include <cstring>
#include <limits>

namespace {

struct Language {
    uint32_t id;
    const char *names;
    const char *code;
};

} // namespace

static constexpr Language LANGUAGES[] = {
    {7, "German;Deutsch", "de"},
    {LANG_DEFAULT, "English", "en"},
    {12, "French;Francais", "fr"},
    {LANG_NONE, "English", "en"},
};

const char *lang_code(uint32_t id) {
    for (const Language &language : LANGUAGES)
        if (language.id == id)
            return language.code;
    return "en";
}

static bool has_name(const Language &language, const char *name) {
    const VectorPtr names(sc_split(language.names, ",;"));
    for (const char *known : VecEach<const char>(names))
        if (str_icmp(known, name) == 0)
            return true;
    return false;
}

uint32_t lang_lookup(const char *name) {
    if (name == nullptr)
        return LANG_NONE;
    for (const Language &language : LANGUAGES)
        if (str_icmp(name, language.code) == 0 || has_name(language, name))
            return language.id;
    return LANG_NONE;
}

const char *msgtable_builtin_name() {
    static const char *const name =
        sc_format("%lld_en.msgs", static_cast<long long>(MSG_TABLE_VERSION));
    return name;
}

uint64_t getMsgFileVersion(const char *m) {
    TRACE_ENTER("%s", m != nullptr ? m : "(null)");
    DEBUG_ASSERT(m != NULL);
    uint64_t version = 0;
    if (const char *name = os_basename(m)) {
        const auto [end, error] = std::from_chars(name, name + strlen(name), version);
        if (error == std::errc::result_out_of_range)
            version = std::numeric_limits<uint64_t>::max();
    }
    return TRACE_RESULT(version, "%" PRIu64, version);
}

bool msgfile_in_bin(const char *path) {
    const char *bin = reg_instdir(REG_BIN);
    const char *rest = bin != nullptr ? sc_afterPrefix(path, bin) : nullptr;
    return rest != nullptr && path_is_separator(host_path_style(), *rest);
}

static int compare_files(const void *slot_a, const void *slot_b) {
    const char *a = *static_cast<const char *const *>(slot_a);
    const char *b = *static_cast<const char *const *>(slot_b);
    if (a == b)
        return 0;
    const uint64_t version_a = getMsgFileVersion(a);
    const uint64_t version_b = getMsgFileVersion(b);
    if (version_a != version_b)
        return version_a > version_b ? -1 : 1;
    if (msgfile_in_bin(b))
        return 1;
    if (msgfile_in_bin(a))
        return -1;
    return strcmp(b, a);
}

void msgfile_sort(Vector *list) {
    vec_sort(list, compare_files);
}

uint32_t findMsgFiles(const char *dir, uint32_t langid, Vector *list) {
    TRACE_ENTER("%s", dir != nullptr ? dir : "(null)");
    uint32_t found = 0;
    if (list != nullptr && os_exists(dir)) {
        const char *langStr = lang_code(langid);
        DEBUG_ASSERT(langStr);
        const char *legacy_name = sc_format("%s_msgs.txt", langStr);
        const char *suffix = sc_format("_%s.msgs", langStr);
        TRACE_MESSAGE("legacyMsgFile = \"%s\"", legacy_name);
        TRACE_MESSAGE("msgFileSuffix = \"%s\"", suffix);
        std::vector<DirectoryEntry> entries;
        host_list_directory(dir, &entries);
        for (const auto &[name, reachable, is_regular] : entries) {
            if (!reachable || (name != legacy_name && !sc_hasSuffix(name.c_str(), suffix)))
                continue;
            TRACE_MESSAGE("Found: %s", name.c_str());
            vec_append(list, sc_pathJoin(dir, name.c_str()));
            found++;
        }
    }
    return TRACE_RESULT(found, "numFound = %u", found);
}

// The "dat" directory beside the directory that the program runs from; null if there is none.
static const char *program_dat_dir() {
    const char *parent = sc_dirname(zvinstall_program_dir(os_progpath().get()));
    return parent != nullptr ? sc_pathJoin(parent, "dat") : nullptr;
}

const char *msg_filename(uint32_t langid) {
    TRACE_ENTER("lnum = %lu", static_cast<unsigned long>(langid));
    const VectorPtr files(vec_new(__FILE__, __LINE__));
    uint32_t cnt = findMsgFiles(reg_instdir(REG_DAT), langid, files.get());
    if (cnt == 0)
        cnt = findMsgFiles(program_dat_dir(), langid, files.get());
    if (cnt == 0)
        cnt = findMsgFiles(os_getcwd().get(), langid, files.get());
    TRACE_MESSAGE("cnt = %u", cnt);
    vec_append(files.get(), msgtable_builtin_name());
    if (cnt != 0)
        msgfile_sort(files.get());
    const char *name = vec_at<const char>(files.get(), 0);
    return TRACE_RESULT(name, "\"%s\"", name);
}
