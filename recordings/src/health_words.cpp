#include "recordings/health.h"

namespace recordings {

const char* MeaningOf(ProblemKind kind) {
    switch (kind) {
    case ProblemKind::TablesUnreadable:
        return "Which blocks the recorder has given up is not known. Every block is looked at, so nothing is "
               "missing.";
    case ProblemKind::BackupTablesUsed:
        return "The disk has errors where the tables lie. Their backup copies say the same.";
    case ProblemKind::DeviceCutOff:
        return "The device or its copy is smaller than the recorder's disk. What lay after its end is "
               "missing here.";
    case ProblemKind::BlocksNotNamed:
        return "The partition head states more blocks than any recorder makes: it is damaged or was changed.";
    case ProblemKind::ChannelsLocked:
        return "These channels are there, but the recorder's password hides them.";
    case ProblemKind::BlockUnreadable:
        return "The disk does not deliver the block. All of its recordings are missing here.";
    case ProblemKind::BlockWiped:
        return "The recorder has written the block, but something else lies there now. Its recordings are "
               "gone.";
    case ProblemKind::BlocksLost:
        return "The recorder numbers its blocks one by one, and numbers are missing. What was recorded then "
               "is gone.";
    case ProblemKind::HeadDamaged:
        return "Fields of the block's head contradict its tail, its index or its neighbours. It is read by "
               "those.";
    case ProblemKind::TailDamaged:
        return "Fields of the block's tail contradict its head or its index. It is read by those.";
    case ProblemKind::IndexDamaged:
        return "The block's index is not true. Its frames are read one by one instead.";
    case ProblemKind::BlockSuspect:
        return "The recorder has met errors on the block, and searches of a recorder pass over it. It is "
               "read here.";
    case ProblemKind::BlockMarkedBad:
        return "The recorder has given the block up, but it holds a recording of this turn of the ring. It "
               "is not read.";
    case ProblemKind::BytesUnreadable:
        return "The disk does not deliver these bytes. The pictures or the sound that lie there are missing.";
    case ProblemKind::BytesDamaged:
        return "No frames lie there any more. The pictures or the sound between the times named are missing.";
    case ProblemKind::FramesMissing:
        return "The index, or the pace of the channel, tells of frames that are not there.";
    case ProblemKind::FrameDamaged:
        return "The frame's head contradicts the index or its neighbours: its time, type, channel or length "
               "is in doubt.";
    case ProblemKind::NotClosed:
        return "The power failed while the block was recorded. Its last frames may never have reached the "
               "disk.";
    case ProblemKind::NotDecodable:
        return "The pictures are there, but the key frame that they need is not.";
    case ProblemKind::TimesCollide:
        return "Two frames of one channel have the same time: one of the two times is wrong.";
    case ProblemKind::ClockJumps:
        return "The recorder's clock was set while it recorded.";
    case ProblemKind::EncodingChanges:
        return "The camera was changed, or set up again.";
    case ProblemKind::TablesMisplaced:
        return "The head places a table over the head itself, another table or the ring: the head is "
               "damaged.";
    case ProblemKind::TablesDiffer:
        return "One of the two copies is out of date or damaged, and nothing tells which.";
    case ProblemKind::BackupTablesUnreadable:
        return "The disk has errors where the backup copies lie. The tables themselves are used.";
    case ProblemKind::BlocksOutsideRing:
        return "The head states too few blocks: what lies after them is not read.";
    case ProblemKind::BlockRetired:
        return "The disk has failed there before. The recorder records round it; nothing of this turn is "
               "missing.";
    case ProblemKind::ClockSetBack:
        return "The recorder's clock was set back, or one of the times is damaged. Some times come twice.";
    case ProblemKind::PayloadsDamaged:
        return "What lies in these frames is not the picture that it should be: they cannot be decoded, or "
               "not rightly.";
    case ProblemKind::ParametersMissing:
        return "A player that begins in this block shows nothing of the channel.";
    case ProblemKind::PicturesDamaged:
        return "What lies in these frames has changed since it was recorded, though their heads are whole. "
               "The "
               "pictures up to the next key frame build on them, and may show what was not there.";
    case ProblemKind::SoundDamaged:
        return "What lies in these frames is not the sound that the camera's codec makes, or the disk tells "
               "the "
               "codec wrongly.";
    }
    return "";
}

namespace {

constexpr const char* kCopyFirst = "Copy the partition before anything else, with a program that goes on "
                                   "after errors, and work on the copy.";
constexpr const char* kNothing = "Nothing needs to be done.";
constexpr const char* kReplaceDisk = "Replace the disk before it goes back into the vehicle.";
constexpr const char* kNameTheLoss = "Export as usual: what is missing is named in the manifest.";
constexpr const char* kCompareCopy =
    "Copy the partition again and compare; if it stays, the loss is on the disk itself.";

} // namespace

const char* AdviceFor(ProblemKind kind) {
    switch (kind) {
    case ProblemKind::TablesUnreadable:
    case ProblemKind::BackupTablesUsed:
    case ProblemKind::BackupTablesUnreadable:
    case ProblemKind::BlockUnreadable:
    case ProblemKind::BytesUnreadable:
        return kCopyFirst;
    case ProblemKind::DeviceCutOff:
        return "Copy the partition again, to its end.";
    case ProblemKind::ChannelsLocked:
        return "Give the password.";
    case ProblemKind::BlocksNotNamed:
    case ProblemKind::BlocksOutsideRing:
    case ProblemKind::TablesMisplaced:
        return "Treat the disk as damaged or changed by hand; keep an untouched copy.";
    case ProblemKind::BlockWiped:
    case ProblemKind::BlocksLost:
    case ProblemKind::BytesDamaged:
    case ProblemKind::FramesMissing:
    case ProblemKind::PicturesDamaged:
    case ProblemKind::SoundDamaged:
        return kCompareCopy;
    case ProblemKind::BlockMarkedBad:
        return "Look at the block with the program's dump; what lies in it may be whole.";
    case ProblemKind::BlockSuspect:
    case ProblemKind::BlockRetired:
    case ProblemKind::TablesDiffer:
        return kReplaceDisk;
    case ProblemKind::HeadDamaged:
    case ProblemKind::TailDamaged:
    case ProblemKind::IndexDamaged:
        return "Check with every frame, which tells whether anything is missing.";
    case ProblemKind::FrameDamaged:
    case ProblemKind::NotDecodable:
    case ProblemKind::PayloadsDamaged:
    case ProblemKind::ParametersMissing:
        return kNameTheLoss;
    case ProblemKind::TimesCollide:
    case ProblemKind::ClockJumps:
    case ProblemKind::ClockSetBack:
        return "Compare the times with an event that is known, before they are relied on.";
    case ProblemKind::NotClosed:
    case ProblemKind::EncodingChanges:
        return kNothing;
    }
    return "";
}

} // namespace recordings
