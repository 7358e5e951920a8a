#include "torture/Trial.h"

#include <csignal>
#include <stdexcept>
#include <utility>

namespace torture {
namespace {

namespace fs = std::filesystem;

const std::map<std::string, int>& signals() {
    static const std::map<std::string, int> numbers{
        {"SIGINT", SIGINT}, {"SIGTERM", SIGTERM}, {"SIGKILL", SIGKILL}};
    return numbers;
}

std::string faultText(const Misfortune& misfortune, const std::string& action) {
    return misfortune.service + "#" + std::to_string(misfortune.request) + "=" + action;
}

/// Not every service can do everything.
bool isPossible(const std::string& service, const std::string& action) {
    try {
        virtualphone::parseFault(service + "=" + action);
        return true;
    } catch (const std::invalid_argument&) {
        return false;
    }
}

bool isOlderLayout(const std::string& firmware) {
    return firmware == "1.0.2" || firmware == "1.1.1";
}

} // namespace

std::string Misfortune::text() const {
    return faultText(*this, action);
}

const std::vector<std::string>& actionsFor(const std::string& service) {
    static const std::vector<std::string> any{
        "drop",     "silent",       "unplug",          "drop-unanswered", "drop-after-answer",
        "delay:30", "cut",          "stall",           "short",           "long",
        "garbled",  "wrong-number", "wrong-operation", "tiny-length",     "huge-length",
        "SIGINT",   "SIGTERM",      "SIGKILL"};
    static const std::map<std::string, std::vector<std::string>> more{
        {"afc", {"status:1", "status:8", "status:10", "status:18", "bad-magic"}},
        {"usbmux", {"status:2", "status:3", "bad-magic"}},
        {"lockdown", {"error:InvalidHostID", "error:ServiceLimit"}}};
    static std::map<std::string, std::vector<std::string>> all;
    std::vector<std::string>& actions = all[service];
    if (actions.empty()) {
        actions = any;
        if (const auto found = more.find(service); found != more.end()) {
            actions.insert(actions.end(), found->second.begin(), found->second.end());
        }
        std::erase_if(actions, [&](const std::string& action) {
            return !signals().contains(action) && !isPossible(service, action);
        });
    }
    return actions;
}

Counts& Counts::operator+=(const Counts& other) {
    faults += other.faults;
    falseSuccess += other.falseSuccess;
    lost += other.lost;
    overwritten += other.overwritten;
    unlisted += other.unlisted;
    notFinished += other.notFinished;
    foreign += other.foreign;
    notUndone += other.notUndone;
    hangs += other.hangs;
    crashes += other.crashes;
    return *this;
}

std::vector<std::pair<std::string, uint64_t>> columns(const Counts& counts) {
    return {{"faults", counts.faults},     {"false success", counts.falseSuccess},
            {"lost", counts.lost},         {"overwritten", counts.overwritten},
            {"unlisted", counts.unlisted}, {"not finished", counts.notFinished},
            {"foreign", counts.foreign},   {"not undone", counts.notUndone},
            {"hangs", counts.hangs},       {"crashes", counts.crashes}};
}

bool Counts::isClean() const {
    for (const auto& [name, count] : columns(*this)) {
        if (name != "faults" && count != 0) {
            return false;
        }
    }
    return true;
}

Bench::Bench(const fs::path& folder, std::string firmware)
    : root_(folder / "phone"), state_(folder / "state"), firmware_(std::move(firmware)),
      before_(phoneBefore(isOlderLayout(firmware_))) {
    environment_["USBMUXD_SOCKET_ADDRESS"] = bus_.environmentValue();
    environment_["XDG_STATE_HOME"] = state_.string();
}

/// The phone as it was at first, and a computer that has never seen it.
void Bench::renew() {
    if (phone_) {
        bus_.unplug(id_);
    }
    fs::remove_all(state_);
    putFiles(root_, before_);
    phone_ = std::make_shared<virtualphone::Phone>(
        virtualphone::PhoneOptions{.root = root_, .firmware = firmware_});
    id_ = bus_.plug(phone_);
    bus_.log().clear();
}

Ended Bench::run(const Job& job) {
    return runVesk(job.arguments, environment_);
}

Ended Bench::runWith(const Job& job, const Misfortune& misfortune) {
    const auto signal = signals().find(misfortune.action);
    const bool isSignal = signal != signals().end();
    phone_->faults().add(virtualphone::parseFault(
        faultText(misfortune, isSignal ? "delay:100" : misfortune.action)));
    // A phone that is silent is not to take ten seconds each time.
    std::vector<std::string> arguments = job.arguments;
    arguments.insert(arguments.end(), {"--timeout", "0.5"});
    if (!isSignal) {
        return runVesk(arguments, environment_);
    }
    return runVesk(arguments, environment_, [&](int process) {
        const auto met = bus_.log().waitFor([](const auto& entry) { return !entry.fault.empty(); },
                                            std::chrono::seconds(5));
        if (met) {
            kill(process, signal->second);
        }
    });
}

bool Bench::isWanted(const Job& job) const {
    const Ringtones now = ringtonesOf(filesOf(root_));
    return now.isReadable && now.sounds == job.wanted;
}

std::map<std::string, uint32_t> Bench::requestsOf(const Job& job) {
    renew();
    const Ended ended = run(job);
    if (ended.code != 0 || !isWanted(job)) {
        throw std::runtime_error(job.name + " on " + firmware_ + " fails without any fault:\n" +
                                 ended.output);
    }
    std::map<std::string, uint32_t> counts;
    for (const auto& entry : bus_.log().entries()) {
        ++counts[entry.service];
    }
    return counts;
}

Counts Bench::attempt(const Job& job, const Misfortune& misfortune,
                      std::vector<std::string>& said) {
    Counts counts;
    const auto say = [&](const std::string& what, const std::string& output = "") {
        said.push_back(firmware_ + " " + job.name + " " + misfortune.text() + ": " + what +
                       (output.empty() ? "" : "\n" + output));
    };
    const auto judgeRun = [&](const Ended& ended, bool mayBeKilled, const char* which) {
        counts.hangs += ended.hung ? 1U : 0U;
        const bool crashed = ended.signal != 0 && !(mayBeKilled && ended.signal == SIGKILL);
        counts.crashes += crashed ? 1U : 0U;
        if (ended.hung || crashed) {
            say(std::string(which) + (crashed ? " crashed" : " hung"), ended.output);
        }
    };

    renew();
    const Ended first = runWith(job, misfortune);
    judgeRun(first, /*mayBeKilled=*/true, "the run with the fault");
    counts.faults =
        bus_.log().entries([](const auto& entry) { return !entry.fault.empty(); }).empty() ? 0 : 1;
    if (first.code == 0 && first.signal == 0 && !isWanted(job)) {
        ++counts.falseSuccess;
        say("success was claimed", first.output);
    }
    // Nothing of the fault lasts; a phone that was pulled out is plugged in again.
    phone_->faults().clear();
    bus_.unplug(id_);
    id_ = bus_.plug(phone_);

    const Ended second = run(job);
    judgeRun(second, /*mayBeKilled=*/false, "the plain run");
    const size_t saidBefore = said.size();
    judgeEnd(job, counts, said);
    for (size_t i = saidBefore; i < said.size(); ++i) {
        said[i] = firmware_ + " " + job.name + " " + misfortune.text() + ": " + said[i] +
                  "\n--- with the fault\n" + first.output + "--- plain\n" + second.output;
    }

    const Ended undone = runVesk({"undo"}, environment_);
    judgeRun(undone, /*mayBeKilled=*/false, "undo");
    Files after = filesOf(root_);
    std::erase_if(after, [&](const auto& file) {
        return file.first == "com.apple.itunes.lock_sync"; // made by the first lock, and left
    });
    if (after != before_) {
        ++counts.notUndone;
        std::string which;
        for (const auto& [name, bytes] : before_) {
            which += !after.contains(name)     ? " missing: " + name
                     : after.at(name) != bytes ? " other: " + name
                                               : "";
        }
        for (const auto& [name, bytes] : after) {
            which += before_.contains(name) ? "" : " more: " + name;
        }
        say("undo leaves" + which + "\n--- with the fault\n" + first.output + "--- plain\n" +
                second.output,
            "--- undo\n" + undone.output);
    }
    return counts;
}

void Bench::judgeEnd(const Job& job, Counts& counts, std::vector<std::string>& said) const {
    const Files files = filesOf(root_);
    const Ringtones now = ringtonesOf(files);
    uint64_t lost = 0;
    for (const auto& [name, bytes] : job.wanted) {
        const auto found = now.sounds.find(name);
        if (found == now.sounds.end() || found->second.empty()) {
            ++lost;
            said.push_back("lost " + name);
        } else if (found->second != bytes) {
            ++counts.overwritten;
            said.push_back("another sound for " + name);
        }
    }
    counts.lost += lost;
    counts.unlisted += now.unlisted.size();
    for (const std::string& file : now.unlisted) {
        said.push_back("unlisted " + file);
    }
    if (!now.isReadable || now.sounds != job.wanted) {
        ++counts.notFinished;
        said.push_back(now.isReadable ? "not what was wanted" : "unreadable catalogue");
    }
    for (const auto& [name, bytes] : before_) {
        const auto found = files.find(name);
        if (name.starts_with("DCIM") && (found == files.end() || found->second != bytes)) {
            ++counts.foreign;
            said.push_back("touched " + name);
        }
    }
}

} // namespace torture
