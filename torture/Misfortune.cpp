#include "torture/Misfortune.h"

#include "torture/Jobs.h"
#include "torture/disk/Shim.h"
#include "virtualphone/VirtualPhone.h"

#include <algorithm>
#include <csignal>
#include <sstream>
#include <stdexcept>

namespace torture {
namespace {

/// What an action is, in the table of kinds.
const std::map<std::string, std::string>& kinds() {
    static const std::map<std::string, std::string> kinds{
        {"SIGINT", "vesk gets a signal"},          {"SIGTERM", "vesk gets a signal"},
        {"SIGKILL", "vesk gets a signal"},         {kPhoneFull, "the phone is full"},
        {kPhoneNearlyFull, "the phone is full"},   {kLockTaken, "the sync lock is taken"},
        {kOtherProgram, "another program writes"}, {kOtherVesk, "another vesk writes"},
        {kOtherUser, "another vesk writes"},       {kReplugged, "pulled out and put back"},
        {kSwapped, "another phone is there"},      {kSwappedChosen, "another phone is there"},
        {kKilled, "killed at a disk call"},        {kPowerCut, "the power is cut"},
        {kPowerCutBytes, "the power is cut"},      {kFull, "the disk is full"},
        {kFullOnce, "the disk is full"},           {kFailing, "the disk fails"}};
    return kinds;
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

std::vector<std::string> answersOf(const std::string& service) {
    static const std::vector<std::string> any{
        "drop",     "silent",       "unplug",          "drop-unanswered", "drop-after-answer",
        "delay:30", "cut",          "stall",           "short",           "long",
        "garbled",  "wrong-number", "wrong-operation", "tiny-length",     "huge-length"};
    static const std::map<std::string, std::vector<std::string>> more{
        {"afc", {"status:1", "status:8", "status:10", "status:18", "bad-magic"}},
        {"usbmux", {"status:2", "status:3", "bad-magic"}},
        {"lockdown", {"error:InvalidHostID", "error:ServiceLimit"}}};
    std::vector<std::string> answers = any;
    if (const auto found = more.find(service); found != more.end()) {
        answers.insert(answers.end(), found->second.begin(), found->second.end());
    }
    std::erase_if(answers, [&](const std::string& answer) { return !isPossible(service, answer); });
    return answers;
}

std::vector<std::string> actionsAt(const Job& job, const std::string& place) {
    if (place == Misfortune::kDisk) {
        return {kKilled, kPowerCut, kPowerCutBytes, kFull, kFullOnce, kFailing};
    }
    std::vector<std::string> actions = answersOf(place);
    actions.insert(actions.end(), {"SIGINT", "SIGTERM", "SIGKILL", kPhoneFull, kPhoneNearlyFull,
                                   kLockTaken, kReplugged, kSwapped, kSwappedChosen});
    if (job.others != Job::Others::NotTried) {
        actions.insert(actions.end(), {kOtherProgram, kOtherVesk, kOtherUser});
    }
    return actions;
}

} // namespace

std::string Misfortune::text() const {
    return place + "#" + std::to_string(number) + "=" + action;
}

bool Misfortune::isAnswer() const {
    return !kinds().contains(action);
}

bool Misfortune::isPrivate() const {
    return isAnswer() || isOnDisk() || signalOf(action) != 0;
}

std::string Misfortune::kind() const {
    return isAnswer() ? "the phone's answers" : kinds().at(action);
}

std::string textOf(const std::vector<Misfortune>& misfortunes) {
    std::string text;
    for (const Misfortune& misfortune : misfortunes) {
        text += (text.empty() ? "" : ",") + misfortune.text();
    }
    return text;
}

std::vector<Misfortune> misfortunesIn(const std::string& text) {
    std::vector<Misfortune> misfortunes;
    std::istringstream list(text);
    for (std::string one; std::getline(list, one, ',');) {
        const size_t number = one.find('#');
        const size_t action = one.find('=');
        if (number == std::string::npos || action == std::string::npos || action < number) {
            throw std::invalid_argument("\"" + one + "\" is no misfortune, such as afc#12=silent");
        }
        misfortunes.push_back({one.substr(0, number),
                               static_cast<uint32_t>(std::stoul(one.substr(number + 1))),
                               one.substr(action + 1)});
    }
    return misfortunes;
}

int signalOf(const std::string& action) {
    static const std::map<std::string, int> signals{
        {"SIGINT", SIGINT}, {"SIGTERM", SIGTERM}, {"SIGKILL", SIGKILL}};
    const auto found = signals.find(action);
    return found == signals.end() ? 0 : found->second;
}

std::vector<Misfortune> misfortunesOf(const Job& job, const Occasions& occasions) {
    std::vector<Misfortune> all;
    for (const auto& [place, count] : occasions) {
        const std::vector<std::string> actions = actionsAt(job, place);
        for (uint32_t number = 1; number <= count; ++number) {
            for (const std::string& action : actions) {
                all.push_back({place, number, action});
            }
        }
    }
    return all;
}

} // namespace torture
