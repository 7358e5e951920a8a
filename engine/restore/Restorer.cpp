#include "engine/restore/Restorer.h"

#include "engine/state/OpenPhone.h"

#include <fmt/format.h>

#include <utility>

namespace krl::engine {

using Kind = RestoreStep::Kind;

namespace {

std::string parentOf(const std::string& path) {
    return path.substr(0, path.rfind('/'));
}

/// Whether the phone has done it. A lost connection shows at the next call.
bool tolerated(const std::function<void()>& call) {
    try {
        call();
        return true;
    } catch (const PhoneFileFailure&) {
        return false;
    }
}

} // namespace

std::string ringtonePath(const std::string& file) {
    return fmt::format("{}/{}", kRingtonesFolder, file);
}

Snapshot Restorer::look() {
    now_ = takeSnapshot(files_, safe_, safe_.index(), watch_.reading);
    return now_;
}

RestorePlan Restorer::plan(const Snapshot& target, const OwnContents& own) {
    RestorePlan plan = planRestore(now_, target, own, /*roomFirst=*/false);
    const auto freeBytes = plan.spaceNeeded > 0 ? files_.freeBytes() : std::nullopt;
    plan.freeBytes = freeBytes;
    if (!plan.hasRoom()) {
        plan = planRestore(now_, target, own, /*roomFirst=*/true);
        plan.freeBytes = freeBytes;
    }
    return plan;
}

void Restorer::carryOut(const RestorePlan& plan, const Snapshot& target) {
    forget(plan, target);
    leftBehind_.clear();
    written_ = 0;
    toWrite_ = plan.uploadBytes;
    for (const RestoreStep& step : plan.steps) {
        if (watch_.cancels()) {
            throw Failure(FailureKind::Cancelled, "cancelled half-way",
                          "Run the same command again: it goes on from here.");
        }
        carryOut(step);
    }
    for (const std::string& file : std::exchange(leftBehind_, {})) {
        remove(file); // once more
    }
    look();
    requireTarget(target);
    safe_.writeIndex(indexOf(now_));
}

/// What is written to is not known by its name any more, also when we end here.
void Restorer::forget(const RestorePlan& plan, const Snapshot& target) {
    Index index = indexOf(now_);
    index.catalogues.insert(target.catalogue);
    for (const RestoreStep& step : plan.steps) {
        index.files.erase(step.file);
        index.files.erase(step.newFile);
    }
    safe_.writeIndex(index);
}

void Restorer::carryOut(const RestoreStep& step) {
    switch (step.kind) {
    case Kind::CreateFolder:
        makeFolder(kRingtonesFolder);
        break;
    case Kind::Move:
        files_.rename(ringtonePath(step.file), ringtonePath(step.newFile));
        break;
    case Kind::Upload:
        upload(step);
        break;
    case Kind::PlaceCatalogue:
        makeFolder(parentOf(kCataloguePath));
        files_.rename(ringtonePath(step.file), kCataloguePath);
        break;
    case Kind::RemoveCatalogue:
        files_.remove(kCataloguePath);
        break;
    case Kind::Remove:
        remove(step.file);
        break;
    case Kind::RemoveFolder:
        // What stands in the way is not ours to remove.
        tolerated([&] { files_.remove(kRingtonesFolder); });
        break;
    }
}

void Restorer::upload(const RestoreStep& step) {
    files_.write(ringtonePath(step.file), [&](const PhoneFiles::Take& put) {
        safe_.contents().read(step.content->digest, [&](std::string_view piece) {
            put(piece);
            written_ += piece.size();
            watch_.writing(written_, toWrite_);
        });
    });
}

void Restorer::remove(const std::string& file) {
    if (!tolerated([&] { files_.remove(ringtonePath(file)); })) {
        leftBehind_.push_back(file);
    }
}

void Restorer::makeFolder(const std::string& path) {
    if (path.empty() || files_.information(path)) {
        return;
    }
    makeFolder(parentOf(path));
    files_.makeFolder(path);
}

void Restorer::requireTarget(const Snapshot& target) const {
    std::vector<std::string> details;
    if (now_.catalogue != target.catalogue) {
        details.emplace_back("its catalogue is not the wanted one");
    }
    for (const auto& [name, file] : target.files) {
        const auto found = now_.files.find(name);
        if (found == now_.files.end() || found->second.content != file.content) {
            details.push_back(
                fmt::format("\"{}\" {}", name,
                            found == now_.files.end() ? "is missing" : "holds something else"));
        }
    }
    if (!details.empty()) {
        throw Failure(FailureKind::NotAsWanted, "the phone does not hold what it should",
                      "Run the same command again: it puts right what is not.", details);
    }
}

} // namespace krl::engine
