#pragma once

#include "vesk/terminal/Output.h"

#include <exception>

namespace vesk {

/// Runs an action and turns what it throws into a message and an exit code.
template <typename Action>
ExitCode guarded(Output& output, Action action) {
    try {
        return action();
    } catch (const CommandFailure& failure) {
        output.failure(failure, failure.code());
        return failure.code();
    } catch (const Failure& failure) {
        output.failure(failure, exitCodeOf(failure.kind()));
        return exitCodeOf(failure.kind());
    } catch (const std::exception& error) {
        output.failure({FailureKind::Unexpected, error.what()}, ExitCode::Unexpected);
        return ExitCode::Unexpected;
    }
}

} // namespace vesk
