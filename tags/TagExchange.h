// How a program asks vesk-tags about audio files: over a socket of packets, one question and one
// answer at a time. A question is a file's name with an open descriptor of the file, so that
// vesk-tags opens nothing; an answer is the title, or what the file's head says of its sound.
#pragma once

#include "tags/AudioFacts.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace krl::tags {

/// Bytes of UTF-8 that a title may have; a longer one is none.
inline constexpr size_t kLongestTitle = 4096;

/// A question as it arrived. Whoever takes it owns the descriptor.
struct TitleQuestion {
    std::string fileName;
    int file = -1;
    bool wantsFacts = false; ///< all that is to be known, not the title alone
};

/// Waits for a question; none when the asker has gone or what came is not one.
std::optional<TitleQuestion> receiveQuestion(int socket);

/// @return whether it was sent
bool sendTitle(int socket, std::string_view title);

/// The question for the title of a file of this name as a packet's text; the file goes beside it.
std::string titleQuestion(const std::string& fileName);

/// The same for facts about it.
std::string factsQuestion(const std::string& fileName);

} // namespace krl::tags
