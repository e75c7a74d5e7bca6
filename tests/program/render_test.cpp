#include "render/render.h"

#include <gtest/gtest.h>

#include "render/report.h"

namespace {

using namespace diskaccess;

Report Sample() {
    Report report;
    report.command = "list";
    report.partition = "disk.img";
    report.facts = {{"count", "Records", uint64_t{2}}, {"hidden", "", true}};
    report.tables = {{"records",
                      {{"channel", "CHANNEL"},
                       {"start", "START"},
                       {"length_seconds", "LENGTH"},
                       {"flag", ""},
                       {"note", "NOTE"}},
                      {{uint64_t{0}, Time{1795185005}, Duration{65}, true, std::string("a,b")},
                       {uint64_t{12}, Time{1795185105}, Nothing{}, false, std::string("say \"x\"")}}}};
    report.lines = {"A line."};
    return report;
}

TEST(Rendering, Text) {
    EXPECT_EQ(Render(Sample(), Format::Text, TimeZone("UTC")),
              "CHANNEL  START                LENGTH  NOTE\n"
              "      0  2026-11-20 14:30:05    1:05  a,b\n"
              "     12  2026-11-20 14:31:45       -  say \"x\"\n"
              "\n"
              "Records  2\n"
              "\n"
              "A line.\n");
}

TEST(Rendering, TextOfFactsAlone) {
    Report report;
    report.command = "space";
    report.facts = {{"a", "Total", Bytes{3}}, {"b", "Much longer", false}, {"c", "Mask", Mask{0x10}}};
    EXPECT_EQ(Render(report, Format::Text, TimeZone("UTC")),
              "Total        3 B\nMuch longer  no\nMask         0x10\n");
}

TEST(Rendering, Json) {
    EXPECT_EQ(Render(Sample(), Format::Json, TimeZone("Europe/Berlin")), R"({
  "schema_version": 1,
  "command": "list",
  "partition": "disk.img",
  "count": 2,
  "hidden": true,
  "records": [
    {
      "channel": 0,
      "start": "2026-11-20T15:30:05+01:00",
      "length_seconds": 65,
      "flag": true,
      "note": "a,b"
    },
    {
      "channel": 12,
      "start": "2026-11-20T15:31:45+01:00",
      "length_seconds": null,
      "flag": false,
      "note": "say \"x\""
    }
  ]
}
)");
}

TEST(Rendering, Ndjson) {
    EXPECT_EQ(Render(Sample(), Format::Ndjson, TimeZone("UTC")),
              "{\"channel\":0,\"start\":\"2026-11-20T14:30:05Z\",\"length_seconds\":65,\"flag\":true,"
              "\"note\":\"a,b\"}\n"
              "{\"channel\":12,\"start\":\"2026-11-20T14:31:45Z\",\"length_seconds\":null,\"flag\":false,"
              "\"note\":\"say \\\"x\\\"\"}\n");
}

TEST(Rendering, Csv) {
    EXPECT_EQ(Render(Sample(), Format::Csv, TimeZone("UTC")),
              "channel,start,length_seconds,flag,note\r\n"
              "0,2026-11-20T14:30:05Z,65,true,\"a,b\"\r\n"
              "12,2026-11-20T14:31:45Z,,false,\"say \"\"x\"\"\"\r\n");
}

TEST(Rendering, CsvAndNdjsonOfFactsAlone) {
    Report report;
    report.command = "space";
    report.partition = "p";
    report.facts = {
        {"total", "Total", Bytes{3}}, {"set", "Set", ChannelSet{0x0D}}, {"day", "Day", Date{20777}}};
    EXPECT_EQ(Render(report, Format::Csv, TimeZone("UTC")), "total,set,day\r\n3,\"0,2-3\",2026-11-20\r\n");
    EXPECT_EQ(Render(report, Format::Ndjson, TimeZone("UTC")),
              "{\"schema_version\":1,\"command\":\"space\",\"partition\":\"p\",\"total\":3,\"set\":[0,2,3],"
              "\"day\":\"2026-11-20\"}\n");
}

TEST(Rendering, NumbersOfSixtyFourBits) {
    Report report;
    report.command = "space";
    report.facts = {{"mask", "Mask", Mask{0xFFFFFFFFFFFFFFFF}}};
    EXPECT_NE(Render(report, Format::Json, TimeZone("UTC")).find("18446744073709551615"), std::string::npos);
}

TEST(Rendering, Amounts) {
    EXPECT_EQ(BytesText(0), "0 B");
    EXPECT_EQ(BytesText(1023), "1023 B");
    EXPECT_EQ(BytesText(1024), "1.0 KiB");
    EXPECT_EQ(BytesText(1536), "1.5 KiB");
    EXPECT_EQ(BytesText(1048575), "1.0 MiB"); // not 1024.0 KiB
    EXPECT_EQ(BytesText(512ull << 30), "512.0 GiB");
    EXPECT_EQ(BytesText(0xFFFFFFFFFFFFFFFF), "16.0 EiB");
    EXPECT_EQ(DurationText(0), "0:00");
    EXPECT_EQ(DurationText(59), "0:59");
    EXPECT_EQ(DurationText(3599), "59:59");
    EXPECT_EQ(DurationText(3600), "1:00:00");
    EXPECT_EQ(DurationText(360000), "100:00:00");
}

TEST(Rendering, ChannelSets) {
    EXPECT_EQ(ChannelSetText(0), "none");
    EXPECT_EQ(ChannelSetText(0x1), "0");
    EXPECT_EQ(ChannelSetText(0x1D), "0,2-4");
    EXPECT_EQ(ChannelSetText(0x80000001), "0,31");
    EXPECT_EQ(ChannelSetText(0xFFFFFFFF), "0-31");
}

TEST(Rendering, TextFromADiskIsMadePrintable) {
    EXPECT_EQ(Printable("Bus 7"), "Bus 7");
    EXPECT_EQ(Printable("\x1b[31mred\x07\n"), "\\x1b[31mred\\x07\\x0a");
    EXPECT_EQ(Printable("\x7f"), "\\x7f");
    EXPECT_EQ(Printable("Z\xc3\xbcrich \xe2\x82\xac \xf0\x9f\x9a\x8c"),
              "Z\xc3\xbcrich \xe2\x82\xac \xf0\x9f\x9a\x8c");
    // Broken, overlong, surrogate, too large, cut short, and a control character in two bytes.
    EXPECT_EQ(Printable("\xff\x80"), "\\xff\\x80");
    EXPECT_EQ(Printable("\xc0\xaf"), "\\xc0\\xaf");
    EXPECT_EQ(Printable("\xe0\x80\xaf"), "\\xe0\\x80\\xaf");
    EXPECT_EQ(Printable("\xf0\x80\x80\xaf"), "\\xf0\\x80\\x80\\xaf");
    EXPECT_EQ(Printable("\xed\xa0\x80"), "\\xed\\xa0\\x80");
    EXPECT_EQ(Printable("\xf4\x90\x80\x80"), "\\xf4\\x90\\x80\\x80");
    EXPECT_EQ(Printable("\xe2\x82"), "\\xe2\\x82");
    EXPECT_EQ(Printable("\xc2\x85"), "\\xc2\\x85");
}

TEST(Rendering, FieldsNeedNotBeTerminated) {
    EXPECT_EQ(FieldText("abcdef", 3), "abc");
    EXPECT_EQ(FieldText("a\0b", 3), "a");
    EXPECT_EQ(FieldText("", 0), "");
}

} // namespace
