#include "engine/files/BeingWritten.h"

#include "confined/OpenFile.h"

#include <fcntl.h>

#include <cerrno>
#include <csignal>

namespace krl::engine {

// A lease for reading is refused while somebody writes. Whoever begins to in the moment of ours waits
// until it is given back, and we are told by a signal, which is one that nobody minds.
bool isBeingWritten(const std::filesystem::path& file) {
    const confined::OpenFile opened(open(file.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (!opened || fcntl(opened.get(), F_SETSIG, SIGURG) != 0) {
        return false;
    }
    if (fcntl(opened.get(), F_SETLEASE, F_RDLCK) != 0) {
        return errno == EAGAIN;
    }
    fcntl(opened.get(), F_SETLEASE, F_UNLCK);
    return false;
}

} // namespace krl::engine
