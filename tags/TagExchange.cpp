#include "tags/TagExchange.h"

#include "confined/Packets.h"

#include <climits>

namespace krl::tags {
namespace {

// No file name begins like this.
constexpr char kForFacts = '/';

} // namespace

std::optional<TitleQuestion> receiveQuestion(int socket) {
    auto packet = confined::receivePacket(socket, 1 + NAME_MAX);
    if (!packet || packet->files.size() != 1) {
        return std::nullopt;
    }
    const bool wantsFacts = packet->text.starts_with(kForFacts);
    return TitleQuestion{packet->text.substr(wantsFacts ? 1 : 0), packet->files.front().release(),
                         wantsFacts};
}

bool sendTitle(int socket, std::string_view title) {
    return confined::sendPacket(socket, title.size() > kLongestTitle ? "" : title);
}

std::string titleQuestion(const std::string& fileName) {
    return fileName;
}

std::string factsQuestion(const std::string& fileName) {
    return kForFacts + fileName;
}

} // namespace krl::tags
