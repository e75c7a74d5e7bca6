#include <map>

#include "commands/alarm_times.h"
#include "commands/commands.h"
#include "commands/marks.h"
#include "recordings/records.h"

namespace diskaccess {

namespace {

using recordings::Record;

/// Seconds; of a record during which the clock was set back none.
uint32_t LengthOf(const Record& record) {
    return record.end - std::min(record.start, record.end);
}

/// What the records of one channel, or of all, add up to.
struct Total {
    uint64_t records = 0;
    uint64_t seconds = 0;
    uint64_t bytes = 0;

    void Add(const Record& record) {
        ++records;
        seconds += LengthOf(record);
        bytes += record.bytes;
    }
};

Table RecordTable() {
    return {"records",
            {{"channel", "CHANNEL"},
             {"start", "START"},
             {"end", "END"},
             {"length_seconds", "LENGTH"},
             {"size_bytes", "SIZE"},
             {"event_types", "ALARM"},
             {"block", "BLOCK"},
             {"segment", "SEGMENT"},
             {"closed", ""},
             {"mark", ""},
             {"", "NOTE"}},
            {}};
}

Table ChannelTotals(const Names& names, const std::map<uint32_t, Total>& channels) {
    Table table = {"channel_totals",
                   {{"channel", "CHANNEL"},
                    {"record_count", "RECORDS"},
                    {"length_seconds", "LENGTH"},
                    {"size_bytes", "SIZE"}},
                   {}};
    for (const auto& [channel, total] : channels) {
        table.rows.push_back(
            {names.Channel(channel), total.records, Duration{total.seconds}, Bytes{total.bytes}});
    }
    return table;
}

/// The part of a record from @p first to @p last, with its share of the bytes.
Record PartOf(const Record& record, uint32_t first, uint32_t last) {
    Record part = record;
    part.start = std::max(record.start, first);
    part.end = std::min(record.end, last);
    if (LengthOf(record) != 0) {
        part.bytes = record.bytes * LengthOf(part) / LengthOf(record); // both factors come from 32-bit fields
    }
    return part;
}

/// Lists records, each cut as the user wants it.
class Lister {
public:
    explicit Lister(Context& context)
        : m_context(context), m_query(context.Asked()), m_mixed(context.Typed().mix), m_alarms(FindAlarms()) {
    }

    ExitCode List() {
        Renderer& answer = m_context.Answer();
        answer.BeginTable(RecordTable());
        recordings::RecordQuery request;
        request.range = m_query.range;
        request.channels = m_query.channels;
        ForEachRecord(m_context.Disk(), m_context.Blocks(), request, m_context.Problems(),
                      m_context.Watch("reading indexes"), [this](const Record& record) { Take(record); });
        answer.EndTable();
        ShowTable(answer, ChannelTotals(m_context.Names(), m_channels));
        answer.ShowFacts({{"record_count", "Records", m_all.records},
                          {"length_seconds", "Length", Duration{m_all.seconds}},
                          {"size_bytes", "Size", Bytes{m_all.bytes}}});
        return m_context.Finish();
    }

private:
    /// The alarms that records are marked with, or cut by.
    AlarmTimes FindAlarms() {
        const bool around = m_mixed || m_query.alarms;
        const std::vector<recordings::Event> events = FindEvents(
            m_context.Disk(), m_context.Blocks(), around ? EventRangeOf(m_query.range) : m_query.range,
            m_mixed ? recordings::kAllEvents : m_query.alarms.value_or(recordings::kAllEvents),
            m_context.Problems(), m_context.Watch("looking for events"));
        if (!around) {
            return AlarmTimes(MomentsOf(events));
        }
        std::vector<Alarm> alarms = AlarmsAround(m_context.Disk(), events);
        return AlarmTimes(m_mixed ? UpToLastSecond(std::move(alarms)) : alarms);
    }

    void Take(const Record& record) {
        const Record part = PartOf(record, m_query.range.first, m_query.cutAt);
        if (m_mixed) {
            for (const Alarm& cut : m_alarms.CutInto(part.start, part.end)) {
                if (!m_query.alarms || (cut.types & *m_query.alarms) != 0) {
                    Show(PartOf(part, cut.first, cut.last), cut.types);
                }
            }
        } else if (m_query.alarms) {
            for (const Alarm& alarm : m_alarms.PartsIn(part.start, part.end)) {
                Show(PartOf(part, alarm.first, alarm.last), alarm.types);
            }
        } else {
            Show(part, m_alarms.TypesIn(part.start, part.end));
        }
    }

    void Show(const Record& record, uint64_t types) {
        const DiskClock& clock = m_context.Clock();
        m_context.Answer().ShowRow({m_context.Names().Channel(record.channel), clock.TrueTime(record.start),
                                    clock.TrueTime(record.end), Duration{LengthOf(record)},
                                    Bytes{record.bytes}, m_context.Names().EventTypes(types),
                                    uint64_t{record.block}, uint64_t{record.segment}, record.closed,
                                    MarkValue(record.mark), NoteText(record.closed, record.mark)});
        m_channels[record.channel].Add(record);
        m_all.Add(record);
    }

    Context& m_context;
    const Query& m_query;
    bool m_mixed;
    AlarmTimes m_alarms;
    Total m_all;
    std::map<uint32_t, Total> m_channels;
};

} // namespace

ExitCode List(Context& context) {
    return Lister(context).List();
}

} // namespace diskaccess
