#include <algorithm>
#include <map>
#include <tuple>

#include "catalog/catalog.h"
#include "recordings/query.h"
#include "spans.h"

namespace catalog {

namespace {

using recordings::kMicros;
/// Spans this far from an event may be what was recorded around it.
constexpr int64_t kSurroundings = 3600;

/// A stretch of time, both ends included.
struct Window {
    int64_t start = 0;
    int64_t end = 0;
    uint64_t events = 0;
};

// The joins are crossed: SQLite then goes from vehicles to spans to disks, by the indexes; PostgreSQL finds that by itself.

/// What was found on a disk of one vehicle.
struct Pile {
    Found what; ///< all but the times
    std::vector<Span> spans;
    std::vector<Window> windows;
};

/// Piles in the order of their vehicles and disks.
using Piles = std::map<std::tuple<std::string, std::string, int64_t>, Pile>;

Row ParametersOf(const Question& question, int64_t from, int64_t to) {
    Row parameters = {from, to};
    if (question.vehicle) {
        parameters.emplace_back(*question.vehicle);
    }
    return parameters;
}

const char* OnVehicle(const Question& question) {
    return question.vehicle ? " AND (v.number = $3 OR v.identity = $3)" : "";
}

void LoadSpans(Database& database, const Question& question, Piles& piles) {
    const int64_t wider = question.events ? kSurroundings : 0;
    const std::string statement =
        std::string(
            "SELECT v.number, v.identity, d.id, d.source, d.host, d.skew, s.channel, s.start_time, s.end_time"
            " FROM vehicle v CROSS JOIN span s CROSS JOIN disk d WHERE s.vehicle_id = v.id AND d.id = "
            "s.disk_id"
            " AND s.start_time >= $1 - v.longest AND s.start_time <= $2 AND s.end_time >= $1") +
        OnVehicle(question);
    database.Run(statement, ParametersOf(question, question.from - wider, question.to + wider),
                 [&](const Row& row) {
                     Span span;
                     span.channel = static_cast<uint32_t>(NumberIn(row.at(6)));
                     span.start = NumberIn(row.at(7));
                     span.end = NumberIn(row.at(8));
                     if (question.channels.Has(span.channel)) {
                         Pile& pile = piles[{TextIn(row.at(0)), TextIn(row.at(1)), NumberIn(row.at(2))}];
                         pile.what.vehicleNumber = TextIn(row.at(0));
                         pile.what.vehicleId = TextIn(row.at(1));
                         pile.what.disk = NumberIn(row.at(2));
                         pile.what.source = TextIn(row.at(3));
                         pile.what.host = TextIn(row.at(4));
                         pile.what.skewSeconds = NumberIn(row.at(5));
                         pile.spans.push_back(span);
                     }
                 });
}

void LoadEvents(Database& database, const Question& question, Piles& piles) {
    const std::string statement =
        std::string("SELECT v.number, v.identity, d.id, e.time, e.type, d.pre_record, d.alarm_delay"
                    " FROM vehicle v CROSS JOIN event e CROSS JOIN disk d WHERE e.vehicle_id = v.id AND d.id "
                    "= e.disk_id"
                    " AND e.time >= $1 AND e.time <= $2") +
        OnVehicle(question);
    const Row parameters =
        ParametersOf(question, question.from * kMicros, question.to * kMicros + kMicros - 1);
    database.Run(statement, parameters, [&](const Row& row) {
        const auto type = static_cast<uint64_t>(NumberIn(row.at(4)));
        const auto pile = piles.find({TextIn(row.at(0)), TextIn(row.at(1)), NumberIn(row.at(2))});
        if ((type & *question.events) != 0 && pile != piles.end()) {
            const int64_t second = NumberIn(row.at(3)) / kMicros;
            pile->second.windows.push_back(
                {second - NumberIn(row.at(5)), second + NumberIn(row.at(6)), type});
        }
    });
}

std::vector<Window> Merged(std::vector<Window> windows) {
    std::sort(windows.begin(), windows.end(),
              [](const Window& a, const Window& b) { return a.start < b.start; });
    std::vector<Window> merged;
    for (const Window& window : windows) {
        if (merged.empty() || window.start > merged.back().end + 1) {
            merged.push_back(window);
        } else {
            merged.back().end = std::max(merged.back().end, window.end);
            merged.back().events |= window.events;
        }
    }
    return merged;
}

/// What of the spans lies in a window, as stretches. The spans are in the order of their starts.
void AddStretches(const Pile& pile, const Window& window, std::vector<Found>& found) {
    const size_t before = found.size();
    for (const Span& span : pile.spans) {
        const int64_t start = std::max(span.start, window.start);
        const int64_t end = std::min(span.end, window.end);
        if (start > end) {
            continue;
        }
        if (found.size() == before || start > found.back().end + kJoinSeconds) {
            found.push_back(pile.what);
            found.back().start = start;
            found.back().end = end;
            found.back().events = window.events;
        }
        found.back().end = std::max(found.back().end, end);
        found.back().channels.Add(span.channel);
    }
}

} // namespace

std::vector<Found> Catalog::Find(const Question& question) {
    Piles piles;
    LoadSpans(*m_database, question, piles);
    if (question.events) {
        LoadEvents(*m_database, question, piles);
    }
    std::vector<Found> found;
    for (auto& [key, pile] : piles) {
        std::sort(pile.spans.begin(), pile.spans.end(),
                  [](const Span& a, const Span& b) { return a.start < b.start; });
        const std::vector<Window> asked = {{question.from, question.to, 0}};
        for (const Window& window : question.events ? Merged(pile.windows) : asked) {
            AddStretches(pile, window, found);
        }
    }
    return found;
}

} // namespace catalog
