#include "manifest/shahash.h"

#include "containers/stringcache.h"
#include "digest/sha1.h"
#include "digest/sha256.h"
#include "manifest/filedigests.h"
#include "platform/osdep.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <utility>

// --- Digests of files

static constexpr size_t READ_SIZE = 16384;

static OwnedBytes new_digest(size_t size) {
    return OwnedBytes(static_cast<uint8_t *>(xalloc(size)));
}

template <class Hash> static OwnedBytes digest_of_stream(FILE *file) {
    typename Hash::Context ctx;
    Hash::init(&ctx);
    uint8_t buffer[READ_SIZE];
    const int descriptor = host_fileno(file);
    for (int64_t got; (got = host_read(descriptor, buffer, sizeof buffer)) > 0;)
        Hash::update(&ctx, buffer, static_cast<size_t>(got));
    OwnedBytes digest = new_digest(Hash::size);
    Hash::final(&ctx, digest.get());
    return digest;
}

template <class Hash> static OwnedBytes digest_of_file(const char *path) {
    const FilePtr file(host_fopen_regular(path));
    if (file == nullptr)
        shahash_fatal_cannot_open(path);
    return digest_of_stream<Hash>(file.get());
}

// Lower-case hexadecimal, most significant digit first, and a NUL.
template <size_t size> static std::array<char, 2 * size + 1> hex_text(const uint8_t *digest) {
    std::array<char, 2 * size + 1> text;
    for (size_t i = 0; i < size; i++) {
        text[2 * i] = "0123456789abcdef"[digest[i] >> 4];
        text[2 * i + 1] = "0123456789abcdef"[digest[i] & 15];
    }
    text.back() = '\0';
    return text;
}

static int digit_value(char digit) {
    const int code = static_cast<unsigned char>(digit);
    return (code < 'A' ? code - '0' : code - 55) & 15;
}

static OwnedBytes digest_from_hex(const char *text, size_t size) {
    OwnedBytes digest = new_digest(size);
    const auto next = [&] { return *text != '\0' ? digit_value(*text++) : 0; };
    for (size_t i = 0; i < size; i++) {
        const int high = next();
        digest[i] = static_cast<uint8_t>(high << 4 | next());
    }
    return digest;
}

OwnedBytes sha256_stream(FILE *file) {
    return digest_of_stream<Sha256>(file);
}

OwnedBytes sha1_stream(FILE *file) {
    return digest_of_stream<Sha1>(file);
}

OwnedBytes sha256_file(const char *path) {
    return digest_of_file<Sha256>(path);
}

OwnedBytes sha1_file(const char *path) {
    return digest_of_file<Sha1>(path);
}

const char *sha256_file_hex(const char *path) {
    return sha256_hex(sha256_file(path).get());
}

const char *sha1_file_hex(const char *path) {
    return sha1_hex(sha1_file(path).get());
}

const char *sha256_hex(const uint8_t *digest) {
    return sc_strdup(hex_text<SHA256_DIGEST_SIZE>(digest).data());
}

const char *sha1_hex(const uint8_t *digest) {
    return sc_strdup(hex_text<SHA1_DIGEST_SIZE>(digest).data());
}

OwnedBytes sha256_from_hex(const char *text) {
    return digest_from_hex(text, SHA256_DIGEST_SIZE);
}

OwnedBytes sha1_from_hex(const char *text) {
    return digest_from_hex(text, SHA1_DIGEST_SIZE);
}

void shahash_fatal_cannot_open(const char *path) {
    fprintf(stderr, "!! Cannot open file \"%s\"\n", str_printable(path).get());
    exit(1);
}

// --- Walk

namespace {

// A directory being walked.
struct Walk {
    FileDigests *files;
    const char *dir;
    const char *relative;
    const Walk *parent;  // the directory it was entered from
    bool linked = false; // reached over a link
    bool known = false;  // whether `identity` is
    FileIdentity identity = {};
};

} // namespace

// A link to a directory that is being walked would lead in circles. Without a link identities are
// not compared: some file systems have none that can be trusted.
static bool is_loop(const Walk &walk) {
    for (const Walk *outer = walk.parent; walk.linked && outer != nullptr; outer = outer->parent)
        if (outer->known && walk.known && outer->identity == walk.identity)
            return true;
    return false;
}

static bool walk_directory(Walk walk);

// The white space that is trimmed from the path of a line.
static constexpr std::string_view WHITE_SPACE = " \t\n\v\f\r";

// A manifest joins the components of a path with backslashes, ends a path at the end of the line,
// and trims white space from the end of a path.
static bool fits_manifest(std::string_view name, bool is_last) {
    return name.find_first_of("\r\n\\") == name.npos &&
           !(is_last && WHITE_SPACE.find(name.back()) != WHITE_SPACE.npos);
}

static bool refuse_name(const Walk &walk, const char *path) {
    walk.files->finish(); // a file before it that cannot be opened is reported first
    fprintf(stderr, "The name of file \"%s\" cannot be written to a manifest\n",
            str_printable(path).get());
    return false;
}

static bool walk_entry(const Walk &walk, const DirectoryEntry &entry) {
    const char *name = entry.name.c_str();
    const OwnedString full = os_join(walk.dir, name);
    if (!entry.reachable || !fits_manifest(name, false))
        return refuse_name(walk, full.get());
    OwnedString relative = path_join_style(drive_path_style, walk.relative, name);
    if (relative == nullptr)
        relative = xstrdup(name);
    if (!walk.files->wait_for_lane())
        return false;
    HostStat status;
    const HostStat *found = host_stat(full.get(), &status) ? &status : nullptr;
    if (found != nullptr && found->kind == FileKind::directory)
        return walk_directory({walk.files, full.get(), relative.get(), &walk});
    if (!fits_manifest(name, true))
        return refuse_name(walk, full.get());
    return walk.files->add(full.get(), relative.release(), found);
}

static bool walk_directory(Walk walk) {
    walk.linked = walk.parent != nullptr && (walk.parent->linked || host_is_link(walk.dir));
    walk.known = host_file_identity(walk.dir, &walk.identity);
    if (is_loop(walk))
        return true;

    std::vector<DirectoryEntry> entries;
    const Listing listing = host_list_directory(walk.dir, &entries);
    for (const DirectoryEntry &entry : entries)
        if (!walk_entry(walk, entry))
            return false;
    if (listing == Listing::complete || (listing == Listing::denied && walk.parent != nullptr))
        return true;
    walk.files->finish(); // as for a name
    fprintf(stderr, "Cannot read directory \"%s\"\n", str_printable(walk.dir).get());
    return false;
}

// `tag` is the path in the manifest.
static bool append_entry(void *entries, const char *path, void *tag, const FileDigest &result) {
    if (result.outcome != OpenOutcome::opened)
        shahash_fatal_cannot_open(path);
    auto *entry = xnew<ManifestEntry>();
    entry->digest = sha256_hex(result.digest);
    entry->path = static_cast<char *>(tag);
    vec_append(static_cast<Vector *>(entries), entry);
    return true;
}

bool shahash_walk(uint32_t, Vector *files, const char *dir, const char *relative) {
    assert(files != NULL);
    assert(dir != NULL);
    FileDigests digests(append_entry, files);
    const bool complete = walk_directory({&digests, dir, relative, nullptr});
    return digests.finish() && complete;
}

// --- Writing a manifest

void shahash_free_entries(Vector *entries) {
    for (auto *entry : VecEach<ManifestEntry>(entries)) {
        free(const_cast<char *>(entry->path));
        free(entry);
    }
    vec_free(entries);
}

// False unless every line has been handed to the system.
static bool write_entries(Vector *entries, const char *path) {
    FILE *file = host_fopen(path, "w");
    if (file == nullptr)
        return false;
    for (const auto *entry : VecEach<ManifestEntry>(entries))
        fprintf(file, "%s *%s\n", entry->digest, entry->path);
    return os_close_written(file);
}

// Reports why the manifest could not be written or, for null, its temporary file; always false.
static bool report_unwritten(const char *manifest) {
    const int reason = errno;
    if (manifest == nullptr)
        fprintf(stderr, "Cannot write temporary file: %s\n", strerror(reason));
    else
        fprintf(stderr, "Cannot write file \"%s\": %s\n", str_printable(manifest).get(),
                strerror(reason));
    return false;
}

bool shahash_write_manifest(uint32_t flags, const char *dir, const char *manifest) {
    if (!os_can_write(manifest))
        return report_unwritten(manifest);
    // The file is made after the walk, which would list it if the temporaries lie under `dir`.
    const OwnedString temporary = os_tempname_plain();
    if (temporary == nullptr)
        return report_unwritten(nullptr);
    Vector *entries = vec_new(__FILE__, __LINE__);
    bool done = shahash_walk(flags, entries, dir, dir);
    if (done && !write_entries(entries, temporary.get()))
        done = report_unwritten(nullptr);
    if (done && !copyfile_helper(temporary.get(), manifest))
        done = report_unwritten(manifest);
    shahash_free_entries(entries);
    return done;
}

bool shahash_write_manifest_default_flags(const char *dir, const char *manifest) {
    return shahash_write_manifest(static_cast<uint32_t>(os_kind()), dir, manifest);
}

// --- Reading and checking

std::string_view shahash_next_line(FILE *file) {
    return sc_readLineBytes(file, MANIFEST_LINE_LIMIT);
}

bool shahash_parse_line(std::string_view line, ManifestLine *fields) {
    const size_t space = line.find(' ');
    if (space == line.npos || line.find('\0') != line.npos || line.size() > MANIFEST_LINE_LIMIT)
        return false;
    const std::string_view rest = line.substr(space);
    const size_t first = std::min(rest.find_first_not_of(WHITE_SPACE), rest.size());
    std::string_view path = rest.substr(first, rest.find_last_not_of(WHITE_SPACE) + 1 - first);
    if (path.starts_with('*'))
        path.remove_prefix(1);
    fields->digest = line.substr(0, space);
    fields->path = path;
    return true;
}

bool shahash_line_can_verify(std::string_view line) {
    constexpr size_t DIGITS = 2 * SHA256_DIGEST_SIZE;
    return line.find_first_not_of("0123456789abcdef") == DIGITS && line[DIGITS] == ' ' &&
           line.size() <= MANIFEST_LINE_LIMIT;
}

static bool leads_out(const ManifestLine &fields) {
    return path_leads_out(host_path_style(), fields.path);
}

// A path of a manifest with the host's separators.
static std::string native_path(const char *path) {
    std::string native = path;
    std::replace(native.begin(), native.end(), '\\', host_path_style().separator);
    return native;
}

static bool verifies(const char *digest, const char *path, const FileDigest &result) {
    if (result.outcome == OpenOutcome::refused)
        shahash_fatal_cannot_open(path);
    return result.outcome == OpenOutcome::opened &&
           strcmp(hex_text<SHA256_DIGEST_SIZE>(result.digest).data(), digest) == 0;
}

// `tag` is the digest that is expected.
static bool verify_digest(void *, const char *path, void *tag, const FileDigest &result) {
    return verifies(static_cast<const char *>(tag), path, result);
}

bool shahash_verify_file(const char *digest, const char *path) {
    if (digest == nullptr || path == nullptr)
        return false;
    FileDigests digests(verify_digest, nullptr);
    return digests.add(native_path(path).c_str(), const_cast<char *>(digest)) && digests.finish();
}

namespace {

// The result of verifying lines.
struct LineCheck {
    LineFault fault = LineFault::none;
    std::string path;
};

} // namespace

// `tag` is the line.
static bool verify_line(void *context, const char *path, void *tag, const FileDigest &result) {
    ManifestLine fields;
    shahash_parse_line(static_cast<const char *>(tag), &fields);
    if (verifies(fields.digest.c_str(), path, result))
        return true;
    *static_cast<LineCheck *>(context) = {LineFault::different, fields.path};
    return false;
}

// A path that leads out counts as a missing file, and is reported in its turn.
static bool add_line(FileDigests &digests, const ManifestLine &fields, char *line) {
    const std::string path = native_path(fields.path.c_str());
    return leads_out(fields) ? digests.add(path.c_str(), line, nullptr)
                             : digests.add(path.c_str(), line);
}

LineFault shahash_verify_lines(Vector *lines, std::string *path) {
    LineCheck check;
    FileDigests digests(verify_line, &check);
    ManifestLine fields;
    bool sound = true;
    for (char *line : VecEach<char>(lines)) {
        sound = shahash_parse_line(line, &fields);
        if (!sound || !add_line(digests, fields, line))
            break;
    }
    if (digests.finish() && !sound)
        check.fault = LineFault::malformed;
    *path = check.path;
    return check.fault;
}

static void append_record(Vector *entries, const char *base, const ManifestLine &fields) {
    const std::string path = native_path(fields.path.c_str());
    OwnedString joined = path.empty() ? nullptr : os_join(base, path.c_str());
    auto *entry = xnew<ManifestEntry>();
    entry->digest = sc_strdup(fields.digest.c_str());
    entry->path = (joined != nullptr ? std::move(joined) : xstrdup(path.c_str())).release();
    vec_append(entries, entry);
}

Vector *shahash_read_manifest(const char *manifest, const char *base) {
    const FilePtr file(host_fopen_regular(manifest));
    if (file == nullptr)
        return nullptr;
    Vector *entries = vec_new(__FILE__, __LINE__);
    ManifestLine fields;
    bool sound = true;
    for (std::string_view line; sound && !(line = shahash_next_line(file.get())).empty();) {
        sound = shahash_parse_line(line, &fields) && !leads_out(fields);
        if (sound)
            append_record(entries, base, fields);
    }
    if (sound && ferror(file.get()) == 0)
        return entries;
    shahash_free_entries(entries);
    return nullptr;
}

static bool check_lines(FILE *file) {
    ManifestLine fields;
    for (std::string_view line; !(line = shahash_next_line(file)).empty();)
        if (!shahash_parse_line(line, &fields) || leads_out(fields) ||
            !shahash_verify_file(fields.digest.c_str(), fields.path.c_str()))
            return false;
    return ferror(file) == 0;
}

bool shahash_check_manifest(const char *manifest, const char *dir) {
    const FilePtr file(host_fopen_regular(manifest));
    if (file == nullptr)
        return false;
    if (dir == nullptr)
        return check_lines(file.get());
    const OwnedString before = os_getcwd();
    if (before == nullptr || !host_chdir(dir))
        return false;
    const bool passed = check_lines(file.get());
    return host_chdir(before.get()) && passed;
}

bool shahash_check_entries(Vector *entries) {
    bool passed = true;
    for (const auto *entry : VecEach<ManifestEntry>(entries))
        if (entry->path == nullptr || *entry->path == '\0' ||
            !shahash_verify_file(entry->digest, entry->path))
            passed = false;
    return passed;
}
