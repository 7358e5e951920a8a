#include "vesk/commands/Commands.h"

#include "audio/judging/Inspector.h"
#include "engine/values/Text.h"

#include <fmt/format.h>

#include <vector>

namespace vesk {
namespace {

using krl::audio::Inspection;
using krl::audio::Inspector;
using krl::audio::Verdict;
using krl::tags::AudioFacts;

std::string soundText(const AudioFacts& facts) {
    std::vector<std::string> parts;
    const auto part = [&](bool there, const auto& text) {
        if (there) {
            parts.push_back(text());
        }
    };
    part(!facts.codec.empty(), [&] {
        return facts.codec == facts.container
                   ? facts.codec
                   : fmt::format("{} in {}", facts.codec, facts.container);
    });
    part(facts.encrypted, [] { return std::string("encrypted"); });
    part(facts.channels > 0,
         [&] { return counted(static_cast<size_t>(facts.channels), "channel"); });
    part(facts.sampleRate > 0, [&] { return fmt::format("{:g} kHz", facts.sampleRate / 1000.0); });
    part(facts.bits > 0, [&] { return fmt::format("{} bits", facts.bits); });
    part(facts.kilobits > 0, [&] { return fmt::format("{} kbit/s", facts.kilobits); });
    part(facts.lengthMs > 0,
         [&] { return formatDuration(static_cast<double>(facts.lengthMs) / 1000); });
    return parts.empty() ? "none that is known" : fmt::format("{}", fmt::join(parts, ", "));
}

std::string titleText(const AudioFacts& facts) {
    return facts.artist.empty() ? facts.title : fmt::format("{} ({})", facts.title, facts.artist);
}

const char* verdictText(Verdict verdict) {
    switch (verdict) {
    case Verdict::Plays:
        return "plays on firmware 1.0.x and 1.1.x";
    case Verdict::PlaysOnOlderFirmware:
        return "plays on firmware 1.0.x to 1.1.2";
    case Verdict::WantsPreparing:
        return "does not play";
    case Verdict::CannotBeUsed:
        return "cannot be one";
    }
    return "";
}

const char* deedText(Verdict verdict) {
    switch (verdict) {
    case Verdict::Plays:
        return "nothing; it goes as it is";
    case Verdict::PlaysOnOlderFirmware:
        return "nothing through 1.1.2; for 1.1.3 and later vesk prepare makes an m4r of it";
    case Verdict::WantsPreparing:
        return "vesk prepare makes a ringtone of it";
    case Verdict::CannotBeUsed:
        return "take another file of the song";
    }
    return "";
}

Table tableOf(const Inspection& inspection) {
    const AudioFacts& facts = inspection.facts;
    const auto& [verdict, reasons] = inspection.judgement;
    Table table({{""}, {""}, {""}});
    const auto add = [&](const char* label, const std::string& text) {
        table.add({"", label, text});
    };
    add("Size", formatBytes(inspection.size));
    add("Sound", soundText(facts));
    if (!facts.title.empty()) {
        add("Title", titleText(facts));
    }
    if (facts.pictureBytes > 0) {
        add("Picture", formatBytes(facts.pictureBytes));
    }
    add("Ringtone", verdictText(verdict));
    for (const std::string& reason : reasons) {
        add("", reason);
    }
    add("To do", deedText(verdict));
    return table;
}

Json jsonOf(const std::string& path, const Inspection& inspection) {
    const AudioFacts& facts = inspection.facts;
    const Verdict verdict = inspection.judgement.verdict;
    const bool plays = verdict == Verdict::Plays;
    return {{"file", path},
            {"bytes", inspection.size},
            {"verdict", verdictName(verdict)},
            {"reasons", inspection.judgement.reasons},
            {"playsThrough112", plays || verdict == Verdict::PlaysOnOlderFirmware},
            {"playsFrom113", plays},
            {"container", facts.container},
            {"codec", facts.codec},
            {"channels", facts.channels},
            {"sampleRate", facts.sampleRate},
            {"bits", facts.bits},
            {"kilobits", facts.kilobits},
            {"lengthMs", facts.lengthMs},
            {"encrypted", facts.encrypted},
            {"title", facts.title},
            {"artist", facts.artist},
            {"pictureBytes", facts.pictureBytes}};
}

} // namespace

ExitCode runInspect(const Options& options, Output& output) {
    Inspector inspector;
    Json files = Json::array();
    bool allPlay = true;
    for (const std::string& path : options.arguments) {
        try {
            const Inspection inspection = inspector.inspect(path);
            output.line(fmt::format("\"{}\"", path));
            output.table(tableOf(inspection));
            files.push_back(jsonOf(path, inspection));
            allPlay = allPlay && (inspection.judgement.verdict == Verdict::Plays ||
                                  inspection.judgement.verdict == Verdict::PlaysOnOlderFirmware);
        } catch (const Failure& failure) {
            output.failureOfOne(failure);
            files.push_back(
                {{"file", path}, {"error", errorJson(failure, exitCodeOf(failure.kind()))}});
            allPlay = false;
        }
    }
    output.document({{"files", files}});
    return allPlay ? ExitCode::Success : ExitCode::NotPlayed;
}

} // namespace vesk
