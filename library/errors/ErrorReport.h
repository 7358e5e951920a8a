#pragma once

#include <KRLVesk/KRTError.h>

namespace krl {

/// Reports failures of one source module. The line of the call is the one that is recorded, and
/// module and line together tell the place: a module that reports is one source file.
///
///     constexpr krl::ErrorReporter reportError{"KRTPhoneInternal"};
///     ...
///     reportError(status);
class ErrorReporter {
public:
    /// @param module  bare name of the module, a string literal
    explicit constexpr ErrorReporter(const char* module) : module_(module) {}

    void operator()(int code, int line = __builtin_LINE()) const {
        KRTErrorSet(line, module_, code);
    }

private:
    const char* module_;
};

} // namespace krl
