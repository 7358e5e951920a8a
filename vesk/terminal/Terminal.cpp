#include "vesk/terminal/Terminal.h"

#include <cstdlib>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace vesk {

bool terminalUnderstandsEscapes(std::FILE* stream) {
    const char* type = std::getenv("TERM");
    return isatty(fileno(stream)) == 1 && type != nullptr && std::string_view(type) != "dumb";
}

bool coloursWanted() {
    const char* noColour = std::getenv("NO_COLOR");
    return noColour == nullptr || *noColour == '\0';
}

size_t terminalColumns(std::FILE* stream) {
    constexpr size_t kUsual = 80;
    winsize size{};
    const bool known = ioctl(fileno(stream), TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return known ? size.ws_col : kUsual;
}

MutedStandardError::MutedStandardError() : saved_(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0)) {
    const int nowhere = saved_ < 0 ? -1 : open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (nowhere >= 0) {
        dup2(nowhere, STDERR_FILENO);
        close(nowhere);
    }
}

MutedStandardError::~MutedStandardError() {
    if (saved_ >= 0) {
        dup2(saved_, STDERR_FILENO);
        close(saved_);
    }
}

void writeText(std::FILE* stream, std::string_view text) {
    static_cast<void>(std::fwrite(text.data(), 1, text.size(), stream));
}

} // namespace vesk
