#include "spans.h"

#include <algorithm>

namespace catalog {

Spans::Spans(std::vector<Span> known) : m_spans(std::move(known)) {}

void Spans::Keep(const BlockTimes& blocks) {
    std::vector<Span> kept;
    for (const Span& span : m_spans) {
        const std::vector<Span> parts = PartsIn(blocks, span);
        if (parts.empty() && span.row) {
            m_gone.push_back(*span.row);
        }
        kept.insert(kept.end(), parts.begin(), parts.end());
    }
    m_spans = std::move(kept);
    m_last.clear();
    for (size_t i = 0; i < m_spans.size(); ++i) {
        const auto [at, isNew] =
            m_last.emplace(std::make_pair(m_spans[i].channel, m_spans[i].lastSequence), i);
        if (!isNew && m_spans[at->second].end < m_spans[i].end) {
            at->second = i;
        }
    }
}

/// Parts of a span, one for each run of blocks that are left.
std::vector<Span> Spans::PartsIn(const BlockTimes& blocks, const Span& span) const {
    std::vector<Span> parts;
    for (auto block = blocks.lower_bound(span.firstSequence);
         block != blocks.end() && block->first <= span.lastSequence; ++block) {
        const auto& [sequence, time] = *block;
        if (parts.empty() || parts.back().lastSequence + 1 != sequence) {
            Span part = span;
            part.row = parts.empty() ? span.row : std::nullopt;
            part.firstSequence = sequence;
            part.start = sequence == span.firstSequence ? span.start : std::max(span.start, time.start);
            parts.push_back(part);
        }
        Span& part = parts.back();
        part.lastSequence = sequence;
        part.end =
            sequence == span.lastSequence ? span.end : std::max(part.start, std::min(span.end, time.end));
    }
    for (Span& part : parts) {
        part.changed = span.changed || part.firstSequence != span.firstSequence ||
                       part.lastSequence != span.lastSequence || !part.row;
    }
    return parts;
}

/// The span that a record goes on with, if there is one.
Span* Spans::Before(const Span& record) {
    for (const uint32_t sequence : {record.firstSequence, record.firstSequence - 1}) {
        const auto at = m_last.find({record.channel, sequence});
        if (at != m_last.end()) {
            Span& span = m_spans[at->second];
            const bool follows = record.start >= span.start && record.start <= span.end + kJoinSeconds;
            const bool fits = std::max(span.end, record.end) - span.start < kLongestSpan;
            return follows && fits && span.vehicle == record.vehicle ? &span : nullptr;
        }
    }
    return nullptr;
}

void Spans::Add(const Span& record) {
    Span* const before = Before(record);
    if (before != nullptr) {
        const auto index = static_cast<size_t>(before - m_spans.data());
        before->end = std::max(before->end, record.end);
        before->lastSequence = record.lastSequence;
        before->changed = true;
        m_last[{record.channel, record.lastSequence}] = index;
        return;
    }
    m_spans.push_back(record);
    m_spans.back().changed = true;
    m_last[{record.channel, record.lastSequence}] = m_spans.size() - 1;
}

int64_t Spans::Longest() const {
    int64_t longest = 0;
    for (const Span& span : m_spans) {
        longest = std::max(longest, span.end - span.start);
    }
    return longest;
}

} // namespace catalog
