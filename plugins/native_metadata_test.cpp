// SPDX-License-Identifier: Apache-2.0
#include "plugins/native_metadata.h"

#include "gmock/gmock.h"

namespace bootweave {
namespace {

using namespace std::string_literals;

MetadataAnswer FullAnswer() {
    return {.outcome = MetadataOutcome::kNoSymbol,
            .raw_status = -2,
            .symbol = "operations",
            .text = "loader\0text"s,
            .metadata = {.version = 3,
                         .has_apply_host_profile = true,
                         .run_once = true,
                         .plugin_version = "1.0",
                         .provides_names = {"a", "", "c"},
                         .requires_names = {"\xFF\n"},
                         .required_flags = {},
                         .disabling_flags = {"d"},
                         .has_start = true}};
}

TEST(NativeMetadataTest, AnAnswerComesOutAsItWentIn) {
    EXPECT_EQ(FullAnswer(), UnpackAnswer(PackAnswer(FullAnswer())));
    EXPECT_EQ(MetadataAnswer(), UnpackAnswer(PackAnswer(MetadataAnswer())));
}

TEST(NativeMetadataTest, AnAnswerThatIsCutShortOrTooLongIsNone) {
    const std::string bytes = PackAnswer(FullAnswer());
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        EXPECT_EQ(std::nullopt, UnpackAnswer(bytes.substr(0, size))) << size;
    }
    EXPECT_EQ(std::nullopt, UnpackAnswer(bytes + "x"));
}

TEST(NativeMetadataTest, HugeLengthsAndNumbersThatMeanNothingAreNoAnswer) {
    const std::string bytes = PackAnswer(MetadataAnswer());
    const std::size_t fields = bytes.size() / 4;  // none of its strings and lists holds anything
    for (std::size_t field = 0; field < fields; ++field) {
        // raw_status and version may be any number.
        const bool any_number = field == 1 || field == 4;
        std::string changed = bytes;
        changed.replace(field * 4, 4, "\xFF\xFF\xFF\xFF");
        EXPECT_EQ(any_number, UnpackAnswer(changed).has_value()) << field;
    }
}

TEST(NativeMetadataTest, EveryChangedByteGivesAnAnswerOrNoneAndNothingWorse) {
    const std::string bytes = PackAnswer(FullAnswer());
    for (std::size_t place = 0; place < bytes.size(); ++place) {
        for (const char value : {'\0', '\1', '\x7F', '\x80', '\xFF'}) {
            std::string changed = bytes;
            changed[place] = value;
            if (const auto answer = UnpackAnswer(changed); answer.has_value()) {
                EXPECT_EQ(changed, PackAnswer(*answer)) << place;
            }
        }
    }
}

TEST(NativeMetadataTest, HowAChildEndedIsSaidInWords) {
    EXPECT_EQ("exited with code 3", DescribeNativeEnd(3 << 8));
    EXPECT_EQ("exited with code 255", DescribeNativeEnd(255 << 8));
    EXPECT_EQ("exited with signal: 9", DescribeNativeEnd(9));
    EXPECT_EQ("exited with signal: 11", DescribeNativeEnd(11 | 0x80));            // with a core dump
    EXPECT_EQ("exited: <unknown failure>", DescribeNativeEnd((19 << 8) | 0x7F));  // stopped
    EXPECT_EQ("exited: <unknown failure>", DescribeNativeEnd(0xFFFF));            // continued
}

}  // namespace
}  // namespace bootweave
