// Runs a target once over each input of a table (fuzz/<target>.seeds), or over the one that is
// named, or over the bytes of another file, for builds without libFuzzer.
#include "support/scratch.h"

#include <cstdlib>
#include <sstream>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

static void run(const std::string &name, const std::string &bytes) {
    fprintf(stderr, "%s\n", name.c_str()); // the last one is the one that fails
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
}

static std::string unescaped(const std::string &text) {
    std::string bytes;
    for (size_t i = 0; i < text.size(); i++)
        if (text[i] != '\\') {
            bytes += text[i];
        } else if (text[++i] == 'x') {
            bytes += static_cast<char>(strtol(text.substr(i + 1, 2).c_str(), nullptr, 16));
            i += 2;
        } else {
            bytes += text[i] == 'n' ? '\n' : text[i];
        }
    return bytes;
}

int main(int argc, char **argv) {
    const std::string path = argc > 1 ? argv[1] : "", wanted = argc > 2 ? argv[2] : "";
    const FilePtr file(host_fopen(path.c_str(), "rb"));
    if (file == nullptr)
        return 1;
    const std::string content = read_all(file.get());
    if (!path.ends_with(".seeds")) {
        run(path, content);
        return 0;
    }
    bool found = false;
    std::istringstream table(content);
    for (std::string line; std::getline(table, line);) {
        std::istringstream fields(line);
        std::string name, text, bytes;
        int times = 0;
        if (!(fields >> name >> times) || (!wanted.empty() && name != wanted))
            continue; // a comment
        std::getline(fields >> std::ws, text);
        for (text = unescaped(text); times > 0; times--)
            bytes += text;
        run(name, bytes);
        found = true;
    }
    return found ? 0 : 1;
}
