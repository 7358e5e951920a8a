#include "engine/repair/LostEntries.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace krl::engine {
namespace {

/// States of the phone that the safe knows, the latest first.
std::vector<Snapshot> knownStates(PhoneSafe& safe) {
    std::vector<Snapshot> states;
    const auto add = [&](const Digest& digest) {
        try {
            states.push_back(safe.snapshot(digest));
        } catch (const Failure&) {
            // One that is damaged says nothing.
        }
    };
    const History history = safe.history();
    if (history.left) {
        add(*history.left);
    }
    const Index index = safe.index();
    for (const auto& catalogue : index.catalogues) {
        states.push_back({catalogue, true, index.files});
    }
    for (auto job = history.jobs.rbegin(); job != history.jobs.rend(); ++job) {
        add(job->after);
        add(job->before);
    }
    return states;
}

class Search {
public:
    Search(PhoneSafe& safe, const Snapshot& now, std::set<std::string> unlisted)
        : safe_(safe), now_(now), unlisted_(std::move(unlisted)) {
        std::erase_if(unlisted_, [&](const std::string& name) {
            const auto file = now_.files.find(name);
            return file == now_.files.end() || file->second.content.size == 0;
        });
    }

    LostEntries run(LocalFiles& titles) {
        for (const Snapshot& state : knownStates(safe_)) {
            if (!unlisted_.empty() && state.catalogue) {
                takeFrom(state);
            }
        }
        found_.known = found_.ringtones.size();
        for (const std::string& name : unlisted_) {
            if (isSupportedType(typeOf(name))) {
                found_.ringtones.push_back({name, titleOf(titles, name), {}, cf::dictionary()});
            }
        }
        return std::move(found_);
    }

private:
    void takeFrom(const Snapshot& state) {
        const Catalogue catalogue = catalogueOf(state);
        for (const auto& [key, value] : cf::pairs(catalogue.ringtones.get())) {
            const std::string file = cf::text(cf::cast<CFStringRef>(key));
            const auto entry = cf::cast<CFDictionaryRef>(value);
            const auto held = state.files.find(file);
            const auto here = entry != nullptr && held != state.files.end()
                                  ? unlistedFile(file, held->second.content)
                                  : std::nullopt;
            if (here) {
                unlisted_.erase(*here);
                found_.ringtones.push_back(
                    {*here, cf::textAt(entry, KRTRingtoneName), {}, editableEntry(entry)});
            }
        }
    }

    Catalogue catalogueOf(const Snapshot& state) {
        try {
            return readCatalogue(safe_.contents().bytes(state.catalogue->digest));
        } catch (const Failure&) {
            return {};
        }
    }

    /// A file with this content, the one of that name if it has it.
    std::optional<std::string> unlistedFile(const std::string& name, const Content& content) const {
        const auto holds = [&](const std::string& file) {
            return now_.files.at(file).content == content;
        };
        if (unlisted_.contains(name) && holds(name)) {
            return name;
        }
        const auto found = std::find_if(unlisted_.begin(), unlisted_.end(), holds);
        return found == unlisted_.end() ? std::nullopt : std::optional(*found);
    }

    std::string titleOf(LocalFiles& titles, const std::string& name) {
        const Descriptor file = safe_.contents().open(now_.files.at(name).content.digest);
        return titles.nameFor(name, file.get());
    }

    PhoneSafe& safe_;
    const Snapshot& now_;
    std::set<std::string> unlisted_;
    LostEntries found_;
};

} // namespace

LostEntries findLostEntries(PhoneSafe& safe, LocalFiles& titles, const Snapshot& now,
                            std::set<std::string> unlisted) {
    return Search(safe, now, std::move(unlisted)).run(titles);
}

} // namespace krl::engine
