#include "audio/songs/FolderSync.h"

#include "engine/change/NameRefusals.h"

namespace krl::audio {

SongIntake::All makeHoldFolder(engine::OpenPhone& phone, const engine::PhoneState& state,
                               const WholeFolder& folder) {
    if (folder.isEmpty && !folder.isConsented) {
        requireYes(state, folder.name);
    }
    SongIntake::All all = folder.songs.all(phone, state);
    engine::makeHold(phone, state, all.ringtones, all.others);
    return all;
}

} // namespace krl::audio
