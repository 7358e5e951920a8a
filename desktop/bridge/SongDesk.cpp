#include "desktop/bridge/SongDesk.h"

#include "audio/judging/Inspector.h"
#include "desktop/bridge/Worker.h"

#include <fmt/format.h>

#include <algorithm>
#include <system_error>
#include <utility>

namespace krl::desktop {

namespace fs = std::filesystem;
using audio::Verdict;
using engine::Failure;
using engine::FailureKind;

namespace {

/// What one drop can bring: more is a mistake, such as the whole computer.
constexpr size_t kMostFiles = 20000;

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

/// Of a part of a song, also of one that the phone plays as it is.
audio::Recipe recipeOf(const audio::Wish& cut) {
    return {.wish = cut, .preparesAll = true};
}

} // namespace

SongDesk::SongDesk(Mailbox& mailbox)
    : mailbox_(mailbox), tools_{Tools(end_.get_token()), Tools(end_.get_token())} {
    for (Tools& tools : tools_) {
        threads_.push_back(startWorker([this, &tools] { run(tools); }));
    }
}

SongDesk::~SongDesk() {
    {
        const std::lock_guard lock(mutex_);
        isEnding_ = true;
    }
    changed_.notify_all();
    end_.request_stop();
    for (std::thread& thread : threads_) {
        thread.join();
    }
}

void SongDesk::take(const Edits::Song& song, int firmwareNumber,
                    std::function<void(SongNews)> tell) {
    post(making({.song = song.path,
                 .firmwareNumber = firmwareNumber,
                 .recipe = song.cut ? recipeOf(*song.cut) : audio::Recipe{.wish = song.usual}},
                std::move(tell)));
}

void SongDesk::cut(const SongCut& wanted, int firmwareNumber, std::function<void(SongNews)> tell) {
    postFirst(making(
        {.song = wanted.song, .firmwareNumber = firmwareNumber, .recipe = recipeOf(wanted.wish)},
        std::move(tell)));
}

SongDesk::Work SongDesk::making(Order order, std::function<void(SongNews)> tell) {
    return [this, order = std::move(order), tell = std::move(tell)](Tools& tools) {
        const auto say = [this, &tell](SongNews news) {
            mailbox_.put([tell, news = std::move(news)] { tell(news); });
        };
        const auto made = outcomeOf<SongIsReady>([&] { return readySong(tools, order, say); });
        std::visit([&](const auto& news) { say(news); }, made);
    };
}

void SongDesk::readWaveform(const fs::path& song, std::function<void(Waveform)> tell) {
    using Peaks = std::shared_ptr<const audio::Peaks>;
    postFirst([this, song, tell = std::move(tell)](Tools& tools) {
        Waveform waveform = outcomeOf<Peaks>([&] { return tools.peaks.read(song); });
        mailbox_.put([tell, waveform = std::move(waveform)] { tell(waveform); });
    });
}

void SongDesk::suggest(const fs::path& song, const audio::Wish& wish,
                       std::function<void(Beginning)> tell) {
    postFirst([this, song, wish, tell = std::move(tell)](Tools& tools) {
        audio::Wish automatic = wish;
        automatic.automatic = true;
        Beginning beginning = outcomeOf<double>([&] {
            return tools.preparer.prepare(song, automatic).ringtone->prepared.startSeconds;
        });
        mailbox_.put([tell, beginning = std::move(beginning)] { tell(beginning); });
    });
}

void SongDesk::makeSound(const fs::path& song, const audio::Wish& wish,
                         std::function<void(CutSound)> tell) {
    using File = std::shared_ptr<engine::NamelessFile>;
    postFirst([this, song, wish, tell = std::move(tell)](Tools& tools) {
        CutSound sound = outcomeOf<File>([&] {
            const auto file = std::make_shared<engine::NamelessFile>();
            file->add(tools.preparer.prepare(song, wish).ringtone->bytes);
            return file;
        });
        mailbox_.put([tell, sound = std::move(sound)] { tell(sound); });
    });
}

void SongDesk::listFiles(const std::vector<fs::path>& places,
                         std::function<void(std::vector<fs::path>)> tell) {
    post([this, places, tell = std::move(tell)](Tools& /*tools*/) {
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

SongIsReady SongDesk::readySong(Tools& tools, const Order& order,
                                const std::function<void(SongNews)>& tell) {
    const audio::Judgement judgement = audio::Inspector().inspect(order.song).judgement;
    if (judgement.verdict == Verdict::CannotBeUsed) {
        throw Failure(FailureKind::UnsupportedType, joined(judgement.reasons));
    }
    const audio::Song song = tools.reader.read(order.song);
    tools.maker.follow(order.recipe);
    audio::WantedRingtone wanted = tools.maker.wanted(song, order.firmwareNumber);
    std::optional<double> seconds = secondsOf(song.facts);
    if (wanted.isToBeMade()) {
        tell(SongIsPrepared{});
        tools.maker.make({&wanted}, [&](const auto& /*wanted*/, const audio::SongOutcome& outcome) {
            if (outcome.failure) {
                throw Failure(*outcome.failure);
            }
            seconds = outcome.ringtone->prepared.lengthSeconds;
        });
    }
    return {wanted.ringtone, seconds, wanted.isPrepared};
}

void SongDesk::post(Work work) {
    {
        const std::lock_guard lock(mutex_);
        work_.push_back(std::move(work));
    }
    changed_.notify_one();
}

void SongDesk::postFirst(Work work) {
    {
        const std::lock_guard lock(mutex_);
        work_.push_front(std::move(work));
    }
    changed_.notify_one();
}

void SongDesk::run(Tools& tools) {
    for (;;) {
        Work work;
        {
            std::unique_lock lock(mutex_);
            changed_.wait(lock, [this] { return isEnding_ || !work_.empty(); });
            if (isEnding_) {
                return;
            }
            work = std::move(work_.front());
            work_.pop_front();
        }
        work(tools);
    }
}

} // namespace krl::desktop
