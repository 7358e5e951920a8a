#include "virtualphone/phone/Unplayable.h"

#include "virtualphone/phone/Firmware.h"
#include "virtualphone/phone/MediaFolder.h"
#include "virtualphone/playing/Playing.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <filesystem>
#include <sstream>

namespace virtualphone {

namespace {

constexpr char kRingtoneFolder[] = "/iTunes_Control/Ringtones";

bool isEmptyM4r(const std::string& name, int file) {
    struct stat status {};

    return std::filesystem::path(name).extension() == ".m4r" && fstat(file, &status) == 0 &&
           status.st_size == 0;
}

std::vector<std::string> namesIn(const MediaFolder& media) {
    std::string list;
    if (media.list(kRingtoneFolder, list) != 0) {
        return {}; // there is no such folder yet
    }
    std::vector<std::string> names;
    std::istringstream entries(list);
    for (std::string name; std::getline(entries, name, '\0');) {
        if (name != "." && name != "..") {
            names.push_back(name);
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

bool isBesideAnother(const std::string& name, const std::vector<std::string>& names) {
    const auto stem = std::filesystem::path(name).stem();
    return std::any_of(names.begin(), names.end(), [&](const std::string& other) {
        return other != name && std::filesystem::path(other).stem() == stem;
    });
}

// Empty when it plays.
std::string whyNot(MediaFolder& media, const std::string& name, const std::string& firmware,
                   bool emptyM4rIsPlaceholder) {
    UniqueFd file;
    const int error = media.open(std::string(kRingtoneFolder) + "/" + name, O_RDONLY, file);
    if (error == EISDIR || error == ENOENT) {
        return {};
    }
    if (error != 0) {
        return std::string("cannot be opened: ") + std::strerror(error);
    }
    if (emptyM4rIsPlaceholder && isEmptyM4r(name, file.get())) {
        return {};
    }
    return whyNotPlayed(file.get(), name, /*onlyM4r=*/isAtLeast(firmware, 1, 1, 3));
}

} // namespace

std::vector<Unplayable> unplayableIn(MediaFolder& media, const std::string& firmware) {
    std::vector<Unplayable> all;
    const std::vector<std::string> names = namesIn(media);
    for (const std::string& name : names) {
        const std::string reason = whyNot(media, name, firmware, isBesideAnother(name, names));
        if (!reason.empty()) {
            all.push_back({name, reason});
        }
    }
    return all;
}

std::optional<Unplayable> unplayableStored(MediaFolder& media, const std::string& path,
                                           const std::string& firmware) {
    const std::filesystem::path normal = std::filesystem::path("/" + path).lexically_normal();
    const std::string name = normal.filename().string();
    if (normal.parent_path() != kRingtoneFolder || !isRingtoneName(name)) {
        return std::nullopt;
    }
    std::string reason;
    try {
        reason = whyNot(media, name, firmware, /*emptyM4rIsPlaceholder=*/true);
    } catch (const std::exception& error) {
        reason = error.what();
    }
    return reason.empty() ? std::nullopt : std::optional(Unplayable{name, reason});
}

} // namespace virtualphone
