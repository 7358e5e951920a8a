// Puts a new document in the place of an old one, with the calls that are asked for.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

namespace {

void require(bool isDone) {
    if (!isDone) {
        std::perror("replace_file_probe");
        std::exit(1);
    }
}

} // namespace

/// replace_file_probe FOLDER CALLS: of CALLS, "b" syncs the bytes before the renaming and "n" the
/// names after it.
int main(int, char** words) {
    const std::string folder = words[1];
    const std::string_view calls = words[2];
    const std::string first = folder + "/document.new";
    const int file = open(first.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    require(file >= 0);
    require(write(file, "new ", 4) == 4);
    require(write(file, "document", 8) == 8);
    require(calls.find('b') == std::string_view::npos || fsync(file) == 0);
    require(close(file) == 0);
    require(std::rename(first.c_str(), (folder + "/document").c_str()) == 0);
    if (calls.find('n') != std::string_view::npos) {
        const int names = open(folder.c_str(), O_RDONLY | O_DIRECTORY);
        require(fsync(names) == 0);
        require(close(names) == 0);
    }
    require(unlink((folder + "/other").c_str()) == 0);
}
