#include "vesk/CommandLine.h"

#include "engine/phones/PairingKeeper.h"
#include "vesk/CommandParser.h"
#include "vesk/CommandTable.h"
#include "vesk/terminal/Guarded.h"
#include "vesk/terminal/Interrupt.h"
#include "vesk/terminal/Output.h"

#include <MobileDevice/MobileDevice.h>

#include <string>

namespace vesk {
namespace {

ExitCode carryOut(const Options& options, Output& output) {
    if (options.timeout && AMDeviceSetCallTimeout != nullptr) {
        AMDeviceSetCallTimeout(static_cast<uint32_t>(options.timeout->count()));
    }
    return options.command->run(options, output);
}

} // namespace

int run(int argc, char** argv) {
    installInterruptHandlers();
    Options options;
    if (const auto code = parseCommandLine(argc, argv, options)) {
        return static_cast<int>(*code);
    }
    Output output({.json = options.json, .quiet = options.quiet});
    ExitCode code = guarded(output, [&] { return carryOut(options, output); });
    for (const std::string& note : takePairingNotes()) {
        output.warning(note);
    }
    const ExitCode written = guarded(output, [&] {
        output.finish();
        return ExitCode::Success;
    });
    return static_cast<int>(code == ExitCode::Success ? written : code);
}

} // namespace vesk
