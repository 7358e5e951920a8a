/// vesk-manual DIR: writes vesk's manual pages and completions into a folder.
#include "vesk/manual/Completions.h"
#include "vesk/manual/ManPages.h"

#include <filesystem>
#include <fstream>
#include <iostream>

namespace {

namespace fs = std::filesystem;

void write(const fs::path& path, const std::string& text) {
    fs::create_directories(path.parent_path());
    std::ofstream file(path, std::ios::binary);
    file << text;
    file.close();
    if (!file) {
        throw fs::filesystem_error("cannot be written", path,
                                   std::make_error_code(std::errc::io_error));
    }
}

void writeAll(const fs::path& folder) {
    const vesk::CommandEntry vesk = vesk::commandTree();
    for (const auto& [name, page] : vesk::manPages(vesk)) {
        write(folder / "man1" / name, page);
    }
    write(folder / "bash" / "vesk", vesk::bashCompletion(vesk));
    write(folder / "zsh" / "_vesk", vesk::zshCompletion(vesk));
    write(folder / "fish" / "vesk.fish", vesk::fishCompletion(vesk));
}

} // namespace

int main(int count, char** words) {
    if (count != 2) {
        std::cerr << "vesk-manual DIR\n";
        return 2;
    }
    try {
        writeAll(words[1]);
        return 0;
    } catch (const std::exception& failure) {
        std::cerr << "vesk-manual: " << failure.what() << '\n';
        return 1;
    }
}
