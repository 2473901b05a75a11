// SPDX-License-Identifier: Apache-2.0
#include "util/exception.h"

#include "gtest/gtest.h"

namespace bootweave {
namespace {

/// What a handler of the standard base sees.
template <typename Raised>
std::string Caught(const Raised& raised) {
    try {
        throw raised;
    } catch (const std::exception& error) {
        return error.what();
    }
}

TEST(ExceptionTest, CarriesItsMessage) {
    EXPECT_EQ("Error opening control socket", Caught(Exception("Error opening control socket")));
    EXPECT_EQ("", Caught(Exception("")));
}

TEST(ExceptionTest, AFailedMethodIsPluginMethodAndReason) {
    EXPECT_EQ("net->start() failed: no link", Caught(MethodFailedException("start", "net", "no link")));
}

TEST(ExceptionTest, AMissingMethodIsNamedInItsQuotes) {
    EXPECT_EQ("method `DaemonPlugin::Restart' is not implemented",
              Caught(NotImplementedException("DaemonPlugin::Restart")));
}

TEST(ExceptionTest, AnInvalidPluginIsNamedWithItsReason) {
    EXPECT_EQ("plugin `/plugins/net.json' is invalid: no version",
              Caught(InvalidPluginException("/plugins/net.json", "no version")));
}

TEST(ExceptionTest, AllKindsAreTheProgramsOwn) {
    EXPECT_THROW(throw MethodFailedException("a", "b", "c"), Exception);
    EXPECT_THROW(throw NotImplementedException("a"), Exception);
    EXPECT_THROW(throw InvalidPluginException("a", "b"), Exception);
}

}  // namespace
}  // namespace bootweave
