#pragma once

#include "desktop/session/PhoneBook.h"

#include <cstdint>
#include <functional>
#include <map>
#include <utility>

namespace krl::desktop {

/// How the edits of a book are taken back, one by one.
class EditHistory {
public:
    using TakeBack = std::function<void(PhoneBook& book)>;

    /// @return the edit's number
    uint64_t add(TakeBack takeBack) {
        edits_.emplace(++last_, std::move(takeBack));
        return last_;
    }

    bool isEmpty() const { return edits_.empty(); }

    /// Takes an edit back, unless that has been done or the edit forgotten.
    void takeBack(uint64_t number, PhoneBook& book) {
        if (const auto node = edits_.extract(number); !node.empty()) {
            node.mapped()(book);
        }
    }

    void takeLastBack(PhoneBook& book) {
        if (!edits_.empty()) {
            takeBack(edits_.rbegin()->first, book);
        }
    }

    /// What a job has carried out cannot be taken back here any more.
    void forget() { edits_.clear(); }

private:
    std::map<uint64_t, TakeBack> edits_;
    uint64_t last_ = 0;
};

} // namespace krl::desktop
