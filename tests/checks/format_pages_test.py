#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Tests of the check that the pages of formats say what the sources do."""

import unittest

import format_pages

_READER = 'constexpr JSONPluginKey kStart{"operations", "start"};\n' \
          'constexpr JSONPluginKey kOnce{"metadata", "run_once", 3};\n'
_HEADER = "#define BOOTWEAVE_PLUGIN_EXPORT extern\n#define BOOTWEAVE_PLUGIN_NAMES(list, ...) x\n"
_PLUGIN_PAGE = '.TP\n.BR start " (array of strings)"\nx\n' \
               '.TP\n.BR run_once " (boolean, from version 3)"\n' \
               "BOOTWEAVE_PLUGIN_NAMES(a, b);\n"
_INJECTION = "struct DebugInjection {\n    std::string name;\n" \
             "    std::vector<std::string> requires_names;\n    bool same() const;\n};\n"
_WRITER = """
    Log_Level(2, "unable to open %s\\n", path);
    out << "[" << Stamp(plugin->start()) << " - " << Stamp(end) << "] " << kind << ": " << name.view()
        << "\\n";
    out << " Verbose: " << config.verbose << "\\n"
        << " Seed: " << config.seed << "\\n";
    WritePlugins(out, run.plugins, "sysboot");
"""
_PROFILE_PAGE = ".TP\n\\fB[\\fIstamp\\fB \\- \\fIstamp\\fB] sysboot: \\fIplugin\\fR\n" \
                '.TP\n.BI " Verbose: " flag\n.TP\n.BI " Seed: " number\n'
_DISPATCHER = 'constexpr std::array kDirectories{\n    "/usr/lib/one",\n};\n'
_RUNNER = 'options.environment = {"PATH=/bin"};\n'
_PARSERS = "throw Exception(\"empty\");\nerrors.push_back(\"invalid word '\" + word + \"'\");\n"
_COMMAND_PAGE = "/usr/lib/one\n.BR PATH=/bin ,\n.TP\n.B empty\n.TQ\n.BI \"invalid word \\(aq\" word \\(aq\n"


class PluginPageTest(unittest.TestCase):
    """Keys and macros."""

    def _find(self, page):
        return list(format_pages.plugin_page_findings(page, _READER, _HEADER))

    def test_a_page_with_every_key_and_macro_is_good(self):
        self.assertEqual([], self._find(_PLUGIN_PAGE))

    def test_a_key_that_is_missing_or_unknown_or_has_another_version_is_named(self):
        self.assertEqual(["docs/bootweave-plugin.5: key start from version 1 is missing"],
                         self._find(_PLUGIN_PAGE.replace("BR start", "BR begin").replace("(array", "(list")))
        self.assertEqual(["docs/bootweave-plugin.5: key run_once from version 3 is missing",
                          "docs/bootweave-plugin.5: there is no key run_once from version 2"],
                         self._find(_PLUGIN_PAGE.replace("version 3", "version 2")))

    def test_a_macro_that_is_missing_or_unknown_is_named(self):
        self.assertEqual(["docs/bootweave-plugin.5: macro BOOTWEAVE_PLUGIN_NAMES is missing",
                          "docs/bootweave-plugin.5: there is no macro BOOTWEAVE_PLUGIN_NAME"],
                         self._find(_PLUGIN_PAGE.replace("_NAMES", "_NAME")))


class OtherPagesTest(unittest.TestCase):
    """Fields, lines, directories, errors and references."""

    def test_each_field_of_an_injection_has_its_paragraph(self):
        page = ".TP\n.I name\n.TP\n.I requires\n"
        self.assertEqual([], list(format_pages.debug_page_findings(page, _INJECTION)))
        page = page.replace("requires", "needs")
        self.assertEqual(["docs/bootweave-debug.conf.5: field requires is missing",
                          "docs/bootweave-debug.conf.5: there is no field needs"],
                         list(format_pages.debug_page_findings(page, _INJECTION)))

    def test_each_line_of_the_profile_has_its_paragraph(self):
        self.assertEqual([], list(format_pages.profile_page_findings(_PROFILE_PAGE, _WRITER)))
        findings = list(format_pages.profile_page_findings(_PROFILE_PAGE.replace("sysboot", "boot"), _WRITER))
        self.assertEqual(2, len(findings))
        self.assertEqual("docs/sysboot.log.5: there is no line [stamp - stamp] boot: plugin", findings[1])
        self.assertEqual("docs/sysboot.log.5: there is no line  Sed: number", list(
            format_pages.profile_page_findings(_PROFILE_PAGE.replace("Seed", "Sed"), _WRITER))[1])

    def test_directories_variables_and_errors_stand_in_the_page_of_commands(self):
        def find(page):
            return list(format_pages.command_page_findings(page, _DISPATCHER, _RUNNER, _PARSERS))
        self.assertEqual([], find(_COMMAND_PAGE))
        self.assertEqual(["docs/hostcli.7: the directory /usr/lib/one is missing"],
                         find(_COMMAND_PAGE.replace("one", "two")))
        self.assertEqual(["docs/hostcli.7: the variable PATH= is missing"],
                         find(_COMMAND_PAGE.replace("PATH", "PATHS")))
        self.assertEqual(["docs/hostcli.7: the error empty is missing"],
                         find(_COMMAND_PAGE.replace("empty", "void")))
        self.assertEqual(["docs/hostcli.7: the error invalid word ' is missing"],
                         find(_COMMAND_PAGE.replace("invalid", "bad")))

    def test_a_reference_to_a_page_without_a_source_is_named(self):
        page = ".BR bootweave\\-plugin (5),\n.BR dmesg (1),\n.BR bootweave\\-chkconfig (8),\n"
        self.assertEqual([], list(format_pages.broken_references(
            "a", page, ["docs/bootweave-plugin.5", "docs/chkconfig.8"])))
        self.assertEqual(["a: there is no page bootweave-plugin(5)"],
                         list(format_pages.broken_references("a", page, ["docs/chkconfig.8"])))


if __name__ == "__main__":
    unittest.main()
