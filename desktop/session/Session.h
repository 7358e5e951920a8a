#pragma once

#include "desktop/bridge/EditDesk.h"
#include "desktop/bridge/PhoneDesk.h"
#include "desktop/bridge/PreferenceDesk.h"
#include "desktop/session/EditHistory.h"
#include "desktop/session/Mirroring.h"
#include "desktop/session/PhoneBook.h"
#include "desktop/session/Playing.h"
#include "desktop/session/Words.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace krl::desktop {

/// What fills the window.
enum class Page {
    NoPhone,
    Reading,
    Problem, ///< the phone cannot be used
    Gone,    ///< it was pulled out, and there are edits for it
    Empty,
    List
};

/// What can be done about a message.
enum class Remedy { Dismiss, Finish, TakeBack, PutRight };

/// Something that stays in sight until it is dealt with.
struct Message {
    bool isError = false;
    std::string title;
    std::string text;
    std::string details; ///< behind a button; may be empty
    std::vector<Remedy> remedies;

    friend bool operator==(const Message&, const Message&) = default;
};

/// Something that has happened, for a moment.
struct Toast {
    std::string text;
    std::string undo; ///< what its button says, which takes it back; empty without one
    std::function<void()> onUndo = nullptr;
};

/// A phone to choose from.
struct PhoneChoice {
    std::string key;
    std::string name;

    friend bool operator==(const PhoneChoice&, const PhoneChoice&) = default;
};

/// The folder that a phone mirrors, as the window shows it.
struct MirrorView {
    std::filesystem::path folder;
    MirrorState state = MirrorState::UpToDate;
    bool isAgreed = false;
    std::optional<Explanation> problem = {}; ///< of one that has failed
    std::optional<MirrorPlan> plan = {};     ///< of one that asks
    std::vector<UnusableSong> unusable = {};
};

/// All that the window knows and does, without the window. On the main loop's thread; never waits.
class Session {
public:
    /// @param phones  null: this computer cannot reach phones, for this reason
    /// @param sink    where sound goes, in GStreamer's words; empty: where the desktop's goes
    Session(Mailbox& mailbox, PhoneDesk* phones, std::optional<engine::Failure> noPhones,
            std::string sink);

    /// Keeps what was edited.
    ~Session();

    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // The window is told by these.
    std::function<void()> onChanged = [] {};
    std::function<void(const WorkProgress&)> onProgress = [](const WorkProgress&) {};
    std::function<void(const Toast&)> onToast = [](const Toast&) {};

    /// Devices have come or gone.
    void takeNews();

    // What there is to see.

    Page page() const;
    std::vector<PhoneChoice> phones() const;

    const std::string& currentKey() const { return current_; }

    std::string phoneName() const;

    /// Of the current phone; null without one.
    const PhoneBook* book() const;

    /// Where the rows of the current phone's book stand.
    std::vector<PlacePointer> places() const;

    /// What one of them shows, and whether it is heard.
    Row row(const std::string& key) const;

    /// What has become of rows since the last call; they are all others when the phone is another one.
    RowChanges takeRowChanges();

    /// What was found out about a phone that cannot be used, or about this computer when there is
    /// none.
    const engine::Findings& findings() const;
    Explanation problem() const;
    bool canPair() const;

    std::optional<Message> message() const;

    /// Whether there is work under way on the current phone.
    bool isBusy() const;

    /// What the current phone mirrors; none when it mirrors nothing.
    std::optional<MirrorView> mirror() const;

    /// Whether the current phone could mirror a folder.
    bool canMirror() const;

    bool canSync() const;
    bool canUndo() const;
    bool isBeingCancelled() const;

    /// Whether what is under way can be paused, or is.
    bool canPause() const;

    /// Whether it is asked to stand still; it does before its next ringtone.
    bool isPaused() const;

    /// Why the window has to wait with closing; empty when it need not.
    std::string reasonToStay() const;

    // What a person does.

    void choose(const std::string& key);
    void add(const std::vector<std::filesystem::path>& places);
    void remove(const std::vector<std::string>& keys);
    void bringBack(const std::vector<std::string>& keys);

    /// Gives a row another name, unless something stands against it.
    void rename(const std::string& key, const std::string& name);

    /// Lets a row be heard; one that is, not any more.
    void play(const std::string& key);

    /// How a song of the current phone is cut that is ready to be added; none when nothing can be
    /// changed about it now.
    std::optional<SongCut> cutOf(const std::string& row) const;

    /// Cuts it anew, in the background.
    void cut(const std::string& row, const SongCut& wanted);

    /// What is known of songs.
    SongDesk& songs() { return songs_; }

    /// What the person has chosen once for all.
    PreferenceDesk& preferences() { return preferences_; }

    /// What is heard.
    Playing& playing() { return playing_; }

    /// Takes the last removal or renaming back that has not been.
    void undoEdit();

    void sync();
    void cancel();

    /// Lets a sync stand still, or go on.
    void pause();

    /// Lets the current phone mirror a folder, once the person has seen what that does.
    void mirror(const std::filesystem::path& folder);

    /// Ends that of a phone; what is on it stays.
    void endMirror(const std::string& udid);

    // Of the current phone's mirror.
    void resumeMirror();
    void agreeToMirror();
    void tryMirrorAgain();

    void pair();
    void lookAgain();
    void undo();
    void goBackTo(const engine::Digest& before);
    void apply(Remedy remedy);

private:
    struct Phone {
        std::optional<engine::AttachedDevice> device; ///< while it is attached
        engine::DeviceDescription about;
        PhoneBook book;
        bool isRead = false; ///< since it came
        bool isBeingRead = false;
        std::optional<engine::Failure> failure = {}; ///< it cannot be used
        engine::Findings findings = {};
        std::optional<Message> message = {};
        std::optional<WorkWatch> work = {}; ///< under way
        bool isSync = false;                ///< that work
        EditHistory edits = {};
        std::optional<uint64_t> kept = {}; ///< the version that is kept; none before that is known
        bool isBeingKept = false;
        size_t discards = 0; ///< how often all edits were dropped
    };

    /// Songs that are being added.
    struct Arrival {
        std::string key; ///< of the phone
        std::vector<Edits::Song> songs;
        size_t next;
        size_t discards; ///< of the phone when it began
        std::function<void()> done;
    };

    Phone* phone(const std::string& key);
    const Phone* phone(const std::string& key) const;
    const Phone* currentPhone() const;
    Phone* currentPhone();
    std::string keyOf(const engine::AttachedDevice& device);
    void arrived(const engine::AttachedDevice& device);
    void removed(const engine::AttachedDevice& device);
    void chooseAnother();
    void examineComputer();
    void read(const std::string& key, bool afterWork);
    static void dropFulfilled(Phone& target);
    void examine(const std::string& key);
    void addFiles(const std::string& key, const std::vector<std::filesystem::path>& files);
    void takeSongs(const std::string& key, std::vector<Edits::Song> songs,
                   std::function<void()> done);
    void takeNext(const std::shared_ptr<Arrival>& arrival);
    void takeSong(const std::string& key, const Edits::Song& song);
    void takeUp(const std::string& key);
    void restore(const std::string& key, const KeptEdits& kept);
    void dropEdits(const std::string& key);
    void keepEdits();
    void keep(const std::string& key, Phone& target);
    void hearingChanged();
    MirrorState mirrorStateOf(const std::string& key) const;
    void readMirroring();
    void runMirrors();
    void runMirror(const std::string& key);
    void sendMirror(const std::string& key, const MirrorDesk::Prepared& prepared);
    void mirrorEnded(const std::string& key, const Outcome<MirrorOutcome>& outcome);
    bool goesOnByItself(const std::string& key) const;
    WorkWatch newWatch(const std::string& key);

    /// Has work done on the current phone, unless there is some under way.
    /// @param done  says what came of it, of the phone with this key, which may not be the current one
    ///              any more
    template <typename T>
    void work(std::function<T(const std::string& udid, const WorkWatch&)> action,
              std::function<void(const std::string& key, const T&)> done);
    void failed(const std::string& key, const engine::Failure& failure);
    void change(bool rebuilds);
    void tell(const std::string& key, const ChangeDone& done);
    void endBrokenJob(engine::Wish wish);
    void undoLastSync();

    /// Ends the sound of a row that is not there any more.
    void stopWhatIsGone(const std::string& key);
    void tell(const Playing::Problem& problem);

    void toast(std::string text) { onToast({std::move(text), {}}); }

    void toastWithUndo(const std::string& key, std::string text);

    /// Says what was edited of the current phone, with a button that takes it back.
    void toastEdit(std::string text, EditHistory::TakeBack takeBack);

    /// Tells the window, and keeps the edits once the news of this moment are all heard.
    void changed();

    Mailbox& mailbox_;
    PhoneDesk* const phones_;
    const std::optional<engine::Failure> noPhones_;
    SongDesk songs_;
    Playing playing_;
    EditDesk keeper_;
    PreferenceDesk preferences_;
    Mirroring mirrors_;
    bool willKeep_ = false;
    bool saidThatNothingIsKept_ = false;
    engine::Findings computer_;
    std::map<std::string, Phone> known_; ///< by UDID, or what stands in its place
    std::string current_;
    std::string shown_;         ///< the phone whose rows were asked for last
    Playing::Place heard_ = {}; ///< the row that was heard last
    size_t lastNameless_ = 0;   ///< counts devices that do not say their UDID
};

} // namespace krl::desktop
