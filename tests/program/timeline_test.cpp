// The timeline: in a terminal to the letter, as a picture, and as a page that is opened in a browser.

#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <regex>

#include "render/timeline/html.h"
#include "render/timeline/svg.h"
#include "render/timeline/text.h"
#include "support/run_program.h"
#include "support/temp_dir.h"

namespace {

using namespace test_support;
using namespace diskaccess;
using recordings::Coverage;
using recordings::CoverageMaker;

constexpr uint32_t kBase = 1795183200; // 2026-11-20 14:00:00 UTC
/// What a name on a disk may try.
const std::string kHostile =
    "</script><script>document.title='taken'</script><img src=x onerror=alert(1)>&amp;\"'";

recordings::Record At(uint32_t channel, uint32_t from, uint32_t to) {
    recordings::Record record;
    record.channel = channel;
    record.start = kBase + from;
    record.end = kBase + to;
    record.bytes = 1024;
    return record;
}

/// Forty seconds of two channels: of channel 3 seconds 5 to 14, and 30 to 39. An event at second 20, and a loss from second
/// 36 on.
Coverage Sample() {
    CoverageMaker maker({});
    maker.Add(At(0, 0, 39));
    maker.Add(At(3, 5, 14));
    maker.Add(At(3, 30, 39));
    recordings::Event event;
    event.time = kBase + 20;
    event.micros = int64_t{event.time} * 1000000;
    event.type = 4;
    maker.Add(event, 2, 5);
    recordings::Problem problem;
    problem.kind = recordings::ProblemKind::FramesMissing;
    problem.channel = 3;
    problem.count = 2;
    maker.Add(problem, {kBase + 36, kBase + 37});
    return maker.Make();
}

timeline::Labels LabelsWith(const std::string& name) {
    timeline::Labels labels;
    labels.title = name;
    labels.time = [](uint32_t second) {
        const uint32_t of = second - kBase;
        return "2026-11-20 14:0" + std::to_string(of / 60) + (of % 60 < 10 ? ":0" : ":") +
               std::to_string(of % 60);
    };
    labels.shift = [](uint32_t) { return 0; };
    labels.channel = [name](uint32_t channel) { return channel == 3 ? name : std::to_string(channel); };
    labels.eventTypes = [name](uint64_t) { return name; };
    labels.problem = [name](const recordings::Problem&) { return name; };
    return labels;
}

timeline::TextStyle Style(size_t width, bool unicode, bool colour = false) {
    timeline::TextStyle style;
    style.width = width;
    style.unicode = unicode;
    style.colour = colour;
    return style;
}

TEST(TimelineText, IsDrawnInEighths) {
    // A label of six characters and a blank leave 16 cells of two and a half seconds. Of channel 3, seconds 5 to 14 are the
    // cells 2 to 5; seconds 30 to 39 the cells 12 to 15.
    EXPECT_EQ(timeline::Text(Sample(), LabelsWith("rear"), Style(23, true)),
              "Journey 1: 2026-11-20 14:00:00 to 2026-11-20 14:00:39, 0:39, 3.0 KiB, 1 alarm, 1 loss\n"
              "       14:00\n"
              "0      ████████████████\n"
              "rear     ████······████\n"
              "alarms        ▒▒▒▒\n"
              "events         ▲\n"
              "damage               ✖\n");
    EXPECT_EQ(timeline::Text(Sample(), LabelsWith("rear"), Style(23, false)),
              "Journey 1: 2026-11-20 14:00:00 to 2026-11-20 14:00:39, 0:39, 3.0 KiB, 1 alarm, 1 loss\n"
              "       14:00\n"
              "0      ################\n"
              "rear     ####::::::####\n"
              "alarms        ~~~~\n"
              "events         ^\n"
              "damage               X\n");
}

TEST(TimelineText, AlmostFullIsNotFull) {
    CoverageMaker maker({});
    maker.Add(At(0, 0, 98)); // of 100 seconds all but one, in cells of ten
    maker.Add(At(1, 0, 99));
    maker.Add(At(2, 50, 50)); // and one second
    const std::string text = timeline::Text(maker.Make(), LabelsWith(""), Style(17, true));
    EXPECT_NE(text.find("0      █████████▇\n1      ██████████\n2           ▁\n"), std::string::npos) << text;
}

TEST(TimelineText, AxesAreMarkedAtRoundTimes) {
    EXPECT_EQ(timeline::AxisStep(40, 4), 15u);
    EXPECT_EQ(timeline::AxisStep(86400, 8), 21600u); // every three hours, there would be a ninth mark
    EXPECT_EQ(timeline::AxisStep(0xFFFFFFFF, 1), 31536000u);
    timeline::Labels labels = LabelsWith("");
    EXPECT_EQ(timeline::FirstMark(labels, kBase + 1, 15), kBase + 15);
    EXPECT_EQ(timeline::FirstMark(labels, kBase, 15), kBase);
    labels.shift = [](uint32_t) { return -int64_t{7}; };
    EXPECT_EQ(timeline::FirstMark(labels, kBase, 15), kBase + 7);
}

TEST(TimelineText, ColoursAreForTerminals) {
    const std::string plain = timeline::Text(Sample(), LabelsWith("rear"), Style(60, true));
    const std::string coloured = timeline::Text(Sample(), LabelsWith("rear"), Style(60, true, true));
    EXPECT_EQ(plain.find('\x1b'), std::string::npos);
    EXPECT_NE(coloured.find("\x1b[32m█"), std::string::npos);
    EXPECT_EQ(std::regex_replace(coloured, std::regex("\x1b\\[[0-9]+m"), ""), plain);
}

TEST(TimelineText, LongNamesAreCut) {
    const std::string text = timeline::Text(Sample(), LabelsWith("über alle Maßen lang"), Style(40, true));
    EXPECT_NE(text.find("\nüber alle Maßen    "), std::string::npos) << text;
}

TEST(TimelineText, ANarrowTerminalGetsTenCells) {
    EXPECT_NE(timeline::Text(Sample(), LabelsWith("a"), Style(0, false)).find("0      ##########\n"),
              std::string::npos);
}

TEST(TimelineSvg, HoldsTextAsText) {
    const std::string svg = timeline::Svg(Sample(), LabelsWith(kHostile));
    EXPECT_EQ(svg.find("<script"), std::string::npos);
    EXPECT_EQ(svg.find("<img"), std::string::npos);
    EXPECT_NE(svg.find("&lt;img src=x onerror=alert(1)&gt;&amp;amp;&quot;&#39;"), std::string::npos);
    EXPECT_NE(svg.find("class=\"loss\""), std::string::npos);
    EXPECT_NE(svg.find("class=\"alarm\""), std::string::npos);
}

TEST(TimelineSvg, HoldsNoMoreThanItsPixels) {
    CoverageMaker maker({});
    for (uint32_t segment = 0; segment < 100000; ++segment) {
        maker.Add(At(0, segment * 3, segment * 3));
    }
    EXPECT_LT(timeline::Svg(maker.Make(), LabelsWith("x")).size(), 400000u);
}

TEST(TimelineHtml, HoldsTextAsDataAlone) {
    const std::string html = timeline::Html(Sample(), LabelsWith(kHostile));
    EXPECT_EQ(html.find("<img"), std::string::npos);
    EXPECT_EQ(html.find("document.title='taken'</script>"), std::string::npos);
    const std::regex scripts("<script");
    EXPECT_EQ(std::distance(std::sregex_iterator(html.begin(), html.end(), scripts), std::sregex_iterator()),
              2);
    EXPECT_NE(html.find("content=\"default-src 'none'; script-src 'sha256-"), std::string::npos);
    EXPECT_EQ(html.find("unsafe"), std::string::npos);
    EXPECT_EQ(html.find("http"), html.find("http-equiv")); // nothing is loaded from anywhere
    EXPECT_EQ(html.find("http", html.find("http-equiv") + 1), std::string::npos);
}

/// The page in a browser.
class TimelinePage : public ::testing::Test {
protected:
    void SetUp() override {
        if (access("/usr/bin/chromium", X_OK) != 0) {
            GTEST_SKIP() << "no /usr/bin/chromium here (package chromium)";
        }
    }

    /// The document after its script has run.
    std::string Opened(const std::string& html) {
        std::ofstream(m_dir.File("page.html")) << html;
        return RunProgram({"timeout", "60", "/usr/bin/chromium", "--headless", "--no-sandbox",
                           "--disable-gpu", "--user-data-dir=" + m_dir.File("profile"),
                           "--virtual-time-budget=2000", "--dump-dom", "file://" + m_dir.File("page.html")})
            .out;
    }

private:
    TempDir m_dir;
};

TEST_F(TimelinePage, ShowsTheJourneysAndNoMarkupOfTheDisk) {
    const std::string shown = Opened(timeline::Html(Sample(), LabelsWith(kHostile)));
    // The script ran: the policy names it rightly, and it drew the strip.
    EXPECT_NE(shown.find("2026-11-20 14:00:00 to 2026-11-20 14:00:39</span>"), std::string::npos) << shown;
    EXPECT_NE(shown.find("<h1 id=\"title\">&lt;/script&gt;&lt;script&gt;"), std::string::npos);
    EXPECT_EQ(shown.find("<img"), std::string::npos);
    EXPECT_EQ(shown.find("<title>taken"), std::string::npos);
    EXPECT_NE(shown.find("<td>loss</td>"), std::string::npos);
}

TEST_F(TimelinePage, RunsNoScriptButItsOwn) {
    std::string html = timeline::Html(Sample(), LabelsWith("disk"));
    html.replace(html.find("</body>"), 7, "<script>document.title='taken'</script></body>");
    const std::string shown = Opened(html);
    EXPECT_NE(shown.find("<title>disk</title>"), std::string::npos) << shown;
}

TEST_F(TimelinePage, TakesALargeDisk) {
    CoverageMaker maker({});
    for (uint32_t segment = 0; segment < 10000; ++segment) {
        for (uint32_t channel = 0; channel < 32; ++channel) {
            maker.Add(At(channel, segment * 60 + channel, segment * 60 + 50));
        }
    }
    timeline::Labels labels = LabelsWith("disk");
    labels.time = [](uint32_t second) { return "second " + std::to_string(second) + " of it all"; };
    EXPECT_NE(Opened(timeline::Html(maker.Make(), labels)).find("</span>"), std::string::npos);
}

} // namespace
