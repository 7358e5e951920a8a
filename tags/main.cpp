// vesk-tags: reads what audio files say of themselves for another program, which survives whatever a
// malformed file does to this one. Its standard input is the socket of TagExchange.h.

#include "confined/Confinement.h"
#include "confined/Packets.h"
#include "tags/Facts.h"
#include "tags/TagExchange.h"
#include "tags/Title.h"

#include <unistd.h>

#include <cstdint>
#include <cstdio>

namespace {

/// What it throws ends the process, as a crash does: the asker has one case to know.
bool answer(const krl::tags::TitleQuestion& question) {
    if (question.wantsFacts) {
        return krl::confined::sendPacket(
            STDIN_FILENO, krl::tags::encoded(krl::tags::factsOf(question.fileName, question.file)));
    }
    return krl::tags::sendTitle(STDIN_FILENO, krl::tags::titleIn(question.fileName, question.file));
}

} // namespace

int main() {
    if (!krl::confined::isPacketSocket(STDIN_FILENO)) {
        std::fputs("vesk-tags: other programs start this one to read the tags of audio files\n",
                   stderr);
        return 2;
    }
    constexpr uint64_t kMemory = 256U << 20U;
    krl::confined::confine({.memoryBytes = kMemory, .descriptors = 4});
    while (const auto question = krl::tags::receiveQuestion(STDIN_FILENO)) {
        krl::confined::allowComputing(std::chrono::seconds{5});
        if (!answer(*question)) {
            return 0;
        }
    }
    return 0;
}
