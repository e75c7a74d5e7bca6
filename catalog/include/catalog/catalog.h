#ifndef CATALOG_CATALOG_H
#define CATALOG_CATALOG_H

/// @file catalog.h
/// What is on many disks: which vehicle was recorded when, with which channels and events, and where that disk's image is.

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "catalog/database.h"
#include "recordings/blocks.h"
#include "recordings/disk.h"

namespace catalog {

/// Where a disk was read, and how.
struct Reading {
    std::string source;      ///< name of the device or image, as others on the host can use it
    std::string host;        ///< name of the host
    int64_t now = 0;         ///< seconds since 1970
    int64_t skewSeconds = 0; ///< how far the recorder's clock was ahead
    /// Texts of a disk, which may hold any byte, as UTF-8 without control characters.
    std::function<std::string(const std::string&)> printable;
};

/// What adding a disk did.
struct Added {
    int64_t disk = 0;    ///< its number in the catalogue
    bool isNew = false;  ///< else it was known
    uint64_t blocks = 0; ///< that hold recordings
    uint64_t read = 0;   ///< of these: whose index was read, because they were not known as they are
    uint64_t losses = 0; ///< problems by which something that was recorded is missing, or in doubt
};

/// A disk of the catalogue. Times are true seconds.
struct CataloguedDisk {
    int64_t id = 0;
    std::string source;
    std::string host;
    std::string description;
    std::string vehicleNumber; ///< of its newest block
    std::string vehicleId;
    uint64_t size = 0; ///< bytes
    uint64_t recordedBlocks = 0;
    int64_t skewSeconds = 0;
    std::optional<int64_t> first; ///< the start of its oldest recording
    std::optional<int64_t> last;  ///< the end of its newest
    uint64_t losses = 0;
    int64_t updated = 0;
};

/// A problem of a disk of the catalogue.
struct CataloguedProblem {
    std::string kind;
    bool isLoss = false;
    std::string text;
};

/// What is looked for.
struct Question {
    std::optional<std::string> vehicle; ///< number or id
    int64_t from = 0;                   ///< true seconds, both included
    int64_t to = 0;
    recordings::ChannelSet channels = recordings::ChannelSet::All();
    /// Event types: then only what was recorded around events of these types is found, from each disk's pre-record time
    /// before one to its delay after it.
    std::optional<recordings::EventMask> events;
};

/// A stretch in which a vehicle was recorded on a disk. True seconds, both ends included.
struct Found {
    int64_t disk = 0;
    std::string source;
    std::string host;
    int64_t skewSeconds = 0;
    std::string vehicleNumber;
    std::string vehicleId;
    int64_t start = 0;
    int64_t end = 0;
    recordings::ChannelSet channels;  ///< that were recorded at some time of the stretch
    recordings::EventMask events = 0; ///< types of the events in it, when events were asked for
};

/// Whether a database holds a catalogue.
/// @throws Error
bool HoldsCatalog(Database& database);

/// A catalogue in a database. One thread uses it at a time; many programs may use one database.
class Catalog {
public:
    /// Makes the tables, or brings them up to date.
    /// @throws Error
    explicit Catalog(std::unique_ptr<Database> database);

    /// Enters what is on a disk. A disk is known again by its partition head and its blocks, wherever it was read before;
    /// then only the blocks that are new, or differ, are read. What is gone from it goes from the catalogue.
    ///
    /// The catalogue changes in one step, at the end: a program that is stopped half-way leaves it as it was.
    /// @throws Error
    /// @throws recordings::Error (Cancelled)
    Added Add(const recordings::Disk& disk, const recordings::BlockList& blocks, const Reading& reading,
              const recordings::Watch& watch = {});

    std::vector<CataloguedDisk> List();
    std::vector<CataloguedProblem> ProblemsOf(int64_t disk);
    /// In the order of vehicles, disks and times.
    std::vector<Found> Find(const Question& question);
    /// @return false when there is no such disk
    bool Remove(int64_t disk);

private:
    std::unique_ptr<Database> m_database;
};

} // namespace catalog

#endif // CATALOG_CATALOG_H
