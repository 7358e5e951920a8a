#include "virtualphone/services/RequestLog.h"

#include <nlohmann/json.hpp>

#include <cerrno>
#include <system_error>
#include <utility>

namespace virtualphone {

namespace {

template <typename T>
void put(nlohmann::ordered_json& line, const char* field, const std::optional<T>& value) {
    if (value) {
        line[field] = *value;
    }
}

void put(nlohmann::ordered_json& line, const char* field, const std::string& value) {
    if (!value.empty()) {
        line[field] = value;
    }
}

} // namespace

std::string LogEntry::toJson() const {
    nlohmann::ordered_json line;
    line["number"] = number;
    line["time"] = std::chrono::duration<double>(time).count();
    put(line, "phone", phone);
    put(line, "service", service);
    line["connection"] = connection;
    put(line, "request", request);
    put(line, "name", name);
    put(line, "domain", domain);
    put(line, "path", path);
    put(line, "newPath", newPath);
    put(line, "mode", mode);
    put(line, "handle", handle);
    put(line, "size", size);
    put(line, "offset", offset);
    put(line, "nanoseconds", nanoseconds);
    put(line, "port", port);
    put(line, "device", device);
    put(line, "status", status);
    put(line, "error", error);
    put(line, "fault", fault);
    // Names that are not UTF-8 cannot stand in JSON; their odd bytes become U+FFFD.
    return line.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

RequestLog::RequestLog() : start_(std::chrono::steady_clock::now()) {}

void RequestLog::writeTo(const std::filesystem::path& file) {
    const std::lock_guard lock(mutex_);
    file_.open(file, std::ios::binary | std::ios::trunc);
    if (!file_) {
        throw std::system_error(errno, std::generic_category(),
                                "cannot write the log file " + file.string());
    }
}

void RequestLog::keepAtMost(size_t count) {
    const std::lock_guard lock(mutex_);
    limit_ = count;
    while (entries_.size() > limit_) {
        entries_.pop_front();
    }
}

void RequestLog::add(LogEntry entry) {
    const std::lock_guard lock(mutex_);
    entry.number = nextNumber_++;
    entry.time = std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::steady_clock::now() - start_);
    if (file_.is_open()) {
        file_ << entry.toJson() << '\n' << std::flush;
    }
    if (limit_ == 0) {
        return;
    }
    if (entries_.size() == limit_) {
        entries_.pop_front();
    }
    entries_.push_back(std::move(entry));
    added_.notify_all();
}

std::vector<LogEntry> RequestLog::entries() const {
    const std::lock_guard lock(mutex_);
    return {entries_.begin(), entries_.end()};
}

std::vector<LogEntry> RequestLog::entries(const std::function<bool(const LogEntry&)>& fits) const {
    std::vector<LogEntry> found = entries();
    std::erase_if(found, [&](const LogEntry& entry) { return !fits(entry); });
    return found;
}

void RequestLog::clear() {
    const std::lock_guard lock(mutex_);
    entries_.clear();
}

std::optional<LogEntry> RequestLog::waitFor(const std::function<bool(const LogEntry&)>& fits,
                                            std::chrono::milliseconds timeout) const {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    std::unique_lock lock(mutex_);
    uint64_t seen = 0;
    while (true) {
        for (const LogEntry& entry : entries_) {
            if (entry.number > seen && fits(entry)) {
                return entry;
            }
        }
        seen = nextNumber_ - 1;
        // Woken without need, the loop looks at nothing twice.
        if (added_.wait_until(lock, deadline) == std::cv_status::timeout &&
            nextNumber_ - 1 == seen) {
            return std::nullopt;
        }
    }
}

} // namespace virtualphone
