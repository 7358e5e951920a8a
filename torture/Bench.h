/// A computer with a phone attached, on which jobs are tried.
#pragma once

#include "torture/Jobs.h"
#include "torture/Misfortune.h"
#include "torture/PhoneContents.h"
#include "torture/Program.h"
#include "virtualphone/VirtualPhone.h"

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace torture {

/// What a job does when nothing happens.
struct Course {
    Occasions occasions;
    size_t descriptors = 0; ///< open when vesk ends
};

class Bench {
public:
    /// @param vesk  the program that is tried
    Bench(const std::filesystem::path& folder, std::string firmware, std::string vesk);

    const std::string& firmware() const { return firmware_; }

    const std::vector<Job>& jobs() const { return jobs_; }

    /// @throw std::runtime_error when the job does not bring what is wanted
    Course courseOf(const Job& job);

    /// The phone and the computer as a job finds them.
    void renew(const Job& job);

    // One run of vesk.

    Ended run(const std::vector<std::string>& arguments) const;
    std::unique_ptr<Program> start(const std::vector<std::string>& arguments) const;

    /// What happens at a call to the disk.
    std::unique_ptr<Program> start(const std::vector<std::string>& arguments,
                                   const Misfortune& misfortune) const;

    /// By somebody else who has the same phone, with the same safe or one of his own.
    std::unique_ptr<Program> startOther(const std::vector<std::string>& arguments,
                                        bool hasOwnSafe) const;

    /// What the last run counted; nothing when it did not end of its own accord.
    struct DiskReport {
        unsigned calls = 0;
        std::vector<std::string> descriptors; ///< what those are of that were open at the end
    };

    std::optional<DiskReport> diskReport() const;

    // The phone.

    virtualphone::Bus& bus() { return bus_; }

    virtualphone::Phone& phone() { return *phone_; }

    virtualphone::Faults& faultsOf(const std::string& place);

    /// Everything on it but the file that its sync lock leaves.
    Files files() const;

    void replug();

    /// Pulls it out and plugs another one in, with the same ringtones.
    void swap();

    /// What that one holds; nothing when there is none.
    std::optional<Files> otherFiles() const;

    /// Takes the other one away, takes every fault back and plugs the phone in again.
    void makeWell();

    bool addAsOtherProgram(const Addition& addition);

    /// What the phone held before any job.
    const Files& before() const { return before_; }

    const Addition& addition() const { return addition_; }

    /// Another one, that nobody else knows.
    const Addition& lastAddition() const { return lastAddition_; }

private:
    struct Beginning {
        Files phone;
        Files computer;
    };

    const Beginning& beginningOf(const Job& job);
    Beginning prepare(const Job& job);
    void put(const Beginning& beginning);
    std::map<std::string, std::string> watchedEnvironment() const;
    std::unique_ptr<Program> startVesk(const std::vector<std::string>& arguments,
                                       const std::map<std::string, std::string>& environment) const;

    std::filesystem::path folder_;
    std::string firmware_;
    std::string vesk_;
    std::vector<Job> jobs_;
    Addition addition_;
    Addition lastAddition_;
    Files before_;
    std::map<std::string, Beginning> beginnings_; ///< by the job's name
    virtualphone::Bus bus_;
    std::shared_ptr<virtualphone::Phone> phone_;
    uint32_t id_ = 0;
    std::shared_ptr<virtualphone::Phone> other_;
    uint32_t otherId_ = 0;
};

} // namespace torture
