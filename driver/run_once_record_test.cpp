// SPDX-License-Identifier: Apache-2.0
#include "driver/run_once_record.h"

#include <cstdlib>

#include <sys/stat.h>

#include "gmock/gmock.h"
#include "tests/support/temp_dir.h"

namespace bootweave {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Keys = std::set<std::string>;

/// Through the machine's own gzip: whoever keeps a boot bank uses it too.
std::string Filter(const std::string& command, const std::string& input) {
    const TempDir dir;
    dir.WriteFile("in", input);
    EXPECT_EQ(0, std::system((command + " <" + dir.File("in") + " >" + dir.File("out")).c_str()));
    return ReadFile(dir.File("out"));
}
std::string Pack(const std::string& text) {
    return Filter("gzip", text);
}
std::string Unpack(const std::string& packed) {
    return Filter("gzip -d", packed);
}

class RunOnceRecordTest : public testing::Test {
  protected:
    [[nodiscard]] Keys Read(const std::string& packed) const {
        Keys keys;
        ReadRunOnceRecord(keys, dir_.WriteFile("record", packed));
        return keys;
    }

    TempDir dir_;
};

TEST_F(RunOnceRecordTest, KeysAreWrittenSortedEachWithAComma) {
    const std::string path = dir_.File("record");
    WriteRunOnceRecord({"storage2", "net1.0"}, path);
    EXPECT_EQ("bootweave.run-once=net1.0,storage2,\n", Unpack(ReadFile(path)));
}

TEST_F(RunOnceRecordTest, NoKeysIsThePrefixAndTheNewline) {
    const std::string path = dir_.File("record");
    WriteRunOnceRecord({}, path);
    EXPECT_EQ("bootweave.run-once=\n", Unpack(ReadFile(path)));
}

TEST_F(RunOnceRecordTest, TheHeaderHoldsNoNameNoCommentAndNoTime) {
    const std::string path = dir_.File("record");
    WriteRunOnceRecord({"a"}, path);
    EXPECT_EQ(std::string("\x1f\x8b\x08\0\0\0\0\0", 8), ReadFile(path).substr(0, 8));
}

TEST_F(RunOnceRecordTest, WhatIsWrittenIsReadBack) {
    const std::string path = dir_.File("record");
    const Keys keys{"a1", "b-2", "c_3+x"};
    WriteRunOnceRecord(keys, path);
    Keys read;
    ReadRunOnceRecord(read, path);
    EXPECT_EQ(keys, read);
}

TEST_F(RunOnceRecordTest, ReadingAddsToTheKeysThatAreThere) {
    Keys keys{"given"};
    ReadRunOnceRecord(keys, dir_.WriteFile("record", Pack("bootweave.run-once=a,\n")));
    EXPECT_THAT(keys, ElementsAre("a", "given"));
}

TEST_F(RunOnceRecordTest, BlanksAroundKeysAndEmptyKeysAreDropped) {
    EXPECT_THAT(Read(Pack("bootweave.run-once= a , ,b\n")), ElementsAre("a", "b"));
}

TEST_F(RunOnceRecordTest, AnotherPrefixHoldsNoKeys) {
    EXPECT_THAT(Read(Pack("bootweave.run-0nce=a,b,\n")), IsEmpty());
    EXPECT_THAT(Read(Pack("bootweave.run-once")), IsEmpty());
    EXPECT_THAT(Read(Pack("")), IsEmpty());
}

TEST_F(RunOnceRecordTest, WhatIsNoRecordHoldsNoKeys) {
    EXPECT_THAT(Read("bootweave.run-once=a,b,\n"), IsEmpty());  // not packed
    EXPECT_THAT(Read(""), IsEmpty());
    Keys keys;
    ReadRunOnceRecord(keys, dir_.File("missing"));
    ReadRunOnceRecord(keys, dir_.path());
    EXPECT_THAT(keys, IsEmpty());
}

TEST_F(RunOnceRecordTest, AFifoInItsPlaceHoldsNothingUp) {
    const std::string fifo = dir_.File("fifo");
    ASSERT_EQ(0, ::mkfifo(fifo.c_str(), 0600));
    Keys keys;
    ReadRunOnceRecord(keys, fifo);
    EXPECT_THAT(keys, IsEmpty());
}

// The last byte of a stored block is bad: everything before it is still readable.
TEST_F(RunOnceRecordTest, KeysThatWereCompleteBeforeTheDamageCount) {
    const std::string packed = Pack("bootweave.run-once=first,second,third,\n");
    const std::string cut = packed.substr(0, packed.size() - 8);  // no checksum, no length
    EXPECT_THAT(Read(cut), ElementsAre("first", "second", "third"));
    Keys most;
    for (std::size_t size = 0; size < packed.size(); ++size) {
        for (const std::string& key : Read(packed.substr(0, size))) {
            EXPECT_THAT(key, testing::AnyOf("first", "second", "third")) << "cut at " << size;
        }
    }
}

TEST_F(RunOnceRecordTest, ABadChecksumKeepsAllKeysButACutOne) {
    std::string packed = Pack("bootweave.run-once=first,second");
    packed[packed.size() - 8] ^= 1;
    EXPECT_THAT(Read(packed), ElementsAre("first"));
}

TEST_F(RunOnceRecordTest, AllMembersOfTheFileAreReadAsOneText) {
    EXPECT_THAT(Read(Pack("bootweave.run-once=a,") + Pack("b,\n")), ElementsAre("a", "b"));
    EXPECT_THAT(Read(Pack("bootweave.run-") + Pack("") + Pack("once=a") + Pack("b\n")), ElementsAre("ab"));
}

TEST_F(RunOnceRecordTest, WhatIsNoMemberBehindTheLastOneDoesNoHarm) {
    const std::string record = Pack("bootweave.run-once=a,b");
    for (const char* junk : {"garbage", "\x1f", "\x1f\x8b", "\x1f\x8b garbage"}) {
        EXPECT_THAT(Read(record + junk), ElementsAre("a", "b")) << testing::PrintToString(junk);
    }
}

TEST_F(RunOnceRecordTest, KeysThatWereCompleteBeforeADamagedMemberCount) {
    const std::string second = Pack("second,third,\n");
    const std::string cut = Pack("bootweave.run-once=first,x") + second.substr(0, second.size() - 8);
    EXPECT_THAT(Read(cut), ElementsAre("first", "third", "xsecond"));
    EXPECT_THAT(Read(Pack("bootweave.run-once=first,x") + second.substr(0, 12)), ElementsAre("first"));
}

TEST_F(RunOnceRecordTest, MembersThatUnpackToGigabytesTogetherAreReadInBoundedMemory) {
    const std::string half = Pack(std::string(40'000'000, 'x'));
    EXPECT_THAT(Read(Pack("bootweave.run-once=a,") + half + half + Pack(",b,\n")), ElementsAre("a"));
}

TEST_F(RunOnceRecordTest, AFileThatUnpacksToGigabytesIsReadInBoundedMemory) {
    std::string keys = "bootweave.run-once=a,";
    keys.append(80'000'000, 'x');
    EXPECT_THAT(Read(Pack(keys)), ElementsAre("a"));
}

TEST_F(RunOnceRecordTest, ABootBankThatCannotBeWrittenIsNoFailure) {
    WriteRunOnceRecord({"a"}, dir_.File("missing/record"));
    EXPECT_THAT(dir_.Names(), IsEmpty());
}

}  // namespace
}  // namespace bootweave
