// One healthy call of each exported function that has to do with a phone.
#pragma once

#include "tests/library/sweep/World.h"

namespace krl::test {

/// What a call works on.
enum class On {
    phone,     ///< a record, however often it is open already
    openPhone, ///< a record that the caller has opened
    manager,   ///< records of the phone manager's
    nothing    ///< no call of it that can fail reaches a phone
};

/// What the error record holds after a call.
enum class Records {
    nothing,    ///< nothing, ever
    failures,   ///< an error when the call failed, and else none
    stepsBorne, ///< when it succeeded, too, an error of a step that was let pass
    ownAccount  ///< as it may: there is no result, or the record is cleared on the way
};

struct Scenario {
    const char* function;
    On on;
    Records records;
    /// Puts the phone and the manager in order for one run.
    void (*prepare)(World& world);
    /// 1 or 0; nothing for a function without a result.
    std::optional<int> (*run)(World& world);
};

void PrintTo(const Scenario& scenario, std::ostream* out);

/// All of them, by the function's name.
const std::vector<Scenario>& scenarios();

/// The catalogue that a prepared phone has.
const std::string& oldCatalogue();

} // namespace krl::test
