#include "commands/pictures.h"

#include <fmt/format.h>

#include "cli/ending.h"
#include "cli/failure.h"
#include "cli/output.h"
#include "render/printable.h"

namespace diskaccess {

namespace {

using media::Still;
using media::StillState;

/// @param size, file headings of these columns; empty for those that text leaves out
Table StillTable(const std::string& size, const std::string& file) {
    return {"stills",
            {{"channel", "CHANNEL"},
             {"time", "TIME"},
             {"picture", "PICTURE"},
             {"block", "BLOCK"},
             {"offset", ""},
             {"width", "WIDTH"},
             {"height", "HEIGHT"},
             {"size_bytes", size},
             {"sha256", ""},
             {"file", file}},
            {}};
}

/// @param saved where the picture is; without a digest it is not the only one there
Row StillRow(const Context& context, const Still& still, const media::Exported& saved) {
    const bool has = HasPicture(still);
    const bool found = still.HasFrame();
    const bool alone = has && !saved.sha256.empty();
    const auto known = [](bool is, const Value& value) { return is ? value : Value(Nothing{}); };
    return {uint64_t{still.channel},
            known(found, context.Clock().TrueInstant(still.time)),
            std::string(NameOf(still.state)),
            known(found, uint64_t{still.block}),
            known(found, uint64_t{still.offset}),
            known(has, uint64_t{still.picture.width}),
            known(has, uint64_t{still.picture.height}),
            known(alone, Bytes{saved.size}),
            known(alone, saved.sha256),
            known(has, Printable(saved.path))};
}

} // namespace

PictureOutput ReadPictureOutput(const std::string& output) {
    if (EndsWith(output, "/")) {
        return {output, ".jpg", true, media::PictureFormat::Jpeg};
    }
    for (const char* const ending : {".jpg", ".jpeg", ".png"}) {
        const size_t size = std::string(ending).size();
        if (EndsWith(output, ending) && output.size() > size && output[output.size() - size - 1] != '/') {
            const bool png = std::string(ending) == ".png";
            return {output.substr(0, output.size() - size), ending, false,
                    png ? media::PictureFormat::Png : media::PictureFormat::Jpeg};
        }
    }
    throw WrongUse("--output: '" + output +
                   "' names no picture; give FILE.jpg, FILE.png, or a folder with / at its end");
}

bool HasPicture(const Still& still) {
    return still.state == StillState::Whole || still.state == StillState::Damaged;
}

void ShowStills(Context& context, const std::vector<Still>& stills,
                const std::vector<media::Exported>& files) {
    Renderer& answer = context.Answer();
    answer.BeginTable(StillTable("SIZE", "FILE"));
    size_t file = 0;
    for (const Still& still : stills) {
        const media::Exported saved = HasPicture(still) ? files.at(file++) : media::Exported();
        answer.ShowRow(StillRow(context, still, saved));
    }
    answer.EndTable();
}

void ShowSheet(Context& context, const std::vector<Still>& stills,
               const std::optional<media::Exported>& sheet) {
    Renderer& answer = context.Answer();
    answer.BeginTable(StillTable("", ""));
    media::Exported place; // size and digest are the page's, not those of each picture on it
    place.path = sheet ? sheet->path : "";
    for (const Still& still : stills) {
        answer.ShowRow(StillRow(context, still, place));
    }
    answer.EndTable();
    if (sheet) {
        answer.ShowFacts({{"file", "Sheet", Printable(sheet->path)},
                          {"size_bytes", "Size", Bytes{sheet->size}},
                          {"sha256", "", sheet->sha256}});
    }
}

ExitCode FinishStills(Context& context, const std::vector<Still>& stills) {
    bool lost = false;
    for (const Still& still : stills) {
        const bool damaged = still.state == StillState::Damaged;
        if (damaged || still.state == StillState::NotDecodable) {
            Complain(fmt::format("block {}, channel {}: the picture of {} {}; export keeps its bytes",
                                 still.block, still.channel,
                                 context.Zone().TextOfMicros(context.Clock().TrueInstant(still.time).micros),
                                 damaged ? "is damaged" : "does not decode"));
            lost = true;
        }
    }
    const ExitCode code = context.Finish();
    return code == kDone && lost ? kDataLost : code;
}

} // namespace diskaccess
