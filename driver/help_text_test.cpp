// SPDX-License-Identifier: Apache-2.0
#include "driver/help_text.h"

#include <string>
#include <vector>

#include "gmock/gmock.h"

namespace bootweave {
namespace {

// Typed a second time on purpose; the bar at the end of each line is not printed, it shows the blanks before
// it.
const std::vector<std::string> kExpectedLines{
    " -h,--help                  display this help message|",
    "    --init                  run in init mode (this will cause logrelay to be|",
    "                            launched, and the start method to be invoked on the|",
    "                            plugins)|",
    "    --invoke                run a particular method from the plugin's function|",
    "                            pointer table (requires --method)|",
    "    --method=<method>       specifies the method identifier|",
    "    --plugin=<plugin>[,<plugin>]|",
    "                            comma separated list of plugins to load (note that |",
    "                            this will prevent the loading of all plugins, and |",
    "                            only the specified plugins will be loaded), which|",
    "                            are specified by the filename (basename of the|",
    "                            plugin path)|",
    "    --trace                 trace execution of the plugins for debugging |",
    "                            purposes|",
    "    --verbose               logs plugin execution to syslog to aid in debugging|",
    "    --randomize[=seed]      evaluate the execution order randomizing the|",
    "                            order of independent jobs. Only useful for testing.|",
    "                            You can specify an optional seed for reproducibility|",
    "    --parallel              evaluate the execution order accounting for|",
    "                            parallelism between jobs which are independent|",
    "    --plugin-flags=<flag>[,<flag>]|",
    "                            specify flags for conditional execution of plugins.|",
    "                            If there are multiple occurences of this option, the|",
    "                            last one is the only one that counts. See plugin|",
    "                            documentation for which plugins support flags.|",
    "    --interactive           prompts before performing the action, allowing|",
    "                            plugins to be skipped, executed, or to fall to a|",
    "                            troubleshooting shell|",
    "    --disable-plugins=<plugin>[,<plugin>]|",
    "                            a comma separated list of plugins to be disabled|",
    "                            during execution, which are specified by the|",
    "                            filename (basename of the plugin path)|",
    "    --dump-dependency-tree[=<path>]|",
    "                            dump plugin dependency tree information to the file|",
    "                            specified by path.  If path is not specified, the|",
    "                            information will be dumped to the console|",
    "    --interactive-mode-requires=<plugin>[,<plugin>]|",
    "                            interactive mode requires the specified plugins to |",
    "                            be loaded before it can be activated|",
    "    --daemon=[wait|nowait]|",
    "                            run daemon operations (requires --method). The |",
    "                            optional wait mode specifies whether bootweave |",
    "                            should wait for daemon start/stop to complete. |",
    "                            Defaults to 'nowait' if unspecified.|",
    "    --daemon-wait-timeout=timeoutInSecs|",
    "                            specify how long bootweave should wait for daemons |",
    "                            to start/stop, before moving on to the next one.   |",
    "                            The default is 40 secs.                            |",
};

TEST(HelpTextTest, IsTheTextThatOperatorsKnowToTheByte) {
    std::string expected;
    for (const std::string& line : kExpectedLines) {
        expected += line.substr(0, line.size() - 1) + "\n";
    }
    EXPECT_EQ(expected, kHelpText);
    EXPECT_EQ(49U, kExpectedLines.size());
}

}  // namespace
}  // namespace bootweave
