#pragma once

#include "desktop/session/Session.h"

#include <filesystem>
#include <string>

namespace krl::desktop {

// What the window says of folders that phones mirror.

/// A folder's name, or all of a path that ends in none.
std::string folderName(const std::filesystem::path& folder);

/// What stands in the way of a mirror.
/// @param phone  the phone's name
Explanation mirrorProblem(const engine::Failure& failure, const std::string& phone);

/// "Mirrors “Ringtones”".
std::string mirrorTitle(const MirrorView& mirror);

/// What it does, or waits for.
std::string mirrorText(const MirrorView& mirror);

/// What the person is asked, as the title of the plan.
std::string mirrorQuestion(const MirrorView& mirror);

} // namespace krl::desktop
