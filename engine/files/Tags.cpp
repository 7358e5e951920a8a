#include "engine/files/Tags.h"

#include <fileref.h>
#include <tag.h>
#include <tpropertymap.h>

namespace vesk {

std::string titleInTags(const std::string& path) {
    const TagLib::FileRef file(path.c_str(), /*readAudioProperties=*/false);
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

} // namespace vesk
