#include "sample_recorder/frame.h"

#include <algorithm>
#include <utility>

namespace sample_recorder {

void MergedSource::Add(std::unique_ptr<FrameSource> source) {
    Frame head;
    if (source->Next(head)) {
        m_inputs.push_back({std::move(source), std::move(head)});
    }
}

bool MergedSource::Next(Frame& frame) {
    const auto earliest =
        std::min_element(m_inputs.begin(), m_inputs.end(),
                         [](const Input& a, const Input& b) { return a.head.pts < b.head.pts; });
    if (earliest == m_inputs.end()) {
        return false;
    }
    frame = std::move(earliest->head);
    earliest->head = Frame();
    if (!earliest->source->Next(earliest->head)) {
        m_inputs.erase(earliest);
    }
    return true;
}

} // namespace sample_recorder
