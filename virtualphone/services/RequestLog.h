/// The requests that reached a bus and its phones, in the order in which they were dealt with.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace virtualphone {

/// One request. Fields that a request does not have are empty; in a line of the log file they are
/// left out, and the others bear the names they have here.
struct LogEntry {
    uint64_t number = 0;               ///< counts up from 1, never starts again
    std::chrono::microseconds time{0}; ///< since the log began; in the file "time", in seconds
    std::string phone;                 ///< the phone's UDID; empty for requests to the bus alone
    std::string service;               ///< "usbmux", "lockdown", "afc", "notification_proxy"
    uint64_t connection = 0;           ///< of the socket, counts up from 1 over the bus's life
    std::string request;               ///< "Connect", "StartSession", "Open", "PostNotification"
    std::string name;                  ///< value key, service, notification, host or record name
    std::string domain;                ///< domain of a lockdown value
    std::string path;                  ///< file service: the path, or the first of two
    std::string newPath;               ///< file service: Rename's new path, MakeLink's link path
    std::optional<uint64_t> mode;      ///< Open's mode, Lock's lock, MakeLink's type, Seek's whence
    std::optional<uint64_t> handle;    ///< open file; for Open the new one
    std::optional<uint64_t> size;      ///< bytes asked for, written, or set
    std::optional<int64_t> offset;     ///< Seek's offset, Tell's answer
    std::optional<uint64_t> nanoseconds; ///< time that SetModificationTime sets
    std::optional<uint64_t> port;        ///< port asked for by Connect or given by StartService
    std::optional<uint64_t> device;      ///< DeviceID of a request to the bus
    std::optional<uint64_t> status; ///< file service status, or usbmux Result, that is answered
    std::string error;              ///< lockdown's Error that is answered
    std::string fault; ///< what a fault did to it: "status", "drop", ... ; "interrupted"
                       ///< when the connection ended within the request

    /// The line that stands in the log file: one JSON object, without the newline.
    std::string toJson() const;
};

/// A request is in the log before its answer is on its way, so that a client that has the answer
/// finds the entry.
class RequestLog {
public:
    RequestLog();

    /// Writes entries from now on to a file too, which is created or emptied.
    void writeTo(const std::filesystem::path& file);

    /// Keeps at most this many entries in memory, the latest; without this call all of them.
    void keepAtMost(size_t count);

    /// Adds an entry; number and time are filled in.
    void add(LogEntry entry);

    /// A copy of the entries since the start or the last clear.
    std::vector<LogEntry> entries() const;

    /// A copy of those that fit.
    std::vector<LogEntry> entries(const std::function<bool(const LogEntry&)>& fits) const;

    /// Forgets the entries in memory; the file keeps them.
    void clear();

    /// Waits for an entry that fits; one that is there already counts.
    ///
    /// @return the first entry that fits, or none when the time is over.
    std::optional<LogEntry>
    waitFor(const std::function<bool(const LogEntry&)>& fits,
            std::chrono::milliseconds timeout = std::chrono::seconds(30)) const;

private:
    mutable std::mutex mutex_;
    mutable std::condition_variable added_;
    const std::chrono::steady_clock::time_point start_;
    std::deque<LogEntry> entries_;
    uint64_t nextNumber_ = 1;
    size_t limit_ = std::numeric_limits<size_t>::max();
    std::ofstream file_;
};

} // namespace virtualphone
