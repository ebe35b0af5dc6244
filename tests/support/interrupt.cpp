// Linked into a copy of the program: the first of its processes that reads from a file to be
// hashed, or comes to another point of that, does there what the environment says, once.
#include "manifest/filedigests.h"
#include "support/scratch.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <sstream>
#include <thread>
#include <vector>

// The same bytes again, until the system's clock tells the new file from the old one.
static void rewrite(const char *path) {
    const std::string bytes = read_file(path);
    FileState before, now;
    if (!host_file_state(path, &before))
        abort();
    do
        write_file(path, bytes);
    while (host_file_state(path, &now) && now == before);
}

// Words are separated by "|", and paths are absolute: tasks have directories of their own.
static void act(const std::vector<std::string> &words) {
    const std::string &verb = words.at(0);
    if (verb == "raise") {
        for (size_t i = 1; i < words.size(); i++)
            raise(std::stoi(words[i]));
    } else if (verb == "exit") {
        _Exit(std::stoi(words.at(1)));
    } else if (verb == "wait") {
        for (;;) // until it is ended
            std::this_thread::sleep_for(std::chrono::hours(1));
    } else if (verb == "rewrite") {
        rewrite(words.at(1).c_str());
    } else if (verb == "remove") {
        host_remove(words.at(1).c_str());
    } else if (verb == "rename") { // pairs of names
        for (size_t i = 1; i < words.size(); i += 2)
            if (!host_replace(words[i].c_str(), words.at(i + 1).c_str()))
                abort();
    } else {
        abort();
    }
}

static void interrupt(HashingPoint point, uint64_t) {
    const char *what = getenv("KESTREL_INTERRUPT"), *where = getenv("KESTREL_INTERRUPT_AT");
    const int at =
        where != nullptr && *where != '\0' ? atoi(where) : static_cast<int>(HashingPoint::reading);
    const char *parent = getenv("KESTREL_INTERRUPT_PARENT"), *board = getenv("kestrel_board");
    const bool is_first = parent != nullptr && *parent != '\0' && board != nullptr && *board == '0';
    if (at != static_cast<int>(point) || what == nullptr || *what == '\0' || is_first ||
        !host_make_file(getenv("KESTREL_INTERRUPTED")))
        return;
    std::vector<std::string> words;
    std::istringstream stream(what);
    for (std::string word; std::getline(stream, word, '|');)
        words.push_back(word);
    act(words);
}

// In the first process: a signal strikes in a thread of its own as soon as its second task is
// interrupted, as interruptions do on Windows.
static bool install() {
    hashing_hook = interrupt;
    const char *number = getenv("KESTREL_INTERRUPT_PARENT");
    const char *parent = getenv("kestrel_parent");
    if (number != nullptr && *number != '\0' && (parent == nullptr || *parent == '\0'))
        std::thread([number] {
            while (!os_exists(getenv("KESTREL_INTERRUPTED")))
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            raise(atoi(number));
        }).detach();
    return true;
}

[[maybe_unused]] static const bool installed = install();
