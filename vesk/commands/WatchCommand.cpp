#include "vesk/commands/Commands.h"

#include "engine/phones/DeviceNews.h"
#include "vesk/commands/DeviceTexts.h"
#include "vesk/terminal/Interrupt.h"

#include <fmt/format.h>

namespace vesk {
namespace {

void showEvent(bool arrived, const DeviceDescription& about, Output& output) {
    if (output.json()) {
        Json object{{"event", arrived ? "attached" : "removed"}};
        object.update(deviceJson(about));
        output.objectLine(object);
        return;
    }
    const std::string problem = arrived ? problemOf(about) : "";
    output.line(fmt::format("{} {}  {}  {}  {}{}", arrived ? "attached" : "removed ",
                            orUnknown(about.udid), orUnknown(about.name),
                            orUnknown(about.deviceClass), orUnknown(about.firmware),
                            problem.empty() ? "" : "  (" + problem + ")"));
    output.flush();
}

} // namespace

ExitCode runWatch(const Options& options, Output& output) {
    const InterruptScope scope(OnInterrupt::EndWatching);
    DeviceNews news;
    output.note("watching for phones; Ctrl-C ends");
    while (output.isWanted()) {
        const DeviceNews::Item item = news.wait();
        if (isWanted(options, item.device.description)) {
            showEvent(item.arrived, item.device.description, output);
        }
    }
    return ExitCode::Success;
}

} // namespace vesk
