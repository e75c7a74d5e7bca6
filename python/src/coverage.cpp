#include "coverage.h"

#include <vector>

#include "recordings/coverage.h"
#include "rows.h"

namespace python {

namespace py = pybind11;

namespace {

using recordings::Watch;

/// Without what the lock hides.
recordings::JourneyQuery Visible(const recordings::JourneyQuery& query, const recordings::Disk& disk) {
    recordings::JourneyQuery visible = query;
    visible.channels = query.channels.Without(disk.Hidden());
    return visible;
}

void Pack(const recordings::Journey& journey, Packer& rows) {
    rows << journey.number << journey.start << journey.end << journey.channels.bits << journey.records
         << journey.bytes << journey.alarms << journey.losses;
}

py::bytes Packed(const recordings::Journey& journey) {
    Packer rows;
    Pack(journey, rows);
    return rows.Bytes();
}

py::bytes Packed(const std::vector<recordings::Event>& events) {
    Packer rows;
    for (const recordings::Event& event : events) {
        Pack(event, rows);
    }
    return rows.Bytes();
}

py::list ListOf(const std::vector<recordings::Span>& spans) {
    py::list list;
    for (const recordings::Span& span : spans) {
        list.append(py::make_tuple(span.start, span.end));
    }
    return list;
}

py::list ListOf(const std::vector<recordings::ChannelCoverage>& channels) {
    py::list list;
    for (const recordings::ChannelCoverage& each : channels) {
        list.append(py::make_tuple(each.channel, ListOf(each.recorded), ListOf(each.gaps)));
    }
    return list;
}

py::list ListOf(const std::vector<recordings::AlarmSpan>& alarms) {
    py::list list;
    for (const recordings::AlarmSpan& alarm : alarms) {
        list.append(py::make_tuple(alarm.time.start, alarm.time.end, alarm.types));
    }
    return list;
}

py::list ListOf(const std::vector<recordings::Damage>& damage) {
    py::list list;
    for (const recordings::Damage& each : damage) {
        list.append(
            py::make_tuple(each.time.start, each.time.end, each.channels.bits, AsTuple(each.problem)));
    }
    return list;
}

} // namespace

py::bytes PackedJourneys(SharedDisk& shared, const recordings::JourneyQuery& query) {
    const Packer packer = shared.Do([&query](const SharedDisk::Open& open, const Watch& watch) {
        Packer rows;
        for (const recordings::Journey& journey :
             FindJourneys(open.disk, open.blocks, Visible(query, open.disk), {}, watch)) {
            Pack(journey, rows);
        }
        return rows;
    });
    return packer.Bytes();
}

py::list CoverageOf(SharedDisk& shared, const recordings::JourneyQuery& query) {
    const recordings::Coverage coverage =
        shared.Do([&query](const SharedDisk::Open& open, const Watch& watch) {
            return ReadCoverage(open.disk, open.blocks, Visible(query, open.disk), {}, watch);
        });
    py::list list;
    for (const recordings::JourneyCoverage& each : coverage.journeys) {
        list.append(py::make_tuple(Packed(each.journey), ListOf(each.channels), ListOf(each.alarms),
                                   Packed(each.events), ListOf(each.damage)));
    }
    return list;
}

} // namespace python
