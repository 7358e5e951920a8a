#include "engine/files/Writing.h"

#include <unistd.h>

#include <cerrno>

namespace krl::engine {

int writeAll(int descriptor, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = write(descriptor, bytes.data(), bytes.size());
        if (count < 0 && errno != EINTR) {
            return errno;
        }
        bytes.remove_prefix(count < 0 ? 0 : static_cast<size_t>(count));
    }
    return 0;
}

} // namespace krl::engine
