#include "vesk/terminal/SyncDisplay.h"

#include "engine/values/Text.h"

#include <fmt/format.h>

namespace vesk {

void SyncDisplay::stage(SyncStage stage) {
    switch (stage) {
    case SyncStage::WaitingForLock:
        display_.stage("Waiting for the phone's sync lock ...");
        break;
    case SyncStage::Preparing:
        display_.stage("Preparing ...");
        break;
    case SyncStage::Paused: // nothing here pauses one
        break;
    case SyncStage::CatalogueDropped:
        setOnInterrupt(OnInterrupt::FinishForcedStep);
        break;
    case SyncStage::Removing:
        setOnInterrupt(OnInterrupt::FinishSync);
        display_.stage("Removing, writing the catalogue ...");
        break;
    }
}

void SyncDisplay::goesOnWithoutLock() {
    display_.clear();
    output_.warning("another program holds the phone's sync lock; going on without it");
}

void SyncDisplay::leavesBehind(size_t files) {
    output_.warning(fmt::format("{} that no catalogue lists could not be deleted from the phone's "
                                "ringtone folder; the next sync tries again",
                                counted(files, "file")));
}

void SyncDisplay::wasPutRight() {
    output_.warning("something had not arrived on the phone as it should; it has been put right");
}

void SyncDisplay::moves(SafeWork work, uint64_t done, uint64_t total) {
    const char* const what =
        work == SafeWork::Reading ? "Reading what the phone holds" : "Putting right";
    display_.stage(fmt::format("{}: {} of {} ...", what, formatBytes(done), formatBytes(total)));
}

} // namespace vesk
