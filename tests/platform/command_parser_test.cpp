// SPDX-License-Identifier: Apache-2.0
#include <list>
#include <string>
#include <utility>
#include <vector>

#include "gmock/gmock.h"

#include "platform/cmdgen.h"

namespace {

using Plinth::Cmdgen::OptionParser;
using testing::ElementsAre;
using testing::IsEmpty;

using Path = std::list<std::string>;
using Parameters = OptionParser::Parameters;
using Errors = std::list<std::string>;

struct Good {
    std::string line;
    Path path;
    Parameters parameters;
};

struct Bad {
    std::string line;
    Errors errors;
};

void ExpectParses(const std::vector<Good>& table) {
    for (const Good& row : table) {
        SCOPED_TRACE("line: " + row.line);
        OptionParser parser;
        EXPECT_TRUE(parser.ParseString(row.line));
        EXPECT_EQ(row.path, parser.GetCommandPath());
        EXPECT_EQ(row.parameters, parser.GetCommandParameters());
        EXPECT_THAT(parser.GetParseErrors(), IsEmpty());
    }
}

void ExpectFails(const std::vector<Bad>& table) {
    for (const Bad& row : table) {
        SCOPED_TRACE("line: " + row.line);
        OptionParser parser;
        EXPECT_FALSE(parser.ParseString(row.line));
        EXPECT_EQ(row.errors, parser.GetParseErrors());
        EXPECT_THAT(parser.GetCommandPath(), IsEmpty());
        EXPECT_THAT(parser.GetCommandParameters(), IsEmpty());
    }
}

TEST(CommandParserTest, PathWordsComeBeforeOptionsInEachOfTheirForms) {
    ExpectParses({
        {"net ip set --name=eth0 --mtu 9000", {"net", "ip", "set"}, {{"name", "eth0"}, {"mtu", "9000"}}},
        {"disk scan --all --type ssd -f",
         {"disk", "scan"},
         {{"all", "true"}, {"type", "ssd"}, {"f", "true"}}},
        {"log mark --text \"two words\" --x=", {"log", "mark"}, {{"text", "two words"}, {"x", ""}}},
        {"log mark --text '-5'", {"log", "mark"}, {{"text", "-5"}}},
        {"a --k=1 --k=2", {"a"}, {{"k", "1"}, {"k", "2"}}},
        {"a -n=v -m v", {"a"}, {{"n", "v"}, {"m", "v"}}},
        {"a", {"a"}, {}},
        {"A_1-b 2 _ c-", {"A_1-b", "2", "_", "c-"}, {}},
    });
}

TEST(CommandParserTest, LongNamesStartWithALetterAndMayBeOneLetterLong) {
    ExpectParses({
        {"a --x", {"a"}, {{"x", "true"}}},
        {"a --Max_mtu-2=9", {"a"}, {{"Max_mtu-2", "9"}}},
        {"a --x- 1", {"a"}, {{"x-", "1"}}},
    });
}

TEST(CommandParserTest, WordsAreSeparatedByAnyNumberOfBlanksAndTabsAndByNothingElse) {
    ExpectParses({
        {"  net\t ip\t--a \t 1  ", {"net", "ip"}, {{"a", "1"}}},
        {"a --x=1\n --y 2\r", {"a"}, {{"x", "1\n"}, {"y", "2\r"}}},
    });
}

TEST(CommandParserTest, AValueMayBeEmpty) {
    ExpectParses({
        {"a --name=", {"a"}, {{"name", ""}}},
        {"a -n=", {"a"}, {{"n", ""}}},
        {"a --name ''", {"a"}, {{"name", ""}}},
        {"a --name \"\" --b", {"a"}, {{"name", ""}, {"b", "true"}}},
        {"a --name=''", {"a"}, {{"name", ""}}},
    });
}

TEST(CommandParserTest, AValueGoesFromTheFirstEqualsSignToTheEndOfTheWord) {
    ExpectParses({
        {"a --x=b=c", {"a"}, {{"x", "b=c"}}},
        {"a --x==", {"a"}, {{"x", "="}}},
        {"a --x =1", {"a"}, {{"x", "=1"}}},
        {"a --x=-5 -n=--y", {"a"}, {{"x", "-5"}, {"n", "--y"}}},
    });
}

TEST(CommandParserTest, QuotesMayStandAnywhereInAWord) {
    ExpectParses({
        {"a --name=va\"l ue\"", {"a"}, {{"name", "val ue"}}},
        {"a --na'me'=\"v\"", {"a"}, {{"name", "v"}}},
        {"n\"e\"t 'i'p\"\"", {"net", "ip"}, {}},
    });
}

TEST(CommandParserTest, SingleQuotesKeepEverything) {
    ExpectParses({
        {R"(a --x '\ \\ \" "b" \')", {"a"}, {{"x", R"(\ \\ \" "b" \)"}}},
        {"a --x 'b\tc'", {"a"}, {{"x", "b\tc"}}},
    });
}

TEST(CommandParserTest, DoubleQuotesKeepEverythingButAnEscapedQuoteOrBackslash) {
    ExpectParses({
        {R"(a --x "say \"hi\" \\ 'b' \n \' \ ")", {"a"}, {{"x", R"(say "hi" \ 'b' \n \' \ )"}}},
        {R"(a --x "b\\")", {"a"}, {{"x", R"(b\)"}}},
    });
}

TEST(CommandParserTest, OutsideQuotesABackslashKeepsTheNextCharacter) {
    ExpectParses({
        {R"(a --x b\ c)", {"a"}, {{"x", "b c"}}},
        {R"(a --x \\\"\'\n)", {"a"}, {{"x", R"(\"'n)"}}},
        {R"(n\et i'p')", {"net", "ip"}, {}},
    });
}

TEST(CommandParserTest, AWordIsAnOptionOnlyWhenItsDashIsNeitherQuotedNorEscaped) {
    ExpectParses({
        {R"(a --x \-5)", {"a"}, {{"x", "-5"}}},
        {R"(a --x "-y" --z '--w=1')", {"a"}, {{"x", "-y"}, {"z", "--w=1"}}},
        {R"(a --x '-'-y)", {"a"}, {{"x", "--y"}}},
        {R"(a -'-x' 1)", {"a"}, {{"x", "1"}}},
        {R"(a --x ''-y)", {"a"}, {{"x", "true"}, {"y", "true"}}},
    });
}

TEST(CommandParserTest, BytesBeyondAsciiAndNulBytesAreOrdinaryInValues) {
    const std::string nul("a --x=b\0c", 9);
    ExpectParses({
        {"a --x=\xC3\xA4 --y \xFF\xFE", {"a"}, {{"x", "\xC3\xA4"}, {"y", "\xFF\xFE"}}},
        {nul, {"a"}, {{"x", std::string("b\0c", 3)}}},
    });
}

TEST(CommandParserTest, ALineWithoutAWordBeforeTheFirstOptionIsAnEmptyCommand) {
    ExpectFails({
        {"", {"empty command"}},
        {" ", {"empty command"}},
        {" \t ", {"empty command"}},
        {"--x=1", {"empty command"}},
        {"-", {"empty command"}},
        {"--1x y", {"empty command"}},
    });
}

TEST(CommandParserTest, ALineThatCannotBeSplitHasThatErrorAlone) {
    ExpectFails({
        {"a \"b", {"unterminated quote"}},
        {"a 'b", {"unterminated quote"}},
        {"a '", {"unterminated quote"}},
        {R"(a "b\")", {"unterminated quote"}},
        {R"(a "b\)", {"unterminated quote"}},
        {R"(a 'b\)", {"unterminated quote"}},
        {R"(a b\)", {"trailing backslash"}},
        {R"(\)", {"trailing backslash"}},
        {R"(a b/c --1x y \)", {"trailing backslash"}},
        {"--x=1 \"", {"unterminated quote"}},
    });
}

TEST(CommandParserTest, CommandWordsHoldNothingButAsciiLettersDigitsUnderscoreAndDash) {
    ExpectFails({
        {"a b/c", {"invalid command word 'b/c'"}},
        {"a.b", {"invalid command word 'a.b'"}},
        {"..", {"invalid command word '..'"}},
        {"''", {"invalid command word ''"}},
        {"a \"\" b", {"invalid command word ''"}},
        {"'a b'", {"invalid command word 'a b'"}},
        {R"(a\ b)", {"invalid command word 'a b'"}},
        {"a=b", {"invalid command word 'a=b'"}},
        {"\xC3\xA4", {"invalid command word '\xC3\xA4'"}},
        {"a\n", {"invalid command word 'a\n'"}},
        {std::string("a\0b", 3), {std::string("invalid command word 'a\0b'", 26)}},
    });
}

TEST(CommandParserTest, AQuotedOrEscapedDashDoesNotStartACommandWord) {
    ExpectFails({
        {"'-x'", {"invalid command word '-x'"}},
        {R"(a \-x --y=1)", {"invalid command word '-x'"}},
    });
}

TEST(CommandParserTest, OptionNamesThatAreNoneAreReportedAsTheWholeWord) {
    ExpectFails({
        {"a --1x", {"invalid option '--1x'"}},
        {"a -abc", {"invalid option '-abc'"}},
        {"a -abc=1", {"invalid option '-abc=1'"}},
        {"a -1", {"invalid option '-1'"}},
        {"a -", {"invalid option '-'"}},
        {"a --", {"invalid option '--'"}},
        {"a --=x", {"invalid option '--=x'"}},
        {"a -=x", {"invalid option '-=x'"}},
        {"a ---x", {"invalid option '---x'"}},
        {"a --_x", {"invalid option '--_x'"}},
        {"a --x.y=1", {"invalid option '--x.y=1'"}},
        {"a --\"n m\"=1", {"invalid option '--n m=1'"}},
        {"a --\xC3\xA4", {"invalid option '--\xC3\xA4'"}},
        {"a -\xC3\xA4", {"invalid option '-\xC3\xA4'"}},
        {std::string("a --x\0y", 7), {std::string("invalid option '--x\0y'", 22)}},
    });
}

TEST(CommandParserTest, APlainWordBehindAnythingButABareOptionIsUnexpected) {
    ExpectFails({
        {"a --x=1 y", {"unexpected argument 'y'"}},
        {"a --x= y", {"unexpected argument 'y'"}},
        {"a --x 1 2", {"unexpected argument '2'"}},
        {"a --x 1 ''", {"unexpected argument ''"}},
        {"a -x=1 '-y'", {"unexpected argument '-y'"}},
    });
}

TEST(CommandParserTest, EveryBadWordOfALineIsReportedInOrder) {
    ExpectFails({
        {"a/ b ? --1 x --y=1 z --w 2 3 -vv",
         {"invalid command word 'a/'", "invalid command word '?'", "invalid option '--1'",
          "unexpected argument 'x'", "unexpected argument 'z'", "unexpected argument '3'",
          "invalid option '-vv'"}},
    });
}

TEST(CommandParserTest, NothingOfAnEarlierLineIsKept) {
    OptionParser parser;
    EXPECT_FALSE(parser.ParseString("a --1x y"));
    EXPECT_TRUE(parser.ParseString("b --k"));
    EXPECT_THAT(parser.GetCommandPath(), ElementsAre("b"));
    EXPECT_THAT(parser.GetCommandParameters(), ElementsAre(std::make_pair("k", "true")));
    EXPECT_THAT(parser.GetParseErrors(), IsEmpty());
    EXPECT_FALSE(parser.ParseString(" "));
    EXPECT_THAT(parser.GetCommandPath(), IsEmpty());
    EXPECT_THAT(parser.GetParseErrors(), ElementsAre("empty command"));
}

}  // namespace
