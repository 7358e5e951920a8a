#include "engine/fetch/RingtoneFetch.h"

#include "engine/files/FileNames.h"
#include "engine/files/LocalFile.h"
#include "engine/files/RegularFile.h"
#include "engine/files/WholeFile.h"
#include "engine/state/OpenPhone.h"

#include <fmt/format.h>

#include <algorithm>

namespace krl::engine {
namespace {

namespace fs = std::filesystem;

Failure notAsLong(const PhoneRingtone& ringtone) {
    return {FailureKind::CannotOpen,
            fmt::format("\"{}\" is not as long on the phone as the phone said", ringtone.name),
            "Another program may be writing it. Close it and try again."};
}

Failure taken(const fs::path& place) {
    return {FailureKind::NameTaken,
            fmt::format("\"{}\" is there already and holds something else", place.string()),
            "Choose another folder with --output, or write over it with --force."};
}

/// Whether there is anything of a name, be it a link to nothing.
bool isTaken(const fs::path& place) {
    std::error_code ignored;
    return fs::exists(fs::symlink_status(place, ignored));
}

bool hasSize(const fs::path& place, uint64_t size) {
    std::error_code ignored;
    return fs::is_regular_file(place, ignored) && fs::file_size(place, ignored) == size;
}

bool holds(const fs::path& place, const Digest& digest) {
    try {
        return RegularFile(place, "").digest() == digest;
    } catch (const Failure&) {
        return false; // What cannot be read is not known to be the same.
    }
}

} // namespace

std::map<std::string, std::string> fileNamesOf(std::vector<PhoneRingtone> ringtones) {
    const auto isChanged = [](const PhoneRingtone& one) {
        return fileNameFor(one.name) != one.name;
    };
    std::sort(ringtones.begin(), ringtones.end(), [&](const auto& left, const auto& right) {
        return std::pair(isChanged(left), left.name) < std::pair(isChanged(right), right.name);
    });
    FileNames names;
    std::map<std::string, std::string> result;
    for (const PhoneRingtone& ringtone : ringtones) {
        result[ringtone.name] = names.give(ringtone.name, typeOf(ringtone.file));
    }
    return result;
}

void readRingtone(PhoneFiles& files, const PhoneRingtone& ringtone, const PhoneFiles::Take& take) {
    uint64_t taken = 0;
    const auto add = [&](std::string_view piece) {
        taken += piece.size();
        // A phone may go on for ever.
        if (taken > ringtone.size) {
            throw notAsLong(ringtone);
        }
        take(piece);
    };
    const bool isThere =
        files.read(fmt::format("{}/{}", kRingtonesFolder, ringtone.file), add, ringtone.size);
    if (!isThere || taken != ringtone.size) {
        throw notAsLong(ringtone);
    }
}

Fetched fetchRingtone(PhoneFiles& files, const PhoneRingtone& ringtone, const fs::path& place,
                      const FetchWish& wish) {
    if (ringtone.size == 0) {
        throw Failure(FailureKind::EmptyFile,
                      fmt::format("\"{}\" is an empty file on the phone", ringtone.name),
                      "There is nothing to fetch. \"vesk remove\" takes it off the phone.");
    }
    const bool mayBeSame = hasSize(place, ringtone.size);
    if (!wish.replaces && !mayBeSame && isTaken(place)) {
        throw taken(place);
    }
    WholeFile file(place);
    Sha256 sha;
    uint64_t done = 0;
    readRingtone(files, ringtone, [&](std::string_view piece) {
        file.add(piece);
        sha.add(piece);
        done += piece.size();
        wish.moves(done);
    });
    if (mayBeSame && holds(place, sha.digest())) {
        return Fetched::WasThereAlready;
    }
    if (mayBeSame && !wish.replaces) {
        throw taken(place);
    }
    file.finish(wish.replaces ? WholeFile::Existing::IsReplaced : WholeFile::Existing::IsKept);
    return Fetched::IsNew;
}

} // namespace krl::engine
