#include "audio/songs/SongReader.h"

#include "engine/files/RegularFile.h"
#include "engine/values/Text.h"

#include <fmt/format.h>

#include <system_error>
#include <utility>

namespace krl::audio {

using engine::Failure;
using engine::FailureKind;
namespace fs = std::filesystem;

namespace {

constexpr char kCheckPath[] = "Check the path and its permissions.";

void requireThatItPlays(const fs::path& path, const Judgement& judgement) {
    if (judgement.verdict == Verdict::WantsPreparing) {
        throw Failure(FailureKind::UnsupportedType,
                      fmt::format("\"{}\" does not play as a ringtone: {}", path.string(),
                                  fmt::join(judgement.reasons, "; ")),
                      "Without --as-is a ringtone is made of it; --unchecked sends it all the "
                      "same.");
    }
}

} // namespace

Song SongReader::read(const fs::path& path, const std::optional<std::string>& name) {
    const std::optional<std::string> given =
        name || names_ == NameSource::Tags ? name : engine::nameAfter("", path);
    if (treatment_ == Treatment::Unchecked) {
        return unchecked(path, given);
    }
    std::error_code ignored;
    if (fs::is_directory(path, ignored)) {
        throw engine::unreadable(path, "it is a folder (vesk sync takes folders)", kCheckPath);
    }
    Inspection inspection = inspector_.inspect(path);
    if (inspection.judgement.verdict == Verdict::CannotBeUsed) {
        throw cannotBeUsed(path, inspection.judgement);
    }
    if (treatment_ == Treatment::AsIs) {
        requireThatItPlays(path, inspection.judgement);
    }
    const engine::Digest content = digests_.of(engine::RegularFile(path, kCheckPath));
    engine::LocalRingtone asIs{.name = given ? engine::composed(*given)
                                             : engine::nameAfter(inspection.facts.title, path),
                               .path = engine::cataloguePath(path),
                               .type = engine::typeOf(path),
                               .size = inspection.size,
                               .source = content};
    engine::requireUsableName(asIs.name);
    return {path, std::move(asIs), content, std::move(inspection.judgement),
            std::move(inspection.facts)};
}

Song SongReader::unchecked(const fs::path& path, const std::optional<std::string>& name) {
    engine::LocalRingtone asIs = files_.ringtone(path, name);
    const engine::Digest content = digests_.of(engine::RegularFile(path, kCheckPath));
    asIs.source = content;
    return {path, std::move(asIs), content, {Verdict::Plays, {}}, {}};
}

} // namespace krl::audio
