#include "python/core/Fetches.h"

#include "engine/change/NameRefusals.h"
#include "engine/fetch/RingtoneFetch.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <set>

namespace krl::python {

namespace fs = std::filesystem;
using engine::Failure;
using engine::FailureKind;
using engine::OpenPhone;
using engine::PhoneRingtone;
using engine::PhoneState;

namespace {

std::vector<PhoneRingtone> chosen(const PhoneState& state,
                                  const std::optional<std::vector<std::string>>& names) {
    std::vector<PhoneRingtone> result = state.ringtones;
    if (names) {
        const auto found = foundNames(state, *names);
        const std::set<std::string> wanted(found.begin(), found.end());
        std::erase_if(result, [&](const PhoneRingtone& one) { return !wanted.contains(one.name); });
    }
    std::sort(result.begin(), result.end(),
              [](const auto& left, const auto& right) { return left.name < right.name; });
    return result;
}

/// How far all of them are.
class Course {
public:
    Course(const std::vector<PhoneRingtone>& ringtones, Job& job) : job_(job) {
        progress_.filesTotal = ringtones.size();
        for (const PhoneRingtone& ringtone : ringtones) {
            progress_.bytesTotal += ringtone.size;
        }
    }

    void begin(const PhoneRingtone& ringtone) {
        progress_.current = ringtone.name;
        before_ = progress_.bytesDone;
        tell();
    }

    void move(uint64_t done) {
        progress_.bytesDone = before_ + done;
        tell();
    }

    void end(const PhoneRingtone& ringtone) {
        ++progress_.filesDone;
        move(ringtone.size);
    }

private:
    void tell() {
        job_.report({"fetching", progress_});
        job_.requireWanted();
    }

    Job& job_;
    engine::WorkProgress progress_ = {};
    uint64_t before_ = 0;
};

void requireFolder(const fs::path& folder) {
    std::error_code ignored;
    if (fs::exists(folder, ignored) && !fs::is_directory(folder, ignored)) {
        throw Failure(FailureKind::UnreadableFile,
                      fmt::format("\"{}\" is no folder", folder.string()),
                      "Choose a folder; one that is not there is made.");
    }
}

} // namespace

std::vector<Fetch> fetch(const std::string& udid, const WantedFetch& wanted, Job& job) {
    OpenPhone phone({.udid = udid});
    const PhoneState state = readRingtones(phone);
    requireReadableCatalogue(state);
    requireFolder(wanted.folder);
    const auto fileNames = engine::fileNamesOf(state.ringtones);
    const std::vector<PhoneRingtone> ringtones = chosen(state, wanted.names);
    Course course(ringtones, job);
    std::vector<Fetch> result;
    try {
        engine::PhoneFiles files(phone.phone()._rawDevice());
        for (const PhoneRingtone& ringtone : ringtones) {
            course.begin(ringtone);
            const fs::path place = (wanted.folder / fileNames.at(ringtone.name)).lexically_normal();
            const auto fetched = fetchRingtone(
                files, ringtone, place,
                {.replaces = wanted.replaces, .moves = [&](uint64_t done) { course.move(done); }});
            result.push_back({ringtone, place, fetched == engine::Fetched::WasThereAlready});
            course.end(ringtone);
        }
    } catch (const engine::PhoneFileFailure& failure) {
        if (phone.isGone()) {
            throw Failure(FailureKind::PhoneGone,
                          fmt::format("{} was pulled out: {}", state.facts.label(), failure.what()),
                          "Plug it in and fetch again. What has been fetched stays.");
        }
        throw;
    }
    return result;
}

} // namespace krl::python
