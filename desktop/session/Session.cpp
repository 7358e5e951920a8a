#include "desktop/session/Session.h"

#include "desktop/session/MirrorWords.h"
#include "desktop/session/Translation.h"
#include "engine/files/PlaceOfState.h"
#include "engine/phones/Pairing.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <type_traits>
#include <utility>

namespace krl::desktop {

using namespace engine;

namespace {

std::string nameOf(const DeviceDescription& about) {
    return about.name.empty() ? _("The phone") : about.name;
}

Message errorMessage(const Explanation& explanation) {
    return {.isError = true,
            .title = explanation.title,
            .text = explanation.advice,
            .details = explanation.details,
            .remedies = {Remedy::Dismiss}};
}

Message brokenJobMessage(const std::string& phone) {
    return {.title = fmt::format(fmt::runtime(_("The last sync of “{}” was interrupted")), phone),
            .text = _("It can be finished, or the phone put back as it was before. Until then its "
                      "list may be incomplete."),
            .details = {},
            .remedies = {Remedy::TakeBack, Remedy::Finish}};
}

Message damagedMessage(const std::string& phone) {
    return {.title =
                fmt::format(fmt::runtime(_("The list of ringtones on “{}” is damaged")), phone),
            .text = _("It can be put right; the ringtones stay."),
            .details = {},
            .remedies = {Remedy::PutRight}};
}

/// No version of any edits.
constexpr std::optional<uint64_t> kNeverKept = std::numeric_limits<uint64_t>::max();

Message unknownFirmwareMessage() {
    return {.title = _("The ringtones of this phone can only be looked at"),
            .text = _("Custom ringtones can be changed on firmware 1.0 and 1.1."),
            .details = {},
            .remedies = {}};
}

} // namespace

Session::Session(Mailbox& mailbox, PhoneDesk* phones, std::optional<Failure> noPhones,
                 std::string sink)
    : mailbox_(mailbox), phones_(phones), noPhones_(std::move(noPhones)), songs_(mailbox),
      playing_(mailbox, phones, std::move(sink)), keeper_(mailbox, placeOfState()),
      preferences_(mailbox, placeOfPreferences()), mirrors_(mailbox, preferences_) {
    mirrors_.onChanged = [this] { changed(); };
    mirrors_.onNotWatched = [this](const std::string& name) {
        toast(fmt::format(
            fmt::runtime(_("Changes of the folder that “{}” mirrors are not noticed")), name));
    };
    preferences_.whenRead([this] {
        mirrors_.begin();
        readMirroring();
    });
    preferences_.onProblem = [this](PreferenceDesk::Problem problem) {
        toast(preferenceProblemText(problem));
    };
    playing_.onChanged = [this] { hearingChanged(); };
    playing_.onProblem = [this](const Playing::Problem& problem) { tell(problem); };
    examineComputer();
}

Session::~Session() {
    for (auto& [key, phone] : known_) {
        keep(key, phone);
        if (phone.work) {
            *phone.work->isCancelled = true; // nobody waits for what is being prepared
        }
    }
}

void Session::changed() {
    onChanged();
    if (!std::exchange(willKeep_, true)) {
        mailbox_.put([this] {
            keepEdits();
            runMirrors();
        });
    }
}

// ---------------------------------------------------------------- phones as they come and go

void Session::takeNews() {
    for (const DeviceNews::Item& item : phones_->takeNews()) {
        if (item.arrived) {
            arrived(item.device);
        } else {
            removed(item.device);
        }
    }
    changed();
}

/// A device that does not say its UDID is another each time it comes.
std::string Session::keyOf(const AttachedDevice& device) {
    return device.description.udid.empty() ? fmt::format("device {}", ++lastNameless_)
                                           : device.description.udid;
}

void Session::arrived(const AttachedDevice& device) {
    const std::string key = keyOf(device);
    const bool isNew = !known_.contains(key);
    Phone& phone = known_[key];
    phone.device = device;
    phone.about = device.description;
    phone.isRead = false;
    phone.failure.reset();
    phone.message.reset();
    if (isNew) {
        takeUp(key);
    }
    mirrors_.makeDue(key);
    const Phone* current = currentPhone();
    if (key == current_ || current == nullptr || (!current->device && !current->book.hasEdits())) {
        current_ = key;
        read(key, /*afterWork=*/true);
    } else if (mirrors_.find(key) != nullptr) {
        read(key, /*afterWork=*/true);
    }
}

void Session::removed(const AttachedDevice& device) {
    for (auto& [key, phone] : known_) {
        if (phone.device && phone.device->device == device.device) {
            phone.device.reset();
            phone.isRead = false;
            if (!phone.work && (key != current_ || !phone.book.hasEdits())) {
                toast(fmt::format(fmt::runtime(_("“{}” was unplugged")), nameOf(phone.about)));
            }
        }
    }
    const Phone* current = currentPhone();
    if (current != nullptr && !current->device && !current->book.hasEdits() && !current->work) {
        chooseAnother();
    }
}

void Session::chooseAnother() {
    current_.clear();
    for (const auto& [key, phone] : known_) {
        if (phone.device) {
            choose(key);
            return;
        }
    }
    examineComputer();
}

void Session::examineComputer() {
    if (phones_ == nullptr) {
        return;
    }
    phones_->ask<Findings>(engine::examineComputer, [this](const Outcome<Findings>& outcome) {
        if (const auto* findings = std::get_if<Findings>(&outcome)) {
            computer_ = *findings;
            changed();
        }
    });
}

void Session::choose(const std::string& key) {
    Phone* const chosen = phone(key);
    if (chosen == nullptr) {
        return;
    }
    current_ = key;
    if (chosen->device && !chosen->isRead && !chosen->work) {
        read(key, /*afterWork=*/false);
    }
    changed();
}

// ---------------------------------------------------------------- reading

void Session::read(const std::string& key, bool afterWork) {
    Phone& target = *phone(key);
    if (!target.device || target.isBeingRead) {
        return;
    }
    if (!target.about.reachable || !target.about.isIphone()) {
        target.failure =
            Failure(target.about.reachable ? FailureKind::NotAnIphone : FailureKind::CannotOpen,
                    target.about.label());
        examine(key);
        return;
    }
    target.isBeingRead = true;
    using Read = std::shared_ptr<const Holdings>;
    phones_->ask<Read>(
        [udid = target.about.udid] { return std::make_shared<const Holdings>(readPhone(udid)); },
        [this, key, afterWork](const Outcome<Read>& outcome) {
            Phone& readOne = *phone(key);
            readOne.isBeingRead = false;
            if (const auto* holdings = std::get_if<Read>(&outcome)) {
                readOne.isRead = readOne.device.has_value();
                readOne.failure.reset();
                readOne.book.take(*holdings);
                if (afterWork) {
                    readOne.edits.forget();
                    dropFulfilled(readOne);
                    playing_.forget(key);
                }
                stopWhatIsGone(key);
                mirrors_.heed(key, readOne.book.reading()->history);
            } else if (readOne.device) {
                readOne.failure = std::get<Failure>(outcome);
                examine(key);
            }
            changed();
        });
}

/// Not from a list that was read before the work under way, which knows nothing of what that sends.
void Session::dropFulfilled(Phone& target) {
    if (target.isRead && !target.work) {
        target.book.dropFulfilled();
    }
}

void Session::examine(const std::string& key) {
    phones_->ask<Findings>([device = *phone(key)->device] { return examinePhone(device); },
                           [this, key](const Outcome<Findings>& outcome) {
                               if (const auto* findings = std::get_if<Findings>(&outcome)) {
                                   phone(key)->findings = *findings;
                                   changed();
                               }
                           });
}

void Session::lookAgain() {
    Phone* const target = currentPhone();
    if (target == nullptr || !target->device) {
        examineComputer();
        return;
    }
    target->isBeingRead = true;
    changed();
    phones_->ask<DeviceDescription>(
        [device = target->device->device] { return describe(device); },
        [this, key = current_](const Outcome<DeviceDescription>& outcome) {
            Phone& asked = *phone(key);
            asked.isBeingRead = false;
            if (const auto* about = std::get_if<DeviceDescription>(&outcome); asked.device) {
                asked.about = about == nullptr ? asked.about : *about;
                asked.device->description = asked.about;
                read(key, /*afterWork=*/false);
            }
            changed();
        });
}

void Session::pair() {
    Phone* const target = currentPhone();
    if (target == nullptr || !target->device || target->isBeingRead) {
        return;
    }
    target->isBeingRead = true;
    changed();
    phones_->ask<Pairing>([device = *target->device] { return engine::pair(device); },
                          [this, key = current_](const Outcome<Pairing>& outcome) {
                              Phone& asked = *phone(key);
                              asked.isBeingRead = false;
                              if (const auto* failure = std::get_if<Failure>(&outcome)) {
                                  toast(explained(*failure, nameOf(asked.about)).advice);
                              }
                              if (key == current_) {
                                  lookAgain();
                              }
                              changed();
                          });
}

// ---------------------------------------------------------------- what there is to see

Session::Phone* Session::phone(const std::string& key) {
    const auto found = known_.find(key);
    return found == known_.end() ? nullptr : &found->second;
}

const Session::Phone* Session::phone(const std::string& key) const {
    const auto found = known_.find(key);
    return found == known_.end() ? nullptr : &found->second;
}

const Session::Phone* Session::currentPhone() const {
    return phone(current_);
}

Session::Phone* Session::currentPhone() {
    return phone(current_);
}

Page Session::page() const {
    const Phone* current = currentPhone();
    if (current == nullptr) {
        return noPhones_ ? Page::Problem : Page::NoPhone;
    }
    if (!current->device) {
        return Page::Gone;
    }
    if (current->failure && !current->isBeingRead) {
        return Page::Problem;
    }
    if (!current->isRead && !current->work) {
        return Page::Reading;
    }
    return current->book.isEmpty() ? Page::Empty : Page::List;
}

std::vector<PhoneChoice> Session::phones() const {
    std::vector<PhoneChoice> result;
    for (const auto& [key, phone] : known_) {
        if (phone.device || phone.book.hasEdits() || key == current_) {
            result.push_back({.key = key, .name = nameOf(phone.about)});
        }
    }
    return result;
}

std::string Session::phoneName() const {
    const Phone* current = currentPhone();
    return current == nullptr ? std::string() : nameOf(current->about);
}

const PhoneBook* Session::book() const {
    const Phone* current = currentPhone();
    return current == nullptr ? nullptr : &current->book;
}

std::vector<PlacePointer> Session::places() const {
    return book() == nullptr ? std::vector<PlacePointer>() : book()->places();
}

Row Session::row(const std::string& key) const {
    Row row = book() == nullptr ? Row{.key = key} : book()->row(key);
    row.hearing = playing_.hearingOf({current_, key});
    return row;
}

RowChanges Session::takeRowChanges() {
    Phone* const current = currentPhone();
    RowChanges changes = current == nullptr ? RowChanges{} : current->book.takeChanges();
    changes.areAll = std::exchange(shown_, current_) != current_ || changes.areAll;
    return changes;
}

const Findings& Session::findings() const {
    const Phone* current = currentPhone();
    return current == nullptr ? computer_ : current->findings;
}

Explanation Session::problem() const {
    const Phone* current = currentPhone();
    if (current != nullptr && current->failure) {
        return explained(*current->failure, nameOf(current->about));
    }
    return noPhones_ ? explained(*noPhones_, {}) : Explanation{};
}

bool Session::canPair() const {
    const Phone* current = currentPhone();
    if (current == nullptr || !current->device || !current->about.isIphone()) {
        return false;
    }
    for (const Finding& finding : current->findings) {
        if (!finding.good && (finding.check == "pair-record" || finding.check == "pairing")) {
            return true;
        }
    }
    return current->failure && current->failure->kind() == FailureKind::NotPaired;
}

std::optional<Message> Session::message() const {
    const Phone* current = currentPhone();
    if (current == nullptr || current->work) {
        return std::nullopt;
    }
    if (current->message) {
        return current->message;
    }
    if (!current->device || !current->isRead || !current->book.reading()) {
        return std::nullopt;
    }
    const PhoneReading& reading = *current->book.reading();
    const std::string name = nameOf(current->about);
    if (reading.brokenJob && !goesOnByItself(current_)) {
        return brokenJobMessage(name);
    }
    if (!isKnownFirmware(reading.facts.firmware)) {
        return unknownFirmwareMessage();
    }
    if (reading.catalogueIsUnreadable) {
        return damagedMessage(name);
    }
    return std::nullopt;
}

bool Session::isBusy() const {
    const Phone* current = currentPhone();
    return current != nullptr && current->work;
}

std::string Session::reasonToStay() const {
    std::string reason;
    for (const auto& [key, phone] : known_) {
        if (phone.work && *phone.work->isPaused && !*phone.work->isCancelled) {
            return _("The sync is paused: let it go on, or cancel it");
        }
        if (phone.work) {
            reason = _("Wait until the sync is done, or cancel it");
        }
    }
    return reason;
}

bool Session::canPause() const {
    return isBusy() && currentPhone()->isSync && !isBeingCancelled();
}

bool Session::isPaused() const {
    return canPause() && *currentPhone()->work->isPaused;
}

bool Session::isBeingCancelled() const {
    return isBusy() && *currentPhone()->work->isCancelled;
}

bool Session::canSync() const {
    const Phone* current = currentPhone();
    return current != nullptr && current->device && current->isRead && !current->work &&
           current->book.sum().changes() > 0 && current->book.fits() &&
           isKnownFirmware(current->about.firmware);
}

bool Session::canUndo() const {
    const Phone* current = currentPhone();
    if (current == nullptr || !current->isRead || current->work || !current->book.reading()) {
        return false;
    }
    const std::vector<PastJob>& history = current->book.reading()->history;
    return std::any_of(history.begin(), history.end(),
                       [](const PastJob& job) { return !job.isUndone; });
}

// ---------------------------------------------------------------- edits

void Session::add(const std::vector<std::filesystem::path>& places) {
    if (currentPhone() == nullptr) {
        toast(_("Plug in an iPhone first"));
        return;
    }
    songs_.listFiles(places,
                     [this, key = current_](const std::vector<std::filesystem::path>& files) {
                         preferences_.whenRead([this, key, files] { addFiles(key, files); });
                     });
}

void Session::addFiles(const std::string& key, const std::vector<std::filesystem::path>& files) {
    if (files.empty()) {
        toast(_("There are no files in there"));
    }
    std::vector<Edits::Song> songs;
    for (const std::filesystem::path& file : files) {
        songs.push_back({.path = file, .usual = preferences_.now().wish()});
    }
    takeSongs(key, std::move(songs), [] {});
}

/// Some at a time, for there may be thousands.
void Session::takeSongs(const std::string& key, std::vector<Edits::Song> songs,
                        std::function<void()> done) {
    takeNext(std::make_shared<Arrival>(
        Arrival{key, std::move(songs), 0, phone(key)->discards, std::move(done)}));
}

void Session::takeNext(const std::shared_ptr<Arrival>& arrival) {
    constexpr size_t kAtOnce = 16;
    if (phone(arrival->key)->discards != arrival->discards) {
        arrival->songs.clear();
    }
    const size_t last = std::min(arrival->next + kAtOnce, arrival->songs.size());
    for (; arrival->next < last; ++arrival->next) {
        takeSong(arrival->key, arrival->songs[arrival->next]);
    }
    if (last < arrival->songs.size()) {
        mailbox_.put([this, arrival] { takeNext(arrival); });
    } else {
        arrival->done();
    }
    changed();
}

void Session::takeSong(const std::string& key, const Edits::Song& song) {
    Phone& target = *phone(key);
    const uint64_t number = target.book.add(song);
    songs_.take(song, firmwareNumberOf(target.about.firmware),
                [this, key, number](const SongNews& news) {
                    phone(key)->book.hear(number, news);
                    changed();
                });
}

std::optional<SongCut> Session::cutOf(const std::string& row) const {
    return isBusy() || book() == nullptr ? std::nullopt : book()->cutOf(row);
}

void Session::cut(const std::string& row, const SongCut& wanted) {
    if (!cutOf(row)) {
        toast(_("It cannot be changed any more"));
        return;
    }
    Phone& target = *currentPhone();
    const uint64_t number = target.book.cut(row, wanted);
    songs_.cut(wanted, firmwareNumberOf(target.about.firmware),
               [this, key = current_, number](const SongNews& news) {
                   phone(key)->book.hear(number, news);
                   if (const auto* failure = std::get_if<Failure>(&news)) {
                       toast(capitalised(failure->what()));
                   }
                   changed();
               });
    changed();
}

void Session::remove(const std::vector<std::string>& keys) {
    Phone* const target = currentPhone();
    if (target == nullptr || keys.empty()) {
        return;
    }
    const std::string name = target->book.nameOf(keys.front());
    target->book.remove(keys);
    stopWhatIsGone(current_);
    toastEdit(keys.size() == 1
                  ? fmt::format(fmt::runtime(_("“{}” removed")), name)
                  : fmt::format(fmt::runtime(ngettext_("{} ringtone removed",
                                                       "{} ringtones removed", keys.size())),
                                keys.size()),
              [keys](PhoneBook& book) { book.bringBack(keys); });
}

void Session::rename(const std::string& key, const std::string& name) {
    Phone* const target = currentPhone();
    if (target == nullptr || target->book.nameProblem(key, name) != NameProblem::None) {
        return;
    }
    const std::string before = target->book.nameOf(key);
    target->book.rename(key, name);
    const std::string now = target->book.nameOf(key);
    if (now == before) {
        return;
    }
    toastEdit(fmt::format(fmt::runtime(_("“{}” is called “{}” now")), before, now),
              [key, before](PhoneBook& book) {
                  if (book.nameProblem(key, before) == NameProblem::None) {
                      book.rename(key, before);
                  }
              });
}

void Session::toastEdit(std::string text, EditHistory::TakeBack takeBack) {
    const uint64_t number = currentPhone()->edits.add(std::move(takeBack));
    changed();
    onToast({.text = std::move(text), .undo = _("Undo"), .onUndo = [this, key = current_, number] {
                 Phone& edited = *phone(key);
                 edited.edits.takeBack(number, edited.book);
                 changed();
             }});
}

void Session::undoEdit() {
    if (Phone* const target = currentPhone()) {
        target->edits.takeLastBack(target->book);
        changed();
    }
}

void Session::bringBack(const std::vector<std::string>& keys) {
    if (Phone* const target = currentPhone()) {
        target->book.bringBack(keys);
        changed();
    }
}

// ---------------------------------------------------------------- edits from one window to the next

/// Asks for what was edited of a phone before. One that does not say its UDID is never the same again.
void Session::takeUp(const std::string& key) {
    const std::string& udid = phone(key)->about.udid;
    if (!udid.empty()) {
        keeper_.load(udid, [this, key](const KeptEdits& kept) { restore(key, kept); });
    }
}

void Session::restore(const std::string& key, const KeptEdits& kept) {
    Phone& target = *phone(key);
    target.book.restore(kept.edits);
    dropFulfilled(target);
    const std::string name = nameOf(target.about);
    if (!kept.edits.isEmpty()) {
        onToast(
            {.text = fmt::format(fmt::runtime(_("Your last changes to “{}” are here again")), name),
             .undo = _("Discard"),
             .onUndo = [this, key] { dropEdits(key); }});
    }
    if (const std::string text = notRestoredText(kept, name); !text.empty()) {
        toast(text);
    }
    const bool isAsKept = !target.book.hasEdits() && kept.edits.isEmpty() && kept.missing.empty();
    takeSongs(key, kept.edits.songs, [this, key, isAsKept] {
        Phone& restored = *phone(key);
        dropFulfilled(restored);
        // What is kept is not written over before all of it is here.
        restored.kept = isAsKept ? std::optional(restored.book.version()) : kNeverKept;
        changed();
    });
}

void Session::dropEdits(const std::string& key) {
    Phone& target = *phone(key);
    target.book.dropEdits();
    ++target.discards;
    target.edits.forget();
    stopWhatIsGone(key);
    changed();
}

/// What changes while it is written is written after that, so that a disk gets no more than it takes.
void Session::keepEdits() {
    willKeep_ = false;
    for (auto& [key, phone] : known_) {
        if (!phone.isBeingKept) {
            keep(key, phone);
        }
    }
}

void Session::keep(const std::string& key, Phone& target) {
    if (!target.kept || target.kept == target.book.version()) {
        return;
    }
    target.kept = target.book.version();
    target.isBeingKept = true;
    keeper_.save(target.about.udid, target.book.edits(), [this, key](bool isKept) {
        phone(key)->isBeingKept = false;
        if (!isKept && !std::exchange(saidThatNothingIsKept_, true)) {
            toast(_("Your changes cannot be kept when the window is closed"));
        }
        keepEdits();
    });
}

// ---------------------------------------------------------------- sound

void Session::play(const std::string& key) {
    Phone* const target = currentPhone();
    if (target == nullptr) {
        return;
    }
    const Playing::Place place{current_, key};
    if (playing_.place() == place) {
        playing_.stop();
    } else if (const auto file = target->book.fileOf(key)) {
        playing_.playFile(place, target->book.nameOf(key), *file);
    } else if (const PhoneRingtone* const ringtone = target->book.ringtoneOf(key);
               ringtone != nullptr && target->device) {
        playing_.playFromPhone(place, target->about.udid, *ringtone);
    }
}

void Session::stopWhatIsGone(const std::string& key) {
    const Playing::Place& place = playing_.place();
    if (place.phone != key || place.row.empty()) {
        return;
    }
    const PhoneBook& book = phone(key)->book;
    if (book.ringtoneOf(place.row) == nullptr && !book.fileOf(place.row)) {
        playing_.stop();
    }
}

void Session::hearingChanged() {
    for (const Playing::Place& place : {heard_, playing_.place()}) {
        if (Phone* const heard = place.row.empty() ? nullptr : phone(place.phone)) {
            heard->book.touch(place.row);
        }
    }
    heard_ = playing_.place();
    changed();
}

void Session::tell(const Playing::Problem& problem) {
    toast(playProblemText(problem, nameOf(phone(problem.place.phone)->about)));
}

// ---------------------------------------------------------------- work

WorkWatch Session::newWatch(const std::string& key) {
    return {.progress = [this, key](const WorkProgress& progress) {
        phones_->tell([this, key, progress] {
            if (key == current_ && isBusy()) {
                onProgress(progress);
            }
        });
    }};
}

template <typename T>
void Session::work(std::function<T(const std::string&, const WorkWatch&)> action,
                   std::function<void(const std::string&, const T&)> done) {
    Phone* const target = currentPhone();
    if (target == nullptr || !target->device || target->work) {
        return;
    }
    target->work = newWatch(current_);
    target->isSync = std::is_same_v<T, ChangeDone>;
    target->message.reset();
    changed();
    phones_->ask<T>([action = std::move(action), udid = target->about.udid,
                     watch = *target->work] { return action(udid, watch); },
                    [this, key = current_, done = std::move(done)](const Outcome<T>& outcome) {
                        phone(key)->work.reset();
                        if (const auto* failure = std::get_if<Failure>(&outcome)) {
                            failed(key, *failure);
                        } else {
                            done(key, std::get<T>(outcome));
                        }
                        read(key, /*afterWork=*/true);
                        changed();
                    });
}

void Session::failed(const std::string& key, const Failure& failure) {
    Phone& target = *phone(key);
    target.message = errorMessage(explained(failure, nameOf(target.about)));
    target.message->isError = failure.kind() != FailureKind::Cancelled;
}

void Session::toastWithUndo(const std::string& key, std::string text) {
    onToast({.text = std::move(text), .undo = _("Undo"), .onUndo = [this, key] {
                 choose(key); // the person may look at another one by now
                 undoLastSync();
             }});
}

void Session::change(bool rebuilds) {
    Phone* const target = currentPhone();
    if (target == nullptr || !target->device || target->work) {
        return;
    }
    WantedChange wanted = rebuilds ? WantedChange{} : target->book.wanted();
    wanted.rebuilds = rebuilds;
    wanted.keptJobs = preferences_.keptSyncs();
    target->book.begin(wanted);
    work<ChangeDone>([wanted](const std::string& udid,
                              const WorkWatch& watch) { return changePhone(udid, wanted, watch); },
                     [this, wanted](const std::string& key, const ChangeDone& done) {
                         phone(key)->book.carriedOut(wanted);
                         tell(key, done);
                     });
}

void Session::tell(const std::string& key, const ChangeDone& done) {
    const std::string text =
        key == current_
            ? doneText(done)
            : fmt::format(fmt::runtime(_("“{}”: {}")), nameOf(phone(key)->about), doneText(done));
    if (done.changedAnything) {
        toastWithUndo(key, text);
    } else {
        toast(text);
    }
    if (const std::string note = noteText(done); !note.empty()) {
        phone(key)->message = Message{.title = _("The sync is complete"),
                                      .text = note,
                                      .details = {},
                                      .remedies = {Remedy::Dismiss}};
    }
}

void Session::sync() {
    if (canSync()) {
        change(/*rebuilds=*/false);
    }
}

void Session::cancel() {
    if (isBusy()) {
        *currentPhone()->work->isCancelled = true;
        changed();
    }
}

void Session::pause() {
    if (canPause()) {
        std::atomic<bool>& isPaused = *currentPhone()->work->isPaused;
        isPaused = !isPaused;
        changed();
    }
}

void Session::undo() {
    if (canUndo()) {
        undoLastSync();
    }
}

/// Also of a phone whose history is still being read.
void Session::undoLastSync() {
    work<RingtoneChanges>(undoLast, [this](const std::string& key, const RingtoneChanges& changes) {
        mirrors_.pause(key);
        toast(fmt::format(fmt::runtime(_("Undone: {}")), changesText(changes)));
    });
}

void Session::goBackTo(const Digest& before) {
    work<RingtoneChanges>(
        [before](const std::string& udid, const WorkWatch& watch) {
            return desktop::goBackTo(udid, before, watch);
        },
        [this](const std::string& key, const RingtoneChanges& changes) {
            mirrors_.pause(key);
            toastWithUndo(key, changesText(changes));
        });
}

void Session::endBrokenJob(Wish wish) {
    work<std::optional<Ending>>(
        [wish](const std::string& udid, const WorkWatch& watch) {
            return desktop::endBrokenJob(udid, wish, watch);
        },
        [this](const std::string& key, const std::optional<Ending>& ending) {
            if (ending == Ending::TakenBack) {
                mirrors_.pause(key);
            }
            if (ending) {
                toast(endingText(*ending));
            }
        });
}

// ---------------------------------------------------------------- folders that phones mirror

/// Those that nobody looks at are read too.
void Session::readMirroring() {
    for (const auto& [key, phone] : known_) {
        if (phone.device && !phone.isRead && mirrors_.find(key) != nullptr) {
            read(key, /*afterWork=*/false);
        }
    }
}

MirrorState Session::mirrorStateOf(const std::string& key) const {
    const Phone& target = *phone(key);
    const PhoneReading* const reading = target.book.reading();
    const Mirroring::Run& run = mirrors_.run(key);
    return mirrorState({.isAtWork = run.isAtWork,
                        .isPaused = mirrors_.find(key)->isPaused,
                        .isKnownFirmware = isKnownFirmware(target.about.firmware),
                        .isListReadable = reading == nullptr || !reading->catalogueIsUnreadable,
                        .hasBrokenJob = reading != nullptr && reading->brokenJob &&
                                        reading->brokenJob->what != kMirrorJob,
                        .hasEdits = target.book.hasEdits(),
                        .hasQuestion = run.question.has_value(),
                        .isDue = run.isDue,
                        .hasFailed = run.failure.has_value()});
}

std::optional<MirrorView> Session::mirror() const {
    const Mirror* const found = mirrors_.find(current_);
    if (found == nullptr || currentPhone() == nullptr) {
        return std::nullopt;
    }
    const Mirroring::Run& run = mirrors_.run(current_);
    MirrorView view{.folder = found->folder,
                    .state = mirrorStateOf(current_),
                    .isAgreed = found->isAgreed,
                    .plan = run.question,
                    .unusable = run.unusable};
    if (run.failure) {
        view.problem = mirrorProblem(*run.failure, phoneName());
    }
    return view;
}

bool Session::canMirror() const {
    const Phone* current = currentPhone();
    return current != nullptr && current->device && current->isRead && !current->work &&
           !current->about.udid.empty() && isKnownFirmware(current->about.firmware);
}

/// Whether a job that was broken off is the mirror's, which is about to go on with it.
bool Session::goesOnByItself(const std::string& key) const {
    return phone(key)->book.reading()->brokenJob->what == kMirrorJob &&
           mirrors_.find(key) != nullptr && mirrorStateOf(key) == MirrorState::Due;
}

/// Begins those that are due. Before it is known what was edited of a phone, nothing is.
void Session::runMirrors() {
    for (const auto& [key, phone] : known_) {
        if (phone.device && phone.isRead && !phone.isBeingRead && !phone.work && phone.kept &&
            mirrors_.find(key) != nullptr && mirrorStateOf(key) == MirrorState::Due) {
            runMirror(key);
        }
    }
}

void Session::runMirror(const std::string& key) {
    Phone& target = *phone(key);
    target.work = newWatch(key);
    target.isSync = true;
    target.message.reset();
    mirrors_.prepare(
        key, *target.book.reading(), *target.work,
        [this, key](const MirrorDesk::Prepared& prepared) { sendMirror(key, prepared); });
    changed();
}

void Session::sendMirror(const std::string& key, const MirrorDesk::Prepared& prepared) {
    const MirrorTerms terms = mirrors_.terms(key);
    if (const auto* failure = std::get_if<Failure>(&prepared)) {
        mirrorEnded(key, *failure);
        return;
    }
    const auto& songs = std::get<std::shared_ptr<MirrorSongs>>(prepared);
    const bool isOff = mirrors_.find(key) == nullptr; // since it was begun
    if (isOff || songs->isInVain()) {
        mirrorEnded(key, MirrorOutcome(MirrorDone{{}, terms.held}));
        return;
    }
    phones_->ask<MirrorOutcome>(
        [songs, terms, udid = phone(key)->about.udid, kept = preferences_.keptSyncs(),
         watch = *phone(key)->work] { return mirrorPhone(udid, *songs, terms, kept, watch); },
        [this, key](const Outcome<MirrorOutcome>& outcome) { mirrorEnded(key, outcome); });
}

void Session::mirrorEnded(const std::string& key, const Outcome<MirrorOutcome>& outcome) {
    phone(key)->work.reset();
    if (const auto* failure = std::get_if<Failure>(&outcome)) {
        mirrors_.ended(key, *failure);
    } else {
        const auto& came = std::get<MirrorOutcome>(outcome);
        std::visit([&](const auto& one) { mirrors_.ended(key, one); }, came);
        const auto* const done = std::get_if<MirrorDone>(&came);
        if (done != nullptr && done->change.changedAnything) {
            tell(key, done->change);
        }
        if (done == nullptr && key != current_) {
            onToast(
                {.text = fmt::format(fmt::runtime(_("“{}” waits for an answer about its folder")),
                                     nameOf(phone(key)->about)),
                 .undo = _("Show"),
                 .onUndo = [this, key] { choose(key); }});
        }
    }
    const Phone& target = *phone(key);
    if (key == current_ && !target.device && !target.book.hasEdits()) {
        chooseAnother();
    }
    read(key, /*afterWork=*/true);
    changed();
}

void Session::mirror(const std::filesystem::path& folder) {
    if (canMirror()) {
        mirrors_.choose(current_, phoneName(), folder, book()->reading()->history);
    }
}

void Session::endMirror(const std::string& udid) {
    const Mirror* const found = mirrors_.find(udid);
    if (found == nullptr) {
        return;
    }
    const std::string name = found->phone;
    onToast({.text = fmt::format(fmt::runtime(_("“{}” mirrors no folder any more")), name),
             .undo = _("Undo"),
             .onUndo = mirrors_.stop(udid)});
}

void Session::resumeMirror() {
    if (const PhoneBook* const shown = book(); shown != nullptr && shown->reading()) {
        mirrors_.resume(current_, shown->reading()->history);
    }
}

void Session::agreeToMirror() {
    mirrors_.agree(current_);
}

void Session::tryMirrorAgain() {
    mirrors_.makeDue(current_);
}

void Session::apply(Remedy remedy) {
    switch (remedy) {
    case Remedy::Dismiss:
        if (Phone* const target = currentPhone()) {
            target->message.reset();
            changed();
        }
        break;
    case Remedy::Finish:
        endBrokenJob(Wish::Finish);
        break;
    case Remedy::TakeBack:
        endBrokenJob(Wish::TakeBack);
        break;
    case Remedy::PutRight:
        change(/*rebuilds=*/true);
        break;
    }
}

} // namespace krl::desktop
