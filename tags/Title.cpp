#include "tags/Title.h"

#include <fileref.h>
#include <tag.h>
#include <tfilestream.h>
#include <tpropertymap.h>

namespace krl::tags {
namespace {

/// An open file with its name.
class NamedStream : public TagLib::FileStream {
public:
    NamedStream(const std::string& name, int descriptor)
        : FileStream(descriptor, /*openReadOnly=*/true), name_(name) {}

    TagLib::FileName name() const override { return name_.c_str(); }

private:
    std::string name_;
};

} // namespace

std::string titleIn(TagLib::IOStream& stream) {
    const TagLib::FileRef file(&stream, /*readAudioProperties=*/false);
    if (file.isNull() || file.tag() == nullptr) {
        return {};
    }
    TagLib::String title = file.tag()->title();
    if (title.isEmpty()) {
        // A wave file's own list of texts is not what tag() gives.
        title = file.file()->properties()["TITLE"].toString();
    }
    return title.to8Bit(/*unicode=*/true);
}

std::string titleIn(const std::string& fileName, int descriptor) {
    NamedStream stream(fileName, descriptor);
    return titleIn(stream);
}

} // namespace krl::tags
