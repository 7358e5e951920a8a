#include "engine/diagnosis/OtherPrograms.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <system_error>

namespace krl::engine {
namespace {

// The first shows phones to a file manager, which starts the second for one that is clicked on; that
// one greets the phone and ends its pairing.
constexpr std::string_view kProgramsThatUnpair[] = {"gvfs-afc-volume-monitor", "gvfsd-afc"};

/// The number of a process's folder; 0 for other entries.
int processOf(const std::filesystem::path& entry) {
    const std::string name = entry.filename();
    int number = 0;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), number);
    return error == std::errc() && end == name.data() + name.size() ? number : 0;
}

/// What a process was started as, without its folder.
std::string programOf(const std::filesystem::path& entry) {
    std::ifstream commandLine(entry / "cmdline");
    std::string first;
    std::getline(commandLine, first, '\0');
    return std::filesystem::path(first).filename();
}

} // namespace

std::vector<RunningProgram> programsThatUnpair() {
    std::vector<RunningProgram> found;
    std::error_code none;
    for (const auto& entry : std::filesystem::directory_iterator("/proc", none)) {
        const int process = processOf(entry.path());
        if (process == 0) {
            continue;
        }
        const std::string program = programOf(entry.path());
        if (std::ranges::find(kProgramsThatUnpair, program) != std::end(kProgramsThatUnpair)) {
            found.push_back({program, process});
        }
    }
    return found;
}

} // namespace krl::engine
