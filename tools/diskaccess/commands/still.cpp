#include <fmt/format.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "cli/failure.h"
#include "cli/interruption.h"
#include "cli/output.h"
#include "commands/commands.h"
#include "commands/evidence.h"
#include "commands/pictures.h"
#include "commands/sheet.h"
#include "commands/wording.h"
#include "media/stills.h"

namespace diskaccess {

namespace {

using media::Still;

class StillTaker {
public:
    explicit StillTaker(Context& context)
        : m_context(context), m_output(ReadPictureOutput(context.Typed().output)) {}

    ExitCode Run() {
        Take();
        Save();
        ShowStills(m_context, m_stills, m_files);
        return FinishStills(m_context, m_stills);
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
            return fmt::format("{}{}-channel-{}{}", m_output.stem,
                               FileTime(m_context.Zone(), m_context.Clock(), still.time), still.channel,
                               m_output.ending);
        }
        const auto pictures = std::count_if(m_stills.begin(), m_stills.end(), HasPicture);
        return pictures == 1 ? m_output.stem + m_output.ending
                             : fmt::format("{}-channel-{}{}", m_output.stem, still.channel, m_output.ending);
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

    Context& m_context;
    PictureOutput m_output;
    std::vector<Still> m_stills;
    std::vector<media::Exported> m_files; ///< of the stills that have a picture
};

} // namespace

void CheckStill(const Options& options) {
    const PictureOutput output = ReadPictureOutput(options.output);
    if (!options.sheet && options.at.empty()) {
        throw WrongUse("--at or --sheet is needed: say when the pictures were recorded");
    }
    if (!options.sheet && !(options.from + options.to).empty()) {
        throw WrongUse("--from and --to go with --sheet");
    }
    if (options.sheet && output.folder) {
        throw WrongUse("--output: a sheet is one picture; give FILE.jpg or FILE.png");
    }
    CheckSheet(options);
}

ExitCode TakeStill(Context& context) {
    return ReportingErrors(kNothingKept, [&context] {
        return context.Typed().sheet ? TakeSheet(context) : StillTaker(context).Run();
    });
}

} // namespace diskaccess
