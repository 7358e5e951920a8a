#include "engine/jobs/WorkProgress.h"

namespace krl::engine {

using Stage = WorkProgress::Stage;

std::optional<double> WorkProgress::fraction() const {
    if (bytesTotal > 0) {
        return static_cast<double>(bytesDone) / static_cast<double>(bytesTotal);
    }
    if (filesTotal > 0) {
        return static_cast<double>(filesDone) / static_cast<double>(filesTotal);
    }
    return std::nullopt;
}

WorkProgress sending(const Progress& progress) {
    return {.stage = Stage::Sending,
            .filesDone = progress.filesDone,
            .filesTotal = progress.filesTotal,
            .bytesDone = progress.bytesDone,
            .bytesTotal = progress.bytesTotal,
            .secondsLeft = progress.secondsLeft(),
            .current = progress.current};
}

WorkProgress bytesOf(Stage stage, uint64_t done, uint64_t total) {
    return {.stage = stage, .bytesDone = done, .bytesTotal = total};
}

RestoreWatch restoreWatch(const WorkWatch& watch) {
    return {.reading =
                [&watch](uint64_t done, uint64_t total) {
                    watch.progress(bytesOf(Stage::Reading, done, total));
                },
            .writing =
                [&watch](uint64_t done, uint64_t total) {
                    watch.progress(bytesOf(Stage::PuttingBack, done, total));
                },
            .cancels = [&watch] { return watch.isCancelled->load(); }};
}

} // namespace krl::engine
