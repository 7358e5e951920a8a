#include "engine/files/ContentDigests.h"

#include "engine/files/PlaceOfState.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>
#include <system_error>
#include <utility>

namespace krl::engine {
namespace {

namespace fs = std::filesystem;

int64_t nanoseconds(const timespec& time) {
    return time.tv_sec * int64_t{1'000'000'000} + time.tv_nsec;
}

} // namespace

ContentDigests::ContentDigests(fs::path place, std::function<Clock::time_point()> now)
    : place_(std::move(place)), now_(std::move(now)) {
    load();
}

ContentDigests::~ContentDigests() {
    if (learned_ && !place_.empty()) {
        save();
    }
}

fs::path ContentDigests::defaultPlace() {
    const auto cache = placeOfCache();
    return cache ? *cache / "digests" : fs::path();
}

Digest ContentDigests::of(const RegularFile& file) {
    const Identity identity = identityOf(file);
    auto found = known_.find(identity);
    if (found == known_.end()) {
        const std::chrono::nanoseconds begun = now_().time_since_epoch();
        const Digest digest = file.digest();
        // A file that was written to a moment ago may be written to again within one tick of the
        // clock that its times are taken from.
        constexpr std::chrono::seconds kSettled{2};
        if (begun - std::chrono::nanoseconds{identity.changed} < kSettled ||
            identityOf(file) != identity) {
            return digest;
        }
        found = known_.emplace(identity, digest).first;
        learned_ = true;
    }
    used_.insert(*found);
    return found->second;
}

ContentDigests::Identity ContentDigests::identityOf(const RegularFile& file) {
    struct stat status = {};
    ::fstat(file.descriptor(), &status);
    return {status.st_dev, status.st_ino, static_cast<uint64_t>(status.st_size),
            nanoseconds(status.st_mtim), nanoseconds(status.st_ctim)};
}

/// A line each: what tells the file, and the digest; the digest of all of it comes first.
void ContentDigests::load() {
    std::ifstream file(place_, std::ios::binary);
    std::string sum;
    if (!std::getline(file, sum)) {
        return;
    }
    const std::string rest{std::istreambuf_iterator<char>(file), {}};
    if (digestOf(rest).hex() != sum) {
        return;
    }
    std::istringstream lines(rest);
    Identity identity;
    std::string hex;
    while (lines >> identity.device >> identity.inode >> identity.size >> identity.modified >>
           identity.changed >> hex) {
        if (const auto digest = Digest::parse(hex)) {
            known_.emplace(identity, *digest);
        }
    }
}

void ContentDigests::save() const {
    constexpr size_t kMost = 100'000;
    // Of too many, those that were asked for now.
    const auto& kept = known_.size() > kMost ? used_ : known_;
    std::string lines;
    for (const auto& [identity, digest] : kept) {
        lines += fmt::format("{} {} {} {} {} {}\n", identity.device, identity.inode, identity.size,
                             identity.modified, identity.changed, digest.hex());
    }
    const fs::path incoming = fs::path(place_).concat(fmt::format(".{}", ::getpid()));
    std::error_code error;
    fs::create_directories(place_.parent_path(), error);
    std::ofstream file(incoming, std::ios::binary);
    file << digestOf(lines).hex() << '\n' << lines;
    file.close();
    if (file) {
        fs::rename(incoming, place_, error);
    }
    if (!file || error) {
        fs::remove(incoming, error);
    }
}

} // namespace krl::engine
