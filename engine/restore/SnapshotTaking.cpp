#include "engine/restore/SnapshotTaking.h"

#include "engine/state/OpenPhone.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <utility>
#include <vector>

namespace krl::engine {
namespace {

Failure tooLong(const std::string& path, uint64_t most) {
    return {
        FailureKind::CannotKeep,
        fmt::format("\"{}\" on the phone does not end where it should, after {} bytes", path, most),
        "Another program may be writing it. Nothing was changed on the phone. Close the other "
        "program and try again."};
}

Failure contradiction(const std::string& path) {
    return {FailureKind::CannotOpen,
            fmt::format("the phone says one thing of \"{}\" and then another", path),
            "Another program may be writing it. Close it, plug the phone in again and repeat the "
            "command: what was broken off, if anything was, is put in order first."};
}

/// A phone may say anything of its files: what does not add up has no room anywhere.
uint64_t sum(uint64_t one, uint64_t other) {
    constexpr uint64_t kMost = std::numeric_limits<uint64_t>::max();
    return one > kMost - other ? kMost : one + other;
}

class Taking {
public:
    Taking(PhoneFiles& files, PhoneSafe& safe, const Index& index, const ByteProgress& progress)
        : files_(files), safe_(safe), index_(index), progress_(progress) {}

    Snapshot run() {
        now_.catalogue = takeCatalogue();
        const auto names = files_.list(kRingtonesFolder);
        now_.hasFolder = names.has_value();
        if (!names) {
            requireGone(kRingtonesFolder);
        }
        for (const std::string& name : names.value_or(std::vector<std::string>{})) {
            if (isPlainName(name)) {
                look(name);
            }
        }
        safe_.contents().requireRoom(total_);
        for (const auto& [name, information] : unknown_) {
            // One that has gone since it was listed is no part of it.
            const auto awaited = index_.awaited.find(name);
            if (const auto content = take(pathOf(name), information.size,
                                          {.size = information.size,
                                           .awaited = awaited != index_.awaited.end()
                                                          ? std::optional(awaited->second)
                                                          : std::nullopt})) {
                if (content->size != information.size) {
                    throw contradiction(pathOf(name));
                }
                now_.files.insert_or_assign(name, Snapshot::File{*content, information.modified});
            }
        }
        safe_.contents().settle();
        return std::move(now_);
    }

private:
    static std::string pathOf(const std::string& name) {
        return fmt::format("{}/{}", kRingtonesFolder, name);
    }

    /// What is taken for missing here is missing after an undo as well: that a phone says so once is
    /// not enough.
    void requireGone(const std::string& path) {
        if (files_.information(path)) {
            throw contradiction(path);
        }
    }

    std::optional<Content> takeCatalogue() {
        const auto content = take(kCataloguePath, kMostCatalogueBytes, {});
        const auto information = content ? files_.information(kCataloguePath) : std::nullopt;
        if (content && (!information || information->size != content->size)) {
            throw contradiction(kCataloguePath);
        }
        return content;
    }

    void look(const std::string& name) {
        const auto information = files_.information(pathOf(name));
        if (!information) {
            requireGone(pathOf(name));
            return;
        }
        if (!information->isRegular) {
            return;
        }
        if (information->size == 0) {
            now_.files.insert_or_assign(
                name, Snapshot::File{safe_.contents().put({}), information->modified});
        } else if (isKnown(name, *information)) {
            now_.files.insert_or_assign(name, index_.files.at(name));
        } else {
            unknown_.emplace_back(name, *information);
            total_ = sum(total_, information->size);
        }
    }

    bool isKnown(const std::string& name, const PhoneFiles::Information& information) const {
        const auto known = index_.files.find(name);
        return known != index_.files.end() && known->second.content.size == information.size &&
               known->second.modified == information.modified &&
               (!information.modified.empty() || index_.catalogues.contains(now_.catalogue)) &&
               safe_.contents().has(known->second.content);
    }

    /// What is thought of a file that is taken; not relied upon.
    struct Expected {
        std::optional<uint64_t> size = {};
        std::optional<Content> awaited = {};
    };

    /// @param most  how many bytes it may have: a phone may go on for ever
    std::optional<Content> take(const std::string& path, uint64_t most, const Expected& expected) {
        ContentStore::Incoming incoming(safe_.contents(), expected.awaited);
        uint64_t taken = 0;
        const auto add = [&](std::string_view piece) {
            taken += piece.size();
            if (taken > most) {
                throw tooLong(path, most);
            }
            incoming.add(piece);
            done_ += piece.size();
            if (total_ > 0) {
                progress_(std::min(done_, total_), total_);
            }
        };
        const bool isThere = files_.read(path, add, expected.size);
        if (!isThere) {
            requireGone(path);
            return std::nullopt;
        }
        return incoming.keep();
    }

    PhoneFiles& files_;
    PhoneSafe& safe_;
    const Index& index_;
    const ByteProgress& progress_;
    Snapshot now_;
    std::vector<std::pair<std::string, PhoneFiles::Information>> unknown_;
    uint64_t done_ = 0;
    uint64_t total_ = 0;
};

} // namespace

Snapshot takeSnapshot(PhoneFiles& files, PhoneSafe& safe, const Index& index,
                      const ByteProgress& progress) {
    return Taking(files, safe, index, progress).run();
}

} // namespace krl::engine
