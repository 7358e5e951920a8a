#pragma once

#include "engine/plan/Rehearsal.h"

#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace krl::engine {

/// Holds a sync to its plan. Every change is gone through in memory first, and reaches the phone
/// only when it is the plan's next one. A phone that says anything else of a file than it did when
/// the plan was made, or a library that does anything else, ends the sync: nothing more is changed.
/// The folder that is tidied up at the end is the one that was planned with: what came meanwhile
/// stays.
class Guard : public Rehearsal {
public:
    Guard(const PhoneState& before, const Plan& plan) : Rehearsal(before), plan_(plan) {}

    /// From now on the plan is carried out; until then everything may be read and nothing written.
    void begin() { hasBegun_ = true; }

    /// Lets nothing more through.
    void cancel() { stop("it was cancelled"); }

    /// Whether the sync has left its plan, or was cancelled.
    bool isStopped() const { return isStopped_; }

    /// In which way.
    std::string reason() const;

    /// Whether anything has been sent to the phone to be changed.
    bool hasChanged() const { return hasChanged_; }

    /// Whether the phone gave the sync lock.
    bool hasLock() const { return hasLock_; }

    /// Files of the last part that the phone did not delete.
    size_t leftBehind() const { return leftBehind_; }

    int32_t createDirectory(afc_connection* files, const char* path) override;
    int32_t openDirectory(afc_connection* files, const char* path,
                          afc_directory** directory) override;
    int32_t removePath(afc_connection* files, const char* path) override;
    int32_t renamePath(afc_connection* files, const char* from, const char* to) override;
    int32_t openFile(afc_connection* files, const char* path, uint64_t mode,
                     afc_file_ref* file) override;
    int32_t readFile(afc_connection* files, afc_file_ref file, void* buffer,
                     uint32_t* length) override;
    int32_t writeFile(afc_connection* files, afc_file_ref file, const void* bytes,
                      uint32_t count) override;
    int32_t closeFile(afc_connection* files, afc_file_ref file) override;
    int32_t lockFile(afc_connection* files, afc_file_ref file) override;
    int32_t fileInfo(afc_connection* files, const char* path, afc_dictionary** info) override;

private:
    int32_t admit(int32_t status);
    int32_t send(int32_t status, const std::function<int32_t()>& operation);
    bool isPlanned(size_t note) const;
    int32_t stop(const std::string& reason);

    const Plan& plan_;

    /// A file that the library writes.
    struct Written {
        afc_file_ref inMemory = 0;
        std::optional<afc_file_ref> onPhone = {}; ///< none before the catalogue's first bytes
    };

    std::map<afc_file_ref, Written> written_; ///< by the handle that the library has
    std::atomic<bool> hasBegun_{false};
    std::atomic<bool> isStopped_{false};
    std::atomic<bool> hasChanged_{false};
    std::atomic<bool> hasLock_{false};
    std::atomic<size_t> leftBehind_{0};
    mutable std::mutex mutex_; ///< guards reason_
    std::string reason_;
};

} // namespace krl::engine
