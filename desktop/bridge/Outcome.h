#pragma once

#include "engine/errors/Failure.h"

#include <exception>
#include <functional>
#include <variant>

namespace krl::desktop {

/// What came of a piece of work.
template <typename T>
using Outcome = std::variant<T, engine::Failure>;

/// Calls it, and makes of whatever it throws a failure.
template <typename T>
Outcome<T> outcomeOf(const std::function<T()>& work) noexcept {
    try {
        return work();
    } catch (const engine::Failure& failure) {
        return failure;
    } catch (const std::exception& error) {
        return engine::Failure(engine::FailureKind::Unexpected, error.what());
    }
}

} // namespace krl::desktop
