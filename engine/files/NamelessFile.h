#pragma once

#include <string_view>

namespace krl::engine {

/// A temporary file that has no name: it is gone with its object, however this process ends.
class NamelessFile {
public:
    /// @throw Failure when there can be none
    NamelessFile();
    ~NamelessFile();
    NamelessFile(const NamelessFile&) = delete;
    NamelessFile& operator=(const NamelessFile&) = delete;

    /// @throw Failure when it cannot be written
    void add(std::string_view bytes);

    /// Lent. It stands at the end of what was added.
    int descriptor() const { return descriptor_; }

private:
    int descriptor_ = -1;
};

} // namespace krl::engine
