#include "engine/restore/RestorePlan.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <utility>

namespace krl::engine {
namespace {

using Kind = RestoreStep::Kind;

constexpr char kTemporaryBegin[] = "krlvesk-";
constexpr char kTemporaryEnd[] = ".tmp";

class Planning {
public:
    Planning(const Snapshot& now, const Snapshot& target, OwnContents own)
        : now_(now), target_(target), own_(std::move(own)) {
        for (const auto& [name, file] : now.files) {
            there_.emplace(name, file.content);
        }
        own_.add(target);
    }

    RestorePlan run(bool roomFirst) {
        lookForOthers();
        makeFolders();
        chooseSources();
        move();
        if (roomFirst) {
            removeReplaced();
            removeRest();
        }
        upload();
        placeCatalogue();
        removeRest();
        if (!target_.hasFolder && now_.hasFolder && there_.empty()) {
            add({.kind = Kind::RemoveFolder});
        }
        return std::move(plan_);
    }

private:
    bool isOurs(const std::string& name) const {
        return own_.everything || isTemporary(name) ||
               own_.files.contains(now_.files.at(name).content.digest);
    }

    bool isRight(const std::string& name) const {
        const auto wanted = target_.files.find(name);
        const auto is = there_.find(name);
        return wanted != target_.files.end() && is != there_.end() &&
               wanted->second.content == is->second;
    }

    void lookForOthers() {
        for (const auto& [name, file] : now_.files) {
            if (isRight(name) || isOurs(name)) {
                continue;
            }
            (target_.files.contains(name) ? plan_.inTheWay : plan_.left).push_back(name);
        }
        plan_.catalogueInTheWay = now_.catalogue && now_.catalogue != target_.catalogue &&
                                  !own_.everything &&
                                  !own_.catalogues.contains(now_.catalogue->digest);
    }

    void makeFolders() {
        const bool isNeeded = !target_.files.empty() || now_.catalogue != target_.catalogue;
        if (!now_.hasFolder && (isNeeded || target_.hasFolder)) {
            add({.kind = Kind::CreateFolder});
        }
    }

    /// Finds for each file that is missing one that nobody needs where it is.
    void chooseSources() {
        std::multimap<Digest, std::string> spare;
        for (const auto& [name, content] : there_) {
            if (!isRight(name) && isOurs(name)) {
                spare.emplace(content.digest, name);
            }
        }
        for (const auto& [name, file] : target_.files) {
            if (isRight(name)) {
                continue;
            }
            const auto source = spare.find(file.content.digest);
            if (source == spare.end()) {
                uploads_.push_back(name);
            } else {
                moves_.emplace(source->second, name);
                spare.erase(source);
            }
        }
    }

    /// A move onto a name whose file has to move itself waits for it; where all wait for each other
    /// one of them goes aside.
    void move() {
        while (!moves_.empty()) {
            const auto next = std::find_if(moves_.begin(), moves_.end(), [&](const auto& one) {
                return !moves_.contains(one.second);
            });
            if (next != moves_.end()) {
                moveFile(next->first, next->second);
                moves_.erase(next);
                continue;
            }
            auto aside = moves_.extract(moves_.begin());
            const std::string name = freeName();
            moveFile(aside.key(), name);
            aside.key() = name;
            moves_.insert(std::move(aside));
        }
    }

    void moveFile(const std::string& from, const std::string& to) {
        add({.kind = Kind::Move, .file = from, .newFile = to});
        auto file = there_.extract(from);
        forget(to);
        there_.insert_or_assign(to, file.mapped());
    }

    void forget(const std::string& name) {
        const auto file = there_.extract(name);
        grow(file.empty() ? 0 : -asSigned(file.mapped().size));
    }

    static int64_t asSigned(uint64_t bytes) { return static_cast<int64_t>(bytes); }

    /// So many bytes more are taken up on the phone, or less.
    void grow(int64_t bytes) {
        grown_ += bytes;
        plan_.spaceNeeded =
            std::max(plan_.spaceNeeded, static_cast<uint64_t>(std::max<int64_t>(grown_, 0)));
    }

    void upload() {
        for (const std::string& name : uploads_) {
            const Content& content = target_.files.at(name).content;
            if (content.size == 0 && !there_.contains(name)) {
                uploadTo(name, content);
                continue;
            }
            const std::string first = freeName();
            uploadTo(first, content);
            moveFile(first, name);
        }
    }

    void uploadTo(const std::string& name, const Content& content) {
        add({.kind = Kind::Upload, .file = name, .content = content});
        there_.emplace(name, content);
        plan_.uploadBytes += content.size;
        grow(asSigned(content.size));
    }

    void placeCatalogue() {
        if (now_.catalogue == target_.catalogue) {
            return;
        }
        const int64_t oldBytes = now_.catalogue ? asSigned(now_.catalogue->size) : 0;
        if (!target_.catalogue) {
            add({.kind = Kind::RemoveCatalogue});
            grow(-oldBytes);
            return;
        }
        const std::string first = freeName();
        uploadTo(first, *target_.catalogue);
        add({.kind = Kind::PlaceCatalogue, .file = first});
        there_.erase(first);
        grow(-oldBytes);
    }

    void removeReplaced() {
        for (const std::string& name : uploads_) {
            if (there_.contains(name)) {
                add({.kind = Kind::Remove, .file = name});
                forget(name);
            }
        }
    }

    void removeRest() {
        std::vector<std::string> rest;
        for (const auto& [name, content] : there_) {
            const bool isFromPhone = now_.files.contains(name);
            if (!target_.files.contains(name) && (!isFromPhone || isOurs(name))) {
                rest.push_back(name);
            }
        }
        for (const std::string& name : rest) {
            add({.kind = Kind::Remove, .file = name});
            forget(name);
        }
    }

    std::string freeName() {
        for (;;) {
            std::string name = fmt::format("{}{}{}", kTemporaryBegin, ++number_, kTemporaryEnd);
            if (!now_.files.contains(name) && !target_.files.contains(name)) {
                return name;
            }
        }
    }

    void add(RestoreStep step) { plan_.steps.push_back(std::move(step)); }

    const Snapshot& now_;
    const Snapshot& target_;
    OwnContents own_;
    std::map<std::string, Content> there_;     ///< on the phone after the steps so far
    std::map<std::string, std::string> moves_; ///< from, to
    std::vector<std::string> uploads_;
    size_t number_ = 0;
    int64_t grown_ = 0;
    RestorePlan plan_;
};

} // namespace

const char* stepName(RestoreStep::Kind kind) {
    switch (kind) {
    case Kind::CreateFolder:
        return "create-folder";
    case Kind::Move:
        return "rename";
    case Kind::Upload:
        return "upload";
    case Kind::PlaceCatalogue:
        return "write-catalogue";
    case Kind::RemoveCatalogue:
        return "remove-catalogue";
    case Kind::Remove:
        return "remove";
    case Kind::RemoveFolder:
        return "remove-folder";
    }
    return "";
}

void OwnContents::add(const Snapshot& snapshot) {
    for (const auto& [name, file] : snapshot.files) {
        files.insert(file.content.digest);
    }
    if (snapshot.catalogue) {
        catalogues.insert(snapshot.catalogue->digest);
    }
}

bool isTemporary(const std::string& name) {
    return name.starts_with(kTemporaryBegin) && name.ends_with(kTemporaryEnd);
}

RestorePlan planRestore(const Snapshot& now, const Snapshot& target, OwnContents own,
                        bool roomFirst) {
    return Planning(now, target, std::move(own)).run(roomFirst);
}

} // namespace krl::engine
