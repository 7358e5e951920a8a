#pragma once

#include <string>

namespace krl::system {

/// Loads the shared object of a framework folder, F/Name.framework/Name, for good; again does
/// nothing. Returns whether it is loaded.
bool loadFramework(const std::string& path);

using FrameworkLoader = bool (*)(const std::string& path);

/// Replaces what loadFramework does, so that a test can say how it goes; null restores real
/// loading. Returns the function that was in force.
FrameworkLoader setFrameworkLoader(FrameworkLoader loader);

} // namespace krl::system
