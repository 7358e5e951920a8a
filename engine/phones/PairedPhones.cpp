#include "engine/phones/PairedPhones.h"

#include "engine/files/PlaceOfState.h"
#include "engine/phones/Device.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace krl::engine {
namespace {

namespace fs = std::filesystem;

using Udids = std::vector<std::string>;

fs::path listOf(const fs::path& folder) {
    return folder / "paired-phones";
}

Udids readUdids() {
    Udids udids;
    if (const auto folder = placeOfState()) {
        std::ifstream list(listOf(*folder));
        for (std::string udid; std::getline(list, udid);) {
            udids.push_back(udid);
        }
    }
    return udids;
}

/// Whole or not at all, as others may read at the same time.
void writeUdids(const Udids& udids) {
    const auto folder = placeOfState();
    if (!folder) {
        return;
    }
    std::error_code failure;
    if (fs::create_directories(*folder, failure)) {
        fs::permissions(*folder, fs::perms::owner_all, failure); // it is nobody else's affair
    }
    fs::path written = listOf(*folder);
    written += "." + std::to_string(::getpid());
    std::ofstream list(written);
    for (const std::string& udid : udids) {
        list << udid << '\n';
    }
    list.close();
    if (list) {
        fs::rename(written, listOf(*folder), failure);
    }
    fs::remove(written, failure);
}

/// Whether it is one that a line can hold: a device may say anything.
bool isUdid(const std::string& udid) {
    constexpr size_t kLongest = 64;
    return !udid.empty() && udid.size() <= kLongest &&
           std::ranges::all_of(udid, [](unsigned char character) {
               return character == '-' || (character < 0x80 && std::isalnum(character) != 0);
           });
}

Udids::iterator find(Udids& udids, const std::string& udid) {
    return std::ranges::find_if(udids,
                                [&](const std::string& known) { return sameUdid(known, udid); });
}

} // namespace

bool wasPaired(const std::string& udid) {
    Udids udids = readUdids();
    return find(udids, udid) != udids.end();
}

void rememberPaired(const std::string& udid) {
    Udids udids = readUdids();
    if (isUdid(udid) && find(udids, udid) == udids.end()) {
        udids.push_back(udid);
        writeUdids(udids);
    }
}

void forgetPaired(const std::string& udid) {
    Udids udids = readUdids();
    const auto known = find(udids, udid);
    if (known != udids.end()) {
        udids.erase(known);
        writeUdids(udids);
    }
}

} // namespace krl::engine
