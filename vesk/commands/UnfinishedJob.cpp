#include "vesk/commands/UnfinishedJob.h"

#include "engine/safe/PhoneSafe.h"

#include <fmt/format.h>

namespace vesk {

void noteUnfinishedJob(const std::string& udid, const std::string& consequence, Output& output) {
    std::optional<Job> job;
    try {
        job = unfinishedJob(udid);
    } catch (const Failure&) {
        // A safe that cannot be read is said by those who need it.
    }
    if (job) {
        output.note(fmt::format("the last job on this phone (vesk {}) was broken off or is under "
                                "way; {}",
                                job->what, consequence));
    }
}

} // namespace vesk
