// What a call leaves behind in a phone's record, and how a test makes one fail.
#pragma once

#include <cstdint>
#include <ostream>

namespace krl::test {

/// The two counts of a phone record.
struct Counts {
    int32_t open;
    int32_t service;

    bool operator==(const Counts&) const = default;

    friend std::ostream& operator<<(std::ostream& out, const Counts& counts) {
        return out << "open " << counts.open << ", service " << counts.service;
    }
};

/// A status that nothing but a scripted fault gives.
inline constexpr int32_t kStatus = 4711;

} // namespace krl::test
