#ifndef RECORDINGS_HEAD_SEARCH_H
#define RECORDINGS_HEAD_SEARCH_H

#include <cstdint>
#include <optional>

#include "block_facts.h"
#include "frame_area.h"

namespace recordings {

/// Looks for heads where none is known to begin.
class HeadSearch {
public:
    /// @param area, facts must outlive the object
    HeadSearch(FrameArea& area, const BlockFacts& facts) : m_area(area), m_facts(facts) {}

    /// The first place from @p from on, and before @p to, at which a frame of this block seems to begin. Its length is
    /// not looked at.
    std::optional<uint32_t> Head(uint32_t from, uint32_t to, const Reached& reached);

    /// The same of a frame that the ring's previous turn has left.
    std::optional<uint32_t> LeftOver(uint32_t from, uint32_t to);

    /// The first place from @p from on, and before @p to, at which the recorder's end mark lies.
    std::optional<uint32_t> EndMark(uint32_t from, uint32_t to);

private:
    template <typename Accept>
    std::optional<uint32_t> Find(uint32_t from, uint32_t to, uint32_t sync, const Accept& accept);

    FrameArea& m_area;
    const BlockFacts& m_facts;
};

} // namespace recordings

#endif // RECORDINGS_HEAD_SEARCH_H
