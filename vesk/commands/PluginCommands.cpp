#include "vesk/commands/Commands.h"

#include "engine/values/Cf.h"

#include "library/startup/SupportPlugin.h"
#include "library/system/Files.h"
#include "library/system/Programs.h"

#include <KRLVesk/KRLVesk.h>
#include <fmt/format.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <map>
#include <string>
#include <unistd.h>

namespace vesk {
namespace {

namespace plugin = krl::plugin;

using plugin::kUnpacker;
constexpr char kProgram[] = "/Contents/Linux/HarlixSupport";

struct State {
    std::string path = plugin::installedPath();
    bool exists = krl::system::exists(path);
    plugin::Version installed = plugin::versionOfPlugin(path);
    // The resources are those of the library, wherever that was loaded from.
    plugin::Version required = plugin::requiredVersion(reinterpret_cast<const void*>(&KRTVeskInit));
    std::string archive = plugin::archivePath(reinterpret_cast<const void*>(&KRTVeskInit));

    bool isCurrent() const { return exists && plugin::isCurrent(installed, required); }
};

std::string text(const plugin::Version& version) {
    return fmt::format("{}.{}.{}", version.major, version.minor, version.patch);
}

Json textOrNull(bool has, const std::string& text) {
    return has ? Json(text) : Json(nullptr);
}

Failure missingDeviceLayer() {
    return {FailureKind::NoDeviceLayer,
            "the device layer cannot be loaded, so the plug-in was left as it is",
            "MobileDevice.so has to stand beside libKRLVesk.so, and libplist (libplist3) has to be "
            "installed."};
}

/// What became of an installation, by the domain that the library left.
CommandFailure failedInstallation(const State& state) {
    struct Reason {
        std::string message;
        std::string hint;
    };

    const std::map<std::string, Reason> reasons{
        {"com.korvane.vesk.unzipNotFound",
         {fmt::format("there is no {} to unpack the plug-in with", kUnpacker),
          "Install it: apt install unzip"}},
        {"com.korvane.vesk.unzipFailed",
         {fmt::format("the plug-in could not be unpacked to \"{}\"", state.path),
          "Above stands what unzip said. Is the folder writable, and is there room on the disk? No "
          "plug-in is installed now."}},
        {"com.korvane.vesk.noPathFilePath",
         {"the plug-in's archive, HarlixSupport.zip, is missing from the library's resources",
          "It belongs into the folder KRLVesk.resources beside libKRLVesk.so: install the library "
          "anew."}}};
    const std::string domain = cf::text(KRTErrorDomain);
    const auto reason = reasons.find(domain);
    if (reason == reasons.end()) {
        return {ExitCode::PluginNotInstalled,
                fmt::format("the plug-in was not installed ({})", domain)};
    }
    return {ExitCode::PluginNotInstalled, reason->second.message, reason->second.hint};
}

std::string installedText(const State& state) {
    if (!state.exists) {
        return "not installed";
    }
    return fmt::format("{}{}", text(state.installed), state.isCurrent() ? "" : " (out of date)");
}

} // namespace

ExitCode runPluginStatus(const Options& /*options*/, Output& output) {
    const State state;
    const bool hasUnpacker = krl::system::programs().isThere(kUnpacker);
    Table table({{""}, {""}});
    table.add({"installed", installedText(state)});
    table.add({"needed", text(state.required)});
    table.add({"folder", state.path});
    table.add({"archive", state.archive.empty() ? "missing" : state.archive});
    table.add({"unpacker", hasUnpacker ? kUnpacker : fmt::format("{} is missing", kUnpacker)});
    output.table(table);
    output.document({{"installed", textOrNull(state.exists, text(state.installed))},
                     {"needed", text(state.required)},
                     {"current", state.isCurrent()},
                     {"path", state.path},
                     {"archive", textOrNull(!state.archive.empty(), state.archive)},
                     {"unpacker", textOrNull(hasUnpacker, kUnpacker)}});
    if (state.isCurrent()) {
        return ExitCode::Success;
    }
    output.note("vesk plugin install puts the plug-in there.");
    return ExitCode::PluginNotCurrent;
}

ExitCode runPluginInstall(const Options& /*options*/, Output& output) {
    const int result = KRTVeskInit();
    const State state;
    if (result == 0) {
        if (KRTVeskIsValid() == 0) {
            throw missingDeviceLayer();
        }
        throw failedInstallation(state);
    }
    const bool wasCurrent = result == 1;
    output.document({{"result", wasCurrent ? "already-current" : "installed"},
                     {"installed", text(state.installed)},
                     {"path", state.path}});
    output.summary(fmt::format("{} {} in \"{}\"",
                               wasCurrent ? "Already current: version" : "Installed version",
                               text(state.installed), state.path));
    return ExitCode::Success;
}

ExitCode runPluginValidate(const Options& /*options*/, Output& output) {
    output.note("asking the plug-in; this takes 6 seconds");
    const bool isRunning = KRTValidatePlugin();
    if (!isRunning) {
        throw CommandFailure(
            ExitCode::PluginSilent, "no plug-in of a version above 2.01 answered",
            "The media library has to be running with the plug-in, in the same session; or "
            "else: vesk plugin run");
    }
    output.document({{"running", true}});
    output.summary("The plug-in is running and recent enough.");
    return ExitCode::Success;
}

ExitCode runPluginRun(const Options& /*options*/, Output& output) {
    const State state;
    std::string program = state.path + kProgram;
    output.finish();
    std::signal(SIGPIPE, SIG_DFL); // the plug-in does not inherit what vesk ignores
    char* const arguments[] = {program.data(), nullptr};
    execv(program.c_str(), arguments);
    const std::string reason = std::strerror(errno);
    if (!state.exists) {
        throw CommandFailure(ExitCode::PluginNotCurrent,
                             fmt::format("the plug-in is not installed in \"{}\"", state.path),
                             "Install it: vesk plugin install");
    }
    throw CommandFailure(
        ExitCode::PluginNotCurrent,
        fmt::format("the plug-in's program \"{}\" cannot be started: {}", program, reason),
        "vesk plugin status shows what is installed.");
}

} // namespace vesk
