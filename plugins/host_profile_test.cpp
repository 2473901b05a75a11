// SPDX-License-Identifier: Apache-2.0
#include "plugins/host_profile.h"

#include <atomic>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include <sys/stat.h>

#include "gmock/gmock.h"
#include "plugins/plugin.h"
#include "tests/support/fake_platform.h"
#include "tests/support/temp_dir.h"
#include "tests/support/test_main.h"
#include "util/child_process.h"

namespace {

std::string g_host_directory;

}  // namespace

// The linker gives these names to the wrapped function.
extern "C" {
// NOLINTBEGIN(bugprone-reserved-identifier)
int __real_stat64(const char* path, struct stat64* status);
int __wrap_stat64(const char* path, struct stat64* status);

/// Looks for what belongs in the host's /etc/corvane in a directory of the test.
int __wrap_stat64(const char* path, struct stat64* status) {
    constexpr std::string_view kHostDirectory = "/etc/corvane/";
    const std::string_view asked(path);
    if (g_host_directory.empty() || !asked.starts_with(kHostDirectory)) {
        return __real_stat64(path, status);
    }
    const std::string found = g_host_directory + "/" + std::string(asked.substr(kHostDirectory.size()));
    return __real_stat64(found.c_str(), status);
}
// NOLINTEND(bugprone-reserved-identifier)
}

namespace bootweave {
namespace {

constexpr const char* kProfile = "hostprofile.xml";
constexpr const char* kPackedProfile = "hostprofile.xml.gz";

/// Says which of its methods ran.
class MethodPlugin : public Plugin {
  public:
    explicit MethodPlugin(bool supports) : Plugin("p"), supports_(supports) {}
    void Start() override { std::ofstream("/dev/stdout") << "start "; }
    [[nodiscard]] bool SupportsHostProfile() const override { return supports_; }
    void ApplyHostProfile() override { std::ofstream("/dev/stdout") << "apply "; }

  private:
    const bool supports_;
};

/// A fresh process in which nothing is decided yet: runs a plugin for each letter. 's' supports host
/// profiles, 'n' does not; 'c' makes a profile appear and 'r' makes it vanish.
int RunPlugins(int argc, char** argv) {
    if (argc != 2) {
        return 98;
    }
    g_host_directory = argv[0];
    const std::string profile = g_host_directory + "/" + kProfile;
    for (const char letter : std::string_view(argv[1])) {
        if (letter == 'c') {
            std::ofstream file(profile);
        } else if (letter == 'r') {
            std::filesystem::remove(profile);
        } else {
            MethodPlugin(letter == 's').Execute();
        }
    }
    return 0;
}

[[maybe_unused]] const bool kRole = RegisterChildRole("run-plugins", RunPlugins);

class HostProfileTest : public testing::Test {
  protected:
    [[nodiscard]] HostProfile Profile() const {
        return HostProfile({dir_.File(kProfile), dir_.File(kPackedProfile)});
    }

    /// Which methods the plugins of a fresh process ran, each followed by a blank.
    [[nodiscard]] std::string MethodsOf(const std::string& letters) const {
        Pipe pipe = Pipe::Create();
        SpawnOptions options;
        options.path = "/proc/self/exe";
        options.argv = {options.path, "--role=run-plugins", dir_.path(), letters};
        options.inherit_environment = true;
        options.descriptors = {{pipe.write_end.get(), STDOUT_FILENO}, {STDERR_FILENO, STDERR_FILENO}};
        auto child = ChildProcess::Spawn(options);
        pipe.write_end.Reset();
        if (!child.has_value() || child->Wait() != 0) {
            return "no clean end";
        }
        char text[256];
        const ssize_t count = ::read(pipe.read_end.get(), text, sizeof text);
        return {text, static_cast<std::size_t>(std::max<ssize_t>(count, 0))};
    }

    const TempDir dir_;
};

TEST_F(HostProfileTest, WithoutEitherFileThereIsNone) {
    dir_.WriteFile("hostprofile", "");
    EXPECT_FALSE(Profile().Present());
}

TEST_F(HostProfileTest, EitherFileIsAHostProfile) {
    for (const char* name : {kProfile, kPackedProfile}) {
        dir_.WriteFile(name, "");
        EXPECT_TRUE(Profile().Present()) << name;
        std::filesystem::remove(dir_.File(name));
    }
}

TEST_F(HostProfileTest, FilesOfAnyTypeCount) {
    const std::string path = dir_.File(kPackedProfile);
    std::filesystem::create_directory(path);
    EXPECT_TRUE(Profile().Present());
    std::filesystem::remove(path);

    ASSERT_EQ(0, ::mkfifo(path.c_str(), 0));
    EXPECT_TRUE(Profile().Present());
    std::filesystem::remove(path);

    std::filesystem::create_symlink("/dev/null", path);
    EXPECT_TRUE(Profile().Present());
}

TEST_F(HostProfileTest, ALinkThatLeadsNowhereDoesNotCount) {
    std::filesystem::create_symlink(dir_.File("none"), dir_.File(kProfile));
    std::filesystem::create_symlink(dir_.File(kPackedProfile),
                                    dir_.File(kPackedProfile));  // round in a circle
    EXPECT_FALSE(Profile().Present());
}

TEST_F(HostProfileTest, APathThatCannotBeLookedAtDoesNotCount) {
    dir_.WriteFile("file", "");
    EXPECT_FALSE(
        HostProfile({dir_.File("file/hostprofile.xml"), dir_.File(std::string(300, 'x'))}).Present());
    EXPECT_FALSE(HostProfile({}).Present());
}

TEST_F(HostProfileTest, TheFirstAnswerIsKept) {
    HostProfile absent = Profile();
    EXPECT_FALSE(absent.Present());
    dir_.WriteFile(kProfile, "");
    EXPECT_FALSE(absent.Present());

    HostProfile present = Profile();
    EXPECT_TRUE(present.Present());
    std::filesystem::remove(dir_.File(kProfile));
    EXPECT_TRUE(present.Present());
}

// Whatever appears or vanishes meanwhile, all threads are told the same.
TEST_F(HostProfileTest, AllThreadsGetOneAnswer) {
    for (int round = 0; round < 50; ++round) {
        HostProfile profile = Profile();
        std::atomic<int> yes = 0;
        std::vector<std::thread> threads;
        threads.emplace_back([&] { dir_.WriteFile(kProfile, ""); });
        for (int i = 0; i < 8; ++i) {
            threads.emplace_back([&] { yes += profile.Present() ? 1 : 0; });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_THAT(yes.load(), testing::AnyOf(0, 8));
        std::filesystem::remove(dir_.File(kProfile));
    }
}

TEST_F(HostProfileTest, PluginsOfAHostWithoutOneStart) {
    EXPECT_EQ("start start ", MethodsOf("ns"));
}

TEST_F(HostProfileTest, PluginsOfAHostWithOneApplyItWhenTheyCan) {
    dir_.WriteFile(kProfile, "");
    EXPECT_EQ("start apply start apply ", MethodsOf("nsns"));
}

TEST_F(HostProfileTest, APackedProfileAloneIsEnough) {
    dir_.WriteFile(kPackedProfile, "");
    EXPECT_EQ("apply ", MethodsOf("s"));
}

TEST_F(HostProfileTest, ItIsDecidedByTheFirstPluginThatSupportsIt) {
    EXPECT_EQ("start apply apply ", MethodsOf("ncsrs"));  // made behind a plugin that does not ask
    EXPECT_EQ("start start ", MethodsOf("scs"));
}

}  // namespace
}  // namespace bootweave
