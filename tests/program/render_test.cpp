#include "render/renderer.h"

#include <gtest/gtest.h>

#include "render/amounts.h"
#include "render/printable.h"

namespace {

using namespace diskaccess;

std::string Rendered(const Report& report, Format format, const char* zoneName = "UTC") {
    const TimeZone zone(zoneName);
    std::string text;
    const auto renderer = MakeRenderer(format, zone, [&text](const std::string& piece) { text += piece; });
    renderer->Begin("list", "disk.img");
    Show(*renderer, report);
    renderer->End();
    return text;
}

Table SampleTable() {
    return {"records",
            {{"channel", "CHANNEL"},
             {"start", "START"},
             {"length_seconds", "LENGTH"},
             {"flag", ""},
             {"note", "NOTE"}},
            {{uint64_t{0}, Time{1795185005}, Duration{65}, true, std::string("a,b")},
             {uint64_t{12}, Time{1795185105}, Nothing{}, false, std::string("say \"x\"")}}};
}

Report Sample() {
    return {
        {SampleTable(), Facts{{"count", "Records", uint64_t{2}}, {"hidden", "", true}}, Prose{"A line.\n"}}};
}

TEST(Rendering, Text) {
    EXPECT_EQ(Rendered(Sample(), Format::Text), "CHANNEL  START                LENGTH  NOTE\n"
                                                "      0  2026-11-20 14:30:05    1:05  a,b\n"
                                                "     12  2026-11-20 14:31:45       -  say \"x\"\n"
                                                "\n"
                                                "Records  2\n"
                                                "\n"
                                                "A line.\n");
}

TEST(Rendering, TextOfFactsAlone) {
    const Report report = {
        {Facts{{"a", "Total", Bytes{3}}, {"b", "Much longer", false}, {"c", "Mask", Mask{0x10}}}}};
    EXPECT_EQ(Rendered(report, Format::Text), "Total        3 B\nMuch longer  no\nMask         0x10\n");
}

TEST(Rendering, PartsStandInTheirOrder) {
    const Facts facts = {{"count", "Count", uint64_t{1}}};
    const Table table = {"rows", {{"row", "ROW"}}, {{uint64_t{7}}}};
    EXPECT_EQ(Rendered({{facts, table}}, Format::Text), "Count  1\n\nROW\n  7\n");
    EXPECT_EQ(Rendered({{table, facts}}, Format::Text), "ROW\n  7\n\nCount  1\n");
    const std::string header =
        "{\n  \"schema_version\": 1,\n  \"command\": \"list\",\n  \"partition\": \"disk.img\",\n";
    EXPECT_EQ(Rendered({{facts, table}}, Format::Json),
              header + "  \"count\": 1,\n  \"rows\": [\n    {\"row\":7}\n  ]\n}\n");
    EXPECT_EQ(Rendered({{table, facts}}, Format::Json),
              header + "  \"rows\": [\n    {\"row\":7}\n  ],\n  \"count\": 1\n}\n");
}

TEST(Rendering, TextLeavesOutWhatIsEmpty) {
    const Table empty = {"rows", {{"row", "ROW"}}, {}};
    const Table forMachines = {"days", {{"date", ""}}, {{Date{20777}}}};
    EXPECT_EQ(
        Rendered({{Prose{""}, empty, forMachines, Facts{{"count", "Count", uint64_t{0}}}}}, Format::Text),
        "Count  0\n");
}

TEST(Rendering, ColumnsAreForPeopleOrForMachinesOrForBoth) {
    const Report report = {
        {Table{"rows",
               {{"row", "ROW"}, {"closed", ""}, {"", "NOTE"}},
               {{uint64_t{7}, true, std::string()}, {uint64_t{8}, false, std::string("open")}}}}};
    EXPECT_EQ(Rendered(report, Format::Text), "ROW  NOTE\n  7\n  8  open\n");
    EXPECT_EQ(Rendered(report, Format::Ndjson),
              "{\"row\":7,\"closed\":true}\n{\"row\":8,\"closed\":false}\n");
    EXPECT_EQ(Rendered(report, Format::Csv), "row,closed\r\n7,true\r\n8,false\r\n");
}

TEST(Rendering, TextMeasuresTheFirstThousandRows) {
    Table table = {"rows", {{"row", "ROW"}, {"name", "NAME"}}, {}};
    table.rows.assign(999, {uint64_t{1}, std::string("a")});
    table.rows.push_back({uint64_t{12345}, std::string("b")});
    table.rows.push_back({uint64_t{1234567}, std::string("c")});
    const std::string text = Rendered({{table}}, Format::Text);
    EXPECT_EQ(text.substr(0, 24), "  ROW  NAME\n    1  a\n   ");
    EXPECT_EQ(text.substr(text.size() - 20), "12345  b\n1234567  c\n");
}

TEST(Rendering, TextOfALiveTableIsMeasuredByItsFirstRow) {
    const TimeZone zone("UTC");
    std::string text;
    const auto renderer =
        MakeRenderer(Format::Text, zone, [&text](const std::string& piece) { text += piece; });
    renderer->BeginTable({"rows", {{"row", "ROW", 5}, {"name", "NAME"}}, {}, true});
    renderer->ShowRow({uint64_t{1}, std::string("first")});
    EXPECT_EQ(text, "  ROW  NAME\n    1  first\n");
    renderer->ShowRow({uint64_t{123456}, std::string("second")});
    EXPECT_EQ(text, "  ROW  NAME\n    1  first\n123456  second\n");
}

TEST(Rendering, Json) {
    EXPECT_EQ(Rendered(Sample(), Format::Json, "Europe/Berlin"), R"({
  "schema_version": 1,
  "command": "list",
  "partition": "disk.img",
  "records": [
    {"channel":0,"start":"2026-11-20T15:30:05+01:00","length_seconds":65,"flag":true,"note":"a,b"},
    {"channel":12,"start":"2026-11-20T15:31:45+01:00","length_seconds":null,"flag":false,"note":"say \"x\""}
  ],
  "count": 2,
  "hidden": true
}
)");
}

TEST(Rendering, JsonOfAnEmptyTable) {
    EXPECT_EQ(Rendered({{Table{"rows", {{"row", "ROW"}}, {}}}}, Format::Json), R"({
  "schema_version": 1,
  "command": "list",
  "partition": "disk.img",
  "rows": []
}
)");
}

TEST(Rendering, Ndjson) {
    EXPECT_EQ(Rendered(Sample(), Format::Ndjson),
              "{\"channel\":0,\"start\":\"2026-11-20T14:30:05Z\",\"length_seconds\":65,\"flag\":true,"
              "\"note\":\"a,b\"}\n"
              "{\"channel\":12,\"start\":\"2026-11-20T14:31:45Z\",\"length_seconds\":null,\"flag\":false,"
              "\"note\":\"say \\\"x\\\"\"}\n");
}

TEST(Rendering, Csv) {
    EXPECT_EQ(Rendered(Sample(), Format::Csv), "channel,start,length_seconds,flag,note\r\n"
                                               "0,2026-11-20T14:30:05Z,65,true,\"a,b\"\r\n"
                                               "12,2026-11-20T14:31:45Z,,false,\"say \"\"x\"\"\"\r\n");
}

/// Spreadsheets take a cell that begins with one of these for a formula, and run it.
TEST(Rendering, CsvHasNoCellsThatASpreadsheetWouldRun) {
    const auto cell = [](const std::string& text) {
        const std::string csv = Rendered({{Facts{{"a", "A", text}}}}, Format::Csv);
        return csv.substr(3, csv.size() - 5); // without the header and the line's end
    };
    EXPECT_EQ(cell("=1+1"), "'=1+1");
    EXPECT_EQ(cell("+1"), "'+1");
    EXPECT_EQ(cell("-1"), "'-1");
    EXPECT_EQ(cell("@SUM(A1)"), "'@SUM(A1)");
    EXPECT_EQ(cell("\tx"), "\"'\tx\"");
    EXPECT_EQ(cell("\rx"), "\"'\rx\"");
    EXPECT_EQ(cell("=HYPERLINK(\"a\",\"b\")"), "\"'=HYPERLINK(\"\"a\"\",\"\"b\"\")\"");
    // Another apostrophe before one that was there, so that one can always be taken away.
    EXPECT_EQ(cell("'=1"), "''=1");
    // Elsewhere they do no harm; where cells are divided by semicolons, neither do these.
    EXPECT_EQ(cell("a=1"), "a=1");
    EXPECT_EQ(cell("bus;=1"), "\"bus;=1\"");
    EXPECT_EQ(cell(""), "");
    // A time stamp that a damaged disk makes up.
    const std::string ancient = Rendered({{Facts{{"a", "A", Instant{-99999999999999999}}}}}, Format::Csv);
    EXPECT_EQ(ancient.substr(3, 2), "'-") << ancient;
}

TEST(Rendering, CsvAndNdjsonShowTheFirstPartAlone) {
    const Facts facts = {
        {"total", "Total", Bytes{3}}, {"set", "Set", ChannelSet{0x0D}}, {"day", "Day", Date{20777}}};
    const Report factsFirst = {{Prose{"Some days.\n"}, facts, SampleTable()}};
    EXPECT_EQ(Rendered(factsFirst, Format::Csv), "total,set,day\r\n3,\"0,2-3\",2026-11-20\r\n");
    EXPECT_EQ(Rendered(factsFirst, Format::Ndjson),
              "{\"schema_version\":1,\"command\":\"list\",\"partition\":\"disk.img\",\"total\":3,"
              "\"set\":[0,2,3],\"day\":\"2026-11-20\"}\n");
    const Report tables = {{Table{"rows", {{"row", "ROW"}}, {}}, SampleTable()}};
    EXPECT_EQ(Rendered(tables, Format::Csv), "row\r\n");
    EXPECT_EQ(Rendered(tables, Format::Ndjson), "");
}

TEST(Rendering, NumbersThatADoubleCannotHoldAreText) {
    const auto rendered = [](uint64_t number) {
        return Rendered({{Facts{{"mask", "Mask", Mask{number}}}}}, Format::Json);
    };
    EXPECT_NE(rendered(uint64_t{1} << 53).find("\"mask\": 9007199254740992\n"), std::string::npos);
    EXPECT_NE(rendered((uint64_t{1} << 53) + 1).find("\"mask\": \"9007199254740993\"\n"), std::string::npos);
    const Report mask = {{Facts{{"mask", "Mask", Mask{0x8000000000000001}}}}};
    EXPECT_NE(Rendered(mask, Format::Json).find("\"mask\": \"9223372036854775809\"\n"), std::string::npos);
    EXPECT_NE(rendered(0xFFFFFFFFFFFFFFFF).find("\"mask\": \"18446744073709551615\"\n"), std::string::npos);
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
    EXPECT_EQ(ChannelSetText({0}), "none");
    EXPECT_EQ(ChannelSetText({0x1}), "0");
    EXPECT_EQ(ChannelSetText({0x1D}), "0,2-4");
    EXPECT_EQ(ChannelSetText({0x80000001}), "0,31");
    EXPECT_EQ(ChannelSetText({0xFFFFFFFF}), "0-31");
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

std::string Utf8(uint32_t character) {
    if (character < 0x800) {
        return {static_cast<char>(0xC0 | character >> 6), static_cast<char>(0x80 | (character & 0x3F))};
    }
    return {static_cast<char>(0xE0 | character >> 12), static_cast<char>(0x80 | (character >> 6 & 0x3F)),
            static_cast<char>(0x80 | (character & 0x3F))};
}

/// Marks that have a terminal show text in another order than it has, and characters that end a line.
TEST(Rendering, MarksThatTurnOrBreakALineAreEscaped) {
    EXPECT_EQ(Printable("Bus \xe2\x80\xae"
                        "7"),
              "Bus \\xe2\\x80\\xae7");
    EXPECT_EQ(Printable("\xd8\x9c"), "\\xd8\\x9c");
    for (const uint32_t mark : {0x85u, 0x61Cu, 0x200Eu, 0x200Fu, 0x2028u, 0x2029u, 0x202Au, 0x202Bu, 0x202Cu,
                                0x202Du, 0x202Eu, 0x2066u, 0x2067u, 0x2068u, 0x2069u}) {
        EXPECT_EQ(Printable(Utf8(mark)).substr(0, 2), "\\x") << mark;
    }
    for (const uint32_t letter :
         {0xA0u, 0x61Bu, 0x61Du, 0x200Du, 0x2010u, 0x2027u, 0x202Fu, 0x2065u, 0x206Au}) {
        EXPECT_EQ(Printable(Utf8(letter)), Utf8(letter)) << letter;
    }
}

/// What is escaped must not be mistaken for text that looks like it.
TEST(Rendering, TheBackslashIsEscapedToo) {
    EXPECT_EQ(Printable("\\x1b"), "\\\\x1b");
    EXPECT_EQ(Printable("\x1b"), "\\x1b");
    EXPECT_EQ(Printable("C:\\"), "C:\\\\");
}

TEST(Rendering, FieldsNeedNotBeTerminated) {
    EXPECT_EQ(FieldText("abcdef", 3), "abc");
    EXPECT_EQ(FieldText("a\0b", 3), "a");
    EXPECT_EQ(FieldText("", 0), "");
}

} // namespace
