#ifndef TESTS_PLAYBACK_PART_FIXTURE_H
#define TESTS_PLAYBACK_PART_FIXTURE_H

#include <cstdint>
#include <optional>
#include <string>

#include "sample_recorder/recorder.h"
#include "search/search_fixture.h"

namespace test_support {

/// A frame as a word: its type (P, I, A, E, or D for other data), channel and second, and its payload's bytes
/// where these are not 100: "I0@1000", "P1@1001:20". The word also makes the payload, so that no two frames of
/// a test have the same.
sample_recorder::Frame FrameOf(const std::string& word);
std::string WordOf(const FrameInfo_t& frame);

/// Whether a payload is the one that its frame was recorded with. Allocates nothing.
bool PayloadFits(const FrameInfo_t& frame, const void* payload);

/// Records for playback. Their end is that of time unless a test sets it.
RecordItem_t SegmentRecord(uint32_t block, uint32_t chn, uint32_t segment, uint32_t start,
                           uint32_t end = 0x7FFFFFFF);
RecordItem_t WholeBlockRecord(uint32_t block, uint32_t chn);
RecordItem_t WindowRecord(uint32_t block, uint32_t chn, uint32_t start, uint32_t end, uint32_t offset);

/// One reader, and the caller's payload buffer. What a call delivers is given as a word: the frame, or "end"
/// (1), "none" (2) or "failed" (-1).
class FrameTaker {
public:
    FrameTaker() = default;
    virtual ~FrameTaker();
    FrameTaker(const FrameTaker&) = delete;
    FrameTaker& operator=(const FrameTaker&) = delete;

    std::string Frame() { return Take(Step::Frame); }
    std::string NextIFrame() { return Take(Step::NextIFrame); }
    std::string PrevIFrame() { return Take(Step::PrevIFrame); }
    std::string UnitFrame() { return Take(Step::UnitFrame); }
    /// All frames up to the first other result, and that, as words.
    std::string Frames() { return TakeAll(Step::Frame); }
    std::string UnitFrames() { return TakeAll(Step::UnitFrame); }

protected:
    enum class Step { Frame, NextIFrame, PrevIFrame, UnitFrame };
    virtual int Call(Step step, FrameInfo_t* info, void** payload) = 0;

private:
    std::string Take(Step step);
    std::string TakeAll(Step step);

    void* m_payload = nullptr;
};

/// A reader of a partition object.
class PartPlayer : public FrameTaker {
public:
    PartPlayer(CReadPart& part, int chnType, RecordItem_t record);
    ~PartPlayer() override;

    PartReadHandle_st* Handle() { return m_reader; }
    int SeekTime(long time) { return m_part.SeekTime(m_reader, &time); }
    int SeekPos(unsigned int pos) { return m_part.SeekPos(m_reader, &pos); }
    /// What opening the reader printed.
    const std::string& Messages() const { return m_messages; }

private:
    int Call(Step step, FrameInfo_t* info, void** payload) override;

    CReadPart& m_part;
    PartReadHandle_st* m_reader = nullptr;
    std::string m_messages;
};

/// A reader of a disk object: of a record, or of a unit.
class DiskPlayer : public FrameTaker {
public:
    DiskPlayer(CReadDisk& disk, int chnType, RecordItem_t record);
    DiskPlayer(CReadDisk& disk, int unit);
    ~DiskPlayer() override { Stop(); }

    void* Handle() { return m_handle; }
    int SeekTime(long time) { return m_disk.SeekTime(m_handle, &time); }
    int SeekPos(unsigned int pos) { return m_disk.SeekPos(m_handle, &pos); }
    const std::string& Messages() const { return m_messages; }
    void Stop();

private:
    int Call(Step step, FrameInfo_t* info, void** payload) override;

    CReadDisk& m_disk;
    void* m_handle = nullptr;
    std::string m_messages;
};

/// A partition or disk object open on a disk.
template <typename Object>
class OpenForReading {
public:
    explicit OpenForReading(const PartitionImage& disk) {
        PartAccess_t access = disk.Access();
        EXPECT_EQ(m_object.Init(&access), 0);
    }
    ~OpenForReading() { m_object.Quit(); }
    OpenForReading(const OpenForReading&) = delete;
    OpenForReading& operator=(const OpenForReading&) = delete;
    Object* operator->() { return &m_object; }
    Object& operator*() { return m_object; }

private:
    Object m_object;
};
using OpenReadPart = OpenForReading<CReadPart>;
using OpenReadDisk = OpenForReading<CReadDisk>;

/// What a round delivered.
struct RoundOutcome {
    int frames = 0;
    int wrongPayloads = 0;
    int results[4] = {}; ///< how often calls returned -1, 0, 1 and 2
};

/// Plays a disk recorded with kRoundScript in every way, whatever the calls return. After each
/// one the payload buffer must be the caller's to use. Allocates nothing of its own.
RoundOutcome PlayRound(PartAccess_t access);
extern const char* const kRoundScript;

/// Words of frames, recorded in order. "|" closes the block, "/" cuts the power: the next frame begins another
/// block.
void RecordScript(sample_recorder::Recorder& recorder, const std::string& script);

/// A test that plays frames it recorded itself, of channels 0 to 3 and 31, on a disk as SearchFixture makes
/// it.
class PartFixture : public SearchFixture {
protected:
    /// Records a script on @p disk, on from where the last one ended.
    void Record(const std::string& script);
    /// Makes the disk, and records on it.
    PartitionImage& RecordOnNewDisk(const std::string& script);

    void SetCloseState(uint32_t block, uint32_t state);
    /// Changes a block's number in its head and its tail.
    void Renumber(uint32_t block, uint32_t sequence);

private:
    std::optional<sample_recorder::Recorder> m_recorder;
};

/// The channels that scripts are recorded with.
constexpr uint32_t kScriptChannels = 0x8000000F;

} // namespace test_support

#endif // TESTS_PLAYBACK_PART_FIXTURE_H
