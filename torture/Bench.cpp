#include "torture/Bench.h"

#include "torture/disk/Shim.h"

#include <fstream>
#include <stdexcept>
#include <utility>

namespace torture {
namespace {

namespace fs = std::filesystem;

constexpr char kStateVariable[] = "XDG_STATE_HOME";

bool isOlderLayout(const std::string& firmware) {
    return firmware == "1.0.2" || firmware == "1.1.1";
}

/// Beside this program.
std::string diskLibrary() {
    return (fs::read_symlink("/proc/self/exe").parent_path() / "libtorture_disk.so").string();
}

Files withoutLock(Files files) {
    files.erase("com.apple.itunes.lock_sync"); // made by the first lock, and left
    return files;
}

} // namespace

Bench::Bench(const fs::path& folder, std::string firmware, std::string vesk)
    : folder_(folder), firmware_(std::move(firmware)), vesk_(std::move(vesk)),
      jobs_(makeJobs(folder / "files")), addition_(makeAddition(folder / "files", "Added")),
      lastAddition_(makeAddition(folder / "files", "Last")),
      before_(phoneBefore(isOlderLayout(firmware_))) {}

Course Bench::courseOf(const Job& job) {
    renew(job);
    const Ended ended = run(job.arguments);
    const Ringtones now = ringtonesOf(files());
    const auto report = diskReport();
    if (ended.code != 0 || !now.isReadable || now.sounds != job.wanted || !report) {
        throw std::runtime_error(job.name + " on " + firmware_ +
                                 " fails without any misfortune:\n" + ended.output);
    }
    Course course{.occasions = {{Misfortune::kDisk, report->calls}},
                  .descriptors = report->descriptors.size()};
    for (const auto& entry : bus_.log().entries()) {
        ++course.occasions[entry.service];
    }
    return course;
}

void Bench::renew(const Job& job) {
    put(beginningOf(job));
}

const Bench::Beginning& Bench::beginningOf(const Job& job) {
    const auto known = beginnings_.find(job.name);
    return known != beginnings_.end() ? known->second
                                      : beginnings_.emplace(job.name, prepare(job)).first->second;
}

Bench::Beginning Bench::prepare(const Job& job) {
    put({before_, {}});
    for (const auto& arguments : job.first) {
        if (const Ended ended = run(arguments); ended.code != 0) {
            throw std::runtime_error("what comes before " + job.name + " fails:\n" + ended.output);
        }
    }
    return {filesOf(folder_ / "phone"), filesOf(folder_ / "state")};
}

/// A computer and a phone that hold this and nothing else.
void Bench::put(const Beginning& beginning) {
    if (phone_) {
        bus_.unplug(id_);
    }
    for (const char* name : {"state", "state.kept", "other-state", "other-phone"}) {
        fs::remove_all(folder_ / name);
    }
    putFiles(folder_ / "state", beginning.computer);
    putFiles(folder_ / "phone", beginning.phone);
    phone_ = std::make_shared<virtualphone::Phone>(
        virtualphone::PhoneOptions{.root = folder_ / "phone", .firmware = firmware_});
    id_ = bus_.plug(phone_);
    bus_.log().clear();
}

std::map<std::string, std::string> Bench::watchedEnvironment() const {
    return {{"USBMUXD_SOCKET_ADDRESS", bus_.environmentValue()},
            {kStateVariable, folder_ / "state"},
            {"LD_PRELOAD", diskLibrary()},
            {kDiskFolder, folder_ / "state"},
            {kDiskReport, folder_ / "report"}};
}

Ended Bench::run(const std::vector<std::string>& arguments) const {
    return start(arguments)->wait();
}

std::unique_ptr<Program> Bench::start(const std::vector<std::string>& arguments) const {
    fs::remove(folder_ / "report");
    return startVesk(arguments, watchedEnvironment());
}

std::unique_ptr<Program> Bench::start(const std::vector<std::string>& arguments,
                                      const Misfortune& misfortune) const {
    fs::remove(folder_ / "report");
    auto environment = watchedEnvironment();
    environment[kDiskCall] = std::to_string(misfortune.number);
    environment[kDiskAction] = misfortune.action;
    return startVesk(arguments, environment);
}

std::unique_ptr<Program> Bench::startOther(const std::vector<std::string>& arguments,
                                           bool hasOwnSafe) const {
    return startVesk(arguments,
                     {{"USBMUXD_SOCKET_ADDRESS", bus_.environmentValue()},
                      {kStateVariable, folder_ / (hasOwnSafe ? "other-state" : "state")}});
}

std::unique_ptr<Program>
Bench::startVesk(const std::vector<std::string>& arguments,
                 const std::map<std::string, std::string>& environment) const {
    std::vector<std::string> command{vesk_};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return std::make_unique<Program>(std::move(command), environment);
}

std::optional<Bench::DiskReport> Bench::diskReport() const {
    std::ifstream file(folder_ / "report");
    DiskReport report;
    if (!(file >> report.calls >> std::ws)) {
        return std::nullopt;
    }
    for (std::string line; std::getline(file, line);) {
        report.descriptors.push_back(line);
    }
    return report;
}

/// What the mux daemon answers itself goes wrong on the bus, all else on the phone.
virtualphone::Faults& Bench::faultsOf(const std::string& place) {
    return place == "usbmux" ? bus_.faults() : phone_->faults();
}

Files Bench::files() const {
    return withoutLock(filesOf(folder_ / "phone"));
}

void Bench::replug() {
    bus_.unplug(id_);
    id_ = bus_.plug(phone_);
}

void Bench::swap() {
    bus_.unplug(id_);
    putFiles(folder_ / "other-phone", before_);
    other_ = std::make_shared<virtualphone::Phone>(
        virtualphone::PhoneOptions{.root = folder_ / "other-phone", .firmware = firmware_});
    otherId_ = bus_.plug(other_);
}

std::optional<Files> Bench::otherFiles() const {
    return fs::exists(folder_ / "other-phone")
               ? std::optional(withoutLock(filesOf(folder_ / "other-phone")))
               : std::nullopt;
}

void Bench::makeWell() {
    constexpr uint64_t kPlenty = uint64_t{1} << 30;
    if (other_) {
        bus_.unplug(otherId_);
        other_.reset();
    }
    phone_->faults().clear();
    bus_.faults().clear();
    phone_->releaseSyncLock();
    phone_->setFreeBytes(kPlenty);
    replug();
}

/// A program that keeps to the lock comes only when it is free.
bool Bench::addAsOtherProgram(const Addition& addition) {
    if (!phone_->holdSyncLock()) {
        return false;
    }
    putRingtone(folder_ / "phone", addition.name, addition.sound);
    phone_->releaseSyncLock();
    return true;
}

} // namespace torture
