#include <fmt/format.h>

#include <limits>
#include <map>

#include "commands.h"
#include "found_events.h"

namespace diskaccess {

namespace {

/// What the records of one channel, or of all, add up to. Coarse records add only to the count: their end and
/// size are bounds, not measures.
struct Total {
    uint64_t records = 0;
    uint64_t coarse = 0;
    uint64_t seconds = 0;
    uint64_t bytes = 0;

    void Add(const RecordItem_t& record) {
        ++records;
        if (record.flag == 1) {
            ++coarse;
        } else {
            seconds += record.endTime - record.startTime;
            bytes += record.size;
        }
    }
};

/// The channel argument of a search: one channel, or all of them.
uint32_t SearchedChannel(uint32_t set) {
    for (uint32_t chn = 0; chn < 32; ++chn) {
        if (set == 1u << chn) {
            return chn;
        }
    }
    return 0xFFFFFFFF;
}

/// Cuts off what lies before the range: the search may have begun earlier. Coarse records are left as they
/// are.
/// @return false when nothing worth a line is left
bool ClipStart(RecordItem_t& record, uint32_t first) {
    if (record.flag == 1 || record.startTime >= first) {
        return true;
    }
    if (record.endTime <= first + 1) {
        return false;
    }
    record.size = (record.endTime - first) * (record.size / (record.endTime - record.startTime));
    record.startTime = first;
    return true;
}

std::vector<Value> Row(const Session& session, const RecordItem_t& record, uint64_t alarms) {
    const bool coarse = record.flag == 1;
    const Time start = session.TrueTime(record.startTime);
    const Time end = session.TrueTime(record.endTime);
    return {uint64_t{record.chn},
            start,
            coarse ? Value(TimeBound{end.seconds}) : Value(end),
            coarse ? Value(Nothing{}) : Value(Duration{record.endTime - record.startTime}),
            coarse ? Value(Nothing{}) : Value(Bytes{record.size}),
            Mask{alarms},
            uint64_t{record.recId >> 16},
            coarse ? Value(Nothing{}) : Value(uint64_t{record.recId & 0x1FF}),
            coarse};
}

Table ChannelTotals(const std::map<uint32_t, Total>& channels) {
    Table table = {"channels",
                   {{"channel", "CHANNEL"},
                    {"records", "RECORDS"},
                    {"length_seconds", "LENGTH"},
                    {"size_bytes", "SIZE"},
                    {"not_closed", ""}},
                   {}};
    for (const auto& [channel, total] : channels) {
        table.rows.push_back(
            {uint64_t{channel}, total.records, Duration{total.seconds}, Bytes{total.bytes}, total.coarse});
    }
    return table;
}

} // namespace

Report List(Session& session) {
    const Range range = session.WantedRange();
    const uint32_t wanted = session.WantedChannels();
    const auto alarms = session.WantedAlarms();
    SearchParam_t request = {alarms.value_or(0), session.Disk().SafeSearchStart(range.first),
                             range.endOfMedia, SearchedChannel(wanted)};
    CCommList<RecordItem_t> found;
    session.Search().SearchMedia(&request, &found);
    // A plain search does not look at events, and one around alarms gives back the mask it was asked for.
    const AlarmTags tags(session, FindEvents(session, alarms.value_or(std::numeric_limits<uint64_t>::max())),
                         alarms.has_value());

    Table records = {"records",
                     {{"channel", "CHANNEL"},
                      {"start", "START"},
                      {"end", "END"},
                      {"length_seconds", "LENGTH"},
                      {"size_bytes", "SIZE"},
                      {"alarm", "ALARM"},
                      {"block", "BLOCK"},
                      {"segment", "SEGMENT"},
                      {"not_closed", ""}},
                     {}};
    Total all;
    std::map<uint32_t, Total> channels;
    for (const auto* node = found.m_pHead; node != nullptr; node = node->pNext) {
        RecordItem_t record = node->data;
        const bool wantedChannel = record.chn < 32 && (wanted >> record.chn & 1) != 0;
        if (wantedChannel && ClipStart(record, range.first)) {
            records.rows.push_back(Row(session, record, tags.TypesOf(record.startTime, record.endTime)));
            channels[record.chn].Add(record);
            all.Add(record);
        }
    }
    Report report;
    report.tables = {std::move(records), ChannelTotals(channels)};
    report.facts = {{"record_count", "Records", all.records},
                    {"length_seconds", "Length", Duration{all.seconds}},
                    {"size_bytes", "Size", Bytes{all.bytes}}};
    if (all.coarse != 0) {
        report.lines.emplace_back(
            "? The block was never closed: how far its records reach is not known before they "
            "are played.");
    }
    return report;
}

} // namespace diskaccess
