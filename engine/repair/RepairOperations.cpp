#include "engine/repair/RepairOperations.h"

#include <algorithm>
#include <map>

namespace krl::engine {
namespace {

using Kind = Operation::Kind;
using Names = std::map<std::string, std::string>;

Names namesIn(const Catalogue& catalogue) {
    Names names;
    for (const CatalogueEntry& entry : catalogue.entries) {
        names[entry.file] = entry.name;
    }
    return names;
}

class Conversion {
public:
    Conversion(const Repair& repair, const PhoneState& before)
        : repair_(repair), missingFolders_(before.missingFolders),
          oldNames_(namesIn(before.catalogue)),
          newNames_(namesIn(readCatalogue(repair.change.plan.catalogue))) {
        for (const auto& [name, file] : repair.before.files) {
            sizes_[name] = file.content.size;
        }
        for (const Repair::Ringtone& ringtone : repair.ringtones) {
            oldNames_[ringtone.file] = ringtone.name;
        }
    }

    std::vector<Operation> run() {
        const auto& steps = repair_.steps.steps;
        for (auto step = steps.begin(); step != steps.end(); ++step) {
            // What is uploaded under a free name gets its own one next.
            const auto next = std::next(step);
            const bool isForNext = next != steps.end() && next->file == step->file;
            add(*step, isForNext ? next->newFile : step->file);
        }
        return std::move(operations_);
    }

private:
    void add(const RestoreStep& step, const std::string& finalFile) {
        switch (step.kind) {
        case RestoreStep::Kind::CreateFolder:
            addMissingFolder(kControlFolder);
            operations_.push_back({.kind = Kind::CreateFolder, .file = kRingtonesFolder});
            break;
        case RestoreStep::Kind::Move:
            addMove(step);
            break;
        case RestoreStep::Kind::Upload:
            sizes_[step.file] = step.content->size;
            operations_.push_back(
                {.kind = step.content->size > 0 ? Kind::Upload : Kind::Placeholder,
                 .file = step.file,
                 .name = nameIn(newNames_, finalFile),
                 .bytes = step.content->size});
            break;
        case RestoreStep::Kind::PlaceCatalogue:
            addMissingFolder(kCatalogueFolder);
            operations_.push_back(
                {.kind = Kind::WriteCatalogue, .file = step.file, .bytes = sizes_[step.file]});
            break;
        case RestoreStep::Kind::Remove:
            operations_.push_back({.kind = Kind::Remove,
                                   .file = step.file,
                                   .name = nameIn(oldNames_, step.file),
                                   .bytes = sizes_[step.file]});
            break;
        case RestoreStep::Kind::RemoveCatalogue:
        case RestoreStep::Kind::RemoveFolder:
            break; // a repair ends with a catalogue and a folder
        }
    }

    void addMove(const RestoreStep& step) {
        auto moved = sizes_.extract(step.file);
        sizes_.insert_or_assign(step.newFile, moved.mapped());
        operations_.push_back({.kind = Kind::Rename,
                               .file = step.file,
                               .newFile = step.newFile,
                               .name = nameIn(newNames_, step.newFile),
                               .bytes = moved.mapped()});
    }

    /// Those above a folder are made with it.
    void addMissingFolder(const char* folder) {
        const auto found = std::find(missingFolders_.begin(), missingFolders_.end(), folder);
        if (found != missingFolders_.end()) {
            missingFolders_.erase(found);
            operations_.push_back({.kind = Kind::CreateFolder, .file = folder});
        }
    }

    static std::string nameIn(const Names& names, const std::string& file) {
        const auto found = names.find(file);
        return found == names.end() ? "" : found->second;
    }

    const Repair& repair_;
    std::vector<std::string> missingFolders_;
    Names oldNames_;
    Names newNames_;
    std::map<std::string, uint64_t> sizes_; ///< by name after the operations so far
    std::vector<Operation> operations_;
};

} // namespace

std::vector<Operation> operationsOf(const Repair& repair, const PhoneState& before) {
    return Conversion(repair, before).run();
}

} // namespace krl::engine
