// SPDX-License-Identifier: Apache-2.0
#include "analyze/help_text.h"

#include "gtest/gtest.h"

namespace bootweave {
namespace {

// Typed a second time on purpose.
constexpr const char* kExpected =
    "bootweave-analyze: tells where the time of a boot went, and what is wrong\n"
    "with its plugins.\n"
    "\n"
    "usage: bootweave-analyze [OPTION...] [COMMAND]\n"
    "\n"
    "Commands:\n"
    "  time     what the boot took as a whole (the default)\n"
    "  blame    the plugins that ran, longest first\n"
    "  critical-chain [PLUGIN]\n"
    "           what the last plugin to end, or this one, waited for\n"
    "  plot     the boot as a picture in SVG: a bar for each plugin on a time axis\n"
    "  dot      the graph for Graphviz, with times and the critical chain\n"
    "  simulate what the boot would take with other settings, and what bounds it\n"
    "  diff OLD.log NEW.log\n"
    "           what got slower or faster between two boots\n"
    "  list     the runs that the profile tells of\n"
    "  verify [FILE or DIRECTORY...]\n"
    "           what is wrong with the host's plugins, or with these\n"
    "\n"
    "Options:\n"
    "  --profile FILE          read this boot profile, not /var/log/sysboot.log\n"
    "  --boot boot|last|N      the last boot in it (the default), its last block\n"
    "                          of any kind, or block N, from 1\n"
    "  --plugin-directory DIR  where the host's plugins are\n"
    "  --around PLUGIN         for dot: only the plugin and its neighbours\n"
    "  --threads N             for simulate: so many plugins at a time\n"
    "  --without PLUGIN        for simulate: leave it out; may be given again\n"
    "  --time PLUGIN=MS        for simulate: it takes so long, at most 1000000000\n"
    "                          milliseconds; may be given again\n"
    "  --strict                for verify: warnings count as errors\n"
    "  -o, --output FILE       for plot: write the picture there\n"
    "  --json                  write one JSON object, for programs\n"
    "  -h, --help              show this help\n"
    "\n"
    "Examples:\n"
    "  bootweave-analyze\n"
    "      How long did the last boot take?\n"
    "  bootweave-analyze blame | head -n 5\n"
    "      Which five plugins took longest? In a pipe the fields are separated\n"
    "      by tabs.\n"
    "  bootweave-analyze critical-chain\n"
    "      Which plugins should be faster for the boot to be faster?\n"
    "  bootweave-analyze plot -o boot.svg\n"
    "      What ran when, side by side? Open the file in a browser.\n"
    "  bootweave-analyze dot --around storage | dot -Tsvg >storage.svg\n"
    "      What does storage wait for, and what waits for it?\n"
    "  bootweave-analyze simulate --threads 8 --time storage=200\n"
    "      What would the boot take on four processors, with faster storage?\n"
    "  bootweave-analyze diff yesterday.log /var/log/sysboot.log\n"
    "      Why does the host boot slower than yesterday?\n"
    "  bootweave-analyze blame --boot last\n"
    "      Which init script took longest, when they were last started?\n"
    "  bootweave-analyze time --profile sysboot.log --json\n"
    "      The same numbers from a copy of the profile, for a program.\n"
    "  bootweave-analyze verify my-plugin.json\n"
    "      Would this plugin work on this host?\n";

TEST(AnalyzeHelpTextTest, TheHelpIsThisText) {
    EXPECT_STREQ(kExpected, kAnalyzeHelpText);
}

}  // namespace
}  // namespace bootweave
