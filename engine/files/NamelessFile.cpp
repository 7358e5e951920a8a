#include "engine/files/NamelessFile.h"

#include "engine/errors/Failure.h"
#include "engine/files/Writing.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

namespace krl::engine {
namespace {

Failure cannotWrite(int error) {
    return {FailureKind::Unexpected,
            fmt::format("a temporary file cannot be written: {}", std::strerror(error)),
            "Make room in the folder for temporary files, or name another one in TMPDIR."};
}

} // namespace

NamelessFile::NamelessFile() {
    std::error_code error;
    std::string name = (std::filesystem::temp_directory_path(error) / "vesk-XXXXXX").string();
    descriptor_ = error ? -1 : mkostemp(name.data(), O_CLOEXEC);
    if (descriptor_ < 0) {
        throw cannotWrite(error ? error.value() : errno);
    }
    unlink(name.c_str());
}

NamelessFile::~NamelessFile() {
    close(descriptor_);
}

void NamelessFile::add(std::string_view bytes) {
    if (const int error = writeAll(descriptor_, bytes)) {
        throw cannotWrite(error);
    }
}

} // namespace krl::engine
