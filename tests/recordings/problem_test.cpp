// Problems: kept once, named, and told in plain words.

#include "recordings/problem.h"

#include <gtest/gtest.h>

namespace test_support {

namespace {

using recordings::Describe;
using recordings::Problem;
using recordings::ProblemKind;
using recordings::ProblemList;
using recordings::Severity;

std::string Minutes(int64_t micros) {
    return "minute " + std::to_string(micros / 60000000);
}

Problem Damage() {
    Problem problem;
    problem.kind = ProblemKind::BytesDamaged;
    problem.block = 3;
    problem.offset = 4096;
    problem.bytes = 512;
    problem.before = 60000000;
    problem.after = 120000000;
    return problem;
}

TEST(Problems, AreToldWithPlaceAndTime) {
    EXPECT_EQ(Describe(Damage(), Minutes),
              "block 3: 512 bytes from offset 4096 on are damaged: video between minute 1 "
              "and minute 2 is missing");
    Problem atEnds = Damage();
    atEnds.kind = ProblemKind::BytesUnreadable;
    atEnds.before.reset();
    atEnds.after.reset();
    EXPECT_EQ(Describe(atEnds, Minutes),
              "block 3: 512 bytes from offset 4096 on cannot be read: video between its start "
              "and its end is missing");
}

TEST(Problems, CountsAgreeWithTheirNouns) {
    Problem problem;
    problem.kind = ProblemKind::NotDecodable;
    problem.block = 1;
    problem.channel = 2;
    problem.count = 1;
    EXPECT_EQ(Describe(problem, {}),
              "block 1, channel 2: 1 video frame is left out: the key frame that it needs is not there");
    problem.count = 2;
    EXPECT_EQ(Describe(problem, {}),
              "block 1, channel 2: 2 video frames are left out: the key frame that they need is not there");
}

TEST(Problems, EachKindHasANameOfItsOwnAndALine) {
    std::set<std::string> names;
    std::set<std::string> lines;
    for (int kind = 0; kind <= static_cast<int>(ProblemKind::SoundDamaged); ++kind) {
        Problem problem;
        problem.kind = static_cast<ProblemKind>(kind);
        problem.block = 1;
        names.insert(recordings::NameOf(problem.kind));
        lines.insert(Describe(problem, {}));
    }
    EXPECT_EQ(names.size(), static_cast<size_t>(ProblemKind::SoundDamaged) + 1);
    EXPECT_EQ(lines.size(), names.size());
    EXPECT_EQ(names.count("unknown"), 0u);
}

TEST(Problems, AreKeptOnceInTheOrderTheyWereMetIn) {
    ProblemList list;
    Problem note = Damage();
    note.kind = ProblemKind::NotClosed;
    note.severity = Severity::Note;
    list.Add(note);
    EXPECT_FALSE(list.AnyLoss());
    list.Sink()(Damage());
    list.Add(note);
    list.Add(Damage());
    ASSERT_EQ(list.All().size(), 2u);
    EXPECT_EQ(list.All()[0].kind, ProblemKind::NotClosed);
    EXPECT_TRUE(list.AnyLoss());
}

} // namespace

} // namespace test_support
