#include "desktop/bridge/SongDesk.h"

#include "audio/judging/Inspector.h"
#include "audio/preparing/Preparer.h"
#include "engine/files/RegularFile.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <system_error>
#include <utility>

namespace krl::desktop {

namespace fs = std::filesystem;
using audio::Verdict;
using engine::Failure;
using engine::FailureKind;

namespace {

constexpr size_t kThreads = 2;

/// What one drop can bring: more is a mistake, such as the whole computer.
constexpr size_t kMostFiles = 20000;

fs::path newPrivateFolder() {
    std::string name = (fs::temp_directory_path() / "vesk-desktop-XXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr) {
        throw std::system_error(errno, std::generic_category(), name);
    }
    return name;
}

bool isHidden(const fs::path& path) {
    return path.filename().string().starts_with('.');
}

void addFolder(const fs::path& folder, std::vector<fs::path>& files) {
    std::error_code error;
    fs::recursive_directory_iterator entry(folder, fs::directory_options::skip_permission_denied,
                                           error);
    for (; !error && entry != fs::recursive_directory_iterator() && files.size() < kMostFiles;
         entry.increment(error)) {
        if (isHidden(entry->path())) {
            entry.disable_recursion_pending();
        } else if (entry->is_regular_file(error)) {
            files.push_back(entry->path());
        }
    }
}

std::string joined(const std::vector<std::string>& reasons) {
    return fmt::format("{}", fmt::join(reasons, "; "));
}

std::optional<double> secondsOf(const tags::AudioFacts& facts) {
    return facts.lengthMs > 0 ? std::optional(static_cast<double>(facts.lengthMs) / 1000)
                              : std::nullopt;
}

} // namespace

SongDesk::SongDesk(Mailbox& mailbox) : mailbox_(mailbox), folder_(newPrivateFolder()) {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before); // signals are for the main loop
    for (size_t i = 0; i < kThreads; ++i) {
        threads_.emplace_back([this] { run(); });
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

SongDesk::~SongDesk() {
    {
        const std::lock_guard lock(mutex_);
        isEnding_ = true;
    }
    changed_.notify_all();
    for (std::thread& thread : threads_) {
        thread.join();
    }
    std::error_code ignored;
    fs::remove_all(folder_, ignored);
}

void SongDesk::take(const fs::path& song, bool playsOlderKinds,
                    std::function<void(SongNews)> tell) {
    post([this, song, playsOlderKinds, tell = std::move(tell)] {
        const auto say = [this, &tell](SongNews news) {
            mailbox_.put([tell, news = std::move(news)] { tell(news); });
        };
        try {
            say(readySong(song, playsOlderKinds, say));
        } catch (const Failure& failure) {
            say(failure);
        } catch (const std::exception& error) {
            say(Failure(FailureKind::UnreadableFile, error.what()));
        }
    });
}

void SongDesk::listFiles(const std::vector<fs::path>& places,
                         std::function<void(std::vector<fs::path>)> tell) {
    post([this, places, tell = std::move(tell)] {
        std::vector<fs::path> files;
        for (const fs::path& place : places) {
            std::error_code ignored;
            if (fs::is_directory(place, ignored)) {
                addFolder(place, files);
            } else {
                files.push_back(place);
            }
        }
        std::sort(files.begin(), files.end());
        mailbox_.put([tell, files = std::move(files)] { tell(files); });
    });
}

SongIsReady SongDesk::readySong(const fs::path& song, bool playsOlderKinds,
                                const std::function<void(SongNews)>& tell) {
    const audio::Inspection inspection = audio::Inspector().inspect(song);
    const auto& [verdict, reasons] = inspection.judgement;
    if (verdict == Verdict::CannotBeUsed) {
        throw Failure(FailureKind::UnsupportedType, joined(reasons));
    }
    if (verdict == Verdict::Plays ||
        (verdict == Verdict::PlaysOnOlderFirmware && playsOlderKinds)) {
        return {engine::LocalFiles().ringtone(song), secondsOf(inspection.facts)};
    }
    tell(SongIsPrepared{});
    return prepared(song);
}

SongIsReady SongDesk::prepared(const fs::path& song) {
    const engine::RegularFile file(song, "");
    const std::string name = engine::LocalFiles().nameFor(song, file.descriptor());
    const audio::SongOutcome outcome = audio::Preparer().prepare(song, {});
    if (outcome.failure || !outcome.ringtone) {
        throw outcome.failure ? *outcome.failure
                              : Failure(FailureKind::UnreadableFile, "no ringtone came of it");
    }
    fs::path place;
    {
        const std::lock_guard lock(mutex_);
        place = folder_ / fmt::format("{}.m4r", ++count_);
    }
    std::ofstream written(place, std::ios::binary);
    written << outcome.ringtone->bytes;
    written.close();
    if (!written) {
        throw Failure(FailureKind::Unexpected,
                      fmt::format("\"{}\" cannot be written", place.string()));
    }
    return {engine::LocalFiles().ringtone(place, name), outcome.ringtone->prepared.lengthSeconds,
            /*wasPrepared=*/true};
}

void SongDesk::post(std::function<void()> work) {
    {
        const std::lock_guard lock(mutex_);
        work_.push_back(std::move(work));
    }
    changed_.notify_one();
}

void SongDesk::run() {
    for (;;) {
        std::function<void()> work;
        {
            std::unique_lock lock(mutex_);
            changed_.wait(lock, [this] { return isEnding_ || !work_.empty(); });
            if (isEnding_) {
                return;
            }
            work = std::move(work_.front());
            work_.pop_front();
        }
        work();
    }
}

} // namespace krl::desktop
