#include "engine/plan/Plan.h"

#include <algorithm>
#include <set>

namespace vesk {
namespace {

using Kind = Operation::Kind;

/// What a file on the phone holds: the origin is enough to tell whether it is the right ringtone.
struct Content {
    std::string origin;
    uint64_t size = 0;
};

std::string onPhone(const std::string& file) {
    return "phone:" + file;
}

std::string onComputer(const std::string& path) {
    return "computer:" + path;
}

/// Goes through a submit step by step, as the library does it, over a picture of the phone's
/// folder.
class Walk {
public:
    explicit Walk(const PlanInput& input)
        : input_(input), catalogueBytes_(input.oldCatalogueBytes) {
        for (const FolderFile& file : input.folder) {
            folder_[file.name] = {onPhone(file.name), file.size};
        }
        for (const PhoneRingtone& ringtone : input.unchanged) {
            unchangedNames_.insert(ringtone.name);
        }
    }

    Plan run() {
        removeCatalogue();
        createFolder();
        renamePass();
        uploadPass();
        removalPass();
        writeCatalogue();
        cleanup();
        findLost();
        findHidden();
        return std::move(plan_);
    }

private:
    /// @param repeats  the operation makes what the phone has in that very form already
    void add(Operation operation, bool repeats = false) {
        plan_.changesAnything = plan_.changesAnything || !repeats;
        plan_.operations.push_back(std::move(operation));
    }

    void keep(const std::string& file) { kept_.insert(file); }

    void put(const std::string& file, Content content) {
        const auto old = folder_.find(file);
        if (old != folder_.end()) {
            used_ -= static_cast<int64_t>(old->second.size);
        }
        used_ += static_cast<int64_t>(content.size);
        notePeak();
        folder_[file] = std::move(content);
    }

    void erase(const std::string& file) {
        used_ -= static_cast<int64_t>(folder_.at(file).size);
        folder_.erase(file);
    }

    void notePeak() {
        plan_.spaceNeeded =
            std::max(plan_.spaceNeeded, static_cast<uint64_t>(std::max<int64_t>(used_, 0)));
    }

    void removeCatalogue() {
        if (input_.dropsCatalogue) {
            used_ -= static_cast<int64_t>(catalogueBytes_);
            add({.kind = Kind::RemoveCatalogue, .bytes = catalogueBytes_});
            catalogueBytes_ = 0;
        }
    }

    void createFolder() {
        if (!input_.folderExists) {
            add({.kind = Kind::CreateFolder});
        }
    }

    void renamePass() {
        for (const CatalogueEntry& entry : input_.newCatalogue) {
            const auto move = input_.moves.find(entry.guid);
            if (move == input_.moves.end()) {
                continue;
            }
            const auto ringtone =
                std::find_if(input_.unchanged.begin(), input_.unchanged.end(),
                             [&](const PhoneRingtone& one) { return one.guid == entry.guid; });
            // A placeholder has the GUID of its ringtone, whose file is gone by then, as a rule.
            if (ringtone != input_.unchanged.end() && folder_.contains(ringtone->file)) {
                rename(*ringtone, move->second);
            }
            keep(move->second);
        }
    }

    void rename(const PhoneRingtone& ringtone, const std::string& newFile) {
        const Content content = folder_.at(ringtone.file);
        erase(ringtone.file);
        put(newFile, content);
        // The name that was given up may be drawn again; the phone is asked all the same.
        const bool stays = ringtone.file == newFile;
        plan_.moved += stays ? 0U : 1U;
        add({.kind = Kind::Rename,
             .file = ringtone.file,
             .newFile = newFile,
             .name = ringtone.name,
             .bytes = content.size},
            /*repeats=*/stays);
    }

    void uploadPass() {
        for (const CatalogueEntry& entry : input_.newCatalogue) {
            if (kept_.contains(entry.file)) {
                continue;
            }
            if (entry.isPlaceholder()) {
                writePlaceholder(entry);
            } else if (entry.hasLocalPath && !unchangedNames_.contains(entry.name)) {
                upload(entry);
            }
            keep(entry.file);
        }
    }

    void writePlaceholder(const CatalogueEntry& entry) {
        const auto there = folder_.find(entry.file);
        const bool repeats = there != folder_.end() && there->second.size == 0;
        put(entry.file, {"placeholder", 0});
        add({.kind = Kind::Placeholder, .file = entry.file, .name = entry.name}, repeats);
    }

    void upload(const CatalogueEntry& entry) {
        const auto source =
            std::find_if(input_.added.begin(), input_.added.end(),
                         [&](const NewRingtone& one) { return one.name == entry.name; });
        if (source == input_.added.end()) {
            return;
        }
        put(entry.file, {onComputer(source->path), source->size});
        plan_.uploadBytes += source->size;
        add({.kind = Kind::Upload,
             .file = entry.file,
             .name = entry.name,
             .source = source->path,
             .bytes = source->size});
    }

    void removalPass() {
        for (const PhoneRingtone& ringtone : input_.removed) {
            remove(ringtone.file, ringtone.name);
            if (ringtone.type != "m4r" && input_.olderLayout) {
                remove(ringtone.companion, ringtone.name);
            }
        }
    }

    void remove(const std::string& file, const std::string& name) {
        if (kept_.contains(file) || !folder_.contains(file)) {
            return;
        }
        add({.kind = Kind::Remove, .file = file, .name = name, .bytes = folder_.at(file).size});
        erase(file);
    }

    void writeCatalogue() {
        used_ +=
            static_cast<int64_t>(input_.newCatalogueBytes) - static_cast<int64_t>(catalogueBytes_);
        notePeak();
        add({.kind = Kind::WriteCatalogue, .bytes = input_.newCatalogueBytes},
            /*repeats=*/input_.sameCatalogue);
    }

    void cleanup() {
        // Whatever came since the folder was listed is kept.
        for (const FolderFile& file : input_.folder) {
            if (folder_.contains(file.name) && !kept_.contains(file.name)) {
                deleteStray(file.name);
            }
        }
    }

    void deleteStray(const std::string& file) {
        const auto listed =
            std::find_if(input_.oldCatalogue.begin(), input_.oldCatalogue.end(),
                         [&](const CatalogueEntry& one) { return one.file == file; });
        const bool isListed = listed != input_.oldCatalogue.end();
        if (!isListed) {
            plan_.strays.push_back(file);
        }
        add({.kind = Kind::DeleteStray,
             .file = file,
             .name = isListed ? listed->name : "",
             .bytes = folder_.at(file).size});
        erase(file);
    }

    /// The ringtones that the library will find: the catalogue sorted, as it is written, with the
    /// entries whose files are there.
    std::map<std::string, std::string> originsAfterwards() const {
        std::map<std::string, std::string> result;
        std::map<std::string, const CatalogueEntry*> sorted;
        for (const CatalogueEntry& entry : input_.newCatalogue) {
            sorted[entry.file] = &entry;
        }
        for (const auto& [file, entry] : sorted) {
            const auto found = folder_.find(file);
            if (!entry->isPlaceholder() && found != folder_.end()) {
                result[entry->name] = found->second.origin;
            }
        }
        return result;
    }

    void findLost() {
        const auto origins = originsAfterwards();
        const auto check = [&](const std::string& name, const std::string& origin) {
            const auto found = origins.find(name);
            if (found == origins.end() || found->second != origin) {
                plan_.lost.push_back(name);
            }
        };
        for (const PhoneRingtone& ringtone : input_.unchanged) {
            check(ringtone.name, onPhone(ringtone.file));
        }
        for (const NewRingtone& ringtone : input_.added) {
            check(ringtone.name, onComputer(ringtone.path));
        }
    }

    void findHidden() {
        std::set<std::string> seen;
        for (const auto* list : {&input_.unchanged, &input_.removed}) {
            for (const PhoneRingtone& ringtone : *list) {
                seen.insert(ringtone.file);
            }
        }
        std::set<std::string> withSound;
        for (const FolderFile& file : input_.folder) {
            if (file.size > 0) {
                withSound.insert(file.name);
            }
        }
        for (const CatalogueEntry& entry : input_.oldCatalogue) {
            if (withSound.contains(entry.file) && !seen.contains(entry.file) &&
                !survives(entry.file)) {
                plan_.hidden.push_back({entry.name, entry.file});
            }
        }
    }

    bool survives(const std::string& file) const {
        return std::any_of(folder_.begin(), folder_.end(),
                           [&](const auto& there) { return there.second.origin == onPhone(file); });
    }

    const PlanInput& input_;
    Plan plan_;
    uint64_t catalogueBytes_; ///< what the phone's catalogue takes
    std::map<std::string, Content> folder_;
    std::set<std::string> unchangedNames_;
    std::set<std::string> kept_;
    int64_t used_ = 0; ///< space taken so far beyond the start
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

Plan makePlan(const PlanInput& input) {
    return Walk(input).run();
}

} // namespace vesk
