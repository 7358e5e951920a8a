// Any bytes as a song: what is made of them is a ringtone as long as it says, or there is a reason why
// none is. What they do to the decoders beyond that is the affair of the process that is given them.

#include "audio/program/Ffmpeg.h"
#include "audio/program/Making.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <exception>

namespace {

class SongFile {
public:
    SongFile(const uint8_t* bytes, size_t size) : file_(memfd_create("song", MFD_CLOEXEC)) {
        if (write(file_, bytes, size) != static_cast<ssize_t>(size)) {
            std::abort();
        }
    }

    ~SongFile() { close(file_); }

    SongFile(const SongFile&) = delete;
    SongFile& operator=(const SongFile&) = delete;

    int descriptor() const { return file_; }

private:
    const int file_;
};

void require(bool isTrue) {
    if (!isTrue) {
        std::abort();
    }
}

} // namespace

// The last byte chooses where and how it is cut, so that songs are inputs as they are.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    if (size == 0) {
        return 0;
    }
    av_log_set_level(AV_LOG_QUIET);
    const unsigned choice = bytes[size - 1];
    krl::audio::Wish wish;
    wish.automatic = (choice & 1U) != 0;
    wish.level = (choice & 2U) != 0;
    wish.startSeconds = (choice & 4U) != 0 ? -1.0 : 0.25 * (choice >> 4U);
    wish.lengthSeconds = 2;
    const SongFile song(bytes, size - 1);
    try {
        const krl::audio::Made made = krl::audio::make(song.descriptor(), wish);
        require(!made.file.empty());
        require(made.prepared.lengthSeconds > 0 && made.prepared.lengthSeconds <= 2.1);
        require(std::isfinite(made.prepared.startSeconds) && made.prepared.startSeconds >= 0);
    } catch (const std::exception&) {
        // Said, or the end of the process that decodes.
    }
    return 0;
}
