// SPDX-License-Identifier: Apache-2.0
#include "analyze/report_svg.h"

#include <chrono>
#include <sstream>
#include <string>

#include "gmock/gmock.h"

namespace bootweave {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr Instant kBegin{std::chrono::hours(24)};

/// A run of these plugins, each in microseconds from its start.
class ReportSvgTest : public testing::Test {
  protected:
    ReportSvgTest() {
        run_.path = "/log";
        run_.number = run_.count = 1;
        run_.block.start = kBegin;
        run_.block.kernel = std::chrono::seconds(12);
    }

    void Ran(const std::string& name, int from, int to) {
        run_.block.plugins.push_back({name, kBegin + Duration(from), kBegin + Duration(to)});
        graph_.plugins.emplace_back();
        graph_.plugins.back().kind = PluginKind::kJSON;
    }

    /// Barrier `name` between two plugins.
    void Meet(const std::string& name, std::size_t provider, std::size_t requirer) {
        graph_.plugins[provider].provided.push_back(graph_.barriers.size());
        graph_.plugins[requirer].required.push_back(graph_.barriers.size());
        graph_.barriers.push_back({name, {provider}, {requirer}});
    }

    std::string Draw(int end) {
        run_.block.end = kBegin + Duration(end);
        std::ostringstream out;
        WritePlotSvg(out, run_, graph_, LayOut(run_.block, graph_));
        return out.str();
    }

    static std::size_t Count(const std::string& text, const std::string& part) {
        std::size_t count = 0;
        for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
            ++count;
        }
        return count;
    }

    ChosenRun run_{};
    RunGraph graph_;
};

TEST_F(ReportSvgTest, TheHeadSaysWhatTheRunTook) {
    Ran("a", 0, 500'000);
    const std::string picture = Draw(2'000'000);
    EXPECT_THAT(picture, HasSubstr(">Boot of 1970-01-02 00:00:00.000000 UTC</text>"));
    EXPECT_THAT(picture,
                HasSubstr(">1 plugin in 2.000s, 0.25 at a time; the kernel handed over after 12.000s<"));
    for (const char* text : {">plugin<", ">critical chain: what the end waited for<",
                             ">barrier, when it was done<", ">Critical chain<"}) {
        EXPECT_THAT(picture, HasSubstr(text));
    }
    run_.block.kind = RunKind::kDaemon;
    run_.block.start.reset();
    EXPECT_THAT(Draw(2'000'000), HasSubstr(">Run of daemons</text>"));
}

TEST_F(ReportSvgTest, ABarLiesWhereItsPluginRanAndIsAsWideAsItTook) {
    Ran("storage", 250'000, 750'000);
    const std::string picture = Draw(1'000'000);
    EXPECT_THAT(picture,
                HasSubstr(R"(<rect class="critical" x="304.0" y="97.0" width="560.0" height="20.0"/>)"
                          "\n"
                          R"(<text class="inside" x="308.0" y="111.0">storage</text>)"));
    EXPECT_THAT(picture, HasSubstr("<g><title>storage\n500.000ms, from 250.000ms to 750.000ms\n"
                                   "json, critical chain\nrequires: -\nprovides: -</title>"));
}

TEST_F(ReportSvgTest, TheAxisHasRoundTimes) {
    Ran("a", 0, 2'500'000);
    const std::string seconds = Draw(2'500'000);
    EXPECT_THAT(seconds, HasSubstr(">0</text>"));
    EXPECT_THAT(seconds, HasSubstr(">500 ms</text>"));
    EXPECT_THAT(seconds, HasSubstr(">2.5 s</text>"));
    EXPECT_THAT(Draw(10'000'000), HasSubstr(">10 s</text>"));
    run_.block.plugins[0].end = kBegin + Duration(50);
    EXPECT_THAT(Draw(50), HasSubstr(">45 us</text>"));
}

TEST_F(ReportSvgTest, WhatIsNotOfTheChainIsAPlainBar) {
    Ran("a", 0, 900'000);
    Ran("b", 0, 100'000);
    EXPECT_THAT(Draw(1'000'000), HasSubstr(R"(<rect class="bar" x="24.0" y="119.0" width="112.0")"));
}

TEST_F(ReportSvgTest, ANameStandsInItsBarOrBehindItOrIsCutOrLeftOut) {
    Ran("wide", 0, 500'000);
    Ran("behind", 500'000, 510'000);
    Ran("a-name-that-is-cut", 700'000, 750'000);
    Ran("b", 750'000, 990'000);
    Ran("left-out", 990'000, 1'000'000);
    const std::string picture = Draw(1'000'000);
    EXPECT_THAT(picture, HasSubstr(R"(<text class="inside" x="28.0" y="111.0">wide</text>)"));
    EXPECT_THAT(picture, HasSubstr(R"(<text class="outside" x="599.2" y="111.0">behind</text>)"));
    EXPECT_THAT(picture, HasSubstr(">a-name\xE2\x80\xA6</text>"));
    EXPECT_EQ(0U, Count(picture, R"(y="111.0">left)"));
}

TEST_F(ReportSvgTest, ABarrierHasATickAndSaysWhoMetThere) {
    Ran("a", 0, 500'000);
    Ran("b", 500'000, 1'000'000);
    Meet("x", 0, 1);
    const std::string picture = Draw(1'000'000);
    EXPECT_THAT(picture, HasSubstr("<g><title>barrier x\ndone at 500.000ms\nprovided by: a\nrequired by: b"
                                   "</title>\n<line class=\"tick\" x1=\"584.0\""));
    EXPECT_THAT(picture, HasSubstr(">b  500.000ms, after x</text>"));
    EXPECT_EQ(2U, Count(picture, "class=\"thread\""));
}

TEST_F(ReportSvgTest, ALinkAtTheRightEdgeHasItsNameInFrontOfTheLineThatLeadsToIt) {
    Ran("a", 0, 500'000);
    Ran("b", 800'000, 1'000'000);
    Meet("x", 0, 1);
    EXPECT_THAT(Draw(1'000'000),
                HasSubstr(R"(<text class="before" x="580.0" y="252.0">b  200.000ms, after x</text>)"));
}

TEST_F(ReportSvgTest, AllOfASmallPictureIsThisText) {
    run_.block.kernel.reset();
    Ran("a", 0, 400);
    Ran("b", 500, 1000);
    Meet("x", 0, 1);
    EXPECT_EQ(
        R"(<svg xmlns="http://www.w3.org/2000/svg"
 width="1168.0" height="282.0" viewBox="0 0 1168.0 282.0"
 role="img" aria-label="Boot of 1970-01-02 00:00:00.000000 UTC, 2 plugins in 1.000ms, 0.90 at a time">
<style>
text{font-family:sans-serif;font-size:11px;fill:#1f2430}
.paper{fill:#ffffff}
.heading{font-size:16px;font-weight:bold}
.section{font-size:13px;font-weight:bold}
.quiet{fill:#5b6472}
.grid{stroke:#dfe3e8}
.bar{fill:#8fb8e3;stroke:#5d8fc4;stroke-width:.5}
.critical{fill:#ef8f4c;stroke:#a6480a;stroke-width:1.2}
.inside{fill:#10233b}
.before{text-anchor:end}
.tick{stroke:#5b6472;stroke-width:1.2}
.thread{stroke:#a6480a;stroke-dasharray:2 2}
.catch{fill:none;pointer-events:all}
g:hover rect.bar,g:hover rect.critical{stroke:#000000;stroke-width:2}
@media (prefers-color-scheme:dark){
text{fill:#e6e8eb}
.paper{fill:#16181d}
.quiet{fill:#a3acb8}
.grid{stroke:#30353e}
.bar{fill:#2f5f96;stroke:#6c9fd8}
.critical{fill:#a9500f;stroke:#f2a266}
.inside{fill:#f4f7fb}
.tick{stroke:#a3acb8}
.thread{stroke:#f2a266}
g:hover rect.bar,g:hover rect.critical{stroke:#ffffff}
}
</style>
<rect class="paper" x="0.0" y="0.0" width="1168.0" height="282.0"/>
<text class="heading" x="24.0" y="32.0">Boot of 1970-01-02 00:00:00.000000 UTC</text>
<text class="quiet" x="24.0" y="50.0">2 plugins in 1.000ms, 0.90 at a time</text>
<rect class="bar" x="24.0" y="59.0" width="10.0" height="10.0"/>
<text class="quiet" x="40.0" y="68.0">plugin</text>
<rect class="critical" x="94.0" y="59.0" width="10.0" height="10.0"/>
<text class="quiet" x="110.0" y="68.0">critical chain: what the end waited for</text>
<line class="tick" x1="334.0" y1="59.0" x2="334.0" y2="69.0"/>
<text class="quiet" x="342.0" y="68.0">barrier, when it was done</text>
<line class="grid" x1="24.0" y1="90.0" x2="24.0" y2="258.0"/>
<text class="quiet" x="24.0" y="86.0">0</text>
<line class="grid" x1="136.0" y1="90.0" x2="136.0" y2="258.0"/>
<text class="quiet" x="136.0" y="86.0">100 us</text>
<line class="grid" x1="248.0" y1="90.0" x2="248.0" y2="258.0"/>
<text class="quiet" x="248.0" y="86.0">200 us</text>
<line class="grid" x1="360.0" y1="90.0" x2="360.0" y2="258.0"/>
<text class="quiet" x="360.0" y="86.0">300 us</text>
<line class="grid" x1="472.0" y1="90.0" x2="472.0" y2="258.0"/>
<text class="quiet" x="472.0" y="86.0">400 us</text>
<line class="grid" x1="584.0" y1="90.0" x2="584.0" y2="258.0"/>
<text class="quiet" x="584.0" y="86.0">500 us</text>
<line class="grid" x1="696.0" y1="90.0" x2="696.0" y2="258.0"/>
<text class="quiet" x="696.0" y="86.0">600 us</text>
<line class="grid" x1="808.0" y1="90.0" x2="808.0" y2="258.0"/>
<text class="quiet" x="808.0" y="86.0">700 us</text>
<line class="grid" x1="920.0" y1="90.0" x2="920.0" y2="258.0"/>
<text class="quiet" x="920.0" y="86.0">800 us</text>
<line class="grid" x1="1032.0" y1="90.0" x2="1032.0" y2="258.0"/>
<text class="quiet" x="1032.0" y="86.0">900 us</text>
<line class="grid" x1="1144.0" y1="90.0" x2="1144.0" y2="258.0"/>
<text class="quiet before" x="1144.0" y="86.0">1 ms</text>
<g><title>a
400us, from 0us to 400us
json, critical chain
requires: -
provides: x</title>
<rect class="critical" x="24.0" y="97.0" width="448.0" height="20.0"/>
<text class="inside" x="28.0" y="111.0">a</text>
</g>
<g><title>b
500us, from 500us to 1.000ms
json, critical chain
requires: x
provides: -</title>
<rect class="critical" x="584.0" y="97.0" width="560.0" height="20.0"/>
<text class="inside" x="588.0" y="111.0">b</text>
</g>
<g><title>barrier x
done at 400us
provided by: a
required by: b</title>
<line class="tick" x1="472.0" y1="126.0" x2="472.0" y2="136.0"/>
<rect class="catch" x="469.5" y="126.0" width="5.0" height="10.0"/>
<text class="quiet" x="472.0" y="148.0">x</text>
</g>
<text class="section" x="24.0" y="208.0">Critical chain</text>
<g><title>a  400us</title>
<rect class="critical" x="24.0" y="220.0" width="448.0" height="16.0"/>
<text class="outside" x="476.0" y="232.0">a  400us</text>
</g>
<line class="thread" x1="472.0" y1="234.0" x2="472.0" y2="248.0"/>
<line class="thread" x1="472.0" y1="248.0" x2="584.0" y2="248.0"/>
<g><title>b  500us, after x</title>
<rect class="critical" x="584.0" y="240.0" width="560.0" height="16.0"/>
<text class="before" x="468.0" y="252.0">b  500us, after x</text>
</g>
</svg>
)",
        Draw(1000));
}

TEST_F(ReportSvgTest, OfManyNamesATooltipHasTheFirst) {
    Ran("a", 0, 500'000);
    for (int index = 0; index < 10; ++index) {
        Ran("p" + std::to_string(index), 500'000, 600'000);
    }
    Meet("x", 0, 1);
    for (std::size_t index = 2; index <= 10; ++index) {
        graph_.barriers[0].requirers.push_back(index);
    }
    EXPECT_THAT(Draw(1'000'000), HasSubstr("required by: p0, p1, p2, p3, p4, p5, p6, p7 and 2 more</title>"));
}

TEST_F(ReportSvgTest, ALongChainShowsItsLongestLinks) {
    for (int index = 0; index < 50; ++index) {
        Ran("p" + std::to_string(index), index * 1000, (index + 1) * 1000 - (index < 10 ? 500 : 0));
    }
    for (std::size_t index = 1; index < 50; ++index) {
        Meet("x" + std::to_string(index), index - 1, index);
    }
    const std::string picture = Draw(50'000);
    EXPECT_THAT(picture, HasSubstr(">Critical chain: the 40 longest of 50 plugins</text>"));
    EXPECT_THAT(picture, HasSubstr("p10  1.000ms"));
    EXPECT_THAT(picture, Not(HasSubstr("p9  500us")));
}

TEST_F(ReportSvgTest, AHostileNameIsText) {
    Ran("</text><script>\"&\xFF", 0, 500'000);
    Ran("b", 500'000, 1'000'000);
    Meet("<x>", 0, 1);
    const std::string picture = Draw(1'000'000);
    EXPECT_THAT(picture, HasSubstr(">&lt;/text&gt;&lt;script&gt;&quot;&amp;\xEF\xBF\xBD</text>"));
    EXPECT_THAT(picture, HasSubstr(">&lt;x&gt;</text>"));
    EXPECT_THAT(picture, Not(HasSubstr("<script>")));
    EXPECT_THAT(picture, Not(HasSubstr("<x>")));
}

TEST_F(ReportSvgTest, ManyLanesAreThinAndManyBarsMakeItWide) {
    for (int index = 0; index < 200; ++index) {
        Ran("p", index, 1'000'000);
    }
    EXPECT_THAT(Draw(1'000'000), HasSubstr("height=\"4.0\"/>\n</g>"));
    run_.block.plugins.clear();
    graph_ = {};
    for (int index = 0; index < 1000; ++index) {
        Ran("p", index * 10, index * 10 + 10);
    }
    EXPECT_THAT(Draw(10'000), HasSubstr("width=\"6048.0\""));
}

}  // namespace
}  // namespace bootweave
