#pragma once

#include <filesystem>

namespace krl::engine {

/// Whether somebody has a file open for writing at this moment, so that more of it may come. False
/// also where the system does not say: of files of others, and on disks of other computers.
bool isBeingWritten(const std::filesystem::path& file);

} // namespace krl::engine
