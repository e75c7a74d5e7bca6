#include "commands/sheet.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <optional>
#include <utility>

#include "cli/duration.h"
#include "cli/failure.h"
#include "cli/interruption.h"
#include "cli/output.h"
#include "commands/evidence.h"
#include "commands/pictures.h"
#include "media/sheet.h"
#include "recordings/query.h"
#include "render/printable.h"

namespace diskaccess {

namespace {

using media::Still;
using media::StillState;

using recordings::kMicros;

/// The seconds of the disk that a sheet is about: those that were typed, and what is recorded where they were not.
recordings::TimeRange RangeOf(Context& context) {
    recordings::TimeRange range = context.Asked().range;
    uint32_t first = UINT32_MAX;
    uint32_t last = 0;
    for (const recordings::Block& block : context.Blocks().All()) {
        if (!block.unreadable && !block.wiped) {
            first = std::min(first, static_cast<uint32_t>(block.start));
            last = std::max(last, static_cast<uint32_t>(block.end));
        }
    }
    if (context.Typed().from.empty()) {
        range.first = std::min(std::max(first, range.first), range.last);
    }
    if (context.Typed().to.empty()) {
        range.last = std::max(std::min(last, range.last), range.first);
    }
    return range;
}

/// The moments of the columns, microseconds of the disk.
std::vector<int64_t> TimesOf(const Options& options, const recordings::TimeRange& range) {
    const int64_t first = range.first * kMicros;
    const int64_t length = (int64_t{range.last} - range.first) * kMicros;
    std::vector<int64_t> times;
    if (options.every.empty()) {
        const int64_t steps = std::max<int64_t>(int64_t{options.columns} - 1, 1);
        for (int64_t i = 0; i < int64_t{options.columns}; ++i) {
            times.push_back(first + length / steps * i + length % steps * i / steps);
        }
        return times;
    }
    const int64_t step = ReadDuration(options.every, "--every") * kMicros;
    if (length / step >= static_cast<int64_t>(media::kMostSheetColumns)) {
        throw WrongUse(fmt::format("--every: that makes {} columns, and a sheet has at most {}; give a "
                                   "longer time, or a shorter range",
                                   length / step + 1, media::kMostSheetColumns));
    }
    for (int64_t at = first; at <= first + length; at += step) {
        times.push_back(at);
    }
    return times;
}

class SheetTaker {
public:
    explicit SheetTaker(Context& context)
        : m_context(context), m_range(RangeOf(context)), m_times(TimesOf(context.Typed(), m_range)) {}

    ExitCode Run() {
        media::CheckPlaces({m_context.Typed().output}, {m_context.Source(), m_context.Typed().force});
        const PictureOutput output = ReadPictureOutput(m_context.Typed().output);
        for (const int64_t time : m_times) {
            Take(time);
        }
        const std::vector<Still> stills = Sorted();
        std::optional<media::Exported> file;
        if (std::any_of(stills.begin(), stills.end(), HasPicture)) {
            const std::vector<uint8_t> bytes = EncodePicture(DrawSheet(Drawn()), output.format);
            file = media::WriteFiles({{m_context.Typed().output, std::string(bytes.begin(), bytes.end())}},
                                     {m_context.Source(), m_context.Typed().force})
                       .front();
        } else {
            Complain(m_context.Typed().partition +
                     ": no picture of that range and these channels; nothing was written");
        }
        ShowSheet(m_context, stills, file);
        return FinishStills(m_context, stills);
    }

private:
    struct Cell {
        Still still; ///< without its pixels
        media::Picture small;
    };

    void Take(int64_t time) {
        const recordings::BlockList& blocks = m_context.Blocks();
        const Interruption interruption;
        const media::StillQuery query = {time, m_context.Asked().channels};
        for (Still& still : TakeStills(m_context.Disk(), blocks, query, m_context.Problems(),
                                       InterruptibleWatch(m_context, "reading frames"))) {
            std::vector<Cell>& row = m_rows[still.channel];
            row.resize(m_column);
            Cell cell;
            if (HasPicture(still)) {
                cell.small = Shrink(still.picture, media::SheetCellWidth(m_times.size()));
                still.picture.pixels.clear();
            }
            cell.still = std::move(still);
            row.push_back(std::move(cell));
        }
        ++m_column;
        for (auto& [channel, row] : m_rows) {
            row.resize(m_column);
            for (Cell& cell : row) {
                cell.still.channel = channel;
            }
        }
    }

    std::vector<Still> Sorted() const {
        std::vector<Still> stills;
        for (const auto& [channel, row] : m_rows) {
            for (const Cell& cell : row) {
                stills.push_back(cell.still);
            }
        }
        return stills;
    }

    std::string TextOf(int64_t time) const {
        return m_context.Zone().TextOfMicros(m_context.Clock().TrueInstant(time).micros);
    }

    media::Sheet Drawn() {
        media::Sheet sheet;
        sheet.title = fmt::format("{}  {} - {}", Printable(m_context.Typed().partition),
                                  TextOf(m_range.first * kMicros), TextOf(m_range.last * kMicros));
        sheet.columns = m_times.size();
        for (auto& [channel, row] : m_rows) {
            for (size_t column = 0; column < row.size(); ++column) {
                Cell& cell = row[column];
                const bool found = cell.still.HasFrame();
                const std::string name = "channel " + m_context.Names().ChannelText(channel) +
                                         (cell.still.state == StillState::Damaged ? "  DAMAGED" : "");
                sheet.cells.push_back({std::move(cell.small),
                                       {TextOf(found ? cell.still.time : m_times[column]), name},
                                       NameOf(cell.still.state)});
            }
        }
        return sheet;
    }

    Context& m_context;
    recordings::TimeRange m_range;
    std::vector<int64_t> m_times;
    size_t m_column = 0; ///< that comes next
    std::map<uint32_t, std::vector<Cell>> m_rows;
};

} // namespace

void CheckSheet(const Options& options) {
    if (!options.every.empty() && ReadDuration(options.every, "--every") == 0) {
        throw WrongUse("--every: the time between two columns is at least 1s");
    }
}

ExitCode TakeSheet(Context& context) {
    return SheetTaker(context).Run();
}

} // namespace diskaccess
