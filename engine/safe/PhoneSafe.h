#pragma once

#include "engine/safe/ContentStore.h"
#include "engine/safe/Snapshot.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace krl::engine {

/// Where the safe is.
/// @throw Failure when the environment names no place for it
std::filesystem::path stateFolder();

/// A job on a phone: what its ringtones were before and what they are afterwards.
struct Job {
    std::string what;  ///< "add", "remove", "sync", "undo", "restore"
    uint64_t time = 0; ///< seconds since 1970
    Digest before;     ///< a snapshot, by the content that its document is
    Digest after;
    bool isUndone = false;
};

/// What a job is about to do, written down before its first write and taken away when it is seen to
/// be done. One that is found is of a job that was broken off.
struct Journal {
    Job job;
    uint64_t number = 0;           ///< the history's next
    std::set<std::string> touched; ///< files of the ringtone folder that it may leave unfinished
    bool mustFinish = false;       ///< the state afterwards was asked for: there is no way back
    bool undoes = false;           ///< it takes the last job back instead of being one
    bool isForced = false;         ///< also what others have done meanwhile
};

/// The last jobs on a phone, the oldest first.
struct History {
    static constexpr size_t kUsual = 5;
    static constexpr size_t kLargest = 100;

    size_t most = kUsual; ///< jobs that are kept, from 1 to kLargest
    std::vector<Job> jobs;
    std::optional<Digest> left; ///< the snapshot that the last of us left behind
    uint64_t count = 0;         ///< journals that were taken in, ever

    /// The last job that is not undone; null when there is none.
    Job* last();

    /// Takes a job in that has been carried out; one that it has already, not again. Older ones than
    /// are kept are forgotten.
    void add(const Journal& journal);
};

/// What the safe has of one phone. One process at a time has it; the contents are shared with those
/// of other phones.
///
/// The folder: "contents/", where snapshots are contents too, and for each phone "phones/UDID/" with
/// "history.json", "journal.json" while a job is under way, and "index.json", the phone as it was
/// seen last.
class PhoneSafe {
public:
    /// Waits while another process has it, a minute at most.
    /// @throw Failure when the folder cannot be used or stays taken
    explicit PhoneSafe(const std::string& udid, const std::filesystem::path& folder = stateFolder(),
                       Disk& disk = realDisk());

    ContentStore& contents() { return contents_; }

    Digest keep(const Snapshot& snapshot);
    Snapshot snapshot(const Digest& digest);

    std::optional<Journal> journal() const;
    History history() const;

    /// From the next job on so many are kept, also by programs that say no number.
    /// @param jobs  from 1 to History::kLargest
    void keepAtMost(size_t jobs);

    /// What is known of the phone; nothing when it was never seen, or the document is of no use: it
    /// only saves reading. Of what the job of a journal may have written to nothing is known.
    Index index();

    // What these write is on the disk when they return, and so is all that it refers to.

    void write(const Journal& journal);
    void writeIndex(const Index& index);

    /// Takes note of a job that has come to its end, and then its journal away. One that is found
    /// again all the same, after the power went, is of a job that is seen to be done.
    void end(const History& history, const Index& index);

    /// Drops what nothing refers to, unless another process takes contents in at this moment or
    /// there is a document that cannot be read.
    void tidy();

private:
    std::filesystem::path root_;
    std::filesystem::path folder_; ///< this phone's
    Disk& disk_;
    Descriptor phoneLock_;
    Descriptor contentsLock_;
    ContentStore contents_;
};

// What there is of a phone, for those who only look: neither waits for whoever has the safe, and
// nothing is made.

/// Whether the safe has anything of this phone.
bool knowsPhone(const std::string& udid, const std::filesystem::path& folder = stateFolder());

/// The job on this phone that was broken off, or is under way.
std::optional<Job> unfinishedJob(const std::string& udid,
                                 const std::filesystem::path& folder = stateFolder());

/// Now, as jobs have it.
uint64_t secondsNow();

} // namespace krl::engine
