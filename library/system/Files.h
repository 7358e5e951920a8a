#pragma once

#include <string>

namespace krl::system {

/// Whether there is anything at a path: a file, a folder or a link to one. False for a link that
/// leads nowhere, and for what cannot be looked at.
bool exists(const std::string& path);

/// Removes a file, a link or a whole folder; of a link the link alone. Nothing there, or a failure,
/// which may leave part of a folder behind, is ignored.
void removeAll(const std::string& path);

/// Makes one folder, whose parent must be there. A failure is ignored, as is a folder that is
/// there.
void makeFolder(const std::string& path);

} // namespace krl::system
