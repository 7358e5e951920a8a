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
    confined::OpenFile file(memfd_create("ringtone", MFD_CLOEXEC));
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

} // namespace

Ringtone madeOf(const std::filesystem::path& path, int descriptor, const Wish& wish,
                const std::filesystem::path& program) {
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
    const confined::OpenFile file = emptyFile();
    const std::array<int, 2> files{descriptor, file.get()};
    const auto text = process->ask(encoded(wish), files, kLongestWish, kLongest);
    const auto answer = text ? decodedAnswer(*text) : std::nullopt;
    if (!answer) {
        throw cannotPrepare(path, "that takes too much memory or time",
                            "It is damaged, or made to do harm. Take another file of the song.");
    }
    if (!answer->problem.empty()) {
        throw cannotPrepare(path, answer->problem, answer->advice);
    }
    return {answer->prepared, contentsOf(file)};
}

} // namespace krl::audio
