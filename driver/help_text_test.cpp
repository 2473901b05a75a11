// SPDX-License-Identifier: Apache-2.0
#include "driver/help_text.h"

#include "gtest/gtest.h"

namespace bootweave {
namespace {

// Typed a second time on purpose.
constexpr const char* kExpected =
    " -h,--help                  display this help message\n"
    "    --init                  run in init mode (this will cause logrelay to be\n"
    "                            launched, and the start method to be invoked on the\n"
    "                            plugins)\n"
    "    --invoke                run a particular method from the plugin's function\n"
    "                            pointer table (requires --method)\n"
    "    --method=<method>       specifies the method identifier\n"
    "    --plugin=<plugin>[,<plugin>]\n"
    "                            comma separated list of plugins to load (note that \n"
    "                            this will prevent the loading of all plugins, and \n"
    "                            only the specified plugins will be loaded), which\n"
    "                            are specified by the filename (basename of the\n"
    "                            plugin path)\n"
    "    --trace                 trace execution of the plugins for debugging \n"
    "                            purposes\n"
    "    --verbose               logs plugin execution to syslog to aid in debugging\n"
    "    --randomize[=seed]      evaluate the execution order randomizing the\n"
    "                            order of independent jobs. Only useful for testing.\n"
    "                            You can specify an optional seed for reproducibility\n"
    "    --parallel              evaluate the execution order accounting for\n"
    "                            parallelism between jobs which are independent\n"
    "    --plugin-flags=<flag>[,<flag>]\n"
    "                            specify flags for conditional execution of plugins.\n"
    "                            If there are multiple occurences of this option, the\n"
    "                            last one is the only one that counts. See plugin\n"
    "                            documentation for which plugins support flags.\n"
    "    --interactive           prompts before performing the action, allowing\n"
    "                            plugins to be skipped, executed, or to fall to a\n"
    "                            troubleshooting shell\n"
    "    --disable-plugins=<plugin>[,<plugin>]\n"
    "                            a comma separated list of plugins to be disabled\n"
    "                            during execution, which are specified by the\n"
    "                            filename (basename of the plugin path)\n"
    "    --dump-dependency-tree[=<path>]\n"
    "                            dump plugin dependency tree information to the file\n"
    "                            specified by path.  If path is not specified, the\n"
    "                            information will be dumped to the console\n"
    "    --interactive-mode-requires=<plugin>[,<plugin>]\n"
    "                            interactive mode requires the specified plugins to \n"
    "                            be loaded before it can be activated\n"
    "    --daemon=[wait|nowait]\n"
    "                            run daemon operations (requires --method). The \n"
    "                            optional wait mode specifies whether bootweave \n"
    "                            should wait for daemon start/stop to complete. \n"
    "                            Defaults to 'nowait' if unspecified.\n"
    "    --daemon-wait-timeout=timeoutInSecs\n"
    "                            specify how long bootweave should wait for daemons \n"
    "                            to start/stop, before moving on to the next one.   \n"
    "                            The default is 40 secs.                            \n";

TEST(HelpTextTest, IsTheTextThatOperatorsKnowToTheByte) {
    EXPECT_STREQ(kExpected, kHelpText);
}

}  // namespace
}  // namespace bootweave
