#pragma once

#include "audio/preparing/Wish.h"
#include "engine/safe/Documents.h"

namespace krl::desktop {

/// How a song is cut, as it is kept.
engine::Json cutJson(const audio::Wish& cut);

/// The same back.
/// @throw engine::BadDocument when no song can be cut so
audio::Wish cutOf(const engine::Json& entry);

} // namespace krl::desktop
