// vesk-prepare: makes ringtones of songs for another program, which survives whatever a malformed
// file does to this one. Its standard input is a socket of packets (confined/Packets.h): a question
// is a wish with two open files, the song and an empty one for the ringtone, kForPeaks with the same
// for the peaks, or kForFacts with the song alone.

#include "audio/judging/DecoderFacts.h"
#include "audio/preparing/Peaks.h"
#include "audio/preparing/Wish.h"
#include "audio/program/Ffmpeg.h"
#include "audio/program/Making.h"
#include "audio/program/PeakMeter.h"
#include "audio/program/Source.h"
#include "confined/Confinement.h"
#include "confined/Packets.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <span>
#include <system_error>

namespace {

using krl::confined::OpenFile;

void writeAll(const OpenFile& file, std::span<const char> bytes) {
    for (size_t done = 0; done < bytes.size();) {
        const ssize_t count = write(file.get(), bytes.data() + done, bytes.size() - done);
        if (count < 0) {
            throw std::system_error(errno, std::generic_category());
        }
        done += static_cast<size_t>(count);
    }
}

krl::audio::PrepareAnswer answerTo(const krl::audio::Wish& wish, const OpenFile& song,
                                   const OpenFile& ringtone) {
    try {
        const krl::audio::Made made = krl::audio::make(song.get(), wish);
        writeAll(ringtone, {reinterpret_cast<const char*>(made.file.data()), made.file.size()});
        return {made.prepared};
    } catch (const krl::audio::CannotPrepare& failure) {
        return {{}, failure.what(), failure.advice()};
    }
}

krl::audio::PeaksAnswer peaksAnswer(const OpenFile& song, const OpenFile& output) {
    try {
        const krl::audio::Peaks peaks = krl::audio::peaksOf(song.get());
        writeAll(output, krl::audio::bytesOf(peaks.peaks));
        return {peaks.seconds, peaks.secondsPerPeak};
    } catch (const krl::audio::CannotPrepare& failure) {
        return {0, 0, failure.what(), failure.advice()};
    }
}

/// Nothing of what cannot be decoded.
krl::tags::AudioFacts factsOf(const OpenFile& song) {
    try {
        return krl::audio::Source(song.get()).facts();
    } catch (const krl::audio::CannotPrepare&) {
        return {};
    }
}

std::optional<std::string> answerTo(const krl::confined::Packet& question) {
    if (question.text == krl::audio::kForFacts && question.files.size() == 1) {
        return krl::tags::encoded(factsOf(question.files[0]));
    }
    if (question.text == krl::audio::kForPeaks && question.files.size() == 2) {
        return krl::audio::encoded(peaksAnswer(question.files[0], question.files[1]));
    }
    const auto wish = krl::audio::decodedWish(question.text);
    if (!wish || question.files.size() != 2) {
        return std::nullopt;
    }
    return krl::audio::encoded(answerTo(*wish, question.files[0], question.files[1]));
}

} // namespace

int main() {
    if (!krl::confined::isPacketSocket(STDIN_FILENO)) {
        std::fputs("vesk-prepare: other programs start this one to make ringtones\n", stderr);
        return 2;
    }
    av_log_set_level(AV_LOG_QUIET);
    constexpr uint64_t kMemory = 1536U << 20U;
    constexpr uint64_t kLargestRingtone = 64U << 20U;
    krl::confined::confine(
        {.memoryBytes = kMemory, .descriptors = 5, .writtenBytes = kLargestRingtone});
    while (const auto question =
               krl::confined::receivePacket(STDIN_FILENO, krl::audio::kLongestWish)) {
        krl::confined::allowComputing(std::chrono::minutes{1});
        // What else is thrown ends the process, as a crash does: the asker has one case to know.
        const auto answer = answerTo(*question);
        if (!answer || !krl::confined::sendPacket(STDIN_FILENO, *answer)) {
            return 0;
        }
    }
    return 0;
}
