#pragma once

#include "engine/change/ChangeWatcher.h"
#include "vesk/terminal/Interrupt.h"
#include "vesk/terminal/ProgressDisplay.h"

namespace vesk {

/// Shows how far a sync is, and cancels it when Ctrl-C was pressed in time. While it lives, Ctrl-C
/// does not leave at once.
class SyncDisplay : public ChangeListener {
public:
    explicit SyncDisplay(Output& output) : output_(output), display_(output) {}

    void stage(SyncStage stage) override;

    void fileBegins(const Progress& progress) override { display_.fileBegins(progress); }

    void fileMoves(const Progress& progress) override { display_.fileMoves(progress); }

    void fileEnds(const Progress& progress) override { display_.fileEnds(progress); }

    void goesOnWithoutLock() override;
    void leavesBehind(size_t files) override;

    void moves(SafeWork work, uint64_t done, uint64_t total) override;

    void wasPutRight() override;

    void ended() override { display_.clear(); }

    bool cancels() noexcept override { return interrupted(); }

private:
    DeedScope scope_{OnInterrupt::FinishStep};
    Output& output_;
    ProgressDisplay display_;
};

} // namespace vesk
