#include "vesk/commands/Commands.h"

#include "engine/errors/Status.h"
#include "engine/phones/Pairing.h"
#include "engine/phones/PhoneChoice.h"

#include <fmt/format.h>

namespace vesk {
namespace {

Json resultJson(const DeviceDescription& about, const char* result) {
    return {{"phone", {{"udid", about.udid}, {"name", about.name}, {"firmware", about.firmware}}},
            {"result", result}};
}

} // namespace

ExitCode runPair(const Options& options, Output& output) {
    Discovery discovery;
    const AttachedDevice phone = chooseDevice(discovery, options.phone);
    const DeviceDescription& about = phone.description;
    const Pairing pairing = pair(phone);
    if (pairing.wasPaired) {
        output.summary(fmt::format("{} is paired with this computer already.", about.label()));
        output.document(resultJson(about, "already-paired"));
        return ExitCode::Success;
    }
    if (pairing.sessionStatus != 0) {
        output.warning(fmt::format("{} is paired, but no session can be had: {}", about.label(),
                                   statusText(pairing.sessionStatus)),
                       {"\"vesk doctor\" looks for the reason."});
    }
    output.summary(fmt::format("{} is paired with this computer now.", about.label()));
    output.document(resultJson(about, "paired"));
    return ExitCode::Success;
}

ExitCode runUnpair(const Options& options, Output& output) {
    Discovery discovery;
    const AttachedDevice phone = chooseDevice(discovery, options.phone);
    const DeviceDescription& about = phone.description;
    if (!unpair(phone)) {
        output.summary(fmt::format("{} is not paired with this computer.", about.label()));
        output.document(resultJson(about, "nothing-to-do"));
        return ExitCode::Success;
    }
    output.summary(fmt::format("{} is not paired with this computer any more.", about.label()));
    output.document(resultJson(about, "unpaired"));
    return ExitCode::Success;
}

} // namespace vesk
