#include "engine/repair/RepairPlanning.h"

#include "engine/plan/Rehearsal.h"
#include "engine/repair/WalkingOrders.h"

#include <random>
#include <set>

namespace krl::engine {
namespace {

/// Draws file names as the library does: four letters from A to R. Each run draws the same, so that
/// a dry run says what happens.
class FreeNames {
public:
    explicit FreeNames(const PhoneState& phone) {
        for (const std::string& name : phone.names) {
            take(name);
        }
        for (const CatalogueEntry& entry : phone.catalogue.entries) {
            take(entry.file);
        }
    }

    /// Whether names are easily found. A phone may list every one that there can be.
    bool areMany() const { return taken_.size() < kMostTaken; }

    /// A name that nothing has, whatever its extension, with the extension of this one.
    std::string draw(const std::string& file) {
        std::string base;
        do {
            base.clear();
            while (base.size() < kLength) {
                base += static_cast<char>('A' + engine_() % kLetters);
            }
        } while (!taken_.insert(base).second);
        const size_t point = file.rfind('.');
        return base + (point == std::string::npos ? "" : file.substr(point));
    }

private:
    static constexpr size_t kLength = 4;
    static constexpr unsigned kLetters = 18;
    static constexpr size_t kMostTaken = kLetters * kLetters * kLetters * kLetters / 2;

    void take(const std::string& file) { taken_.insert(file.substr(0, file.find('.'))); }

    std::mt19937 engine_; // NOLINT(cert-msc51-cpp): not to be secret
    std::set<std::string> taken_;
};

class Planning {
public:
    Planning(OpenPhone& phone, const PhoneState& before,
             const std::vector<FoundRingtone>& ringtones, const Edit& edit)
        : phone_(phone), before_(before), ringtones_(ringtones), edit_(edit), names_(before) {}

    std::optional<LosslessChange> run() {
        if (!names_.areMany()) {
            return std::nullopt;
        }
        for (const FoundRingtone& ringtone : ringtones_) {
            if (!fitsXml(ringtone.file)) {
                moves_[ringtone.file] = names_.draw(ringtone.file);
            }
        }
        // Each time about half of those that move find a good place.
        constexpr int kMostAttempts = 100;
        for (int attempt = 0; attempt < kMostAttempts; ++attempt) {
            LosslessChange lossless{{}, putRight(), moves_};
            lossless.change = prepareOn(lossless.state);
            const auto misplaced = misplacedFiles(lossless);
            if (misplaced.empty()) {
                const Plan& plan = lossless.change.plan;
                const bool losesNone = plan.lost.empty() && plan.hidden.empty();
                return losesNone ? std::optional(std::move(lossless)) : std::nullopt;
            }
            for (const std::string& file : misplaced) {
                if (!names_.areMany()) {
                    return std::nullopt;
                }
                moves_[file] = names_.draw(file);
            }
        }
        return std::nullopt;
    }

private:
    std::string movedName(const std::string& file) const {
        const auto move = moves_.find(file);
        return move == moves_.end() ? file : move->second;
    }

    PhoneState putRight() const {
        PhoneState state = before_;
        for (FolderFile& file : state.folder) {
            file.name = movedName(file.name);
        }
        for (std::string& name : state.names) {
            name = movedName(name);
        }
        std::vector<FoundRingtone> ringtones = ringtones_;
        for (FoundRingtone& ringtone : ringtones) {
            ringtone.file = movedName(ringtone.file);
        }
        state.catalogueFile = catalogueOf(ringtones);
        state.catalogue = readCatalogue(*state.catalogueFile);
        return state;
    }

    /// The change as it would be if the phone were in that state.
    PreparedChange prepareOn(PhoneState& state) {
        phone_.keepOpen();
        KRTRingtoneManager& tones = phone_.tones();
        {
            Rehearsal known(state);
            const layer::Redirection redirection(phone_.phone()._rawDevice(), known);
            KRTErrorClear();
            tones.rebuildRingtoneListFromOriginal();
        }
        state.ringtones =
            ringtonesOf(cf::dictionaryAt(tones.generateChangeLists().get(), kUnchangedList))
                .value_or(std::vector<PhoneRingtone>{});
        edit_(state);
        return prepare(phone_, state);
    }

    /// The files on the phone, as they are called there, that have to have another name.
    std::set<std::string> misplacedFiles(const LosslessChange& lossless) const {
        const Plan& plan = lossless.change.plan;
        const bool losesAny = !plan.lost.empty() || !plan.hidden.empty();
        std::set<std::string> now;
        std::set<std::string> seen;
        for (const HiddenRingtone& hidden : plan.hidden) {
            now.insert(hidden.file);
        }
        for (const PhoneRingtone& ringtone : lossless.state.ringtones) {
            seen.insert(ringtone.file);
            if (std::find(plan.lost.begin(), plan.lost.end(), ringtone.name) != plan.lost.end()) {
                now.insert(ringtone.file);
            }
        }
        const auto ahead = before_.facts.olderLayout
                               ? filesAheadOfPlaceholders(readCatalogue(plan.catalogue).entries)
                               : std::set<std::string>{};
        std::set<std::string> moving;
        for (const Operation& operation : plan.operations) {
            if (operation.kind == Operation::Kind::Rename && operation.file != operation.newFile) {
                moving.insert(operation.file);
            }
        }
        std::set<std::string> misplaced;
        for (const FoundRingtone& ringtone : ringtones_) {
            const std::string name = movedName(ringtone.file);
            const bool isPlaced = moves_.contains(ringtone.file);
            if (!seen.contains(name) || now.contains(name) || (losesAny && moving.contains(name)) ||
                (isPlaced && (moving.contains(name) || ahead.contains(name)))) {
                misplaced.insert(ringtone.file);
            }
        }
        return misplaced;
    }

    OpenPhone& phone_;
    const PhoneState& before_;
    const std::vector<FoundRingtone>& ringtones_;
    const Edit& edit_;
    FreeNames names_;
    std::map<std::string, std::string> moves_;
};

} // namespace

std::optional<LosslessChange> planLosslessChange(OpenPhone& phone, const PhoneState& before,
                                                 const std::vector<FoundRingtone>& ringtones,
                                                 const Edit& edit) {
    return Planning(phone, before, ringtones, edit).run();
}

} // namespace krl::engine
