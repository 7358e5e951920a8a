/// One job met by one fault, the plain run after it, and what is left.
#pragma once

#include "torture/Jobs.h"
#include "torture/PhoneContents.h"
#include "torture/Program.h"
#include "virtualphone/VirtualPhone.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace torture {

/// What a fault does: one of the virtual phone's, or a signal to vesk at that request.
struct Misfortune {
    std::string service;  ///< "usbmux", "lockdown", "afc", "notification_proxy"
    uint32_t request = 1; ///< counted over the service's
    std::string action;   ///< as a fault's text form says it, or "SIGINT", "SIGTERM", "SIGKILL"

    std::string text() const;
};

/// All that can happen at one request of a service.
const std::vector<std::string>& actionsFor(const std::string& service);

/// What was found, counted over many trials.
struct Counts {
    uint64_t faults = 0;       ///< that were met
    uint64_t falseSuccess = 0; ///< exit code 0 and the phone is not as wanted
    uint64_t lost = 0;         ///< ringtones that should be there after the plain run and are not
    uint64_t overwritten = 0;  ///< ringtones with another sound then
    uint64_t unlisted = 0;     ///< files with sound that no catalogue has then
    uint64_t notFinished = 0;  ///< plain runs that did not bring what was wanted
    uint64_t foreign = 0;      ///< files outside of the ringtones that were touched
    uint64_t notUndone = 0;    ///< phones that undo did not bring back byte for byte
    uint64_t hangs = 0;
    uint64_t crashes = 0;

    Counts& operator+=(const Counts& other);
    bool isClean() const;
};

/// The names of the columns and their values, in one order.
std::vector<std::pair<std::string, uint64_t>> columns(const Counts& counts);

/// A computer with one phone attached.
class Bench {
public:
    Bench(const std::filesystem::path& folder, std::string firmware);

    /// The requests that a job makes when nothing happens, by service.
    /// @throw std::runtime_error when it does not bring what is wanted then
    std::map<std::string, uint32_t> requestsOf(const Job& job);

    /// @param said  gets a line for each thing that is wrong
    Counts attempt(const Job& job, const Misfortune& misfortune, std::vector<std::string>& said);

private:
    void renew();
    Ended run(const Job& job);
    Ended runWith(const Job& job, const Misfortune& misfortune);
    bool isWanted(const Job& job) const;
    void judgeEnd(const Job& job, Counts& counts, std::vector<std::string>& said) const;

    std::filesystem::path root_;
    std::filesystem::path state_;
    std::string firmware_;
    Files before_;
    virtualphone::Bus bus_;
    std::shared_ptr<virtualphone::Phone> phone_;
    uint32_t id_ = 0;
    std::map<std::string, std::string> environment_;
};

} // namespace torture
