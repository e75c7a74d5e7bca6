// Channels and event types, typed as numbers or by the names that a file gives them.

#include "cli/typed_sets.h"

#include <gtest/gtest.h>

#include <fstream>

#include "cli/failure.h"
#include "support/temp_dir.h"

namespace {

using namespace diskaccess;

class TypedSets : public ::testing::Test {
protected:
    void Name(const char* document) {
        const std::string file = m_directory.File("names");
        std::ofstream(file) << document;
        m_names = Names(file);
    }

    uint32_t Channels(const std::string& text) const { return ReadChannels(text, m_names).bits; }
    uint64_t Types(const std::string& text) const {
        return ReadEventTypes(text, "--event", m_names).value_or(0);
    }

private:
    test_support::TempDir m_directory;
    Names m_names;
};

TEST_F(TypedSets, Numbers) {
    EXPECT_EQ(Channels("all"), 0xFFFFFFFFu);
    EXPECT_EQ(Channels("0"), 0x1u);
    EXPECT_EQ(Channels("0,2-4,31"), 0x8000001Du);
    EXPECT_EQ(Types("5"), 0x5u);
    EXPECT_EQ(Types("0x5,0x8000000000000000"), 0x8000000000000005u);
    EXPECT_EQ(Types("all"), 0xFFFFFFFFFFFFFFFFu);
    EXPECT_FALSE(ReadEventTypes("", "--event", Names()));
}

TEST_F(TypedSets, Names) {
    Name(R"({"channels": {"0": "front", "3": "door 1-2", "4": "door, rear", "5": "Tür"},
             "event_types": {"0x1": "panic button", "0x4": "door", "0x20": "door"}})");
    EXPECT_EQ(Channels("front"), 0x1u);
    EXPECT_EQ(Channels("front,door 1-2,7"), 0x89u);
    EXPECT_EQ(Channels("door, rear"), 0x10u); // a name with a comma
    EXPECT_EQ(Channels("Tür"), 0x20u);
    EXPECT_EQ(Types("panic button"), 0x1u);
    EXPECT_EQ(Types("door"), 0x24u); // two bits have that name
    EXPECT_EQ(Types("door,0x2"), 0x26u);
}

TEST_F(TypedSets, NumbersAreNumbersWhateverIsCalledSo) {
    Name(R"({"channels": {"5": "1"}, "event_types": {"0x4": "0x1"}})");
    EXPECT_EQ(Channels("1"), 0x2u);
    EXPECT_EQ(Types("0x1"), 0x1u);
}

TEST_F(TypedSets, OthersAreRefused) {
    Name(R"({"channels": {"0": "front"}, "event_types": {"0x4": "door"}})");
    for (const char* const text : {"", "rear", "front,", ",front", "front rear", "1,,2", "32", "Front"}) {
        EXPECT_THROW(Channels(text), WrongUse) << text;
    }
    for (const char* const text : {"0", "window", "door,", "0x", "0xg", "18446744073709551616", "-1"}) {
        EXPECT_THROW(Types(text), WrongUse) << text;
    }
    try {
        Types("window");
        FAIL();
    } catch (const WrongUse& wrong) {
        EXPECT_STREQ(wrong.what(),
                     "--event: 'window' is not a set of event types; give a mask like 0x5, names of "
                     "the names file, or all");
    }
}

} // namespace
