#include "vesk/commands/Commands.h"

#include "engine/diagnosis/Diagnosis.h"

#include <fmt/format.h>

#include <string>
#include <vector>

namespace vesk {
namespace {

Json findingsJson(const Findings& findings) {
    Json checks = Json::array();
    for (const Finding& finding : findings) {
        Json check{{"check", finding.check}, {"good", finding.good}, {"text", finding.text}};
        if (!finding.advice.empty()) {
            check["advice"] = finding.advice;
        }
        checks.push_back(check);
    }
    return checks;
}

void show(const std::string& title, const Findings& findings, Output& output) {
    output.line(title);
    for (const Finding& finding : findings) {
        output.line(fmt::format("  {:<8} {}", finding.good ? "ok" : "PROBLEM", finding.text));
        if (!finding.advice.empty()) {
            output.line(fmt::format("  {:<8} {}", "", finding.advice));
        }
    }
}

std::vector<AttachedDevice> attachedDevices(const Options& options) {
    Discovery discovery;
    return meantDevices(options.phone, discovery.attached(options.phone.wait));
}

Finding noPhone(const Options& options) {
    return {
        "phone", false,
        options.phone.udid.empty()
            ? "no phone is attached"
            : fmt::format("no phone is attached with \"{}\" as its UDID, the beginning of it or "
                          "its name",
                          options.phone.udid),
        "Plug the phone in, wake it and try again; try another cable or port."};
}

} // namespace

ExitCode runDoctor(const Options& options, Output& output) {
    Findings computer = examineComputer();
    const bool canLook = AMDeviceNotificationSubscribe != nullptr;
    const std::vector<AttachedDevice> devices =
        canLook ? attachedDevices(options) : std::vector<AttachedDevice>{};
    if (devices.empty()) {
        computer.push_back(noPhone(options));
    }
    bool healthy = allGood(computer);
    show("This computer", computer, output);
    Json phones = Json::array();
    for (const AttachedDevice& device : devices) {
        const DeviceDescription& about = device.description;
        const Findings findings = examinePhone(device);
        healthy = healthy && allGood(findings);
        show(about.label(), findings, output);
        phones.push_back({{"udid", about.udid},
                          {"name", about.name},
                          {"firmware", about.firmware},
                          {"checks", findingsJson(findings)}});
    }
    output.document(
        {{"healthy", healthy}, {"computer", findingsJson(computer)}, {"phones", phones}});
    output.summary(healthy ? "Nothing stands in the way." : "See the problems above.");
    return healthy ? ExitCode::Success : ExitCode::ProblemsFound;
}

} // namespace vesk
