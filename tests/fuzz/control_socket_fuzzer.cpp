// SPDX-License-Identifier: Apache-2.0
// A request at the control socket, as the executor takes it: the bytes up to the first null byte.

#include <algorithm>
#include <cstring>
#include <memory>

#include "hostcli/command_runner.h"
#include "hostcli/control_socket.h"
#include "tests/fuzz/fuzzing.h"
#include "tests/support/fake_platform.h"
#include "util/exception.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace bootweave;
    FakePlatform::Reset();
    const std::string received(Text(data, std::min(size, kLargestRequest)));
    const std::string request(received.c_str());
    Check(IsStopRequest(request) == (request.size() >= 4 && ::strncasecmp(request.c_str(), "stop", 4) == 0),
          "four letters stop the executor");
    try {
        // Without directories every command that parses is unknown: nothing is run.
        RunCommandLine(request, [] { return std::make_shared<Plinth::Cmdgen::Dispatcher>(); });
        Check(false, "an unknown command fails");
    } catch (const Exception& error) {
        const std::string text = error.what();
        Check(text == "Executor failed to parse command " + request ||
                  text == "Executor failed to execute command: " + request,
              "a failure names the command");
        Check(!FakePlatform::log().empty(), "a failure has its reason in the log");
    }
    return 0;
}
