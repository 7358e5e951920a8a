// vesk-tags: reads the titles of audio files for another program, which survives whatever a
// malformed file does to this one. Its standard input is the socket of TagExchange.h.

#include "tags/Confinement.h"
#include "tags/TagExchange.h"
#include "tags/Title.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>

namespace {

bool isSocket(int descriptor) {
    int type = 0;
    socklen_t size = sizeof type;
    return getsockopt(descriptor, SOL_SOCKET, SO_TYPE, &type, &size) == 0 && type == SOCK_SEQPACKET;
}

} // namespace

int main() {
    if (!isSocket(STDIN_FILENO)) {
        std::fputs("vesk-tags: other programs start this one to read the tags of audio files\n",
                   stderr);
        return 2;
    }
    krl::tags::confine();
    while (const auto question = krl::tags::receiveQuestion(STDIN_FILENO)) {
        krl::tags::allowComputing(std::chrono::seconds{5});
        // What it throws ends the process, as a crash does: the asker has one case to know.
        if (!krl::tags::sendTitle(STDIN_FILENO,
                                  krl::tags::titleIn(question->fileName, question->file))) {
            return 0;
        }
    }
    return 0;
}
