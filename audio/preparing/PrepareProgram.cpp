#include "audio/preparing/PrepareProgram.h"

#include "confined/ConfinedProcess.h"
#include "engine/errors/Failure.h"

#include <fmt/format.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <optional>
#include <system_error>

namespace krl::audio {
namespace {

using engine::Failure;
using engine::FailureKind;

Failure missing(const std::string& why) {
    return {FailureKind::Unexpected, fmt::format("ringtones cannot be made: {}", why),
            "Install KRLVesk with its program \"vesk-prepare\", which needs FFmpeg's libraries."};
}

Failure cannotPrepare(const std::filesystem::path& path, const std::string& problem,
                      const std::string& advice) {
    return {FailureKind::UnreadableFile,
            fmt::format("no ringtone can be made of \"{}\": {}", path.string(), problem), advice};
}

/// A file in memory, to be written by another process.
confined::OpenFile emptyFile() {
    confined::OpenFile file(memfd_create("vesk-prepare", MFD_CLOEXEC));
    if (!file) {
        throw std::system_error(errno, std::generic_category());
    }
    return file;
}

std::string contentsOf(const confined::OpenFile& file) {
    std::string bytes;
    std::array<char, 65536> piece{};
    for (;;) {
        const ssize_t count =
            pread(file.get(), piece.data(), piece.size(), static_cast<off_t>(bytes.size()));
        if (count < 0) {
            throw std::system_error(errno, std::generic_category());
        }
        if (count == 0) {
            return bytes;
        }
        bytes.append(piece.data(), static_cast<size_t>(count));
    }
}

/// What the program has said, and the file that it has written.
struct Reply {
    std::optional<std::string> text; ///< none: it has ended first, or not in time
    confined::OpenFile file;
};

Reply replyTo(const std::string& question, int descriptor, const std::filesystem::path& program,
              const std::stop_token& stop) {
    // The process itself ends after a minute of computing; on a busy machine that takes longer.
    constexpr std::chrono::minutes kLongest{10};
    if (program.empty()) {
        throw missing("the program \"vesk-prepare\" is missing beside the library");
    }
    std::optional<confined::ConfinedProcess> process;
    try {
        process.emplace(program);
    } catch (const std::system_error& error) {
        throw missing(fmt::format("\"{}\": {}", program.string(), error.code().message()));
    }
    Reply reply{std::nullopt, emptyFile()};
    const std::array<int, 2> files{descriptor, reply.file.get()};
    reply.text = process->ask(question, files, kLongestWish, kLongest, stop);
    return reply;
}

/// @throw Failure when there is none, or it says that it cannot be done
template <typename Answer>
void requireDone(const std::optional<Answer>& answer, const std::filesystem::path& path) {
    if (!answer) {
        throw cannotPrepare(path, "that takes too much memory or time",
                            "It is damaged, or made to do harm. Take another file of the song.");
    }
    if (!answer->problem.empty()) {
        throw cannotPrepare(path, answer->problem, answer->advice);
    }
}

} // namespace

Ringtone madeOf(const std::filesystem::path& path, int descriptor, const Wish& wish,
                const std::filesystem::path& program, const std::stop_token& stop) {
    const Reply reply = replyTo(encoded(wish), descriptor, program, stop);
    const auto answer = reply.text ? decodedAnswer(*reply.text) : std::nullopt;
    requireDone(answer, path);
    return {answer->prepared, contentsOf(reply.file)};
}

Peaks peaksOf(const std::filesystem::path& path, int descriptor,
              const std::filesystem::path& program, const std::stop_token& stop) {
    const Reply reply = replyTo(kForPeaks, descriptor, program, stop);
    const auto answer = reply.text ? decodedPeaksAnswer(*reply.text) : std::nullopt;
    requireDone(answer, path);
    const auto peaks = peaksIn(contentsOf(reply.file), *answer);
    if (!peaks) {
        throw cannotPrepare(path, "it makes no sense", "Take another file of the song.");
    }
    return *peaks;
}

} // namespace krl::audio
