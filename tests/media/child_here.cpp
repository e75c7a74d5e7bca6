// Stands in for the child process: the work is done in this one, and answers into a file without a name.

#include "child.h"

#include <cstdio>
#include <memory>

namespace media {

namespace {

struct CloseFile {
    void operator()(FILE* file) const { std::fclose(file); }
};

} // namespace

ChildAnswer HearChild(const std::function<bool(int answer)>& work, const ChildLimits& limits,
                      const std::function<void()>& meanwhile) {
    if (meanwhile) {
        meanwhile();
    }
    const std::unique_ptr<FILE, CloseFile> file(std::tmpfile());
    ChildAnswer answer;
    answer.complete = work(fileno(file.get()));
    std::rewind(file.get());
    for (int byte = std::getc(file.get()); byte != EOF; byte = std::getc(file.get())) {
        answer.bytes.push_back(static_cast<uint8_t>(byte));
    }
    answer.complete = answer.complete && answer.bytes.size() <= limits.answer;
    return answer;
}

std::optional<std::vector<uint8_t>> InChild(const std::function<bool(int answer)>& work,
                                            const ChildLimits& limits,
                                            const std::function<void()>& meanwhile) {
    const ChildAnswer answer = HearChild(work, limits, meanwhile);
    return answer.complete ? std::optional(answer.bytes) : std::nullopt;
}

} // namespace media
