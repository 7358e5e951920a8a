#pragma once

#include "engine/files/LocalFile.h"
#include "engine/plan/Change.h"

#include <vector>

namespace krl::audio {

/// Gives ringtones that are to be on one phone names of their own, however accents are written in
/// them: of those of one name the second becomes "Name (2)". What the phone holds already keeps the
/// name that it has there, so that names do not change when songs come and go.
/// @param wanted  the names after their songs; become the names on the phone
/// @param there   the ringtones on the phone
/// @param others  what becomes of those that are not wanted: numbers of those that stay are not taken
void nameApart(const std::vector<engine::LocalRingtone*>& wanted,
               const std::vector<engine::PhoneRingtone>& there, engine::Others others);

} // namespace krl::audio
