#include "python/core/Songs.h"

#include "audio/judging/Inspector.h"
#include "audio/preparing/RingtonePlace.h"
#include "audio/preparing/TimeText.h"
#include "python/core/Values.h"
#include "python/core/WithoutLock.h"

namespace krl::python {

namespace py = pybind11;
namespace fs = std::filesystem;

namespace {

template <typename Work>
auto withoutLock(Work work) -> decltype(work()) {
    const WithoutLock without;
    return work();
}

struct Placed {
    audio::SongOutcome outcome;
    bool isNew = false;
};

} // namespace

py::dict inspect(const std::string& path) {
    return valueOf(withoutLock([&] { return audio::Inspector().inspect(path); }));
}

py::dict prepare(const std::string& song, const std::string& place, const audio::Wish& wish,
                 bool replaces) {
    const Placed placed = withoutLock([&] {
        audio::PlacesOfSongs({song}).requireOther(song, place);
        audio::SongOutcome outcome = audio::Preparer().prepare(song, wish);
        const bool isNew = audio::putRingtone(place, outcome.ringtone->bytes, replaces);
        return Placed{std::move(outcome), isNew};
    });
    const audio::Ringtone& ringtone = *placed.outcome.ringtone;
    py::dict value = valueOf(ringtone.prepared);
    value["size"] = ringtone.bytes.size();
    value["from_cache"] = placed.outcome.fromCache;
    value["already_there"] = !placed.isNew;
    return value;
}

std::optional<double> seconds(const std::string& text) {
    return audio::secondsIn(text);
}

} // namespace krl::python
