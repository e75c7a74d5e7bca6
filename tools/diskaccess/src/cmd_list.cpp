#include <fmt/format.h>

#include <limits>
#include <map>

#include "commands.h"
#include "findings.h"

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

std::vector<Value> Row(const Job& job, const RecordItem_t& record, uint64_t alarms) {
    const bool coarse = record.flag == 1;
    const Time start = job.TrueTime(record.startTime);
    const Time end = job.TrueTime(record.endTime);
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

Report List(Job& job) {
    // A plain search does not look at events, and one around alarms gives back the mask it was asked for.
    const auto alarms = job.WantedAlarms();
    const AlarmTags tags(job, FindEvents(job, alarms.value_or(std::numeric_limits<uint64_t>::max())),
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
    const bool mixed = job.Wanted().mix;
    for (const RecordItem_t& record :
         mixed ? FindMixedRecords(job) : FindRecords(job, job.WantedRange(), alarms.value_or(0), tags)) {
        const uint64_t types =
            mixed ? uint64_t{record.alarmType} : tags.TypesOf(record.startTime, record.endTime);
        records.rows.push_back(Row(job, record, types));
        channels[record.chn].Add(record);
        all.Add(record);
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
