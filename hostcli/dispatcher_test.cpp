// SPDX-License-Identifier: Apache-2.0
#include "hostcli/dispatcher.h"

#include <filesystem>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "gmock/gmock.h"
#include "tests/support/fake_platform.h"
#include "tests/support/system_calls.h"
#include "tests/support/temp_dir.h"
#include "util/child_process.h"

namespace bootweave {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const LogMessage kMissing{2,
                          "unable to add external directory to the hostcli dispatcher:"
                          " No such file or directory\n"};

/// The command directories of the host are below "hostcli" of a temporary directory here.
class DispatcherTest : public testing::Test {
  protected:
    void SetUp() override {
        FakePlatform::Reset();
        SystemCalls::Reset();
        SystemCalls::Redirect(dir_.path().c_str());
    }
    void TearDown() override { SystemCalls::Reset(); }

    /// Puts a command into a directory: it says where it was found.
    void AddCommand(const std::string& directory) {
        std::filesystem::create_directories(dir_.File(directory));
        dir_.WriteProgram(directory + "/where.am.i", "#!/bin/sh\necho " + directory + " >&2\nexit 1\n");
    }

    static std::list<std::string> Execute(Plinth::Cmdgen::Dispatcher& dispatcher) {
        const auto input = Plinth::Cmdgen::CommandInput::New();
        const auto output = Plinth::Cmdgen::CommandOutput::New();
        std::list<std::string> path{"where", "am", "i"};
        input->SetCommandPath(path);
        dispatcher.ExecuteCommand(input, output);
        return output->GetErrors();
    }

    const TempDir dir_;
};

TEST_F(DispatcherTest, EachMissingDirectoryCostsALineAndCommandsAreUnknown) {
    HostcliDispatcher dispatcher;
    EXPECT_THAT(FakePlatform::log(), ElementsAre(kMissing, kMissing, kMissing, kMissing));
    EXPECT_THAT(Execute(dispatcher), ElementsAre("unknown command: where am i"));
}

TEST_F(DispatcherTest, AMissingDirectoryDoesNotHideTheOthers) {
    AddCommand("hostcli/ext");
    HostcliDispatcher dispatcher;
    EXPECT_THAT(FakePlatform::log(), ElementsAre(kMissing, kMissing));  // int and int/ext
    EXPECT_THAT(Execute(dispatcher), ElementsAre("hostcli/ext"));
}

TEST_F(DispatcherTest, AFileInADirectorysPlaceIsSaid) {
    for (const char* directory : {"hostcli", "hostcli/int", "hostcli/int/ext"}) {
        AddCommand(directory);
    }
    dir_.WriteFile("hostcli/ext", "");
    const HostcliDispatcher dispatcher;
    EXPECT_THAT(FakePlatform::log(),
                ElementsAre(LogMessage{
                    2, "unable to add external directory to the hostcli dispatcher: Not a directory\n"}));
}

TEST_F(DispatcherTest, TheFirstDirectoryThatHasACommandAnswersIt) {
    const std::vector<std::string> order{"hostcli", "hostcli/int", "hostcli/int/ext", "hostcli/ext"};
    for (const std::string& directory : order) {
        AddCommand(directory);
    }
    HostcliDispatcher dispatcher;
    EXPECT_THAT(FakePlatform::log(), IsEmpty());
    for (const std::string& directory : order) {
        EXPECT_THAT(Execute(dispatcher), ElementsAre(directory));
        std::filesystem::remove(dir_.File(directory + "/where.am.i"));
    }
    EXPECT_THAT(Execute(dispatcher), ElementsAre("unknown command: where am i"));
}

TEST_F(DispatcherTest, ThereIsOnePerProcess) {
    // In a child: executors that this process forks later are to make their own.
    auto child = ChildProcess::Fork([] {
        FakePlatform::EchoTo(-1);
        const std::shared_ptr<HostcliDispatcher> first = HostcliDispatcher::Instance();
        const bool one = first != nullptr && first == HostcliDispatcher::Instance();
        return one && FakePlatform::log().size() == 4 ? 0 : 1;
    });
    ASSERT_TRUE(child.has_value());
    EXPECT_EQ(0, child->Wait());
}

}  // namespace
}  // namespace bootweave
