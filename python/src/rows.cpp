#include "rows.h"

#include <pybind11/stl.h>

#include <cstdint>
#include <string>
#include <utility>

#include "packer.h"

namespace python {

namespace py = pybind11;

namespace {

using recordings::Watch;

py::str Owned(PyObject* decoded) {
    if (decoded == nullptr) {
        throw py::error_already_set();
    }
    return py::reinterpret_steal<py::str>(decoded);
}

/// Text of a disk, which may hold any byte: what is no UTF-8 is escaped.
py::str Text(const std::string& text) {
    return Owned(PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), "backslashreplace"));
}

/// A path, from which os.fsencode makes the same bytes.
py::str PathText(const std::string& path) {
    return Owned(PyUnicode_DecodeFSDefaultAndSize(path.data(), static_cast<Py_ssize_t>(path.size())));
}

void AddGeometry(py::dict& facts, const recordings::Disk& disk) {
    const recordings::DiskFacts& head = disk.Facts();
    facts["source"] = PathText(disk.Bytes().Name());
    facts["size"] = disk.Bytes().Size();
    facts["description"] = Text(head.description);
    facts["layout"] = head.extendedLayout ? "extended" : "normal";
    facts["disk_type"] = disk.DiskType();
    facts["block_count"] = head.blockCount;
    facts["block_size"] = head.blockSize;
    facts["locked"] = head.locked;
    facts["hidden_channels"] = disk.Hidden().bits;
}

/// A block of which more is known than that it was recorded; the oldest, or the newest.
const recordings::Block* End(const recordings::BlockList& blocks, bool newest) {
    const recordings::Block* end = nullptr;
    for (const recordings::Block& block : blocks.All()) {
        const bool known = !block.unreadable && !block.wiped;
        if (known && (newest || end == nullptr)) {
            end = &block;
        }
    }
    return end;
}

py::dict ChannelFacts(const recordings::BlockIdentity& identity) {
    py::dict channels;
    for (uint32_t channel = 0; channel < recordings::kChannels; ++channel) {
        if (identity.channels.Has(channel)) {
            const recordings::ChannelProperties& p = identity.properties[channel];
            channels[py::int_(channel)] =
                py::make_tuple(p.videoCode, p.frameRate, p.resolutionCode, p.bitrate, p.keyFrameDistance,
                               p.audioCode, p.sampleRate, p.sampleBits, p.audioFrameBytes);
        }
    }
    return channels;
}

} // namespace

void Pack(const recordings::Event& event, Packer& rows) {
    const int32_t channel = event.channel ? static_cast<int32_t>(*event.channel) : -1;
    rows << event.micros << event.type << event.block << event.entry << channel << uint8_t{event.indexed};
}

py::bytes PackedRecords(SharedDisk& shared, const recordings::RecordQuery& query) {
    const Packer packer = shared.Do([&query](const SharedDisk::Open& open, const Watch& watch) {
        Packer rows;
        recordings::RecordQuery visible = query;
        visible.channels = query.channels.Without(open.disk.Hidden());
        recordings::ForEachRecord(
            open.disk, open.blocks, visible, {}, watch, [&rows](const recordings::Record& record) {
                rows << record.block << record.channel << record.segment << record.start << record.end
                     << record.bytes << uint8_t{record.closed} << static_cast<uint8_t>(record.mark);
            });
        return rows;
    });
    return packer.Bytes();
}

py::bytes PackedEvents(SharedDisk& shared, const recordings::TimeRange& range, recordings::EventMask mask) {
    const Packer packer = shared.Do([&range, mask](const SharedDisk::Open& open, const Watch& watch) {
        Packer rows;
        for (const recordings::Event& event :
             recordings::FindEvents(open.disk, open.blocks, range, mask, {}, watch)) {
            Pack(event, rows);
        }
        return rows;
    });
    return packer.Bytes();
}

py::dict Facts(SharedDisk& shared) {
    struct Answer {
        const SharedDisk::Open* open;
        const recordings::Block* oldest;
        const recordings::Block* newest;
        std::optional<recordings::BlockIdentity> identity;
    };
    const Answer answer = shared.Do([](const SharedDisk::Open& open, const Watch& /*watch*/) {
        const recordings::Block* const newest = End(open.blocks, true);
        return Answer{&open, End(open.blocks, false), newest,
                      newest == nullptr ? std::nullopt : ReadIdentity(open.disk, newest->number)};
    });
    py::dict facts;
    AddGeometry(facts, answer.open->disk);
    facts["recorded_blocks"] = answer.open->blocks.All().size();
    facts["empty_blocks"] = answer.open->blocks.EmptyCount();
    facts["start"] = answer.oldest == nullptr ? py::object(py::none()) : py::int_(answer.oldest->start);
    facts["newest_start"] =
        answer.newest == nullptr ? py::object(py::none()) : py::int_(answer.newest->start);
    const recordings::BlockIdentity identity = answer.identity.value_or(recordings::BlockIdentity());
    facts["vehicle_number"] = Text(identity.vehicleNumber);
    facts["vehicle_id"] = Text(identity.vehicleId);
    facts["pre_record_seconds"] = identity.preRecordSeconds;
    facts["alarm_delay_seconds"] = identity.alarmDelaySeconds;
    facts["channels"] = ChannelFacts(identity);
    return facts;
}

py::tuple AsTuple(const recordings::Problem& problem) {
    return py::make_tuple(
        recordings::NameOf(problem.kind), problem.severity == recordings::Severity::Loss ? "loss" : "note",
        recordings::Describe(problem, {}), problem.block, problem.blockAfter, problem.channel,
        problem.channels, problem.offset, problem.bytes, problem.count, problem.before, problem.after);
}

py::list AsList(const std::vector<recordings::Problem>& problems) {
    py::list list;
    for (const recordings::Problem& problem : problems) {
        list.append(AsTuple(problem));
    }
    return list;
}

std::vector<recordings::Problem> ProblemsOf(SharedDisk& shared, const recordings::RecordQuery& query) {
    return shared.Do([&query](const SharedDisk::Open& open, const Watch& watch) {
        recordings::ProblemList problems;
        for (const recordings::Problem& problem : open.disk.OpeningProblems()) {
            problems.Add(problem);
        }
        open.blocks.Report(query.range, problems.Sink());
        recordings::ForEachRecord(open.disk, open.blocks, query, problems.Sink(), watch,
                                  [](const recordings::Record& /*record*/) {});
        return problems.All();
    });
}

} // namespace python
