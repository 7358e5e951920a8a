#pragma once

#include "engine/files/RegularFile.h"
#include "engine/values/Digest.h"

#include <chrono>
#include <compare>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>

namespace krl::engine {

/// Digests of files of this computer, which are kept from one run to the next, so that a file that
/// was not touched since is not read again. What is wrong with the place where they are kept is no
/// failure: files are read then.
class ContentDigests {
public:
    using Clock = std::chrono::system_clock;

    /// @param place a file; empty: nothing is kept
    /// @param now   the time by which files are told that were touched a moment ago
    explicit ContentDigests(std::filesystem::path place = defaultPlace(),
                            std::function<Clock::time_point()> now = Clock::now);

    /// Keeps what was learned.
    ~ContentDigests();

    ContentDigests(const ContentDigests&) = delete;
    ContentDigests& operator=(const ContentDigests&) = delete;

    /// "digests" in the program's folder for what can be worked out again.
    static std::filesystem::path defaultPlace();

    /// @throw Failure when it cannot be read
    Digest of(const RegularFile& file);

private:
    /// A file with its times, as long as nobody touches it. Its path does not count.
    struct Identity {
        uint64_t device = 0;
        uint64_t inode = 0;
        uint64_t size = 0;
        int64_t modified = 0; ///< in nanoseconds
        int64_t changed = 0;  ///< of the inode too, which no program can turn back

        friend auto operator<=>(const Identity&, const Identity&) = default;
    };

    static Identity identityOf(const RegularFile& file);
    void load();
    void save() const;

    std::filesystem::path place_;
    std::function<Clock::time_point()> now_;
    std::map<Identity, Digest> known_;
    std::map<Identity, Digest> used_; ///< in this run
    bool learned_ = false;
};

} // namespace krl::engine
