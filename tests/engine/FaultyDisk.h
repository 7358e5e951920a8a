/// Disks for tests: one on which a call fails, or before which the process ends.
#pragma once

#include "engine/safe/Disk.h"

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <functional>

namespace krl::engine::testing {

/// One that waits for no platter: what is tested here is the order of calls.
class QuickDisk : public Disk {
public:
    int sync(int /*descriptor*/) override { return 0; }
};

class FaultyDisk : public QuickDisk {
public:
    enum class Fault { Full, FullFromThere, Killed };

    FaultyDisk(int nth, Fault fault) : nth_(nth), fault_(fault) {}

    bool hasFailed() const { return count_ >= nth_; }

    int open(const std::filesystem::path& path, int flags) override {
        return fails() ? -1 : Disk::open(path, flags);
    }

    ssize_t write(int descriptor, const void* bytes, size_t count) override {
        return fails() ? -1 : Disk::write(descriptor, bytes, count);
    }

    int clone(int from, int to) override { return fails() ? -1 : Disk::clone(from, to); }

    ssize_t copyRange(int from, int to, size_t count) override {
        return fails() ? -1 : Disk::copyRange(from, to, count);
    }

    int sync(int descriptor) override { return fails() ? -1 : QuickDisk::sync(descriptor); }

    int rename(const std::filesystem::path& from, const std::filesystem::path& to) override {
        return fails() ? -1 : Disk::rename(from, to);
    }

    int unlink(const std::filesystem::path& path) override {
        return fails() ? -1 : Disk::unlink(path);
    }

    int makeFolder(const std::filesystem::path& path) override {
        return fails() ? -1 : Disk::makeFolder(path);
    }

private:
    bool fails() {
        ++count_;
        if (fault_ == Fault::FullFromThere ? count_ < nth_ : count_ != nth_) {
            return false;
        }
        if (fault_ == Fault::Killed) {
            ::_exit(kKilled);
        }
        errno = ENOSPC;
        return true;
    }

public:
    static constexpr int kKilled = 77;

private:
    const int nth_;
    const Fault fault_;
    int count_ = 0;
};

/// Does something in a process of its own, which is killed before the n-th call to the disk.
/// @return whether it was: it comes to its end otherwise
inline bool isKilledAt(int nth, const std::function<void(Disk&)>& work) {
    const pid_t child = ::fork();
    if (child == 0) {
        FaultyDisk disk(nth, FaultyDisk::Fault::Killed);
        work(disk);
        ::_exit(0);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status));
    return WEXITSTATUS(status) == FaultyDisk::kKilled;
}

} // namespace krl::engine::testing
