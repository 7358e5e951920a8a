#include "audio/preparing/RingtoneCache.h"

#include "engine/files/PlaceOfState.h"

#include <unistd.h>

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <iterator>
#include <system_error>
#include <utility>
#include <vector>

namespace krl::audio {
namespace {

namespace fs = std::filesystem;

/// To be raised with every change of how ringtones are made.
constexpr int kRecipe = 1;

/// A kept ringtone begins with the digest of all behind it, and the answer on a line of its own.
constexpr size_t kDigestLength = 64;

std::optional<std::string> contentsOf(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        return std::nullopt;
    }
    return std::string{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::optional<Ringtone> ringtoneIn(const std::string& contents) {
    const auto digest = engine::Digest::parse(contents.substr(0, kDigestLength));
    if (!digest || engine::digestOf(contents.substr(kDigestLength)) != digest) {
        return std::nullopt;
    }
    const size_t end = contents.find('\n', kDigestLength);
    const auto answer = decodedAnswer(contents.substr(kDigestLength, end - kDigestLength));
    if (end == std::string::npos || !answer) {
        return std::nullopt;
    }
    return Ringtone{answer->prepared, contents.substr(end + 1)};
}

} // namespace

RingtoneCache::RingtoneCache(fs::path folder) : folder_(std::move(folder)) {}

fs::path RingtoneCache::defaultFolder() {
    const auto cache = engine::placeOfCache();
    return cache ? *cache / "ringtones" : fs::path();
}

std::optional<Ringtone> RingtoneCache::find(const engine::Digest& song, const Wish& wish) const {
    if (folder_.empty()) {
        return std::nullopt;
    }
    const fs::path place = placeOf(song, wish);
    const auto contents = contentsOf(place);
    auto ringtone = contents ? ringtoneIn(*contents) : std::nullopt;
    if (ringtone) {
        std::error_code ignored;
        fs::last_write_time(place, fs::file_time_type::clock::now(), ignored);
    }
    return ringtone;
}

void RingtoneCache::keep(const engine::Digest& song, const Wish& wish,
                         const Ringtone& ringtone) const {
    if (folder_.empty()) {
        return;
    }
    static std::atomic<unsigned> number{0};
    const std::string contents = encoded(PrepareAnswer{ringtone.prepared}) + "\n" + ringtone.bytes;
    const fs::path incoming = folder_ / fmt::format("incoming-{}-{}", getpid(), ++number);
    std::error_code error;
    fs::create_directories(folder_, error);
    std::ofstream file(incoming, std::ios::binary);
    file << engine::digestOf(contents).hex() << contents;
    file.close();
    if (file) {
        fs::rename(incoming, placeOf(song, wish), error);
    }
    if (!file || error) {
        fs::remove(incoming, error);
    }
    forgetOldest();
}

fs::path RingtoneCache::placeOf(const engine::Digest& song, const Wish& wish) const {
    return folder_ /
           engine::digestOf(fmt::format("{} {} {}", kRecipe, song.hex(), encoded(wish))).hex();
}

void RingtoneCache::forgetOldest() const {
    constexpr size_t kMost = 400; // some 250 MB
    std::error_code error;
    std::vector<std::pair<fs::file_time_type, fs::path>> kept;
    for (fs::directory_iterator entry(folder_, error), end; !error && entry != end;
         entry.increment(error)) {
        std::error_code ignored;
        kept.emplace_back(entry->last_write_time(ignored), entry->path());
    }
    if (kept.size() <= kMost) {
        return;
    }
    std::sort(kept.begin(), kept.end());
    for (size_t i = 0; i < kept.size() - kMost; ++i) {
        fs::remove(kept[i].second, error);
    }
}

} // namespace krl::audio
