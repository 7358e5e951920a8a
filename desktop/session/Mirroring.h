#pragma once

#include "desktop/bridge/MirrorDesk.h"
#include "desktop/bridge/PreferenceDesk.h"

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace krl::desktop {

/// The folders that phones mirror, by the phones' UDIDs: which they are, when one is due, and what came
/// of it. On the main loop's thread. When something of one has changed, it says so.
class Mirroring {
public:
    Mirroring(Mailbox& mailbox, PreferenceDesk& preferences);

    std::function<void()> onChanged = [] {};

    /// The folder of a phone cannot be watched.
    std::function<void(const std::string& phone)> onNotWatched = [](const std::string&) {};

    /// What has become of a mirror since the phone came.
    struct Run {
        bool isDue = false;
        bool isAtWork = false;
        std::optional<MirrorPlan> question = {}; ///< for the person
        std::set<Loss> agreed = {};              ///< by the person, until it is done
        std::optional<engine::Failure> failure = {};
        std::vector<UnusableSong> unusable = {};
    };

    /// Null when the phone mirrors none.
    const Mirror* find(const std::string& udid) const;

    const Run& run(const std::string& udid) const;

    /// The preferences were read.
    void begin();

    /// The phone mirrors this folder from now on, once the person has seen what that does.
    /// @param history  of the phone: what was taken back there is left at that
    void choose(const std::string& udid, const std::string& phone,
                const std::filesystem::path& folder, const std::vector<PastJob>& history);

    /// @return what brings it back
    std::function<void()> stop(const std::string& udid);

    void pause(const std::string& udid);
    void resume(const std::string& udid, const std::vector<PastJob>& history);

    /// What is on the phone may not be what is in the folder.
    void makeDue(const std::string& udid);

    /// Pauses it when the phone's last job was taken back, by whatever program: the same would be done
    /// again.
    void heed(const std::string& udid, const std::vector<PastJob>& history);

    /// The person agrees to what was asked.
    void agree(const std::string& udid);

    using Prepared = std::function<void(const MirrorDesk::Prepared&)>;

    /// Begins a run: the songs are prepared.
    void prepare(const std::string& udid, const PhoneReading& phone, const WorkWatch& watch,
                 Prepared answer);

    MirrorTerms terms(const std::string& udid) const;

    // How a run ends.

    void ended(const std::string& udid, const MirrorDone& done);
    void ended(const std::string& udid, const MirrorPlan& question);
    void ended(const std::string& udid, const engine::Failure& failure);

private:
    void change(const std::string& udid, const std::function<void(Mirror& mirror)>& function);
    void set(const std::string& udid, const Mirror& mirror);

    PreferenceDesk& preferences_;
    std::map<std::string, Run> runs_;
    MirrorDesk desk_;
};

} // namespace krl::desktop
