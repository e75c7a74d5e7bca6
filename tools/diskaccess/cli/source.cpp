#include "cli/source.h"

#include <string>
#include <utility>

namespace diskaccess {

namespace {

class NamedSource : public recordings::Source {
public:
    NamedSource(std::unique_ptr<recordings::Source> source, std::string name)
        : m_source(std::move(source)), m_name(std::move(name)) {}

    const std::string& Name() const override { return m_name; }
    uint64_t Size() const override { return m_source->Size(); }
    bool IsBlockDevice() const override { return m_source->IsBlockDevice(); }
    size_t Read(uint64_t offset, void* data, size_t size) const override {
        return m_source->Read(offset, data, size);
    }
    void WillNeed(uint64_t offset, size_t size) const override { m_source->WillNeed(offset, size); }

private:
    std::unique_ptr<recordings::Source> m_source;
    std::string m_name;
};

} // namespace

std::unique_ptr<recordings::Source> SourceOf(const PartitionFile& file, const std::string& name) {
    return std::make_unique<NamedSource>(
        recordings::OpenSource("/proc/self/fd/" + std::to_string(file.Descriptor())), name);
}

} // namespace diskaccess
