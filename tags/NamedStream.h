#pragma once

#include <tfilestream.h>

#include <string>
#include <utility>

namespace krl::tags {

/// An open file with a name, which is closed with it.
class NamedStream : public TagLib::FileStream {
public:
    NamedStream(std::string name, int descriptor)
        : FileStream(descriptor, /*openReadOnly=*/true), name_(std::move(name)) {}

    TagLib::FileName name() const override { return name_.c_str(); }

    void rename(const std::string& name) { name_ = name; }

private:
    std::string name_;
};

} // namespace krl::tags
