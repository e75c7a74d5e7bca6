#include "commands/marks.h"

namespace diskaccess {

namespace {

using recordings::BlockMark;

std::string MarkText(BlockMark mark) {
    switch (mark) {
    case BlockMark::Suspect:
        return "suspect";
    case BlockMark::Bad:
        return "bad";
    default:
        return "";
    }
}

} // namespace

Value MarkValue(BlockMark mark) {
    const std::string text = MarkText(mark);
    return text.empty() ? Value(Nothing{}) : Value(text);
}

Value ChannelsOf(const recordings::Finding& finding) {
    return finding.channels.Empty() ? Value(Labelled{finding.channels, "-"}) : Value(finding.channels);
}

std::string NoteText(bool closed, BlockMark mark) {
    const std::string marked = MarkText(mark);
    const std::string open = closed ? "" : "not closed";
    return open + (open.empty() || marked.empty() ? "" : ", ") + marked;
}

} // namespace diskaccess
