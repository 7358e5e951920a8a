#pragma once

#include "audio/preparing/Preparer.h"
#include "audio/preparing/Wish.h"

#include <pybind11/pybind11.h>

#include <optional>
#include <string>

namespace krl::python {

// What is done with songs and no phone, on the thread that calls. With Python's lock, which is given
// up while there is work.

/// @throw Failure, as each of these
pybind11::dict inspect(const std::string& path);

/// Makes a ringtone of a song.
/// @param place  of the ringtone
pybind11::dict prepare(const std::string& song, const std::string& place, const audio::Wish& wish,
                       bool replaces);

/// A time as a person writes it, "1:02.5"; none when it is nothing of that.
std::optional<double> seconds(const std::string& text);

} // namespace krl::python
