#include "store.h"

#include <algorithm>
#include <map>
#include <set>
#include <string>

#include "insert.h"

namespace catalog {

namespace {

/// An alarm's surroundings are no longer than this; a damaged head may say anything.
constexpr int64_t kLongestSurroundings = 3600;

Cell OrNull(const std::optional<int64_t>& number) {
    return number ? Cell(*number) : Cell(std::monostate{});
}

/// A disk of the catalogue as it was at some time.
struct Version {
    std::optional<int64_t> id;
    int64_t revision = 0;

    bool operator==(const Version& other) const { return id == other.id && revision == other.revision; }
};

/// Finds the disk that has most blocks in common with this one; they must have the same partition head.
Version Identify(Database& database, const DiskState& state) {
    std::map<int64_t, size_t> inCommon;
    for (const uint64_t mark : state.marks) {
        database.Run("SELECT disk_id FROM mark WHERE digest = $1", {static_cast<int64_t>(mark)},
                     [&](const Row& row) { ++inCommon[NumberIn(row.at(0))]; });
    }
    Version best;
    size_t most = 0;
    const auto consider = [&](const Row& row, size_t count) {
        if (count > most) {
            most = count;
            best = {NumberIn(row.at(0)), NumberIn(row.at(1))};
        }
    };
    for (const auto& [id, count] : inCommon) {
        database.Run("SELECT id, revision FROM disk WHERE id = $1 AND head = $2", {id, state.head},
                     [&, blocks = count](const Row& row) { consider(row, blocks); });
    }
    if (state.marks.empty()) { // nothing was recorded yet: one empty disk is like another
        database.Run("SELECT id, revision FROM disk WHERE head = $1 AND recorded_blocks = 0 ORDER BY id DESC",
                     {state.head}, [&](const Row& row) { consider(row, 1); });
    }
    return best;
}

std::vector<Span> LoadSpans(Database& database, int64_t disk) {
    std::vector<Span> spans;
    database.Run(
        "SELECT id, vehicle_id, channel, start_time, end_time, first_sequence, last_sequence FROM span"
        " WHERE disk_id = $1 ORDER BY id",
        {disk}, [&spans](const Row& row) {
            Span span;
            span.row = NumberIn(row.at(0));
            span.vehicle = NumberIn(row.at(1));
            span.channel = static_cast<uint32_t>(NumberIn(row.at(2)));
            span.start = NumberIn(row.at(3));
            span.end = NumberIn(row.at(4));
            span.firstSequence = static_cast<uint32_t>(NumberIn(row.at(5)));
            span.lastSequence = static_cast<uint32_t>(NumberIn(row.at(6)));
            spans.push_back(span);
        });
    return spans;
}

std::vector<ProblemRow> LoadProblems(Database& database, int64_t disk) {
    std::vector<ProblemRow> problems;
    database.Run("SELECT loss, kind, block, text FROM problem WHERE disk_id = $1 AND contents = 1", {disk},
                 [&problems](const Row& row) {
                     const auto* const block = std::get_if<int64_t>(&row.at(2));
                     problems.push_back({true, NumberIn(row.at(0)) != 0, TextIn(row.at(1)),
                                         block == nullptr ? std::nullopt : std::optional(*block),
                                         TextIn(row.at(3))});
                 });
    return problems;
}

/// Writes a disk's rows, in a transaction that others have opened.
class Writer {
public:
    Writer(Database& database, const DiskFacts& facts, const KnownDisk& known, const DiskContents& contents)
        : m_database(database), m_facts(facts), m_known(known), m_contents(contents) {}

    int64_t Run() {
        m_disk = m_known.id ? *m_known.id : Create();
        WriteDisk();
        WriteMarks();
        WriteSpans();
        WriteEvents();
        WriteProblems();
        return m_disk;
    }

private:
    int64_t Create() {
        int64_t id = 0;
        m_database.Run(
            "INSERT INTO disk (head, revision, source, host, description, size, block_size, block_count,"
            " recorded_blocks, hidden, skew, pre_record, alarm_delay, losses, added, updated, blocks)"
            " VALUES ($1, 0, '', '', '', 0, 0, 0, 0, 0, 0, 0, 0, 0, $2, $2, $3) RETURNING id",
            {m_facts.state.head, m_facts.reading.now, Blob()},
            [&id](const Row& row) { id = NumberIn(row.at(0)); });
        return id;
    }

    void WriteDisk() {
        const recordings::Disk& disk = m_facts.disk;
        const auto surroundings = [](uint32_t seconds) {
            return std::min<int64_t>(seconds, kLongestSurroundings);
        };
        std::optional<int64_t> first;
        std::optional<int64_t> last;
        for (const Span& span : m_contents.spans.All()) {
            first = first ? std::min(*first, span.start) : span.start;
            last = last ? std::max(*last, span.end) : span.end;
        }
        const auto losses = std::count_if(m_contents.problems.begin(), m_contents.problems.end(),
                                          [](const ProblemRow& problem) { return problem.loss; });
        m_database.Run(
            "UPDATE disk SET revision = revision + 1, source = $2, host = $3, description = $4, size = $5,"
            " block_size = $6, block_count = $7, recorded_blocks = $8, hidden = $9, skew = $10, pre_record = "
            "$11,"
            " alarm_delay = $12, vehicle_id = $13, first_time = $14, last_time = $15, losses = $16, updated "
            "= $17,"
            " blocks = $18 WHERE id = $1",
            {m_disk, m_facts.reading.source, m_facts.reading.host,
             m_facts.reading.printable(disk.Facts().description), static_cast<int64_t>(disk.Bytes().Size()),
             int64_t{disk.Facts().blockSize}, int64_t{disk.Facts().blockCount},
             static_cast<int64_t>(m_facts.blocks.All().size()), int64_t{disk.Hidden().bits},
             m_facts.reading.skewSeconds, surroundings(m_facts.state.preRecordSeconds),
             surroundings(m_facts.state.alarmDelaySeconds),
             m_facts.vehicles.empty() ? Cell(std::monostate{}) : Cell(m_facts.vehicles.back()), OrNull(first),
             OrNull(last), int64_t{losses}, m_facts.reading.now, m_facts.state.Packed()});
    }

    void WriteMarks() {
        m_database.Run("DELETE FROM mark WHERE disk_id = $1", {m_disk});
        Insert rows(m_database, "mark (disk_id, digest)", 2);
        for (const uint64_t mark : m_facts.state.marks) {
            rows.Add({m_disk, static_cast<int64_t>(mark)});
        }
        rows.Finish();
    }

    void WriteSpans() {
        for (const int64_t row : m_contents.spans.Gone()) {
            m_database.Run("DELETE FROM span WHERE id = $1", {row});
        }
        Insert rows(
            m_database,
            "span (disk_id, vehicle_id, channel, start_time, end_time, first_sequence, last_sequence)", 7);
        std::map<int64_t, int64_t> longest;
        for (const Span& span : m_contents.spans.All()) {
            longest[span.vehicle] = std::max(longest[span.vehicle], span.end - span.start);
            if (span.changed && span.row) {
                m_database.Run("UPDATE span SET start_time = $2, end_time = $3, first_sequence = $4,"
                               " last_sequence = $5 WHERE id = $1",
                               {*span.row, span.start, span.end, int64_t{span.firstSequence},
                                int64_t{span.lastSequence}});
            } else if (!span.row) {
                rows.Add({m_disk, span.vehicle, int64_t{span.channel}, span.start, span.end,
                          int64_t{span.firstSequence}, int64_t{span.lastSequence}});
            }
        }
        rows.Finish();
        for (const auto& [vehicle, seconds] : longest) {
            m_database.Run("UPDATE vehicle SET longest = $2 WHERE id = $1 AND longest < $2",
                           {vehicle, seconds});
        }
    }

    void WriteEvents() {
        std::vector<int64_t> known;
        m_database.Run("SELECT DISTINCT sequence FROM event WHERE disk_id = $1", {m_disk},
                       [&known](const Row& row) { known.push_back(NumberIn(row.at(0))); });
        const std::set<uint32_t> kept(m_contents.keptSequences.begin(), m_contents.keptSequences.end());
        for (const int64_t sequence : known) {
            if (kept.count(static_cast<uint32_t>(sequence)) == 0) {
                m_database.Run("DELETE FROM event WHERE disk_id = $1 AND sequence = $2", {m_disk, sequence});
            }
        }
        Insert rows(m_database, "event (disk_id, vehicle_id, sequence, entry, time, type)", 6);
        for (const EventRow& event : m_contents.newEvents) {
            rows.Add({m_disk, event.vehicle, int64_t{event.sequence}, int64_t{event.entry}, event.micros,
                      static_cast<int64_t>(event.type)});
        }
        rows.Finish();
    }

    void WriteProblems() {
        m_database.Run("DELETE FROM problem WHERE disk_id = $1", {m_disk});
        Insert rows(m_database, "problem (disk_id, contents, loss, kind, block, text)", 6);
        for (const ProblemRow& problem : m_contents.problems) {
            rows.Add({m_disk, int64_t{problem.ofContents}, int64_t{problem.loss}, problem.kind,
                      OrNull(problem.block), problem.text});
        }
        rows.Finish();
    }

    Database& m_database;
    const DiskFacts& m_facts;
    const KnownDisk& m_known;
    const DiskContents& m_contents;
    int64_t m_disk = 0;
};

} // namespace

std::vector<int64_t> RowsOf(Database& database, const std::vector<VehicleName>& vehicles) {
    std::map<VehicleName, int64_t> rows;
    std::vector<int64_t> all;
    for (const VehicleName& vehicle : vehicles) {
        const auto [at, isNew] = rows.emplace(vehicle, 0);
        if (isNew) {
            database.Run("INSERT INTO vehicle (number, identity) VALUES ($1, $2) ON CONFLICT (number, "
                         "identity) DO NOTHING",
                         {vehicle.number, vehicle.identity});
            database.Run("SELECT id FROM vehicle WHERE number = $1 AND identity = $2",
                         {vehicle.number, vehicle.identity},
                         [row = at](const Row& found) { row->second = NumberIn(found.at(0)); });
        }
        all.push_back(at->second);
    }
    return all;
}

KnownDisk LoadKnown(Database& database, const DiskState& state) {
    const Version version = Identify(database, state);
    KnownDisk known;
    known.id = version.id;
    known.revision = version.revision;
    if (known.id) {
        database.Run("SELECT skew, hidden, blocks FROM disk WHERE id = $1", {*known.id},
                     [&known](const Row& row) {
                         known.skewSeconds = NumberIn(row.at(0));
                         known.hidden = NumberIn(row.at(1));
                         known.blocks = BytesIn(row.at(2));
                     });
        known.spans = LoadSpans(database, *known.id);
        known.problems = LoadProblems(database, *known.id);
    }
    return known;
}

std::optional<int64_t> Store(Database& database, const DiskFacts& facts, const KnownDisk& known,
                             const DiskContents& contents) {
    Transaction transaction(database);
    database.LockForWriting();
    if (!(Identify(database, facts.state) == Version{known.id, known.revision})) {
        return std::nullopt;
    }
    const int64_t disk = Writer(database, facts, known, contents).Run();
    transaction.Commit();
    return disk;
}

} // namespace catalog
