#include "virtualphone/services/AfcProtocol.h"

namespace virtualphone::afc {

std::string_view operationName(uint64_t operation) {
    switch (operation) {
    case kReadDirectory:
        return "ReadDirectory";
    case kTruncatePath:
        return "TruncatePath";
    case kRemovePath:
        return "RemovePath";
    case kMakeDirectory:
        return "MakeDirectory";
    case kFileInfo:
        return "FileInfo";
    case kDeviceInfo:
        return "DeviceInfo";
    case kOpen:
        return "Open";
    case kRead:
        return "Read";
    case kWrite:
        return "Write";
    case kSeek:
        return "Seek";
    case kTell:
        return "Tell";
    case kClose:
        return "Close";
    case kSetSize:
        return "SetSize";
    case kRename:
        return "Rename";
    case kLock:
        return "Lock";
    case kMakeLink:
        return "MakeLink";
    case kSetModificationTime:
        return "SetModificationTime";
    case kRemovePathAndContents:
        return "RemovePathAndContents";
    default:
        return "Unknown";
    }
}

} // namespace virtualphone::afc
