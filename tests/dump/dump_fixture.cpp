#include "dump/dump_fixture.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace test_support {

int Collect(void* ctx, const char* format, ...) {
    auto& dumped = *static_cast<Dumped*>(ctx);
    char piece[512];
    va_list values;
    va_start(values, format);
    const int length = std::vsnprintf(piece, sizeof piece, format, values);
    va_end(values);
    EXPECT_LT(length, static_cast<int>(sizeof piece));
    dumped.text += piece;
    dumped.formats.emplace_back(format);
    return length;
}

Dumped Dump(const PartAccess_t& part, int level) {
    PartAccess_t access = part;
    Dumped dumped;
    // Everything is printed through the print function.
    EXPECT_EQ(Printed([&] { dumped.result = CPrintDisk().Print(&access, level, Collect, &dumped); }), "");
    const std::string path(access.PartName, strnlen(access.PartName, sizeof access.PartName));
    const size_t at = dumped.text.find(path);
    if (!path.empty() && at != std::string::npos) {
        dumped.text.replace(at, path.size(), "DEVICE");
    }
    return dumped;
}

Dumped DumpFixture::DumpWith(int level, const std::function<Fate(const Call&, size_t)>& decide) {
    size_t opened = 0;
    size_t closed = 0;
    Dumped dumped;
    {
        const SystemCallLog log([&](const Call& call, size_t index) {
            const Fate fate = decide(call, index);
            opened += call.kind == CallKind::Open && fate.kind != Fate::Fail ? 1u : 0u;
            closed += call.kind == CallKind::Close ? 1u : 0u;
            return fate;
        });
        dumped = DumpAt(level);
    }
    EXPECT_EQ(opened, closed);
    return dumped;
}

std::string DumpFixture::Block(uint32_t block) {
    const Dumped dumped = DumpAt(3);
    EXPECT_EQ(dumped.result, 0);
    const Lines pieces = Pieces(dumped.text);
    EXPECT_EQ(pieces.size(), Disk().BlockCount() + 2);
    return pieces.at(block + 1);
}

Lines Pieces(const std::string& text) {
    Lines pieces;
    size_t begin = 0;
    for (const std::string border : {"\n\n[NUM]", "*****************************BODY END"}) {
        for (size_t at = text.find(border, begin); at != std::string::npos; at = text.find(border, at + 1)) {
            pieces.push_back(text.substr(begin, at - begin));
            begin = at;
        }
    }
    pieces.push_back(text.substr(begin));
    return pieces;
}

} // namespace test_support
