#pragma once

#include <string>

namespace krl::system {

/// The user's home folder, without a slash at the end: HOME, or else what the user database says.
/// For a user without one, a folder in which nothing can be made.
std::string homeFolder();

/// Makes what the platform's home folders always have and those here do not: "Library". A failure
/// is ignored.
void completeHomeFolder();

} // namespace krl::system
