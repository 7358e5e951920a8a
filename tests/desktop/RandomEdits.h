#pragma once

#include "desktop/session/PhoneBook.h"

#include <cstdint>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace krl::desktop {

/// Does to a book what persons, songs and phones do, in any order, and knows what the phone holds.
class RandomEdits {
public:
    RandomEdits(PhoneBook& book, uint32_t seed) : book_(book), random_(seed) {}

    /// Does something, which is said in words.
    std::string next() {
        switch (below(14)) {
        case 0:
        case 1:
            return add();
        case 2:
        case 3:
        case 4:
            return hear();
        case 5:
            book_.remove({someKey(), someKey()});
            return "remove";
        case 6:
            book_.bringBack({someKey(), someKey()});
            return "bring back";
        case 7:
        case 8:
            return rename();
        case 9:
            return cut();
        case 10:
            return work_ ? endWork() : beginWork();
        case 11:
            return changeOnPhone();
        case 12:
            return below(4) == 0 ? dropOrRestore() : read();
        default:
            return read();
        }
    }

private:
    uint32_t below(uint32_t end) { return static_cast<uint32_t>(random_() % end); }

    /// Few, so that they meet; some look like others.
    std::string someName() {
        static const std::vector<std::string> names = {
            "Harp", "Horn", "Bells", "Glöckchen", "Glo\u0308ckchen", "Laute", "Lute"};
        return names[below(static_cast<uint32_t>(names.size()))];
    }

    std::string someKey() {
        const auto places = book_.places();
        if (places.empty() || below(8) == 0) {
            return below(2) == 0 ? phoneKey(someName())
                                 : '+' + std::to_string(below(lastSong_ + 2));
        }
        return places[below(static_cast<uint32_t>(places.size()))]->key;
    }

    std::string add() {
        lastSong_ = static_cast<uint32_t>(book_.add({"/songs/" + someName() + ".m4r"}));
        return "add";
    }

    std::string hear() {
        const uint64_t song = below(lastSong_ + 1);
        const std::string name = someName();
        switch (below(6)) {
        case 0:
            book_.hear(song, SongIsPrepared{});
            break;
        case 1:
            book_.hear(song, engine::Failure(engine::FailureKind::UnsupportedType, "no sound"));
            break;
        default:
            book_.hear(song, SongIsReady{{.name = name,
                                          .path = "/made/" + std::to_string(song) + ".m4r",
                                          .type = "m4r",
                                          .size = 1 + below(3)},
                                         30.0});
        }
        return "hear";
    }

    std::string rename() {
        const std::string key = someKey();
        const std::string name = someName();
        if (book_.row(key).name.empty() || !PhoneBook::canRename(book_.row(key)) ||
            book_.nameProblem(key, name) != NameProblem::None) {
            return "rename nothing";
        }
        book_.rename(key, name);
        return "rename " + key + " to " + name;
    }

    std::string cut() {
        const std::string key = someKey();
        if (const auto cut = book_.cutOf(key)) {
            SongCut wanted = *cut;
            wanted.name =
                book_.nameProblem(key, wanted.name) == NameProblem::None ? wanted.name : "";
            wanted.wish.lengthSeconds = 1 + below(20);
            book_.cut(key, wanted);
        }
        return "cut";
    }

    std::string beginWork() {
        work_ = book_.wanted();
        book_.begin(*work_);
        return "begin a sync";
    }

    /// It is carried out, or not; what it says comes first, and the list then.
    std::string endWork() {
        const WantedChange done = *std::exchange(work_, {});
        if (below(3) == 0) {
            return "fail in a sync";
        }
        for (const auto& [from, to] : done.renamed) {
            if (auto node = phone_.extract(from); !node.empty()) {
                node.key() = to;
                phone_.insert(std::move(node));
            }
        }
        for (const std::string& name : done.removed) {
            phone_.erase(name);
        }
        for (const engine::LocalRingtone& ringtone : done.added) {
            phone_[ringtone.name] = ringtone.size;
        }
        if (below(4) != 0) { // otherwise the phone was pulled out, and it was finished later
            book_.carriedOut(done);
        }
        take(/*isWhole=*/true);
        book_.dropFulfilled();
        return "end a sync";
    }

    std::string changeOnPhone() {
        if (!work_) {
            phone_.erase(someName());
            phone_[someName()] = 1 + below(3);
        }
        return "change on the phone";
    }

    std::string read() {
        const bool isWhole = below(5) != 0;
        take(isWhole);
        if (!work_ && below(2) == 0) {
            book_.dropFulfilled();
        }
        return isWhole ? "read" : "read a list that is not whole";
    }

    std::string dropOrRestore() {
        if (work_) {
            return "nothing";
        }
        const Edits edits = book_.edits();
        book_.dropEdits();
        if (below(2) == 0) {
            return "drop all";
        }
        book_.restore(edits);
        for (const Edits::Song& song : edits.songs) {
            lastSong_ = static_cast<uint32_t>(book_.add(song));
        }
        return "restore";
    }

    void take(bool isWhole) {
        PhoneReading reading;
        reading.catalogueIsUnreadable = !isWhole;
        for (const auto& [name, size] : phone_) {
            if (isWhole || below(2) == 0) {
                engine::PhoneRingtone ringtone;
                ringtone.name = name;
                ringtone.size = size;
                reading.ringtones.push_back(ringtone);
            }
        }
        book_.take(std::make_shared<const Holdings>(std::move(reading)));
    }

    PhoneBook& book_;
    std::mt19937 random_;
    std::map<std::string, uint64_t> phone_; ///< names and sizes
    uint32_t lastSong_ = 0;
    std::optional<WantedChange> work_; ///< under way
};

} // namespace krl::desktop
