#include "nss/PeerTurn.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string_view>
#include <utility>

namespace krl::nss {

namespace {

std::string_view viewOf(const SECItem& item) {
    return {reinterpret_cast<const char*>(item.data), item.len};
}

struct Holder {
    std::string expected;
    int streams = 0;
};

// One for the process, as NSS's table is.
struct Holders {
    std::mutex mutex;
    std::condition_variable given;
    std::map<std::string, Holder> byPlace;

    bool allow(const std::string& place, const std::string& expected) const {
        const auto holder = byPlace.find(place);
        return holder == byPlace.end() || holder->second.expected == expected;
    }
};

// Streams may live as long as the process.
Holders& holders() {
    static Holders& processWide = *new Holders;
    return processWide;
}

} // namespace

PeerTurn::Places PeerTurn::placesFor(Side side,
                                     const std::vector<const CERTCertificate*>& expected) {
    Places places;
    for (const CERTCertificate* certificate : expected) {
        if (certificate != nullptr) {
            const std::string_view issuer = viewOf(certificate->derIssuer);
            const std::string_view serial = viewOf(certificate->serialNumber);
            std::string place(side == Side::Client ? "client " : "server ");
            place.append(issuer).append(serial);
            places[std::move(place)].append(viewOf(certificate->derCert));
        }
    }
    return places;
}

bool PeerTurn::take(Side side, const std::vector<const CERTCertificate*>& expected,
                    std::optional<PeerTurn>& turn, const std::function<bool()>& mayWait) {
    constexpr std::chrono::milliseconds kBetweenQuestions(20);
    Places places = placesFor(side, expected);
    Holders& all = holders();
    std::unique_lock lock(all.mutex);
    while (!std::ranges::all_of(
        places, [&](const auto& place) { return all.allow(place.first, place.second); })) {
        if (!mayWait()) {
            return false;
        }
        all.given.wait_for(lock, kBetweenQuestions);
    }
    for (const auto& [place, certificates] : places) {
        Holder& holder = all.byPlace[place];
        holder.expected = certificates;
        ++holder.streams;
    }
    turn.emplace(std::move(places));
    return true;
}

PeerTurn::~PeerTurn() {
    if (places_.empty()) {
        return;
    }
    Holders& all = holders();
    {
        const std::lock_guard lock(all.mutex);
        for (const auto& [place, certificates] : places_) {
            const auto holder = all.byPlace.find(place);
            if (--holder->second.streams == 0) {
                all.byPlace.erase(holder);
            }
        }
    }
    all.given.notify_all();
}

} // namespace krl::nss
