// Response files of any bytes, and the words found in them on every way that arguments go: escaped
// and expanded, through a command file, and on a command line of the drive-letter host.
#include "command/cmdline.h"
#include "host/argsplit.h"
#include "kestrel/tasks.h"
#include "support/scratch.h"
#include "support/words.h"

#include <algorithm>
#include <cassert>
#include <vector>

static Words files;    // the only ones that there are, if not empty
static Words received; // by the program that was started last

static Words expand(const char *argument) {
    const char *const argv[] = {"kestrel", argument};
    return words_of(VectorPtr(cmdline_expand(2, argv, nullptr)));
}

extern "C" bool __real__Z9host_statPKcP8HostStat(const char *path, HostStat *result);
extern "C" bool __wrap__Z9host_statPKcP8HostStat(const char *path, HostStat *result) {
    return (files.empty() || std::count(files.begin(), files.end(), path) != 0) &&
           __real__Z9host_statPKcP8HostStat(path, result);
}

extern "C" void __wrap__Z13zvdebug_parsePKc(const char *) {}

// In place of the program, which would be started with these arguments.
extern "C" int __wrap__Z11db_debuggerPKcP6Vectorb(const char *, Vector *args, bool) {
    const char *argument = vec_at<const char>(args, 1);
    files = {argument + 1};
    received = expand(argument);
    files.clear();
    host_remove(argument + 1);
    return 7;
}

// The first byte 0xff divides the input into two files, which may name each other and themselves.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const Scratch scratch;
    const std::string text(reinterpret_cast<const char *>(data), size);
    const size_t end = std::min(text.find('\xff'), size);
    scratch.write("r", text.substr(0, end));
    scratch.write("s", text.substr(std::min(end + 1, size)));
    host_chdir(scratch.directory());
    files = {"r", "s"};
    Words words = expand("@r");
    files.clear();
    for (const std::string &word : words) // names of files are not unescaped, nor passed escaped
        assert(word.starts_with('@') || expand(cmdline_escape(word.c_str())) == Words{word});
    // A byte order mark at a command file's beginning does not belong to its words.
    const bool marked = !words.empty() && words[0].starts_with("\xef\xbb\xbf");
    words.insert(words.begin(), "program");
    assert(cmdline_exe(vector_of(words).get(), EXEC_COMMAND_FILE, 0) == 7);
    assert(marked || received == Words(words.begin() + 1, words.end()));
    // vecString escapes nothing but quotes, so a backslash before one, or before one that it adds
    // at the end, is taken for an escape. The check's own arguments have none there.
    std::erase_if(words, [](const std::string &word) {
        const bool quoted = word.find_first_of(" \t\n\r") != word.npos;
        return word.find("\\\"") != word.npos || (quoted && word.ends_with('\\'));
    });
    assert(split_command_line(vecString(vector_of(words).get())) == words);
    split_command_line(text.c_str());
    return 0;
}
