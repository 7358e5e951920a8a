#include "engine/plan/Plan.h"

#include "engine/plan/Rehearsal.h"

#include <algorithm>
#include <memory>
#include <set>

namespace krl::engine {
namespace {

using Kind = Operation::Kind;
using Ringtones = std::vector<PhoneRingtone>;

struct ReleaseStore {
    void operator()(KRTRingtoneManagerRef store) const { KRTRingtoneManagerRelease(store); }
};

using Store = std::unique_ptr<__KRTRingtoneManager, ReleaseStore>;

/// The report before an upload names its ringtone.
bool reported(int32_t mode, int32_t status, uint32_t /*max*/, uint32_t /*value*/,
              const char* message, void* rehearsal) {
    constexpr int32_t kUploading = 5;
    constexpr int32_t kBegins = 1;
    if (mode == kUploading && status == kBegins) {
        static_cast<Rehearsal*>(rehearsal)->uploadBegins(message == nullptr ? "" : message);
    }
    return true;
}

/// Makes a plan of what a rehearsal noted.
class Findings {
    using Names = std::map<std::string, std::string>;

public:
    Findings(const PhoneState& before, const ChangeLists& lists, const Rehearsal& rehearsal)
        : before_(before), rehearsal_(rehearsal),
          unchanged_(ringtonesOf(lists.unchanged).value_or(Ringtones{})),
          removed_(ringtonesOf(lists.removed).value_or(Ringtones{})),
          nameOfUnchanged_(namesByFile(unchanged_)), nameOfRemoved_(namesByFile(removed_)) {
        for (const auto& [key, entry] : cf::pairs(lists.added)) {
            const auto ringtone = cf::cast<CFDictionaryRef>(entry);
            sources_[cf::textAt(ringtone, KRTRingtoneName)] = cf::textAt(ringtone, KRTLocalPath);
        }
        plan_.catalogue = rehearsal.picture().catalogue().value_or("");
        plan_.spaceNeeded = rehearsal.picture().mostSpace();
        for (const CatalogueEntry& entry : readCatalogue(plan_.catalogue).entries) {
            newNameOf_[entry.file] = entry.name;
        }
        for (const FolderFile& file : before.folder) {
            (file.size > 0 ? filesWithSound_ : emptyFiles_).insert(file.name);
        }
        for (const CatalogueEntry& entry : before.catalogue.entries) {
            oldNameOf_.emplace(entry.file, entry.name);
        }
    }

    Plan plan(const Ringtones& loaded) {
        for (Operation operation : rehearsal_.notes()) {
            complete(operation);
            plan_.changesAnything = plan_.changesAnything || !repeats(operation);
            plan_.operations.push_back(std::move(operation));
        }
        for (const PhoneRingtone& ringtone : loaded) {
            plan_.afterwards[ringtone.name] = ringtone.size;
        }
        findLost(loaded);
        findHidden();
        return std::move(plan_);
    }

private:
    /// Adds the ringtone that an operation is about, and counts.
    void complete(Operation& operation) {
        switch (operation.kind) {
        case Kind::Rename:
            operation.name = nameIn(nameOfUnchanged_, operation.file);
            plan_.moved += operation.file == operation.newFile ? 0U : 1U;
            break;
        case Kind::Upload:
            operation.source = sources_[operation.name];
            plan_.uploadBytes += operation.bytes;
            break;
        case Kind::Placeholder:
            operation.name = newNameOf_[operation.file];
            break;
        case Kind::Remove:
            operation.name = nameIn(nameOfRemoved_, operation.file);
            break;
        case Kind::DeleteStray:
            if (const auto listed = oldNameOf_.find(operation.file); listed != oldNameOf_.end()) {
                operation.name = listed->second;
            } else {
                plan_.strays.push_back(operation.file);
            }
            break;
        case Kind::RemoveCatalogue:
        case Kind::CreateFolder:
        case Kind::WriteCatalogue:
            break;
        }
    }

    /// By a ringtone's file or its placeholder.
    static Names namesByFile(const Ringtones& ringtones) {
        Names names;
        for (const PhoneRingtone& ringtone : ringtones) {
            names.emplace(ringtone.file, ringtone.name);
            names.emplace(ringtone.placeholder, ringtone.name);
        }
        return names;
    }

    static std::string nameIn(const Names& names, const std::string& file) {
        const auto found = names.find(file);
        return found == names.end() ? "" : found->second;
    }

    /// Whether it makes what the phone has in that very form already.
    bool repeats(const Operation& operation) const {
        switch (operation.kind) {
        case Kind::Rename:
            // The name that was given up may be drawn again; the phone is asked all the same.
            return operation.file == operation.newFile;
        case Kind::Placeholder:
            return emptyFiles_.contains(operation.file);
        case Kind::WriteCatalogue:
            return before_.catalogueFile ? *before_.catalogueFile == plan_.catalogue
                                         : newNameOf_.empty();
        default:
            return false;
        }
    }

    void findLost(const Ringtones& loaded) {
        std::map<std::string, std::string> originOf;
        for (const PhoneRingtone& ringtone : loaded) {
            const auto* const file = rehearsal_.picture().find(ringtone.file);
            originOf[ringtone.name] = file == nullptr ? "" : file->origin;
        }
        const auto check = [&](const std::string& name, const std::string& origin) {
            const auto found = originOf.find(name);
            if (found == originOf.end() || found->second != origin) {
                plan_.lost.push_back(name);
            }
        };
        for (const PhoneRingtone& ringtone : unchanged_) {
            check(ringtone.name, PhonePicture::onPhone(ringtone.file));
        }
        for (const auto& [name, source] : sources_) {
            check(name, Rehearsal::fromComputer(name));
        }
    }

    void findHidden() {
        std::set<std::string> seen;
        for (const auto* list : {&unchanged_, &removed_}) {
            for (const PhoneRingtone& ringtone : *list) {
                seen.insert(ringtone.file);
            }
        }
        std::set<std::string> surviving;
        for (const std::string& name : rehearsal_.picture().names()) {
            surviving.insert(rehearsal_.picture().find(name)->origin);
        }
        for (const CatalogueEntry& entry : before_.catalogue.entries) {
            if (filesWithSound_.contains(entry.file) && !seen.contains(entry.file) &&
                !surviving.contains(PhonePicture::onPhone(entry.file))) {
                plan_.hidden.push_back({entry.name, entry.file});
            }
        }
    }

    const PhoneState& before_;
    const Rehearsal& rehearsal_;
    const Ringtones unchanged_;
    const Ringtones removed_;
    const Names nameOfUnchanged_;
    const Names nameOfRemoved_;
    std::set<std::string> emptyFiles_; ///< that the phone had
    std::set<std::string> filesWithSound_;
    Names sources_; ///< of new ringtones, by name
    Names newNameOf_;
    Names oldNameOf_;
    Plan plan_;
};

} // namespace

const char* operationName(Kind kind) {
    switch (kind) {
    case Kind::RemoveCatalogue:
        return "remove-catalogue";
    case Kind::CreateFolder:
        return "create-folder";
    case Kind::Rename:
        return "rename";
    case Kind::Upload:
        return "upload";
    case Kind::Placeholder:
        return "placeholder";
    case Kind::Remove:
        return "remove";
    case Kind::WriteCatalogue:
        return "write-catalogue";
    case Kind::DeleteStray:
        return "delete";
    }
    return "";
}

size_t Plan::count(Kind kind) const {
    return static_cast<size_t>(
        std::count_if(operations.begin(), operations.end(),
                      [&](const Operation& operation) { return operation.kind == kind; }));
}

cf::CFRef<CFErrorRef> makeReady(OpenPhone& phone, const PhoneState& before, bool dropsCatalogue) {
    cf::CFRef<CFErrorRef> error;
    for (const std::string& folder : before.missingFolders) {
        if (!error) {
            error = phone.phone().createDirectoryAtPath(cf::string(folder).get());
        }
    }
    if (!error && dropsCatalogue) {
        error = phone.phone().removeObjectAtPath(cf::string(kCataloguePath).get());
    }
    return error;
}

Plan rehearse(OpenPhone& phone, const PhoneState& before, const ChangeLists& lists) {
    phone.keepOpen();
    const bool dropsCatalogue = lists.unchanged == nullptr;
    const auto none = cf::dictionary();
    Rehearsal rehearsal(before);
    const layer::Redirection redirection(phone.phone()._rawDevice(), rehearsal);
    KRTErrorClear();
    const auto notReady = makeReady(phone, before, dropsCatalogue);
    // A record of its own: the working list keeps its edits for the deed.
    const Store store(KRTRingtoneManagerForPhone(phone.phone()._phoneRef()));
    if (notReady || !store) {
        throw phone.readFailure("the sync cannot be worked out");
    }
    KRTRingtoneManagerSetStatusResponder(store.get(), reported, &rehearsal);
    if (KRTRingtoneManagerSubmitChanges(store.get(), lists.added,
                                        dropsCatalogue ? none.get() : lists.removed,
                                        dropsCatalogue ? none.get() : lists.unchanged) != 1) {
        throw phone.readFailure("the sync cannot be worked out");
    }
    const auto loaded = cf::adopt(KRTRingtoneManagerLoadCurrentRingtoneList(store.get()));
    return Findings(before, lists, rehearsal).plan(ringtonesOf(loaded.get()).value_or(Ringtones{}));
}

} // namespace krl::engine
