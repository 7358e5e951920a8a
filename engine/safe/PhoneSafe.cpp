#include "engine/safe/PhoneSafe.h"

#include "engine/files/PlaceOfState.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstddef>
#include <set>
#include <thread>

namespace krl::engine {
namespace {

namespace fs = std::filesystem;

constexpr char kJournal[] = "journal.json";
constexpr char kHistory[] = "history.json";
constexpr char kIndex[] = "index.json";

/// A folder for a phone, whatever it says that its UDID is.
std::string folderName(const std::string& udid) {
    constexpr size_t kLongest = 64;
    std::string name;
    for (const char character : udid) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte >= 0x80 || (std::isalnum(byte) == 0 && character != '-')) {
            return digestOf(udid).hex();
        }
        name += static_cast<char>(std::tolower(byte));
    }
    return name.empty() || name.size() > kLongest ? digestOf(udid).hex() : name;
}

Json jobJson(const Job& job) {
    return {{"what", job.what},
            {"time", job.time},
            {"before", job.before.hex()},
            {"after", job.after.hex()},
            {"undone", job.isUndone}};
}

Job jobOf(const Json& json) {
    return {textAt(json, "what"), timeAt(json, "time"), digestAt(json, "before"),
            digestAt(json, "after"), boolAt(json, "undone")};
}

Json namesJson(const std::set<std::string>& names) {
    Json json = Json::array();
    for (const std::string& name : names) {
        json.push_back({{"name", bytesJson(name)}});
    }
    return json;
}

fs::path phoneFolder(const fs::path& root, const std::string& udid) {
    return root / "phones" / folderName(udid);
}

std::set<std::string> namesAt(const Json& object, const char* key) {
    std::set<std::string> names;
    for (const Json& json : valueAt(object, key)) {
        names.insert(bytesAt(json, "name"));
    }
    return names;
}

std::optional<Journal> readJournal(const fs::path& folder) {
    std::optional<Journal> journal;
    readDocument(folder / kJournal, [&](const Json& document) {
        journal = Journal{jobOf(valueAt(document, "job")), numberAt(document, "number"),
                          namesAt(document, "touched"),    boolAt(document, "finish"),
                          boolAt(document, "undoes"),      boolAt(document, "forced")};
    });
    return journal;
}

/// Before it was to be chosen, nothing was written of it.
size_t mostAt(const Json& document) {
    const uint64_t most =
        document.contains("most") ? numberAt(document, "most") : uint64_t{History::kUsual};
    if (most < 1 || most > History::kLargest) {
        throw BadDocument("\"most\" is no number of jobs that can be");
    }
    return most;
}

History readHistory(const fs::path& folder) {
    History history;
    readDocument(folder / kHistory, [&](const Json& document) {
        history.most = mostAt(document);
        history.count = numberAt(document, "count");
        history.left = optionalDigestAt(document, "left");
        for (const Json& job : valueAt(document, "jobs")) {
            history.jobs.push_back(jobOf(job));
        }
    });
    return history;
}

Json historyJson(const History& history) {
    Json jobs = Json::array();
    for (const Job& job : history.jobs) {
        jobs.push_back(jobJson(job));
    }
    Json document = newDocument();
    document["most"] = history.most;
    document["count"] = history.count;
    document["left"] = optionalJson(history.left);
    document["jobs"] = std::move(jobs);
    return document;
}

Index readIndex(const fs::path& folder) {
    Index index;
    readDocument(folder / kIndex, [&](const Json& document) { index = indexOf(document); });
    return index;
}

Descriptor lockFile(Disk& disk, const fs::path& path, int operation) {
    Descriptor file(disk.open(path, O_RDWR | O_CREAT));
    if (!file) {
        throw cannotKeep(path, errno);
    }
    constexpr std::chrono::milliseconds kPause{20};
    constexpr std::chrono::minutes kLongest{1};
    const auto end = std::chrono::steady_clock::now() + kLongest;
    while (::flock(file.get(), operation | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK && errno != EINTR) {
            throw cannotKeep(path, errno);
        }
        if (std::chrono::steady_clock::now() > end) {
            throw Failure(FailureKind::CannotBegin,
                          "another program of ours is at work on this phone",
                          "Wait for its end and try again. Nothing was changed on the phone.");
        }
        std::this_thread::sleep_for(kPause);
    }
    return file;
}

/// All that documents refer to.
class References {
public:
    explicit References(ContentStore& contents) : contents_(contents) {}

    void addPhone(const fs::path& folder) {
        const History history = readHistory(folder);
        for (const Job& job : history.jobs) {
            addSnapshot(job.before);
            addSnapshot(job.after);
        }
        if (history.left) {
            addSnapshot(*history.left);
        }
        if (const auto journal = readJournal(folder)) {
            addSnapshot(journal->job.before);
            addSnapshot(journal->job.after);
        }
        // What lies on the phone would otherwise be read again the next time.
        const Index index = readIndex(folder);
        addFiles(index.files);
        for (const auto& catalogue : index.catalogues) {
            addCatalogue(catalogue);
        }
    }

    const std::set<Digest>& all() const { return all_; }

private:
    void addSnapshot(const Digest& digest) {
        if (all_.insert(digest).second) {
            readDocumentText(contents_.bytes(digest), "a snapshot",
                             [&](const Json& document) { addContents(snapshotOf(document)); });
        }
    }

    void addContents(const Snapshot& snapshot) {
        addCatalogue(snapshot.catalogue);
        addFiles(snapshot.files);
    }

    void addCatalogue(const std::optional<Content>& catalogue) {
        if (catalogue) {
            all_.insert(catalogue->digest);
        }
    }

    void addFiles(const std::map<std::string, Snapshot::File>& files) {
        for (const auto& [name, file] : files) {
            all_.insert(file.content.digest);
        }
    }

    ContentStore& contents_;
    std::set<Digest> all_;
};

} // namespace

fs::path stateFolder() {
    const auto place = placeOfState();
    if (!place) {
        throw Failure(FailureKind::CannotKeep,
                      "there is no place for copies of what the phone holds: neither "
                      "XDG_STATE_HOME nor HOME is set",
                      "Set one of them to a folder of yours. Nothing was changed on the phone.");
    }
    return *place;
}

Job* History::last() {
    const auto found =
        std::find_if(jobs.rbegin(), jobs.rend(), [](const Job& job) { return !job.isUndone; });
    return found == jobs.rend() ? nullptr : &*found;
}

void History::add(const Journal& journal) {
    if (journal.number <= count) {
        return;
    }
    count = journal.number;
    left = journal.job.after;
    Job* const undone = journal.undoes ? last() : nullptr;
    if (undone != nullptr) {
        undone->isUndone = true;
        // What others had done is to be had again: by an undo of this one.
        if (!journal.isForced || undone->after == journal.job.before) {
            return;
        }
    }
    jobs.push_back(journal.job);
    if (jobs.size() > most) {
        jobs.erase(jobs.begin(), jobs.end() - static_cast<std::ptrdiff_t>(most));
    }
}

PhoneSafe::PhoneSafe(const std::string& udid, const fs::path& folder, Disk& disk)
    : root_(folder), folder_(phoneFolder(folder, udid)), disk_(disk),
      contents_((makePrivateFolder(disk, folder_), folder / "contents"), disk) {
    // A folder that was there may have been made a moment ago, by somebody who did not sync it.
    for (const fs::path& parent : {folder_.parent_path(), root_, root_.parent_path()}) {
        syncFolder(disk_, parent);
    }
    phoneLock_ = lockFile(disk_, folder_ / "lock", LOCK_EX);
    contentsLock_ = lockFile(disk_, root_ / "contents.lock", LOCK_SH);
}

Digest PhoneSafe::keep(const Snapshot& snapshot) {
    // When a file was changed matters to the index alone, and would make equal snapshots differ.
    Snapshot timeless = snapshot;
    for (auto& [name, file] : timeless.files) {
        file.modified.clear();
    }
    return contents_.put(snapshotJson(timeless).dump(1)).digest;
}

Snapshot PhoneSafe::snapshot(const Digest& digest) {
    Snapshot snapshot;
    readDocumentText(contents_.bytes(digest), "a snapshot",
                     [&](const Json& document) { snapshot = snapshotOf(document); });
    return snapshot;
}

std::optional<Journal> PhoneSafe::journal() const {
    return readJournal(folder_);
}

History PhoneSafe::history() const {
    return readHistory(folder_);
}

void PhoneSafe::keepAtMost(size_t jobs) {
    History history = this->history();
    if (history.most != jobs) {
        history.most = jobs;
        writeDocument(disk_, folder_ / kHistory, historyJson(history));
        syncFolder(disk_, folder_);
    }
}

Index PhoneSafe::index() {
    try {
        Index index = readIndex(folder_);
        if (const auto job = journal()) {
            const Snapshot after = snapshot(job->job.after);
            index.catalogues.insert(after.catalogue);
            for (const std::string& name : job->touched) {
                index.files.erase(name);
                if (const auto file = after.files.find(name); file != after.files.end()) {
                    index.awaited.emplace(name, file->second.content);
                }
            }
        }
        return index;
    } catch (const Failure&) {
        return {};
    }
}

void PhoneSafe::write(const Journal& journal) {
    contents_.settle();
    Json document = newDocument();
    document["job"] = jobJson(journal.job);
    document["number"] = journal.number;
    document["touched"] = namesJson(journal.touched);
    document["finish"] = journal.mustFinish;
    document["undoes"] = journal.undoes;
    document["forced"] = journal.isForced;
    writeDocument(disk_, folder_ / kJournal, document);
    syncFolder(disk_, folder_);
}

void PhoneSafe::writeIndex(const Index& index) {
    contents_.settle();
    writeDocument(disk_, folder_ / kIndex, indexJson(index));
    syncFolder(disk_, folder_);
}

void PhoneSafe::end(const History& history, const Index& index) {
    contents_.settle();
    writeDocument(disk_, folder_ / kHistory, historyJson(history));
    writeDocument(disk_, folder_ / kIndex, indexJson(index));
    syncFolder(disk_, folder_);
    removeFile(disk_, folder_ / kJournal);
}

void PhoneSafe::tidy() {
    // Whoever takes contents in has no document yet that refers to them.
    if (::flock(contentsLock_.get(), LOCK_EX | LOCK_NB) == 0) {
        try {
            References references(contents_);
            for (const auto& phone : fs::directory_iterator(root_ / "phones")) {
                references.addPhone(phone.path());
            }
            contents_.dropAllBut(references.all());
        } catch (const std::exception&) {
            // Nothing is dropped that a document may need which cannot be read.
        }
    }
    // Of one that was not to be had alone, nothing may be left.
    while (::flock(contentsLock_.get(), LOCK_SH) != 0 && errno == EINTR) {
    }
}

bool knowsPhone(const std::string& udid, const fs::path& folder) {
    std::error_code ignored;
    return fs::exists(phoneFolder(folder, udid), ignored);
}

std::optional<Job> unfinishedJob(const std::string& udid, const fs::path& folder) {
    const auto journal = readJournal(phoneFolder(folder, udid));
    return journal ? std::optional(journal->job) : std::nullopt;
}

uint64_t secondsNow() {
    using std::chrono::duration_cast;
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<uint64_t>(duration_cast<std::chrono::seconds>(now).count());
}

} // namespace krl::engine
