// The digests of many files that exist only as scripts of what the host says of them: sizes that
// are true or not, short reads, errors; and a receiver that may stop everything.
#include "digest/sha256_kernel.h"
#include "manifest/filedigests.h"

#include <algorithm>
#include <cassert>
#include <utility>
#include <vector>

namespace {

// A changing file is something else when it is opened; a failing one cannot be read to its end.
enum Nature : uint8_t { regular, changing, failing, refused, missing };

struct Script {
    Nature nature;
    std::vector<uint8_t> bytes; // that can be read
    uint64_t size;              // that it is said to have
    size_t portion;             // most that one read gives
    size_t at = 0;              // that the next read begins at
    bool open = false;
};

} // namespace

static std::vector<Script> scripts;     // whose numbers are paths and descriptors
static size_t received = 0, wanted = 0; // results

extern "C" bool __wrap__Z9host_statPKcP8HostStat(const char *path, HostStat *result) {
    *result = {FileKind::regular, scripts.at(std::stoul(path)).size};
    return scripts.at(std::stoul(path)).nature != missing;
}

extern "C" int __wrap__Z9host_openPKc(const char *path) {
    Script &script = scripts.at(std::stoul(path));
    assert(script.nature != missing && !script.open && script.at == 0);
    script.open = script.nature != refused;
    return script.open ? static_cast<int>(&script - scripts.data()) : -1;
}

extern "C" int64_t __wrap__Z9host_readiPvm(int descriptor, void *buffer, size_t size) {
    Script &script = scripts.at(static_cast<size_t>(descriptor));
    constexpr size_t BUFFER = 32768; // which is filled before the length is looked at
    assert(script.open && (script.nature != changing || script.at < script.size + BUFFER));
    const size_t length = std::min({size, script.portion, script.bytes.size() - script.at});
    std::copy_n(script.bytes.data() + script.at, length, static_cast<uint8_t *>(buffer));
    script.at += length;
    return length == 0 && script.nature == failing ? -1 : static_cast<int64_t>(length);
}

// Of some it has nothing in memory.
extern "C" size_t __wrap__Z16host_read_cachediPvm(int descriptor, void *buffer, size_t size) {
    if (scripts.at(static_cast<size_t>(descriptor)).portion % 2 == 0)
        return 0;
    const int64_t got = __wrap__Z9host_readiPvm(descriptor, buffer, size);
    return got > 0 ? static_cast<size_t>(got) : 0;
}

extern "C" int __wrap__Z10host_closei(int descriptor) {
    assert(std::exchange(scripts.at(static_cast<size_t>(descriptor)).open, false));
    return 0;
}

extern "C" bool __wrap__Z15host_is_regulari(int descriptor) {
    return scripts.at(static_cast<size_t>(descriptor)).nature != changing;
}

// The model. An error does not count as the end of the file. Something that is no longer a file is
// noticed if its length is not the one found, or 0.
static OpenOutcome outcome_of(const Script &script) {
    const bool as_found = script.bytes.size() == script.size && script.size != 0;
    if (script.nature == regular || (script.nature == changing && as_found))
        return OpenOutcome::opened;
    return script.nature == missing ? OpenOutcome::missing : OpenOutcome::refused;
}

static bool receive(const char *path, const FileDigest &result) {
    const Script &script = scripts.at(received);
    assert(received < wanted && path == std::to_string(received));
    Sha256Context ctx;
    uint8_t digest[SHA256_DIGEST_SIZE];
    sha256_init(&ctx);
    sha256_update(&ctx, script.bytes.data(), script.bytes.size());
    sha256_final(&ctx, digest);
    assert(result.outcome == outcome_of(script));
    assert(result.outcome != OpenOutcome::opened ||
           std::equal(digest, std::end(digest), result.digest));
    return ++received < wanted;
}

// Around blocks and around what is read at a time.
static size_t length_of(uint8_t code) {
    static constexpr size_t CENTRES[] = {1, 56, 64, 128, 1000, 4096, 16384, 32768};
    return CENTRES[code % 8] + code / 8 % 3 - 1;
}

// Four bytes of the input describe a file. The first byte of all says how many results are wanted,
// whether everything is given up in the end, and how many lanes there are.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const size_t mode = size > 0 ? *data : 0;
    const auto kernels = sha256_kernels();
    sha256_force_kernel(kernels[mode / 4 % 4 % kernels.size()]);
    received = 0;
    wanted = (mode & 1) != 0 ? mode / 16 + 1 : SIZE_MAX;
    scripts.clear();
    for (; size > 4 && scripts.size() < 12; data += 4, size -= 4) {
        std::vector<uint8_t> bytes(length_of(data[2]));
        for (size_t i = 0; i < bytes.size(); i++)
            bytes[i] = static_cast<uint8_t>(i % 251 + scripts.size());
        scripts.push_back({data[1] <= missing ? Nature{data[1]} : regular, bytes,
                           length_of(data[3] < 128 ? data[2] : data[3]),
                           bytes.size() / 64 + length_of(data[4]) + 1});
    }
    {
        FileHasher digests(receive);
        for (size_t i = 0; i < scripts.size(); i++)
            assert(digests.add(std::to_string(i).c_str()) == (received < wanted));
        assert((mode & 2) != 0 || digests.finish() == (received < wanted));
        assert((mode & 2) != 0 || received == std::min(wanted, scripts.size()));
    }
    for (const Script &script : scripts)
        assert(!script.open);
    return 0;
}
