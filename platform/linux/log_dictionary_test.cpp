// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/log_dictionary.h"

#include <memory>

#include "gtest/gtest.h"

namespace {

struct Free {
    void operator()(Dictionary* dictionary) const { Dictionary_Free(dictionary); }
};
using Owned = std::unique_ptr<Dictionary, Free>;

TEST(LogDictionaryTest, KeepsTheLastValueOfEachKey) {
    const Owned dictionary(Dictionary_Create());
    Dict_SetString(dictionary.get(), "text", "one");
    Dict_SetString(dictionary.get(), "text", "two");
    Dict_SetBool(dictionary.get(), "flag", true);
    EXPECT_EQ("two", dictionary->Text("text", "none"));
    EXPECT_EQ(true, dictionary->Flag("flag", false));
    EXPECT_FALSE(dictionary->broken);
}

TEST(LogDictionaryTest, AMissingKeyHasTheFallback) {
    const Owned dictionary(Dictionary_Create());
    EXPECT_EQ("none", dictionary->Text("text", "none"));
    EXPECT_EQ(true, dictionary->Flag("flag", true));
    EXPECT_EQ(false, dictionary->Flag("flag", false));
}

TEST(LogDictionaryTest, AValueOfTheOtherTypeIsNoValue) {
    const Owned dictionary(Dictionary_Create());
    Dict_SetString(dictionary.get(), "text", "true");
    Dict_SetBool(dictionary.get(), "flag", true);
    EXPECT_EQ(std::nullopt, dictionary->Flag("text", false));
    EXPECT_EQ(std::nullopt, dictionary->Text("flag", "none"));
}

TEST(LogDictionaryTest, ClearingRemovesEverything) {
    const Owned dictionary(Dictionary_Create());
    Dict_SetString(dictionary.get(), "text", "one");
    Dict_SetString(dictionary.get(), nullptr, "one");
    Dictionary_Clear(dictionary.get());
    EXPECT_EQ("none", dictionary->Text("text", "none"));
    EXPECT_FALSE(dictionary->broken);
}

TEST(LogDictionaryTest, ASettingWithoutNameOrTextBreaksTheDictionary) {
    const Owned nameless(Dictionary_Create());
    Dict_SetBool(nameless.get(), nullptr, true);
    EXPECT_TRUE(nameless->broken);
    const Owned textless(Dictionary_Create());
    Dict_SetString(textless.get(), "text", nullptr);
    EXPECT_TRUE(textless->broken);
}

TEST(LogDictionaryTest, NoDictionaryIsAccepted) {
    Dict_SetString(nullptr, "text", "one");
    Dict_SetBool(nullptr, "flag", true);
    Dictionary_Clear(nullptr);
    Dictionary_Free(nullptr);
}

}  // namespace
