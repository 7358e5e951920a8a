#include "audio/preparing/Preparer.h"

#include "audio/judging/FactsReader.h"
#include "audio/judging/Judgement.h"
#include "engine/files/ContentDigests.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <future>
#include <thread>
#include <utility>

namespace krl::audio {
namespace {

using engine::Failure;
using engine::FailureKind;
namespace fs = std::filesystem;

/// Whether a file is as it was, so far as the file system says.
struct State {
    off_t size = 0;
    timespec changed = {};

    explicit State(int descriptor) {
        struct stat status = {};
        fstat(descriptor, &status);
        size = status.st_size;
        changed = status.st_mtim;
    }

    friend bool operator==(const State& a, const State& b) {
        return a.size == b.size && a.changed.tv_sec == b.changed.tv_sec &&
               a.changed.tv_nsec == b.changed.tv_nsec;
    }
};

/// The wish with what the song's tags say of itself.
/// @throw Failure when it is encrypted: what decodes it would give noise
Wish completed(const Wish& wish, const fs::path& song, int descriptor) {
    const auto facts = FactsReader().factsOf(song, descriptor);
    Wish result = wish;
    if (facts && facts->encrypted) {
        throw cannotBeUsed(song, judge(*facts, ""));
    }
    if (facts && result.title.empty()) {
        result.title = facts->title;
    }
    if (facts && result.artist.empty()) {
        result.artist = facts->artist;
    }
    return result;
}

} // namespace

Preparer::Preparer(RingtoneCache cache, fs::path program, std::stop_token stop)
    : cache_(std::move(cache)), program_(std::move(program)), stop_(std::move(stop)) {}

SongOutcome Preparer::prepare(const fs::path& song, const Wish& wish) const {
    const engine::RegularFile file(song, "Check the path and its permissions.");
    if (file.size() == 0) {
        throw Failure(FailureKind::EmptyFile, fmt::format("\"{}\" is empty", song.string()),
                      "Make the file anew.");
    }
    const State before(file.descriptor());
    const Wish complete = completed(wish, song, file.descriptor());
    const engine::Digest digest = file.digest();
    if (auto kept = cache_.find(digest, complete)) {
        return {song, std::move(kept), /*fromCache=*/true};
    }
    Ringtone made = madeOf(song, file.descriptor(), complete, program_, stop_);
    if (State(file.descriptor()) != before) {
        throw Failure(FailureKind::UnreadableFile,
                      fmt::format("\"{}\" was changed while it was read", song.string()),
                      "Wait until the other program is done with it, and repeat.");
    }
    cache_.keep(digest, complete, made);
    return {song, std::move(made), /*fromCache=*/false};
}

void Preparer::prepareAll(const std::vector<fs::path>& songs, const Wish& wish,
                          const std::function<void(const SongOutcome&)>& done) const {
    std::vector<std::promise<SongOutcome>> outcomes(songs.size());
    std::atomic<size_t> next{0};
    const auto work = [&] {
        for (size_t i = next++; i < songs.size(); i = next++) {
            try {
                outcomes[i].set_value(prepare(songs[i], wish));
            } catch (const Failure& failure) {
                outcomes[i].set_value({songs[i], std::nullopt, false, failure});
            } catch (...) {
                outcomes[i].set_exception(std::current_exception());
            }
        }
    };
    const size_t most = std::max(1U, std::thread::hardware_concurrency());
    std::vector<std::jthread> workers;
    for (size_t i = 0; i < std::min(most, songs.size()); ++i) {
        workers.emplace_back(work);
    }
    try {
        for (auto& outcome : outcomes) {
            done(outcome.get_future().get());
        }
    } catch (...) {
        next = songs.size(); // nobody waits for those that have not begun
        throw;
    }
}

} // namespace krl::audio
