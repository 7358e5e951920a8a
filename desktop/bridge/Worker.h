#pragma once

#include <functional>
#include <thread>

namespace krl::desktop {

/// A thread that no signal reaches: they are for the main loop.
std::thread startWorker(std::function<void()> run);

} // namespace krl::desktop
