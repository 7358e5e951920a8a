#include "vesk/terminal/Terminal.h"

#include <cstdlib>
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

void writeText(std::FILE* stream, std::string_view text) {
    static_cast<void>(std::fwrite(text.data(), 1, text.size(), stream));
}

} // namespace vesk
