#include <fmt/format.h>

#include <limits>
#include <map>

#include "commands/commands.h"
#include "findings.h"
#include "recorded_blocks.h"

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

Row RecordRow(const Job& job, const RecordItem_t& record, uint64_t alarms) {
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
            !coarse};
}

Table ChannelTotals(const std::map<uint32_t, Total>& channels) {
    Table table = {"channel_totals",
                   {{"channel", "CHANNEL"},
                    {"record_count", "RECORDS"},
                    {"length_seconds", "LENGTH"},
                    {"size_bytes", "SIZE"},
                    {"not_closed_count", ""}},
                   {}};
    for (const auto& [channel, total] : channels) {
        table.rows.push_back(
            {uint64_t{channel}, total.records, Duration{total.seconds}, Bytes{total.bytes}, total.coarse});
    }
    return table;
}

std::vector<RecordItem_t> RecordsAsWanted(Job& job) {
    return job.Wanted().mix ? FindMixedRecords(job) : FindRecords(job, job.WantedRange());
}

} // namespace

Report List(Job& job) {
    const auto alarms = job.WantedAlarms();
    const Range range = job.WantedRange();
    const bool mixed = job.Wanted().mix;
    std::vector<RecordItem_t> found = RecordsAsWanted(job);
    if (found.empty() && TimesMislead(job)) {
        job.AskEveryBlock();
        found = RecordsAsWanted(job);
    }
    // A search for records does not look at events.
    const AlarmTags tags(job,
                         FindEvents(job, alarms ? AlarmRange(range) : range,
                                    alarms.value_or(std::numeric_limits<uint64_t>::max())),
                         alarms.has_value());
    if (alarms && !mixed) {
        found = CutAroundAlarms(found, tags);
    }

    Table records = {"records",
                     {{"channel", "CHANNEL"},
                      {"start", "START"},
                      {"end", "END"},
                      {"length_seconds", "LENGTH"},
                      {"size_bytes", "SIZE"},
                      {"event_types", "ALARM"},
                      {"block", "BLOCK"},
                      {"segment", "SEGMENT"},
                      {"closed", ""}},
                     {}};
    Total all;
    std::map<uint32_t, Total> channels;
    for (const RecordItem_t& record : found) {
        const uint64_t types =
            mixed ? uint64_t{record.alarmType} : tags.TypesOf(record.startTime, record.endTime);
        records.rows.push_back(RecordRow(job, record, types));
        channels[record.chn].Add(record);
        all.Add(record);
    }
    Report report;
    report.parts = {std::move(records), ChannelTotals(channels),
                    Facts{{"record_count", "Records", all.records},
                          {"length_seconds", "Length", Duration{all.seconds}},
                          {"size_bytes", "Size", Bytes{all.bytes}}}};
    if (all.coarse != 0) {
        report.parts.emplace_back(
            Prose{"? The block was never closed: how far its records reach is not known before they "
                  "are played.\n"});
    }
    return report;
}

} // namespace diskaccess
