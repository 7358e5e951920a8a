#include "vesk/commands/Commands.h"

#include "engine/change/NameRefusals.h"
#include "engine/fetch/RingtoneFetch.h"
#include "engine/state/PhoneState.h"
#include "engine/values/Text.h"
#include "vesk/commands/PhoneJson.h"
#include "vesk/commands/UnfinishedJob.h"
#include "vesk/terminal/Interrupt.h"
#include "vesk/terminal/ProgressDisplay.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <map>
#include <optional>
#include <set>

namespace vesk {
namespace {

namespace fs = std::filesystem;

/// Fetches ringtones one after the other and says what becomes of each.
class GetRun {
public:
    GetRun(const Options& options, Output& output)
        : options_(options), output_(output), folder_(options.output.value_or(".")),
          phone_(options.phone), state_(readRingtones(phone_)), display_(output) {
        noteUnfinishedJob(state_.facts.udid, kNextPutsItRight, output);
        requireReadableCatalogue(state_);
        requireFolder();
        chooseRingtones();
    }

    ExitCode run() {
        const InterruptScope scope(OnInterrupt::FinishPiece);
        for (const PhoneRingtone& ringtone : ringtones_) {
            if (!goesOnAfter(ringtone)) {
                break;
            }
            progress_.bytesDone += ringtone.size - bytesOfThisOne_;
            bytesOfThisOne_ = 0;
            ++progress_.filesDone;
        }
        display_.clear();
        sayAll();
        return code_;
    }

private:
    using Clock = std::chrono::steady_clock;

    void requireFolder() const {
        std::error_code ignored;
        if (fs::exists(folder_, ignored) && !fs::is_directory(folder_, ignored)) {
            throw Failure(FailureKind::UnreadableFile,
                          fmt::format("\"{}\" is no folder", folder_.string()),
                          "Choose a folder with --output; one that is not there is made.");
        }
    }

    void chooseRingtones() {
        names_ = fileNamesOf(state_.ringtones);
        const std::vector<std::string> found = foundNames(state_, options_.arguments);
        const std::set<std::string> wanted(found.begin(), found.end());
        std::copy_if(
            state_.ringtones.begin(), state_.ringtones.end(), std::back_inserter(ringtones_),
            [&](const PhoneRingtone& one) { return options_.all || wanted.contains(one.name); });
        std::sort(ringtones_.begin(), ringtones_.end(),
                  [](const auto& left, const auto& right) { return left.name < right.name; });
        progress_.filesTotal = ringtones_.size();
        for (const PhoneRingtone& ringtone : ringtones_) {
            progress_.bytesTotal += ringtone.size;
        }
    }

    /// @return false when nothing more can be fetched
    bool goesOnAfter(const PhoneRingtone& ringtone) {
        try {
            fetch(ringtone);
            return true;
        } catch (const PhoneFileFailure& failure) {
            // What one ringtone's failure has done to the connection is nothing to the next.
            const bool isGone = !files_ || phone_.isGone();
            files_.reset();
            if (interrupted()) {
                stop(cancelled());
                return false;
            }
            if (isGone) {
                stop(phone_.isGone() ? pulledOut(failure) : Failure(failure));
                return false;
            }
            failOne(ringtone, failure);
        } catch (const Failure& failure) {
            if (failure.kind() == FailureKind::Cancelled) {
                stop(failure);
                return false;
            }
            failOne(ringtone, failure);
        }
        return true;
    }

    void fetch(const PhoneRingtone& ringtone) {
        requireGoingOn();
        if (!files_) {
            files_.emplace(phone_.phone()._rawDevice());
        }
        progress_.current = ringtone.name;
        const fs::path place = (folder_ / names_.at(ringtone.name)).lexically_normal();
        const Fetched fetched = fetchRingtone(
            *files_, ringtone, place,
            {.replaces = options_.force, .moves = [&](uint64_t done) { show(done); }});
        sayOne(ringtone, place, fetched);
    }

    void show(uint64_t done) {
        requireGoingOn();
        progress_.bytesDone += done - bytesOfThisOne_;
        bytesOfThisOne_ = done;
        progress_.elapsedSeconds = std::chrono::duration<double>(Clock::now() - start_).count();
        display_.fileMoves(progress_);
    }

    static void requireGoingOn() {
        if (interrupted()) {
            throw cancelled();
        }
    }

    static Failure cancelled() {
        return {FailureKind::Cancelled, "cancelled; nothing was changed on the phone"};
    }

    Failure pulledOut(const Failure& failure) const {
        return {FailureKind::PhoneGone,
                fmt::format("{} was pulled out: {}", state_.facts.label(), failure.what()),
                "Plug it in and run the same command again. What has been fetched stays."};
    }

    void sayOne(const PhoneRingtone& ringtone, const fs::path& place, Fetched fetched) {
        const bool isNew = fetched == Fetched::IsNew;
        (isNew ? fetched_ : there_).push_back(ringtone.name);
        display_.clear();
        output_.summary(fmt::format("\"{}\"{}: {}", place.string(),
                                    isNew ? "" : " is there already", formatBytes(ringtone.size)));
        output_.flush();
        Json json = jsonOf(ringtone);
        json["output"] = place.string();
        json["result"] = isNew ? "fetched" : "already-there";
        json["bytes"] = ringtone.size;
        done_.push_back(std::move(json));
    }

    void failOne(const PhoneRingtone& ringtone, const Failure& failure) {
        const ExitCode code = fail(failure);
        Json json = jsonOf(ringtone);
        json["error"] = errorJson(failure, code);
        done_.push_back(std::move(json));
    }

    /// What has come to the whole; what was done until then is said.
    void stop(const Failure& failure) {
        const ExitCode code = fail(failure);
        error_ = errorJson(failure, code);
        code_ = code;
    }

    ExitCode fail(const Failure& failure) {
        const ExitCode code = exitCodeOf(failure.kind());
        code_ = code_ == ExitCode::Success ? code : code_;
        display_.clear();
        output_.failureOfOne(failure);
        return code;
    }

    static Json jsonOf(const PhoneRingtone& ringtone) {
        return {{"name", ringtone.name}, {"file", ringtone.file}};
    }

    void sayAll() {
        if (ringtones_.empty()) {
            output_.summary(fmt::format("{} has no ringtones.", state_.facts.label()));
        } else if (ringtones_.size() > 1 || error_) {
            const size_t rest = ringtones_.size() - fetched_.size() - there_.size();
            output_.summary(fmt::format(
                "{}: {} fetched{}{}.", state_.facts.label(), counted(fetched_.size(), "ringtone"),
                there_.empty() ? "" : fmt::format(", {} there already", there_.size()),
                rest == 0 ? "" : fmt::format(", {} not", rest)));
        }
        Json document{
            {"phone", phoneJson(state_.facts)}, {"folder", folder_.string()}, {"ringtones", done_}};
        if (error_) {
            document["error"] = *error_;
        }
        output_.document(document);
    }

    const Options& options_;
    Output& output_;
    const fs::path folder_;
    OpenPhone phone_;
    const PhoneState state_;
    ProgressDisplay display_;
    const Clock::time_point start_ = Clock::now();

    std::map<std::string, std::string> names_; ///< of files, by those of ringtones
    std::vector<PhoneRingtone> ringtones_;
    std::optional<PhoneFiles> files_;
    Progress progress_;
    uint64_t bytesOfThisOne_ = 0;

    std::vector<std::string> fetched_;
    std::vector<std::string> there_;
    Json done_ = Json::array();
    std::optional<Json> error_;
    ExitCode code_ = ExitCode::Success;
};

} // namespace

ExitCode runGet(const Options& options, Output& output) {
    return GetRun(options, output).run();
}

} // namespace vesk
