#include "tags/TagExchange.h"

#include "confined/Packets.h"

#include <array>
#include <climits>

namespace krl::tags {

bool sendQuestion(int socket, const TitleQuestion& question) {
    const std::array<int, 1> files{question.file};
    return confined::sendPacket(socket, question.fileName, files);
}

std::optional<TitleQuestion> receiveQuestion(int socket) {
    auto packet = confined::receivePacket(socket, NAME_MAX);
    if (!packet || packet->files.size() != 1) {
        return std::nullopt;
    }
    return TitleQuestion{packet->text, packet->files.front().release()};
}

bool sendTitle(int socket, std::string_view title) {
    return confined::sendPacket(socket, title.size() > kLongestTitle ? "" : title);
}

std::optional<std::string> receiveTitle(int socket) {
    auto packet = confined::receivePacket(socket, kLongestTitle);
    return packet ? std::optional(std::move(packet->text)) : std::nullopt;
}

} // namespace krl::tags
