// SPDX-License-Identifier: Apache-2.0
#include "plugins/json_plugin_file.h"

#include <filesystem>
#include <string>
#include <vector>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include "gmock/gmock.h"
#include "tests/support/temp_dir.h"
#include "util/exception.h"
#include "util/unique_fd.h"

namespace bootweave {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kNoFile = "no such file or directory";
constexpr const char* kNoObject = "plugin root is not an object";
constexpr const char* kUnsupported = "Unsupported API version";

/// Values of every JSON type, but for the one named.
std::vector<std::string> AllBut(const std::string& type) {
    std::vector<std::string> values;
    for (const auto& [name, value] : std::vector<std::pair<std::string, std::string>>{{"null", "null"},
                                                                                      {"boolean", "true"},
                                                                                      {"number", "1"},
                                                                                      {"string", "\"x\""},
                                                                                      {"array", "[]"},
                                                                                      {"object", "{}"}}) {
        if (name != type) {
            values.push_back(value);
        }
    }
    return values;
}

/// The text of a plugin file: metadata behind the version, and operations. Members that are empty are left
/// out.
std::string Text(const std::string& version, const std::string& metadata, const std::string& operations) {
    return R"({"metadata": {"version": )" + version + metadata + R"(}, "operations": {)" + operations + "}}";
}

const std::string kNoNames = R"(, "requires": [], "provides": [])";
const std::string kVersion3 = kNoNames + R"(, "run_once": false, "plugin_version": "1")";
const std::string kNoCommands = R"("start": [])";

class JSONPluginFileTest : public testing::Test {
  protected:
    JSONPluginFile Read(const std::string& text) {
        return ReadJSONPluginFile(dir_.WriteFile("plugin.json", text));
    }

    static std::string FailureOfPath(const std::string& path) {
        try {
            static_cast<void>(ReadJSONPluginFile(path));
        } catch (const InvalidPluginException& error) {
            const std::string start = "plugin `" + path + "' is invalid: ";
            const std::string message = error.what();
            return message.starts_with(start) ? message.substr(start.size()) : "not the path: " + message;
        }
        return "none";
    }
    /// The reason for which a file of this text is refused, "none" when it is not.
    std::string FailureOf(const std::string& text) {
        return FailureOfPath(dir_.WriteFile("plugin.json", text));
    }
    void ExpectFailure(const std::string& reason, const std::string& text) {
        EXPECT_EQ(reason, FailureOf(text)) << text.substr(0, 200);
    }

    const TempDir dir_;
};

// What is read.

TEST_F(JSONPluginFileTest, AWholeFileOfVersion4IsReadInOrder) {
    const JSONPluginFile file = Read(R"({
        "metadata": {
            "version": 4,
            "requires": ["storage", "net", "storage"],
            "provides": ["mgmt", "agents", "mgmt"],
            "required_flags": ["b", "a", "b"],
            "disabling_flags": ["d", "c"],
            "run_once": true,
            "plugin_version": "1.0-b"
        },
        "operations": {
            "start": ["one --a=1", "two", "one --a=1"],
            "apply_host_profile": ["three", ""]
        }
    })");
    EXPECT_EQ(4, file.version);
    EXPECT_THAT(file.requires_names, ElementsAre("storage", "net", "storage"));
    EXPECT_THAT(file.provides_names, ElementsAre("mgmt", "agents", "mgmt"));
    EXPECT_THAT(file.required_flags, ElementsAre("a", "b"));
    EXPECT_THAT(file.disabling_flags, ElementsAre("c", "d"));
    EXPECT_TRUE(file.run_once);
    EXPECT_EQ("1.0-b", file.plugin_version);
    EXPECT_THAT(file.start, ElementsAre("one --a=1", "two", "one --a=1"));
    ASSERT_TRUE(file.apply_host_profile.has_value());
    EXPECT_THAT(*file.apply_host_profile, ElementsAre("three", ""));
}

TEST_F(JSONPluginFileTest, TheSmallestFileIsOfVersion1) {
    const JSONPluginFile file = Read(Text("1", kNoNames, kNoCommands));
    EXPECT_EQ(1, file.version);
    EXPECT_THAT(file.requires_names, IsEmpty());
    EXPECT_THAT(file.provides_names, IsEmpty());
    EXPECT_THAT(file.required_flags, IsEmpty());
    EXPECT_THAT(file.disabling_flags, IsEmpty());
    EXPECT_FALSE(file.run_once);
    EXPECT_EQ("", file.plugin_version);
    EXPECT_THAT(file.start, IsEmpty());
    EXPECT_FALSE(file.apply_host_profile.has_value());
}

TEST_F(JSONPluginFileTest, BelowVersion3ItsKeysAreNotLookedAt) {
    const std::string wrong = R"(, "required_flags": null, "disabling_flags": [1], "run_once": "yes",
                                 "plugin_version": 7)";
    const std::string right = R"(, "required_flags": ["a"], "disabling_flags": ["b"], "run_once": true,
                                 "plugin_version": "7")";
    for (const char* version : {"1", "2"}) {
        for (const std::string& keys : {wrong, right}) {
            const JSONPluginFile file = Read(Text(version, kNoNames + keys, kNoCommands));
            EXPECT_THAT(file.required_flags, IsEmpty());
            EXPECT_THAT(file.disabling_flags, IsEmpty());
            EXPECT_FALSE(file.run_once);
            EXPECT_EQ("", file.plugin_version);
        }
    }
}

TEST_F(JSONPluginFileTest, BelowVersion2ApplyHostProfileIsNotLookedAt) {
    EXPECT_FALSE(Read(Text("1", kNoNames, kNoCommands + R"(, "apply_host_profile": ["a"])"))
                     .apply_host_profile.has_value());
    EXPECT_EQ("none", FailureOf(Text("1", kNoNames, kNoCommands + R"(, "apply_host_profile": null)")));
}

TEST_F(JSONPluginFileTest, FromVersion2AnEmptyApplyHostProfileIsPresent) {
    for (const char* version : {"2", "3", "4"}) {
        const JSONPluginFile file =
            Read(Text(version, kVersion3, kNoCommands + R"(, "apply_host_profile": [])"));
        ASSERT_TRUE(file.apply_host_profile.has_value()) << version;
        EXPECT_THAT(*file.apply_host_profile, IsEmpty());
        EXPECT_FALSE(Read(Text(version, kVersion3, kNoCommands)).apply_host_profile.has_value());
    }
}

TEST_F(JSONPluginFileTest, FlagsAreOptionalInVersion3) {
    const JSONPluginFile file = Read(Text("3", kVersion3, kNoCommands));
    EXPECT_THAT(file.required_flags, IsEmpty());
    EXPECT_THAT(file.disabling_flags, IsEmpty());
    EXPECT_EQ("1", file.plugin_version);
}

TEST_F(JSONPluginFileTest, UnknownKeysAreIgnoredEverywhere) {
    const JSONPluginFile file =
        Read(R"({"extra": [{}], "metadata": {"version": 1, "requires": [], "provides": [], "Version": 9},
                 "operations": {"start": ["a"], "stop": 1}, "Metadata": null})");
    EXPECT_EQ(1, file.version);
    EXPECT_THAT(file.start, ElementsAre("a"));
}

TEST_F(JSONPluginFileTest, CommentsAndTrailingCommasAreAllowed) {
    const JSONPluginFile file = Read(R"(// what it is for
        { /* one */ "metadata": {"version": /* two */ 1, "requires": ["a",], "provides": [], },
          "operations": {"start": ["b // no comment", "/* nor this */",], }, // three
        } // the end)");
    EXPECT_THAT(file.requires_names, ElementsAre("a"));
    EXPECT_THAT(file.start, ElementsAre("b // no comment", "/* nor this */"));
}

TEST_F(JSONPluginFileTest, VersionsAreTruncatedTowardZero) {
    EXPECT_EQ(4, Read(Text("4.9", kVersion3, kNoCommands)).version);
    EXPECT_EQ(1, Read(Text("1.999", kNoNames, kNoCommands)).version);
    EXPECT_EQ(2, Read(Text("2e0", kNoNames, kNoCommands)).version);
    EXPECT_EQ(1, Read(Text("10e-1", kNoNames, kNoCommands)).version);
    EXPECT_EQ(4, Read(Text("4.0", kVersion3, kNoCommands)).version);
}

TEST_F(JSONPluginFileTest, OtherVersionsAreUnsupportedAndNeverWrap) {
    for (const char* version : {"0",
                                "5",
                                "-1",
                                "0.5",
                                "0.999",
                                "-0.0",
                                "-3",
                                "5.0",
                                "1e300",
                                "1e400",
                                "-1e400",
                                "9223372036854775807",
                                "18446744073709551615",
                                "1e-400",
                                "2147483648",
                                "-2147483649",
                                "4294967297",
                                "4294967298.5",
                                "18446744073709551617",
                                "9223372036854775809",
                                "123456789012345678901234567890"}) {
        ExpectFailure(kUnsupported, Text(version, kVersion3, kNoCommands));
    }
}

TEST_F(JSONPluginFileTest, TheLastOfTwoEqualKeysCounts) {
    const JSONPluginFile file =
        Read(R"({"metadata": 1, "metadata": {"version": 9, "version": 2, "requires": ["a"], "requires": ["b"],
                 "provides": []}, "operations": {"start": 1, "start": ["c"]}})");
    EXPECT_EQ(2, file.version);
    EXPECT_THAT(file.requires_names, ElementsAre("b"));
    EXPECT_THAT(file.start, ElementsAre("c"));
}

TEST_F(JSONPluginFileTest, EscapesAreDecoded) {
    const JSONPluginFile file =
        Read(Text("1", kNoNames, R"("start": ["a\u0000b", "\"\\\/\n\u00e9", "\ud83d\ude00", ""])"));
    EXPECT_THAT(file.start, ElementsAre(std::string("a\0b", 3), "\"\\/\n\xc3\xa9", "\xf0\x9f\x98\x80", ""));
}

TEST_F(JSONPluginFileTest, AHundredThousandNamesAreRead) {
    std::string names;
    for (int i = 0; i < 100'000; ++i) {
        names += (i == 0 ? "\"n" : ", \"n") + std::to_string(i) + "\"";
    }
    const JSONPluginFile file =
        Read(Text("1", R"(, "requires": [)" + names + R"(], "provides": [])", kNoCommands));
    ASSERT_EQ(100'000U, file.requires_names.size());
    EXPECT_EQ("n99999", file.requires_names.back());
}

// What is refused, in the order in which it is looked at.

TEST_F(JSONPluginFileTest, ARootThatIsNoObjectIsRefused) {
    for (const std::string& root : AllBut("object")) {
        ExpectFailure(kNoObject, root);
    }
}

TEST_F(JSONPluginFileTest, MetadataIsAnObject) {
    ExpectFailure("invalid metadata interface", "{}");
    ExpectFailure("invalid metadata interface", R"({"operations": {"start": []}})");
    for (const std::string& value : AllBut("object")) {
        ExpectFailure("invalid metadata interface", R"({"metadata": )" + value + "}");
    }
}

TEST_F(JSONPluginFileTest, TheVersionIsANumber) {
    const std::string reason = "metadata is corrupt (unable to parse version)";
    ExpectFailure(reason, R"({"metadata": {"requires": [], "provides": []}, "operations": {"start": []}})");
    for (const std::string& value : AllBut("number")) {
        ExpectFailure(reason, Text(value, kNoNames, kNoCommands));
    }
    ExpectFailure(reason, Text("\"4\"", kVersion3, kNoCommands));
}

TEST_F(JSONPluginFileTest, RequiresAndProvidesAreListsOfStrings) {
    ExpectFailure("metadata is corrupt (unable to parse requires)", Text("1", "", kNoCommands));
    ExpectFailure("metadata is corrupt (unable to parse provides)",
                  Text("1", R"(, "requires": [])", kNoCommands));
    for (const std::string& value : AllBut("array")) {
        ExpectFailure("metadata is corrupt (unable to parse requires)",
                      Text("1", R"(, "provides": [], "requires": )" + value, kNoCommands));
        ExpectFailure("metadata is corrupt (unable to parse provides)",
                      Text("1", R"(, "requires": [], "provides": )" + value, kNoCommands));
    }
    for (const std::string& value : AllBut("string")) {
        ExpectFailure("requires tag is not a string",
                      Text("1", R"(, "provides": [], "requires": ["a", )" + value + "]", kNoCommands));
        ExpectFailure("provides tag is not a string",
                      Text("1", R"(, "requires": [], "provides": ["a", )" + value + "]", kNoCommands));
    }
}

TEST_F(JSONPluginFileTest, FlagsThatArePresentAreListsOfStrings) {
    for (const char* version : {"3", "4"}) {
        for (const std::string key : {"required_flags", "disabling_flags"}) {
            for (const std::string& value : AllBut("array")) {  // null is present
                ExpectFailure("metadata is corrupt (unable to parse " + key + ")",
                              Text(version, kVersion3 + ", \"" + key + "\": " + value, kNoCommands));
            }
            for (const std::string& value : AllBut("string")) {
                ExpectFailure(key + " tag is not a string",
                              Text(version, kVersion3 + ", \"" + key + "\": [" + value + "]", kNoCommands));
            }
        }
    }
}

TEST_F(JSONPluginFileTest, Version3NeedsRunOnceAndPluginVersion) {
    const std::string run_once = "metadata is corrupt (unable to parse run_once)";
    const std::string plugin_version = "metadata is corrupt (unable to parse plugin_version)";
    for (const char* version : {"3", "4"}) {
        ExpectFailure(run_once, Text(version, kNoNames, kNoCommands));
        ExpectFailure(plugin_version, Text(version, kNoNames + R"(, "run_once": true)", kNoCommands));
        for (const std::string& value : AllBut("boolean")) {
            ExpectFailure(
                run_once,
                Text(version, kNoNames + R"(, "plugin_version": "1", "run_once": )" + value, kNoCommands));
        }
        for (const std::string& value : AllBut("string")) {
            ExpectFailure(
                plugin_version,
                Text(version, kNoNames + R"(, "run_once": true, "plugin_version": )" + value, kNoCommands));
        }
    }
}

TEST_F(JSONPluginFileTest, OperationsAreAnObject) {
    const std::string metadata = R"({"metadata": {"version": 1, "requires": [], "provides": []})";
    ExpectFailure("invalid operations interface", metadata + "}");
    for (const std::string& value : AllBut("object")) {
        ExpectFailure("invalid operations interface", metadata + R"(, "operations": )" + value + "}");
    }
}

TEST_F(JSONPluginFileTest, StartIsAListOfCommands) {
    ExpectFailure("operations is corrupt (unable to parse start)", Text("1", kNoNames, ""));
    ExpectFailure("operations is corrupt (unable to parse start)",
                  Text("2", kNoNames, R"("apply_host_profile": ["a"])"));
    for (const std::string& value : AllBut("array")) {
        ExpectFailure("operations is corrupt (unable to parse start)",
                      Text("1", kNoNames, "\"start\": " + value));
    }
    for (const std::string& value : AllBut("string")) {
        ExpectFailure("command is not a string", Text("1", kNoNames, R"("start": ["a", )" + value + "]"));
    }
}

TEST_F(JSONPluginFileTest, ApplyHostProfileThatIsPresentIsAListOfCommands) {
    for (const char* version : {"2", "3", "4"}) {
        for (const std::string& value : AllBut("array")) {
            ExpectFailure("operations is corrupt (unable to parse apply-host-profile)",
                          Text(version, kVersion3, kNoCommands + R"(, "apply_host_profile": )" + value));
        }
        for (const std::string& value : AllBut("string")) {
            ExpectFailure(
                "command is not a string",
                Text(version, kVersion3, kNoCommands + R"(, "apply_host_profile": [)" + value + "]"));
        }
    }
}

TEST_F(JSONPluginFileTest, TheFirstThingThatIsWrongIsNamed) {
    // Each file mends what the one before it was refused for; everything behind that is still wrong.
    const std::string operations = R"(, "operations": )";
    ExpectFailure("invalid metadata interface", R"({"metadata": 1, "operations": 1})");
    std::string metadata;
    const auto file = [&](const std::string& rest) { return R"({"metadata": {)" + metadata + rest; };
    const std::string wrong3 =
        R"("requires": 1, "provides": 1, "required_flags": 1, "disabling_flags": 1, "run_once": 1,
           "plugin_version": 1}, "operations": 1})";
    ExpectFailure("metadata is corrupt (unable to parse version)", file(R"("version": "3", )" + wrong3));
    ExpectFailure(kUnsupported, file(R"("version": 9, )" + wrong3));
    metadata = R"("version": 3, )";
    ExpectFailure("metadata is corrupt (unable to parse requires)", file(wrong3));
    metadata += R"("requires": [], )";
    ExpectFailure("metadata is corrupt (unable to parse provides)",
                  file(wrong3.substr(wrong3.find(',') + 1)));
    metadata += R"("provides": [], )";
    ExpectFailure("metadata is corrupt (unable to parse required_flags)",
                  file(R"("required_flags": 1, "disabling_flags": 1, "run_once": 1}, "operations": 1})"));
    metadata += R"("required_flags": [], )";
    ExpectFailure("metadata is corrupt (unable to parse disabling_flags)",
                  file(R"("disabling_flags": 1, "run_once": 1}, "operations": 1})"));
    metadata += R"("disabling_flags": [], )";
    ExpectFailure("metadata is corrupt (unable to parse run_once)",
                  file(R"("run_once": 1, "plugin_version": 1}, "operations": 1})"));
    metadata += R"("run_once": true, )";
    ExpectFailure("metadata is corrupt (unable to parse plugin_version)",
                  file(R"("plugin_version": 1}, "operations": 1})"));
    metadata += R"("plugin_version": "1")";
    ExpectFailure("invalid operations interface", file("}" + operations + "1}"));
    ExpectFailure("operations is corrupt (unable to parse start)",
                  file("}" + operations + R"({"start": 1, "apply_host_profile": 1}})"));
    ExpectFailure("command is not a string",
                  file("}" + operations + R"({"start": [1], "apply_host_profile": 1}})"));
    ExpectFailure("operations is corrupt (unable to parse apply-host-profile)",
                  file("}" + operations + R"({"start": [], "apply_host_profile": 1}})"));
    ExpectFailure("none", file("}" + operations + R"({"start": [], "apply_host_profile": []}})"));
}

// Files that are no JSON.

TEST_F(JSONPluginFileTest, ATextThatIsNoJsonIsRefused) {
    const std::string good = Text("1", kNoNames, kNoCommands);
    ASSERT_EQ("none", FailureOf(good));
    ExpectFailure(kNoObject, "");
    ExpectFailure(kNoObject, "  \n\t ");
    ExpectFailure(kNoObject, "// nothing");
    ExpectFailure(kNoObject, good.substr(0, good.size() - 1));
    ExpectFailure(kNoObject, good + " x");
    ExpectFailure(kNoObject, good + good);
    ExpectFailure(kNoObject, good + std::string(1, '\0'));
    ExpectFailure(kNoObject, "\xef\xbb\xbf" + good);
    ExpectFailure(kNoObject, "/* never closed " + good);
    ExpectFailure(kNoObject, "{,}");
    ExpectFailure(kNoObject, Text("1", R"(, "requires": ["a",,], "provides": [])", kNoCommands));
    for (const char* version : {"+1", "01", ".5", "1.", "0x1", "NaN", "Infinity", "1e", "--1"}) {
        ExpectFailure(kNoObject, Text(version, kNoNames, kNoCommands));
    }
}

TEST_F(JSONPluginFileTest, ABrokenStringIsRefused) {
    for (const std::string broken : {"\xff", "\xc3", "\xed\xa0\x80", "\\ud800", "\\x41", "a\tb", "a\nb"}) {
        ExpectFailure(kNoObject, Text("1", kNoNames, "\"start\": [\"" + broken + "\"]"));
    }
    ExpectFailure(kNoObject, Text("1", kNoNames, std::string("\"start\": [\"a\0b\"]", 16)));
    ExpectFailure(kNoObject, Text("1", kNoNames, "\"start\": ['a']"));
}

TEST_F(JSONPluginFileTest, ANumberThatNoParserTakesIsRefusedWhereverItStands) {
    ExpectFailure(kNoObject, Text("1e99999999999", kNoNames, kNoCommands));
    ExpectFailure(kNoObject, Text("1, \"x\": 1e-99999999999999", kNoNames, kNoCommands));
}

TEST_F(JSONPluginFileTest, DeepNestingIsRefusedAndCostsNoStack) {
    ExpectFailure(kNoObject, std::string(10'000'000, '['));
    std::string objects;
    for (int i = 0; i < 1'000'000; ++i) {
        objects += "{\"a\":";
    }
    ExpectFailure(kNoObject, objects);
    const std::string nested = std::string(1000, '[') + std::string(1000, ']');
    ExpectFailure(kNoObject, Text("1, \"x\": " + nested, kNoNames, kNoCommands));
    // Two of the 32 levels that the manual allows are the root and the metadata.
    for (const auto& [levels, failure] :
         {std::pair(std::size_t{30}, "none"), std::pair(std::size_t{31}, kNoObject)}) {
        const std::string value = std::string(levels, '[') + std::string(levels, ']');
        ExpectFailure(failure, Text("1, \"x\": " + value, kNoNames, kNoCommands));
    }
}

// What is no file.

TEST_F(JSONPluginFileTest, WhatIsNoRegularFileIsNotThere) {
    EXPECT_EQ(kNoFile, FailureOfPath(dir_.File("none")));
    EXPECT_EQ(kNoFile, FailureOfPath(dir_.path()));
    EXPECT_EQ(kNoFile, FailureOfPath("/dev/zero"));
    EXPECT_EQ(kNoFile, FailureOfPath(""));

    const std::string fifo = dir_.File("fifo.json");
    ASSERT_EQ(0, ::mkfifo(fifo.c_str(), 0600));  // nobody writes: a plain open would wait for ever
    EXPECT_EQ(kNoFile, FailureOfPath(fifo));

    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string socket_path = dir_.File("socket.json");
    socket_path.copy(address.sun_path, sizeof address.sun_path - 1);
    const UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM, 0));
    ASSERT_EQ(0, ::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address));
    EXPECT_EQ(kNoFile, FailureOfPath(socket_path));
}

TEST_F(JSONPluginFileTest, AFileThatWouldTakeTheBootsMemoryIsNotThere) {
    const std::string path = dir_.WriteFile("huge.json", Text("1", kNoNames, kNoCommands));
    std::filesystem::resize_file(path, std::uintmax_t{1} << 40);  // sparse
    EXPECT_EQ(kNoFile, FailureOfPath(path));
}

TEST_F(JSONPluginFileTest, LinksAreFollowed) {
    dir_.WriteFile("real", Text("1", kNoNames, kNoCommands));
    std::filesystem::create_symlink("real", dir_.File("good.json"));
    std::filesystem::create_symlink("none", dir_.File("bad.json"));
    std::filesystem::create_symlink("circle.json", dir_.File("circle.json"));
    EXPECT_EQ("none", FailureOfPath(dir_.File("good.json")));
    EXPECT_EQ(kNoFile, FailureOfPath(dir_.File("bad.json")));
    EXPECT_EQ(kNoFile, FailureOfPath(dir_.File("circle.json")));
}

TEST_F(JSONPluginFileTest, TheWholeMessageNamesThePath) {
    try {
        static_cast<void>(ReadJSONPluginFile("/no/such.json"));
        FAIL() << "it was read";
    } catch (const InvalidPluginException& error) {
        EXPECT_STREQ("plugin `/no/such.json' is invalid: no such file or directory", error.what());
    }
}

// What is remarked.

class JSONPluginRemarksTest : public JSONPluginFileTest {
  protected:
    JSONPluginRemarks Remarks(const std::string& text) {
        return ReadJSONPluginRemarks(dir_.WriteFile("plugin.json", text));
    }
    static std::vector<std::string> Paths(const std::vector<JSONPluginRemarks::Key>& keys) {
        std::vector<std::string> paths;
        for (const auto& [parent, name] : keys) {
            paths.push_back(parent + "." + name);
        }
        return paths;
    }
};

TEST_F(JSONPluginRemarksTest, TheKeysAreThoseOfTheRootAndOfItsObjects) {
    const JSONPluginRemarks remarks = Remarks(
        R"({"metadata": {"version": 1, "deep": {"x": 1}, "list": [{"y": 2}]}, "extra": [{"z": 3}], "n": 1})");
    EXPECT_THAT(Paths(remarks.keys), ElementsAre(".metadata", "metadata.version", "metadata.deep",
                                                 "metadata.list", ".extra", ".n"));
    EXPECT_THAT(remarks.repeated, IsEmpty());
    EXPECT_EQ("", remarks.syntax_error);
}

TEST_F(JSONPluginRemarksTest, AKeyIsRepeatedWhenItsOwnObjectHasItTwice) {
    const JSONPluginRemarks remarks =
        Remarks(R"({"a": {"x": 1, "x": 2, "\u0079": 3, "y": 4}, "b": {"x": 1, "a": 2}, "a": {"x": 1}})");
    EXPECT_THAT(Paths(remarks.repeated), ElementsAre("a.x", "a.y", ".a"));
}

TEST_F(JSONPluginRemarksTest, ALongKeyIsWhole) {
    const std::string name(100000, 'k');
    EXPECT_THAT(Paths(Remarks("{\"" + name + "\\u0041\": 1}").keys), ElementsAre("." + name + "A"));
}

TEST_F(JSONPluginRemarksTest, TheSyntaxErrorHasItsPlace) {
    EXPECT_EQ("line 2, column 7: syntax error", Remarks("{\n  \"a\" = 1\n}\n").syntax_error);
    EXPECT_EQ("line 1, column 1: incomplete JSON", Remarks("").syntax_error);
    EXPECT_EQ("line 3, column 1: incomplete JSON", Remarks("{\n  \"a\": 1\n").syntax_error);
    EXPECT_EQ("line 2, column 1: extra data", Remarks("{}\n{}").syntax_error);
}

TEST_F(JSONPluginRemarksTest, ATextHasASyntaxErrorExactlyWhenItIsNotParsed) {
    for (const char* text : {"{}", " {} // end", "{/* a */}", "{\"a\": 1,}", "{\"a\": [1,],}", "null", "1"}) {
        EXPECT_EQ("", Remarks(text).syntax_error) << text;
    }
    for (const char* text : {"{", "{]", "{\"a\"}", "{a: 1}", "{'a': 1}", "{,}", "nul", "\"\x01\"", "\"\xff\"",
                             "{\"a\": 01}", "{} x"}) {
        EXPECT_NE("", Remarks(text).syntax_error) << text;
        EXPECT_EQ(kNoObject, FailureOf(text)) << text;
    }
    const std::string deep = std::string(33, '[') + std::string(33, ']');
    EXPECT_EQ("line 1, column 33: too deep", Remarks(deep).syntax_error);
}

TEST_F(JSONPluginRemarksTest, AFileThatCannotBeReadHasNone) {
    const JSONPluginRemarks remarks = ReadJSONPluginRemarks(dir_.File("missing"));
    EXPECT_THAT(remarks.keys, IsEmpty());
    EXPECT_EQ("", remarks.syntax_error);
}

TEST_F(JSONPluginRemarksTest, EveryKeyThatIsReadIsListedWithItsFirstVersion) {
    std::vector<std::string> keys;
    for (const JSONPluginKey& key : JSONPluginKeys()) {
        keys.push_back(std::string(key.parent) + "." + std::string(key.name) + " " +
                       std::to_string(key.since));
    }
    EXPECT_THAT(keys,
                ElementsAre(".metadata 1", "metadata.version 1", "metadata.requires 1", "metadata.provides 1",
                            "metadata.required_flags 3", "metadata.disabling_flags 3", "metadata.run_once 3",
                            "metadata.plugin_version 3", ".operations 1", "operations.start 1",
                            "operations.apply_host_profile 2"));
}

}  // namespace
}  // namespace bootweave
