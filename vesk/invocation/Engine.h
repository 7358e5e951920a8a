#pragma once

namespace krl::engine {}

namespace vesk {

/// vesk speaks the engine's words.
using namespace krl::engine;

} // namespace vesk
