// SPDX-License-Identifier: Apache-2.0
#include "plugins/native_metadata_reader.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "gmock/gmock.h"

#include "plugins/native_test_support.h"
#include "tests/support/temp_dir.h"
#include "util/exception.h"
#include "util/retry.h"

namespace bootweave {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

using Names = std::vector<std::string>;

constexpr std::chrono::milliseconds kShort(300);
constexpr std::chrono::milliseconds kLong(std::chrono::seconds(60));

/// The children of this thread.
std::vector<pid_t> Children() {
    std::ifstream list("/proc/thread-self/children");
    std::vector<pid_t> children;
    for (pid_t child = -1; list >> child;) {
        children.push_back(child);
    }
    return children;
}

/// What the kernel counts of the children that this process has waited for.
long PageFaultsOfEndedChildren(pid_t process) {
    std::ifstream stat("/proc/" + std::to_string(process) + "/stat");
    std::string field;
    for (int number = 1; number < 11 && stat >> field; ++number) {
    }
    long faults = -1;
    stat >> faults;
    return faults;
}

/// Makes a reader that was built with a sanitizer end by the signal of a crash, as it does without.
void LeaveCrashesToTheKernel() {
    for (const char* variable : {"ASAN_OPTIONS", "TSAN_OPTIONS"}) {
        const char* given = std::getenv(variable);
        const std::string options = given != nullptr ? std::string(given) + ":" : "";
        ::setenv(variable, (options + "handle_segv=0").c_str(), 1);
    }
}

class NativeMetadataReaderTest : public testing::Test {
  protected:
    static void SetUpTestSuite() { LeaveCrashesToTheKernel(); }
    NativeMetadataReaderTest() { ::setenv("NATIVE_TEST_FILE", dir_.File("process").c_str(), 1); }
    ~NativeMetadataReaderTest() override {
        ::unsetenv("NATIVE_TEST_FILE");
        EXPECT_EQ(-1, ::waitpid(-1, nullptr, WNOHANG)) << "a process or a zombie is left";
    }

    static NativeMetadataReader::Options Real(std::chrono::milliseconds patience = kLong) {
        return {.program = BOOTWEAVE_NATIVE_READER, .patience = patience};
    }

    /// A reader that is this shell script.
    [[nodiscard]] NativeMetadataReader::Options Script(const std::string& script,
                                                       std::chrono::milliseconds patience = kLong) const {
        return {.program = dir_.WriteProgram("reader", "#!/bin/sh\n" + script + "\n"), .patience = patience};
    }

    static std::string FailureOf(NativeMetadataReader& reader, const std::string& path) {
        try {
            static_cast<void>(reader.Read(path));
        } catch (const Exception& error) {
            return error.what();
        }
        return "nothing";
    }

    static std::string Invalid(const std::string& path, const std::string& reason) {
        return "plugin `" + path + "' is invalid: " + reason;
    }

    /// Reads one object with a reader of its own. Returns why that failed.
    static std::string ReasonFor(const std::string& object, std::chrono::milliseconds patience = kLong) {
        NativeMetadataReader reader(Real(patience));
        const std::string path = NativeObject(object);
        const std::string failure = FailureOf(reader, path);
        const std::string before = Invalid(path, "");
        return failure.starts_with(before) ? failure.substr(before.size()) : failure;
    }

    /// Reads an object, then a good one with the same reader, which must not suffer.
    static void ExpectHarmsOnlyItself(const std::string& object, const std::string& reason) {
        NativeMetadataReader reader(Real());
        const std::string path = NativeObject(object);
        EXPECT_EQ(Invalid(path, reason), FailureOf(reader, path));
        EXPECT_EQ(Names{"one"}, reader.Read(NativeObject("globals_one")).provides_names);
    }

    [[nodiscard]] bool StrayIsGone() const {
        const int stray = std::stoi(ReadFile(dir_.File("process")));
        return ::kill(stray, 0) != 0 && errno == ESRCH;
    }

    const TempDir dir_;
};

TEST_F(NativeMetadataReaderTest, AllOfAVersion3ObjectIsRead) {
    NativeMetadataReader reader(Real());
    const NativeMetadata expected{.version = 3,
                                  .has_apply_host_profile = true,
                                  .run_once = true,
                                  .plugin_version = "1.2-3",
                                  .provides_names = {"p1", "p2", "p1"},
                                  .requires_names = {"r1", "r2"},
                                  .required_flags = {"f2", "f1"},
                                  .disabling_flags = {"d1"},
                                  .has_start = true};
    EXPECT_EQ(expected, reader.Read(NativeObject("version3")));
    NativeMetadata newest = expected;
    newest.version = 4;
    EXPECT_EQ(newest, reader.Read(NativeObject("version4")));
}

TEST_F(NativeMetadataReaderTest, BelowVersion3TheFieldsBehindTheNamesAreIgnored) {
    NativeMetadataReader reader(Real());
    for (const std::int32_t version : {1, 2}) {
        EXPECT_EQ((NativeMetadata{.version = version,
                                  .has_apply_host_profile = true,
                                  .run_once = false,
                                  .plugin_version = "",
                                  .provides_names = {"p1", "p2", "p1"},
                                  .requires_names = {"r1", "r2"},
                                  .required_flags = {},
                                  .disabling_flags = {},
                                  .has_start = true}),
                  reader.Read(NativeObject("version" + std::to_string(version))));
    }
}

TEST_F(NativeMetadataReaderTest, NullPointersAreEmptyLists) {
    NativeMetadataReader reader(Real());
    NativeMetadata expected;
    expected.version = 2;
    expected.has_start = true;
    EXPECT_EQ(expected, reader.Read(NativeObject("empty2")));
    expected.version = 3;
    EXPECT_EQ(expected, reader.Read(NativeObject("empty3")));
}

TEST_F(NativeMetadataReaderTest, AnObjectWithoutAnOperationForStartIsReadAsSuch) {
    NativeMetadataReader reader(Real());
    EXPECT_FALSE(reader.Read(NativeObject("no_start")).has_start);
}

TEST_F(NativeMetadataReaderTest, AnObjectInCppIsAsGood) {
    NativeMetadataReader reader(Real());
    const NativeMetadata metadata = reader.Read(NativeObject("modern"));
    EXPECT_EQ(2, metadata.version);
    EXPECT_TRUE(metadata.has_apply_host_profile);
    EXPECT_EQ(Names{"r"}, metadata.requires_names);
}

TEST_F(NativeMetadataReaderTest, OtherVersionsAreRefused) {
    EXPECT_EQ("Unsupported API version", ReasonFor("version0"));
    EXPECT_EQ("Unsupported API version", ReasonFor("version5"));
}

TEST_F(NativeMetadataReaderTest, AMissingSymbolIsNamedOperationsFirst) {
    NativeMetadataReader reader(Real());
    for (const auto& [object, symbol] :
         {std::pair("only_metadata", "operations"), std::pair("only_operations", "metadata")}) {
        const std::string path = NativeObject(object);
        EXPECT_EQ("Failed loading symbol: " + std::string(symbol) + " Located at: " + path +
                      " Reason: " + path + ": undefined symbol: " + symbol,
                  FailureOf(reader, path));
    }
}

TEST_F(NativeMetadataReaderTest, AnObjectThatCannotBeOpenedHasTheLoadersText) {
    NativeMetadataReader reader(Real());
    const std::string text = dir_.WriteFile("text.so", std::string(100, 'x'));
    EXPECT_EQ(Invalid(text, text + ": invalid ELF header"), FailureOf(reader, text));
    const std::string empty = dir_.WriteFile("empty.so", "");
    EXPECT_EQ(Invalid(empty, empty + ": file too short"), FailureOf(reader, empty));
}

TEST_F(NativeMetadataReaderTest, WhatIsNoRegularFileIsMissing) {
    NativeMetadataReader reader(Real());
    const std::string fifo = dir_.File("fifo.so");
    ASSERT_EQ(0, ::mkfifo(fifo.c_str(), 0600));
    std::filesystem::create_symlink(fifo, dir_.File("link.so"));
    std::filesystem::create_symlink(dir_.File("nothing"), dir_.File("dangling.so"));
    for (const std::string& path : {fifo, dir_.File("link.so"), dir_.File("dangling.so"), dir_.path(),
                                    dir_.File("missing.so"), std::string("/dev/zero")}) {
        EXPECT_EQ(Invalid(path, path + ": cannot open shared object file: No such file or directory"),
                  FailureOf(reader, path));
    }
    std::filesystem::create_symlink(NativeObject("globals_one"), dir_.File("good.so"));
    EXPECT_EQ(Names{"one"}, reader.Read(dir_.File("good.so")).provides_names);
}

TEST_F(NativeMetadataReaderTest, APathLongerThanAnyFilesHasTheLoadersText) {
    NativeMetadataReader reader(Real());
    const std::string path = "/" + std::string(200000, 'x') + "/a.so";
    EXPECT_EQ(Invalid(path, path + ": cannot open shared object file: File name too long"),
              FailureOf(reader, path));
}

TEST_F(NativeMetadataReaderTest, AnObjectCutAtAnyLengthCostsNothingButItself) {
    NativeMetadataReader reader(Real());
    const std::string whole = ReadFile(NativeObject("version3"));
    int failures = 0;
    constexpr std::size_t kCuts = 60;
    for (std::size_t cut = 0; cut < kCuts; ++cut) {
        const std::string path = dir_.WriteFile("cut.so", whole.substr(0, whole.size() * cut / kCuts));
        try {
            static_cast<void>(reader.Read(path));
        } catch (const Exception&) {
            ++failures;
        }
    }
    EXPECT_GT(failures, static_cast<int>(kCuts) / 3);  // what lacks only its section headers is whole enough
    EXPECT_EQ(3, reader.Read(NativeObject("version3")).version);
}

TEST_F(NativeMetadataReaderTest, AnObjectThatCrashesHarmsOnlyItself) {
    ExpectHarmsOnlyItself("crashes", "metadata reader exited with signal: 11");
    ExpectHarmsOnlyItself("crashes_at_close", "metadata reader exited with signal: 11");
    ExpectHarmsOnlyItself("wild", "metadata reader exited with signal: 11");
    ExpectHarmsOnlyItself("kills_group", "metadata reader exited with signal: 9");
}

TEST_F(NativeMetadataReaderTest, AnObjectThatExitsHarmsOnlyItself) {
    ExpectHarmsOnlyItself("leaves", "metadata reader exited with code 3");
    ExpectHarmsOnlyItself("leaves_well", "metadata reader exited with code 0");
    ExpectHarmsOnlyItself("leaves_at_close", "metadata reader exited with code 3");
    ExpectHarmsOnlyItself("becomes_daemon", "metadata reader exited with code 0");
}

TEST_F(NativeMetadataReaderTest, AnAnswerThatAnObjectForgedIsNone) {
    ExpectHarmsOnlyItself("forges_answer", "metadata reader exited with code 0");
}

TEST_F(NativeMetadataReaderTest, AnObjectFindsNoDescriptorToWriteAnAnswerTo) {
    NativeMetadataReader reader(Real());
    EXPECT_EQ(Names{"up"}, reader.Read(NativeObject("writes_everywhere")).provides_names);
}

TEST_F(NativeMetadataReaderTest, AnObjectThatClosesAllDescriptorsIsReadAllTheSame) {
    NativeMetadataReader reader(Real());
    EXPECT_EQ(Names{"up"}, reader.Read(NativeObject("closes_all")).provides_names);
    EXPECT_EQ(Names{"one"}, reader.Read(NativeObject("globals_one")).provides_names);
}

TEST_F(NativeMetadataReaderTest, WhatAnObjectDoesToItsProcessDoesNotReachTheNext) {
    NativeMetadataReader reader(Real());
    EXPECT_EQ(Names{"up"}, reader.Read(NativeObject("spoils")).provides_names);
    EXPECT_EQ("plugin `" + NativeObject("crashes") + "' is invalid: metadata reader exited with signal: 11",
              FailureOf(reader, NativeObject("crashes")));  // not ignored
    EXPECT_EQ(Names{"up"}, reader.Read(NativeObject("prints")).provides_names);
    EXPECT_THAT(Children(), SizeIs(1));  // the first reader still: no timer has ended it
}

TEST_F(NativeMetadataReaderTest, GlobalSymbolsOfOneObjectDoNotReplaceThoseOfTheNext) {
    NativeMetadataReader reader(Real());
    EXPECT_EQ(Names{"one"}, reader.Read(NativeObject("globals_one")).provides_names);
    EXPECT_EQ(Names{"two"}, reader.Read(NativeObject("globals_two")).provides_names);
}

TEST_F(NativeMetadataReaderTest, AnObjectThatIsNeverUnloadedDoesNotStandForTheNext) {
    NativeMetadataReader reader(Real());
    EXPECT_EQ(Names{"one"}, reader.Read(NativeObject("unique_one")).provides_names);
    EXPECT_EQ(Names{"two"}, reader.Read(NativeObject("unique_two")).provides_names);
}

TEST_F(NativeMetadataReaderTest, OnlyAnObjectThatRunsCodeGetsAProcessOfItsOwn) {
    NativeMetadataReader reader(Real());
    static_cast<void>(reader.Read(NativeObject("globals_one")));
    const std::vector<pid_t> first = Children();
    ASSERT_THAT(first, SizeIs(1));
    static_cast<void>(reader.Read(NativeObject("version3")));
    EXPECT_EQ(0, PageFaultsOfEndedChildren(first[0]));
    static_cast<void>(reader.Read(NativeObject("spoils")));
    EXPECT_GT(PageFaultsOfEndedChildren(first[0]), 0);
    EXPECT_EQ(first, Children());
}

TEST_F(NativeMetadataReaderTest, ProcessesThatAnObjectLeftBehindAreEnded) {
    NativeMetadataReader reader(Real());
    EXPECT_EQ(Names{"up"}, reader.Read(NativeObject("leaves_process")).provides_names);
    EXPECT_TRUE(StrayIsGone());
}

TEST_F(NativeMetadataReaderTest, AnObjectThatHangsIsGivenUpWithAllThatItStarted) {
    NativeMetadataReader reader(Real(kShort));
    const std::string path = NativeObject("hangs_beside_process");
    EXPECT_EQ(Invalid(path, "metadata reader did not answer within 300 ms"), FailureOf(reader, path));
    EXPECT_TRUE(StrayIsGone());
    EXPECT_THAT(Children(), IsEmpty());
    NativeMetadataReader next(Real());
    EXPECT_EQ(Names{"one"}, next.Read(NativeObject("globals_one")).provides_names);
}

TEST_F(NativeMetadataReaderTest, ATimeOfWholeSecondsIsSaidInSeconds) {
    EXPECT_EQ("metadata reader did not answer within 1 s", ReasonFor("hangs", std::chrono::seconds(1)));
    EXPECT_EQ(std::chrono::seconds(10), NativeMetadataReader::Options().patience);
    EXPECT_EQ("/usr/lib/corvane/bootweave/nativeReader", NativeMetadataReader::Options().program);
}

TEST_F(NativeMetadataReaderTest, AReaderThatAnObjectKilledIsReplaced) {
    ExpectHarmsOnlyItself("kills_reader", "metadata reader exited with signal: 9");
}

TEST_F(NativeMetadataReaderTest, AReaderThatAnObjectStoppedIsReplaced) {
    EXPECT_EQ("metadata reader did not answer within 300 ms", ReasonFor("stops_reader", kShort));
}

TEST_F(NativeMetadataReaderTest, AReaderThatEndedBetweenTwoObjectsCostsNeither) {
    NativeMetadataReader reader(Real());
    static_cast<void>(reader.Read(NativeObject("globals_one")));
    ASSERT_THAT(Children(), SizeIs(1));
    ASSERT_EQ(0, ::kill(Children()[0], SIGKILL));
    siginfo_t end{};
    ASSERT_EQ(0, RetryOnEintr([&] { return ::waitid(P_ALL, 0, &end, WEXITED | WNOWAIT); }));
    EXPECT_EQ(Names{"two"}, reader.Read(NativeObject("globals_two")).provides_names);
}

TEST_F(NativeMetadataReaderTest, LargeMetadataIsReadUpToItsLimit) {
    NativeMetadataReader reader(Real());
    EXPECT_THAT(reader.Read(NativeObject("large")).provides_names, ElementsAre(std::string(4000000, 'x')));
    EXPECT_EQ("metadata is larger than 4 MiB", ReasonFor("too_large"));
}

TEST_F(NativeMetadataReaderTest, OneProcessServesAllObjectsAndIsGoneAfterStop) {
    NativeMetadataReader reader(Real());
    EXPECT_THAT(Children(), IsEmpty());
    static_cast<void>(reader.Read(NativeObject("version1")));
    const std::vector<pid_t> first = Children();
    EXPECT_THAT(first, SizeIs(1));
    static_cast<void>(reader.Read(NativeObject("version2")));
    EXPECT_EQ(first, Children());
    reader.Stop();
    EXPECT_THAT(Children(), IsEmpty());
    reader.Stop();
    static_cast<void>(reader.Read(NativeObject("version3")));  // starts another
    EXPECT_THAT(Children(), SizeIs(1));
}

TEST_F(NativeMetadataReaderTest, AReaderThatCannotBeStartedCostsTheObjectEachTime) {
    NativeMetadataReader reader({.program = dir_.File("none"), .patience = kLong});
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(Invalid("/p.so", "metadata reader failed to spawn: No such file or directory"),
                  FailureOf(reader, "/p.so"));
    }
}

TEST_F(NativeMetadataReaderTest, AReaderThatEndsIsReportedAsItEnded) {
    for (const auto& [script, how] :
         {std::pair("exit 7", "exited with code 7"), std::pair("exit 0", "exited with code 0"),
          std::pair("kill -15 $$", "exited with signal: 15"),
          std::pair("printf '\\1\\0\\0' >&3; exit 4", "exited with code 4")}) {
        NativeMetadataReader reader(Script(script));
        EXPECT_EQ(Invalid("/p.so", std::string("metadata reader ") + how), FailureOf(reader, "/p.so"));
    }
}

TEST_F(NativeMetadataReaderTest, AnAnswerThatIsNoneIsRefused) {
    for (const char* bytes : {"\\377\\377\\377\\377", "\\0\\0\\0\\0", "\\4\\0\\0\\0abcd"}) {
        NativeMetadataReader reader(Script("printf '" + std::string(bytes) + "' >&3; exec cat <&3"));
        EXPECT_EQ(Invalid("/p.so", "metadata reader gave no proper answer"), FailureOf(reader, "/p.so"));
    }
}

TEST_F(NativeMetadataReaderTest, AReaderHasThreeStreamsAndItsChannelAndNothingElse) {
    const UniqueFd inheritable(::open("/dev/null", O_RDONLY));
    NativeMetadataReader reader(Script("exec ls -l /proc/self/fd >" + dir_.File("list") + " 2>&1"));
    EXPECT_EQ(Invalid("/p.so", "metadata reader exited with code 0"), FailureOf(reader, "/p.so"));
    const std::string list = ReadFile(dir_.File("list"));
    EXPECT_THAT(list, testing::HasSubstr(" 0 -> /dev/null"));
    EXPECT_THAT(list, testing::HasSubstr(" 3 -> socket:"));
    EXPECT_THAT(list, testing::Not(testing::HasSubstr(" 5 -> ")));  // 4 is ls's own
}

}  // namespace
}  // namespace bootweave
