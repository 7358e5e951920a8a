// vesk-play: plays a file for another program, which survives whatever a malformed file does to this
// one. Its standard input is a socket of packets (confined/Packets.h); what they say stands in
// audio/playing/PlayState.h. It ends when nobody asks any more.

#include "audio/playing/program/Playback.h"
#include "confined/Packets.h"

#include <sys/prctl.h>
#include <unistd.h>

#include <cstdio>
#include <optional>

int main() {
    using namespace krl;
    if (!confined::isPacketSocket(STDIN_FILENO)) {
        std::fputs("vesk-play: other programs start this one to play files\n", stderr);
        return 2;
    }
    prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    gst_init(nullptr, nullptr);
    audio::forgetOtherSources();
    constexpr std::chrono::milliseconds kMoment{200};
    std::optional<audio::Playback> playback;
    while (auto question = confined::receivePacket(STDIN_FILENO, audio::kLongestPlayText)) {
        if (!playback && question->files.size() == 1) {
            playback.emplace(std::move(question->files[0]), question->text);
        }
        if (!playback ||
            !confined::sendPacket(STDIN_FILENO, audio::encoded(playback->wait(kMoment)))) {
            break;
        }
    }
    return 0;
}
