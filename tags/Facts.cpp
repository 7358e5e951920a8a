#include "tags/Facts.h"

#include "tags/AacProfile.h"
#include "tags/NamedStream.h"
#include "tags/TagText.h"

#include <aifffile.h>
#include <aiffproperties.h>
#include <apefile.h>
#include <asffile.h>
#include <attachedpictureframe.h>
#include <fileref.h>
#include <flacfile.h>
#include <id3v2tag.h>
#include <mp4atom.h>
#include <mp4file.h>
#include <mp4properties.h>
#include <mp4tag.h>
#include <mpcfile.h>
#include <mpegfile.h>
#include <mpegproperties.h>
#include <oggflacfile.h>
#include <opusfile.h>
#include <speexfile.h>
#include <tag.h>
#include <trueaudiofile.h>
#include <vorbisfile.h>
#include <wavfile.h>
#include <wavpackfile.h>
#include <wavproperties.h>

#include <algorithm>

namespace krl::tags {
namespace {

/// The audio track's sample description, past its head; none when the file has no such track.
TagLib::ByteVector sampleDescription(TagLib::MP4::File& file) {
    constexpr size_t kMost = 4096;
    constexpr uint kHandlerAt = 16;
    TagLib::MP4::Atoms atoms(&file);
    TagLib::MP4::Atom* const movie = atoms.find("moov");
    if (movie == nullptr) {
        return {};
    }
    for (TagLib::MP4::Atom* track : movie->findall("trak")) {
        const TagLib::MP4::Atom* const handler = track->find("mdia", "hdlr");
        const TagLib::MP4::Atom* const description = track->find("mdia", "minf", "stbl", "stsd");
        if (handler == nullptr || description == nullptr) {
            continue;
        }
        file.seek(handler->offset);
        if (file.readBlock(kMost).containsAt("soun", kHandlerAt)) {
            file.seek(description->offset);
            return file.readBlock(
                std::min(kMost, static_cast<size_t>(std::max(0L, description->length))));
        }
    }
    return {};
}

void fillMpeg4(AudioFacts& facts, TagLib::MP4::File& file) {
    using Properties = TagLib::MP4::Properties;
    facts.container = container::kMpeg4;
    facts.bits = file.audioProperties()->bitsPerSample();
    facts.encrypted = file.audioProperties()->isEncrypted();
    if (file.audioProperties()->codec() == Properties::ALAC) {
        facts.codec = codec::kAppleLossless;
        return;
    }
    facts.codec = codec::kUnknown;
    const TagLib::ByteVector description = sampleDescription(file);
    const int found = description.find("esds");
    if (found >= 0) {
        const size_t at = static_cast<size_t>(found) + 4;
        const StreamFacts stream =
            factsOfStream({description.data() + at, description.size() - at});
        facts.codec = stream.codec;
        // The sample description itself says two whatever there are.
        facts.channels = stream.channels > 0 ? stream.channels : facts.channels;
    }
}

std::string codecOf(const TagLib::MPEG::Properties& properties) {
    return properties.layer() == 3 ? codec::kMp3
                                   : "MPEG layer " + std::to_string(properties.layer());
}

std::string codecOf(const TagLib::RIFF::WAV::Properties& properties) {
    constexpr int kPcm = 1;
    constexpr int kFloat = 3;
    return properties.format() == kPcm     ? codec::kPcm
           : properties.format() == kFloat ? "floating-point PCM"
                                           : "format " + std::to_string(properties.format());
}

std::string codecOf(const TagLib::RIFF::AIFF::Properties& properties) {
    return !properties.isAiffC() || properties.compressionType() == "NONE" ||
                   properties.compressionType() == "sowt"
               ? codec::kPcm
               : utf8Of(properties.compressionName());
}

/// The kinds of file that have nothing of their own to be looked at: name and codec.
template <typename File>
bool fill(AudioFacts& facts, TagLib::File* file, const char* container, const char* codec) {
    const auto* const properties = dynamic_cast<File*>(file);
    if (properties == nullptr) {
        return false;
    }
    facts.container = container;
    facts.codec = codec;
    if constexpr (requires { properties->audioProperties()->bitsPerSample(); }) {
        facts.bits = properties->audioProperties()->bitsPerSample();
    }
    return true;
}

void fillKind(AudioFacts& facts, TagLib::File* file) {
    if (auto* const mp4 = dynamic_cast<TagLib::MP4::File*>(file)) {
        fillMpeg4(facts, *mp4);
    } else if (auto* const mpeg = dynamic_cast<TagLib::MPEG::File*>(file)) {
        facts.container = container::kMpegAudio;
        facts.codec = codecOf(*mpeg->audioProperties());
    } else if (auto* const wave = dynamic_cast<TagLib::RIFF::WAV::File*>(file)) {
        facts.container = container::kWave;
        facts.codec = codecOf(*wave->audioProperties());
        facts.bits = wave->audioProperties()->bitsPerSample();
    } else if (auto* const aiff = dynamic_cast<TagLib::RIFF::AIFF::File*>(file)) {
        facts.container = container::kAiff;
        facts.codec = codecOf(*aiff->audioProperties());
        facts.bits = aiff->audioProperties()->bitsPerSample();
    } else if (auto* const asf = dynamic_cast<TagLib::ASF::File*>(file)) {
        facts.container = "ASF";
        facts.codec = "Windows Media Audio";
        facts.encrypted = asf->audioProperties()->isEncrypted();
    } else {
        fill<TagLib::FLAC::File>(facts, file, "FLAC", "FLAC") ||
            fill<TagLib::Ogg::Vorbis::File>(facts, file, "Ogg", "Vorbis") ||
            fill<TagLib::Ogg::Opus::File>(facts, file, "Ogg", "Opus") ||
            fill<TagLib::Ogg::Speex::File>(facts, file, "Ogg", "Speex") ||
            fill<TagLib::Ogg::FLAC::File>(facts, file, "Ogg", "FLAC") ||
            fill<TagLib::APE::File>(facts, file, "APE", "Monkey's Audio") ||
            fill<TagLib::WavPack::File>(facts, file, "WavPack", "WavPack") ||
            fill<TagLib::TrueAudio::File>(facts, file, "True Audio", "True Audio") ||
            fill<TagLib::MPC::File>(facts, file, "Musepack", "Musepack");
    }
}

uint64_t largestPicture(TagLib::MP4::Tag& tag) {
    uint64_t most = 0;
    for (const auto& cover : tag.item("covr").toCoverArtList()) {
        most = std::max<uint64_t>(most, cover.data().size());
    }
    return most;
}

uint64_t largestPicture(const TagLib::ID3v2::Tag* tag) {
    uint64_t most = 0;
    if (tag != nullptr) {
        for (auto* frame : tag->frameList("APIC")) {
            if (auto* picture = dynamic_cast<TagLib::ID3v2::AttachedPictureFrame*>(frame)) {
                most = std::max<uint64_t>(most, picture->picture().size());
            }
        }
    }
    return most;
}

uint64_t largestPicture(const TagLib::List<TagLib::FLAC::Picture*>& pictures) {
    uint64_t most = 0;
    for (const auto* picture : pictures) {
        most = std::max<uint64_t>(most, picture->data().size());
    }
    return most;
}

uint64_t pictureBytes(TagLib::File* file) {
    if (auto* const mp4 = dynamic_cast<TagLib::MP4::File*>(file)) {
        return mp4->tag() == nullptr ? 0 : largestPicture(*mp4->tag());
    }
    if (auto* const mpeg = dynamic_cast<TagLib::MPEG::File*>(file)) {
        return largestPicture(mpeg->ID3v2Tag());
    }
    if (auto* const wave = dynamic_cast<TagLib::RIFF::WAV::File*>(file)) {
        return largestPicture(wave->ID3v2Tag());
    }
    if (auto* const aiff = dynamic_cast<TagLib::RIFF::AIFF::File*>(file)) {
        return largestPicture(aiff->tag());
    }
    if (auto* const flac = dynamic_cast<TagLib::FLAC::File*>(file)) {
        return largestPicture(flac->pictureList());
    }
    if (auto* const comment = dynamic_cast<TagLib::Ogg::XiphComment*>(file->tag())) {
        return largestPicture(comment->pictureList());
    }
    return 0;
}

AudioFacts factsOf(const TagLib::FileRef& reference) {
    AudioFacts facts;
    TagLib::File* const file = reference.file();
    if (reference.isNull() || file->audioProperties() == nullptr) {
        return facts;
    }
    const TagLib::AudioProperties& properties = *file->audioProperties();
    facts.channels = properties.channels();
    facts.sampleRate = properties.sampleRate();
    facts.kilobits = properties.bitrate();
    facts.lengthMs = properties.lengthInMilliseconds();
    fillKind(facts, file);
    // An encrypted track keeps its rate to itself. Of anything else without one, the name alone made
    // an audio file.
    if (!facts.encrypted && !facts.hasSound()) {
        return {};
    }
    facts.pictureBytes = pictureBytes(file);
    if (file->tag() != nullptr) {
        facts.title = textOf(*file, file->tag()->title(), "TITLE");
        facts.artist = textOf(*file, file->tag()->artist(), "ARTIST");
    }
    return facts;
}

} // namespace

AudioFacts factsOf(TagLib::IOStream& file) {
    return factsOf(TagLib::FileRef(&file));
}

AudioFacts factsOf(const std::string& fileName, int descriptor) {
    NamedStream stream("", descriptor);
    const AudioFacts byContent = factsOf(stream);
    if (!byContent.container.empty()) {
        return byContent;
    }
    stream.rename(fileName);
    stream.seek(0);
    return factsOf(stream);
}

} // namespace krl::tags
