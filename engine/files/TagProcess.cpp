#include "engine/files/TagProcess.h"

#include "engine/errors/Failure.h"

#include <KRLVesk/KRLVesk.h>

#include <dlfcn.h>
#include <fmt/format.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <system_error>

namespace krl::engine {
namespace {

Failure cannotStart(const std::string& why) {
    return {FailureKind::Unexpected, fmt::format("tags cannot be read: {}", why),
            "Install KRLVesk anew. Nothing was changed on the phone."};
}

} // namespace

std::filesystem::path tagProgram() {
    Dl_info library{};
    if (dladdr(reinterpret_cast<const void*>(&KRTVeskInitLight), &library) == 0) {
        return {};
    }
    const auto folder = std::filesystem::absolute(library.dli_fname).parent_path();
    for (const char* name : {"vesk-tags", "KRLVesk/vesk-tags"}) {
        if (access((folder / name).c_str(), X_OK) == 0) {
            return folder / name;
        }
    }
    return {};
}

std::optional<std::string> TagProcess::ask(const std::string& question, int file,
                                           size_t longestAnswer) {
    constexpr std::chrono::seconds kLongest{10};
    const std::array<int, 1> files{file};
    auto answer = started().ask(question, files, longestAnswer, kLongest);
    if (!answer) {
        end();
    }
    return answer;
}

confined::ConfinedProcess& TagProcess::started() {
    if (program_.empty()) {
        throw cannotStart("the program \"vesk-tags\" is missing beside the library");
    }
    if (!process_) {
        try {
            process_.emplace(program_);
        } catch (const std::system_error& error) {
            throw cannotStart(fmt::format("\"{}\": {}", program_.string(), error.code().message()));
        }
    }
    return *process_;
}

} // namespace krl::engine
