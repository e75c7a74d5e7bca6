#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <utility>
#include <vector>

#include "cli/failure.h"
#include "cli/interruption.h"
#include "cli/output.h"
#include "commands/commands.h"
#include "commands/evidence.h"
#include "media/error.h"
#include "media/stills.h"
#include "recordings/error.h"
#include "render/printable.h"

namespace diskaccess {

namespace {

using media::Still;
using media::StillState;

bool EndsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

/// A name in its parts: what lies before the ending, and the ending with its point.
struct OutputName {
    std::string stem;
    std::string ending;
    bool folder = false; ///< files in it are named by their time
    media::PictureFormat format = media::PictureFormat::Jpeg;
};

OutputName ReadOutput(const std::string& output) {
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

class StillTaker {
public:
    explicit StillTaker(Context& context)
        : m_context(context), m_output(ReadOutput(context.Typed().output)) {}

    ExitCode Run() {
        Take();
        Save();
        Show();
        const bool lost = std::any_of(m_stills.begin(), m_stills.end(), [](const Still& still) {
            return still.state == StillState::Damaged || still.state == StillState::NotDecodable;
        });
        const ExitCode code = m_context.Finish();
        return code == kDone && lost ? kDataLost : code;
    }

private:
    void Take() {
        const recordings::BlockList& blocks =
            m_context.Blocks(); // a signal may end that: there is nothing to clean up
        const Interruption interruption;
        const media::StillQuery query = {m_context.Asked().at.value_or(0), m_context.Asked().channels};
        const recordings::Watch watch = InterruptibleWatch(m_context, "reading frames");
        m_stills = TakeStills(m_context.Disk(), blocks, query, m_context.Problems(), watch);
    }

    /// Where the picture of a channel goes. Several of one time have the channel in their names.
    std::string PathOf(const Still& still) const {
        if (m_output.folder) {
            return fmt::format("{}{}-channel-{}{}", m_output.stem, FileTime(still.time), still.channel,
                               m_output.ending);
        }
        const auto pictures = std::count_if(m_stills.begin(), m_stills.end(), HasPicture);
        return pictures == 1 ? m_output.stem + m_output.ending
                             : fmt::format("{}-channel-{}{}", m_output.stem, still.channel, m_output.ending);
    }

    /// "2026-11-20-140005.200": a time that file systems take.
    std::string FileTime(int64_t time) const {
        std::string text = m_context.Zone().TextOfMicros(m_context.Clock().TrueInstant(time).micros);
        text.erase(std::remove(text.begin(), text.end(), ':'), text.end());
        std::replace_if(
            text.begin(), text.end(),
            [](unsigned char c) { return std::isalnum(c) == 0 && c != '.' && c != '+'; }, '-');
        return text;
    }

    void Save() {
        std::vector<media::FileContents> files;
        for (const Still& still : m_stills) {
            if (HasPicture(still)) {
                const std::vector<uint8_t> bytes = EncodePicture(still.picture, m_output.format);
                files.push_back({PathOf(still), std::string(bytes.begin(), bytes.end())});
            }
        }
        if (files.empty()) {
            Complain(m_context.Typed().partition +
                     ": no picture of that time and these channels; nothing was written");
            return;
        }
        m_files = WriteFiles(files, {m_context.Source(), m_context.Typed().force});
    }

    void Show() {
        Renderer& answer = m_context.Answer();
        answer.BeginTable({"stills",
                           {{"channel", "CHANNEL"},
                            {"time", "TIME"},
                            {"picture", "PICTURE"},
                            {"block", "BLOCK"},
                            {"offset", ""},
                            {"width", "WIDTH"},
                            {"height", "HEIGHT"},
                            {"size_bytes", "SIZE"},
                            {"sha256", ""},
                            {"file", "FILE"}},
                           {}});
        size_t file = 0;
        for (const Still& still : m_stills) {
            const bool has = HasPicture(still);
            const bool found = still.state != StillState::NotRecorded;
            const auto known = [](bool is, const Value& value) { return is ? value : Value(Nothing{}); };
            const media::Exported saved = has ? m_files.at(file++) : media::Exported();
            answer.ShowRow({uint64_t{still.channel}, known(found, m_context.Clock().TrueInstant(still.time)),
                            std::string(NameOf(still.state)), known(found, uint64_t{still.block}),
                            known(found, uint64_t{still.offset}), known(has, uint64_t{still.picture.width}),
                            known(has, uint64_t{still.picture.height}), known(has, Bytes{saved.size}),
                            known(has, saved.sha256), known(has, Printable(saved.path))});
        }
        answer.EndTable();
    }

    Context& m_context;
    OutputName m_output;
    std::vector<Still> m_stills;
    std::vector<media::Exported> m_files; ///< of the stills that have a picture
};

} // namespace

void CheckStill(const Options& options) {
    ReadOutput(options.output);
}

ExitCode TakeStill(Context& context) {
    try {
        return StillTaker(context).Run();
    } catch (const media::Error& error) {
        throw ToFailure(error);
    } catch (const recordings::Error& error) {
        if (error.Kind() == recordings::ErrorKind::Cancelled) {
            throw Failure("interrupted; nothing was kept");
        }
        throw;
    }
}

} // namespace diskaccess
