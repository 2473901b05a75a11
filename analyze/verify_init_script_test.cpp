// SPDX-License-Identifier: Apache-2.0
#include "analyze/verify_init_script.h"

#include <filesystem>
#include <string>
#include <vector>

#include <sys/stat.h>

#include "gmock/gmock.h"

#include "analyze/verify_test_support.h"
#include "tests/support/temp_dir.h"

namespace bootweave {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class VerifyInitScriptTest : public testing::Test {
  protected:
    /// The texts of what is found about an executable script that begins so.
    [[nodiscard]] std::vector<std::string> Check(const std::string& text,
                                                 const std::string& name = "script") const {
        dir_.WriteProgram(name, text);
        std::vector<std::string> texts;
        Findings findings;
        CheckInitScript(dir_.File(name), {.name = name, .file = name}, findings);
        for (const Finding& finding : findings) {
            EXPECT_EQ(FindingKind::kInitScript, finding.kind);
            texts.push_back(finding.text);
        }
        return texts;
    }

    TempDir dir_;
};

TEST_F(VerifyInitScriptTest, AScriptIsARegularFileWithTheMark) {
    EXPECT_TRUE(IsScript(dir_.WriteFile("a", "#!/bin/sh\n")));
    EXPECT_TRUE(IsScript(dir_.WriteFile("b", "#!")));
    EXPECT_FALSE(IsScript(dir_.WriteFile("c", "#")));
    EXPECT_FALSE(IsScript(dir_.WriteFile("d", " #!/bin/sh\n")));
    EXPECT_FALSE(IsScript(dir_.File("missing")));
    EXPECT_FALSE(IsScript(dir_.path()));
    ASSERT_EQ(0, ::mkfifo(dir_.File("fifo").c_str(), 0700));
    EXPECT_FALSE(IsScript(dir_.File("fifo")));
}

TEST_F(VerifyInitScriptTest, AnExecutableScriptWithAnInterpreterIsFine) {
    EXPECT_THAT(Check("#!/bin/sh\n"), IsEmpty());
    EXPECT_THAT(Check("#! /bin/sh -e\nexit 0\n"), IsEmpty());
    EXPECT_THAT(Check("#!/bin/sh"), IsEmpty());
}

TEST_F(VerifyInitScriptTest, OneThatIsNotExecutableIsNotStarted) {
    Findings findings;
    CheckInitScript(dir_.WriteFile("a", "#!/bin/sh\n"), {.name = "a", .file = "a"}, findings);
    EXPECT_THAT(findings,
                ElementsAre(Finding{"a", Severity::kError, FindingKind::kInitScript, "a", "not executable"}));
}

TEST_F(VerifyInitScriptTest, OneWithoutAnInterpreterIsNotStarted) {
    EXPECT_THAT(Check("#!/no/such/shell -e\n"),
                ElementsAre("cannot use its interpreter /no/such/shell: No such file or directory"));
    EXPECT_THAT(Check("#!\n"), ElementsAre("its first line names no interpreter"));
    EXPECT_THAT(Check("#! \t\n/bin/sh\n"), ElementsAre("its first line names no interpreter"));
}

TEST_F(VerifyInitScriptTest, OneThatInitRunsStartThemselvesIsLeftOut) {
    EXPECT_THAT(
        Check("#!/bin/sh\n", "obsvd"),
        ElementsAre("daemon runs leave out a script of this name, because init runs start it themselves"));
}

}  // namespace
}  // namespace bootweave
