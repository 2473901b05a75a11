// SPDX-License-Identifier: Apache-2.0
#include "analyze/verify_json_keys.h"

#include <string>
#include <vector>

#include "gmock/gmock.h"

#include "analyze/verify_test_support.h"

namespace bootweave {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Key = JSONPluginRemarks::Key;

Finding Warning(FindingKind kind, const std::string& text) {
    return {"f.json", Severity::kWarning, kind, "f", text};
}

Findings Check(const JSONPluginRemarks& remarks, std::optional<std::int32_t> version = 4) {
    Findings findings;
    CheckJSONKeys(remarks, version, {.name = "f", .file = "f.json"}, findings);
    return findings;
}

Findings CheckKey(const std::string& parent, const std::string& name,
                  std::optional<std::int32_t> version = 4) {
    return Check({.keys = {{parent, name}}}, version);
}

std::string UnknownKey(const std::string& parent, const std::string& name) {
    const Findings findings = CheckKey(parent, name);
    return findings.size() == 1 && findings[0].kind == FindingKind::kUnknownKey ? findings[0].text : "";
}

TEST(VerifyJSONKeysTest, AKeyOfTheFileFormatIsFine) {
    EXPECT_THAT(Check({.keys = {{"", "metadata"}, {"metadata", "run_once"}, {"operations", "start"}}}),
                IsEmpty());
}

TEST(VerifyJSONKeysTest, AnUnknownKeyIsNamedWithWhatWasMeant) {
    EXPECT_THAT(CheckKey("metadata", "require"),
                ElementsAre(Warning(FindingKind::kUnknownKey,
                                    "unknown key 'metadata.require'; did you mean 'metadata.requires'?")));
    EXPECT_EQ("unknown key 'Metadata'; did you mean 'metadata'?", UnknownKey("", "Metadata"));
    EXPECT_EQ("unknown key 'operations.apply-host-profile'; did you mean 'operations.apply_host_profile'?",
              UnknownKey("operations", "apply-host-profile"));
    EXPECT_EQ("unknown key 'metadata.description'", UnknownKey("metadata", "description"));
}

TEST(VerifyJSONKeysTest, AKeyInTheWrongObjectIsShownTheRightOne) {
    EXPECT_EQ("unknown key 'requires'; did you mean 'metadata.requires'?", UnknownKey("", "requires"));
    EXPECT_EQ("unknown key 'metadata.start'; did you mean 'operations.start'?",
              UnknownKey("metadata", "start"));
}

TEST(VerifyJSONKeysTest, OfAnUnknownObjectOnlyItsOwnKeyIsAFinding) {
    EXPECT_EQ("unknown key 'extra'", UnknownKey("", "extra"));
    EXPECT_THAT(CheckKey("extra", "require"), IsEmpty());
}

TEST(VerifyJSONKeysTest, TheKeyWithWhichEditorsFindTheSchemaIsFineInTheRootOnly) {
    EXPECT_THAT(CheckKey("", "$schema"), IsEmpty());
    EXPECT_EQ("unknown key 'metadata.$schema'", UnknownKey("metadata", "$schema"));
}

TEST(VerifyJSONKeysTest, AKeyOfLaterVersionsIsNotRead) {
    EXPECT_THAT(
        CheckKey("metadata", "run_once", 2),
        ElementsAre(Warning(FindingKind::kUnreadKey,
                            "key 'metadata.run_once' is not read in version 2, only from version 3")));
    EXPECT_THAT(CheckKey("operations", "apply_host_profile", 1),
                ElementsAre(Warning(
                    FindingKind::kUnreadKey,
                    "key 'operations.apply_host_profile' is not read in version 1, only from version 2")));
    EXPECT_THAT(CheckKey("metadata", "run_once", 3), IsEmpty());
    EXPECT_THAT(CheckKey("metadata", "run_once", std::nullopt), IsEmpty());
}

TEST(VerifyJSONKeysTest, ARepeatedKeyIsNamed) {
    EXPECT_THAT(Check({.repeated = {{"metadata", "provides"}}}),
                ElementsAre(Warning(FindingKind::kRepeatedKey,
                                    "key 'metadata.provides' is there twice, and the last one counts")));
}

TEST(VerifyJSONKeysTest, OfATextThatIsNoJsonOnlyThePlaceIsTold) {
    const JSONPluginRemarks remarks{.keys = {{"", "x"}}, .syntax_error = "line 2, column 3: syntax error"};
    EXPECT_THAT(Check(remarks, std::nullopt),
                ElementsAre(Finding{"f.json", Severity::kError, FindingKind::kSyntax, "f",
                                    "line 2, column 3: syntax error"}));
}

}  // namespace
}  // namespace bootweave
