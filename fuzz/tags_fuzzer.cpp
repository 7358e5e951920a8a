// Any bytes as an audio file: a title comes back that is one, or none, and the next file is read.
// What the bytes do to the process that reads them is its own affair.

#include "engine/files/LocalFile.h"
#include "engine/files/TagReader.h"
#include "engine/values/Text.h"
#include "tags/TagExchange.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>

namespace {

std::optional<std::string> titleOf(const std::string& fileName, const void* bytes, size_t size) {
    static krl::engine::TagReader reader;
    const int file = memfd_create("song", MFD_CLOEXEC);
    if (write(file, bytes, size) != static_cast<ssize_t>(size) || lseek(file, 0, SEEK_SET) != 0) {
        std::abort();
    }
    const auto title = reader.titleOf(fileName, file);
    close(file);
    return title;
}

/// An ID3v2.4 tag with one text frame, then nothing.
const std::string& fileWithTitle() {
    static const std::string file =
        std::string("ID3\4\0\0\0\0\0\x11TIT2\0\0\0\7\0\0\3Bells!", 27) + std::string(64, '\0');
    return file;
}

} // namespace

// The first byte chooses the file's type.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    if (size == 0) {
        return 0;
    }
    const auto& types = krl::engine::supportedTypes();
    const auto title = titleOf("song." + types[bytes[0] % types.size()], bytes + 1, size - 1);
    if (title && (title->size() > krl::tags::kLongestTitle || !krl::engine::isUtf8(*title))) {
        std::abort();
    }
    const std::string& good = fileWithTitle();
    if (!title && titleOf("good.mp3", good.data(), good.size()) != "Bells!") {
        std::abort();
    }
    return 0;
}
