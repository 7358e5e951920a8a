#include "tags/Title.h"

#include "tags/NamedStream.h"
#include "tags/TagText.h"

#include <fileref.h>
#include <tag.h>

namespace krl::tags {

std::string titleIn(TagLib::IOStream& stream) {
    const TagLib::FileRef file(&stream, /*readAudioProperties=*/false);
    if (file.isNull() || file.tag() == nullptr) {
        return {};
    }
    return textOf(*file.file(), file.tag()->title(), "TITLE");
}

std::string titleIn(const std::string& fileName, int descriptor) {
    NamedStream stream(fileName, descriptor);
    return titleIn(stream);
}

} // namespace krl::tags
