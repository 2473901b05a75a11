# SPDX-License-Identifier: Apache-2.0
"""The picture of a boot, as a browser shows it."""

import re
import xml.etree.ElementTree

from harness import PLUGINS, SystemTest, plugin
from init_scripts import PROFILE
from rendered import browser_is_missing, render

_ANALYZE = "/usr/bin/bootweave-analyze"
_COLOURS = {"light": {"paper": "#ffffff", "bar": "#8fb8e3", "critical": "#ef8f4c", "tick": "#5b6472"},
            "dark": {"paper": "#16181d", "bar": "#2f5f96", "critical": "#a9500f", "tick": "#a3acb8"}}
_SVG = "{http://www.w3.org/2000/svg}"


def _log(plugins, milliseconds):
    """A log of plugins as (name, start, end), all in milliseconds of one minute, of a run that long."""
    def stamp(time):
        return f"2099-11-15 15:00:{time // 1000:02}.{time % 1000:03}000"
    lines = [f"[{stamp(start)} - {stamp(end)}] sysboot: {name}\n" for name, start, end in plugins]
    return {PROFILE: "Mantle Initialization Time: 12000000\n" + "".join(lines) +
            f"=== Bootweave configuration info ===\n Start: {stamp(0)}\n End: {stamp(milliseconds)}\n"
            " Verbose: 0\n Parallel: 1\n Randomize: 0\n Interactive Mode: 0\n Random Seed: 1\n"}


class PictureTest(SystemTest):
    """What "plot" draws."""

    def _plot(self, *files):
        end = self.host(*files).run(_ANALYZE, "plot")
        self.assertEqual((0, ""), (end.status, end.stderr))
        return end.stdout

    def _rendered(self, svg, scheme):
        if browser_is_missing():
            self.skipTest("chromium is not installed")
        size = re.search(r'width="(\d+)\.\d" height="(\d+)\.\d"', svg)
        return render(svg, int(size[1]), int(size[2]), scheme)

    @staticmethod
    def _rectangles(svg, name):
        """The centres of the rectangles of a class, without the legend's, and their widths."""
        root = xml.etree.ElementTree.fromstring(svg)
        for group in root.iter(_SVG + "g"):
            for shape in group.iter(_SVG + "rect"):
                if shape.get("class") == name:
                    x, y, width, height = (float(shape.get(key)) for key in ("x", "y", "width", "height"))
                    yield x + width / 2, y + height / 2, width

    def _assert_colours(self, svg, scheme):
        """Wide bars have their colour in the middle, unless a letter is there: one of three pixels does."""
        pixels = self._rendered(svg, scheme)
        colours = _COLOURS[scheme]
        self.assertEqual(colours["paper"], pixels.at(3, 3))
        counted = 0
        for name in ("bar", "critical"):
            for x, y, width in self._rectangles(svg, name):
                if width >= 8:
                    counted += 1
                    seen = {pixels.at(x, y), pixels.at(x + width / 2 - 2, y), pixels.at(x - width / 2 + 2, y)}
                    self.assertIn(colours[name], seen, (name, x, y))
        return pixels, counted

    def test_bars_and_ticks_have_their_colours_in_both_schemes(self):
        svg = self._plot(plugin("a", provides=["x"]), plugin("b", requires=["x"]), plugin("c"),
                         _log([("a", 100, 500), ("b", 500, 900), ("c", 100, 300)], 1000))
        for scheme, colours in _COLOURS.items():
            with self.subTest(scheme):
                pixels, counted = self._assert_colours(svg, scheme)
                self.assertEqual(5, counted)    # a and b once more in the chain
                tick = 24 + 1120 * 0.5
                around = {pixels.at(tick + shift, 155) for shift in (-1, 0, 1)}
                self.assertNotEqual({colours["paper"]}, around)
                self.assertEqual(colours["paper"], pixels.at(tick + 30, 155))

    def test_a_boot_of_one_plugin_is_a_picture(self):
        svg = self._plot(plugin("only"), _log([("only", 100, 900)], 1000))
        self.assertEqual(2, self._assert_colours(svg, "light")[1])

    def test_a_boot_of_a_thousand_plugins_is_a_picture(self):
        plugins = [(f"plugin-{index}", index // 4 * 50, index // 4 * 50 + 50) for index in range(1000)]
        files = {}
        for index, (name, _, _) in enumerate(plugins):
            files |= plugin(name, requires=[f"x{index - 4}"] if index >= 4 else [], provides=[f"x{index}"])
        svg = self._plot(files, _log(plugins, 12_600))
        self.assertEqual(1000 + 40, self._assert_colours(svg, "dark")[1])

    def test_names_are_text_whatever_they_hold(self):
        name = "<b>&amp;\"'\t]]>\u200f"
        svg = self._plot(plugin(name), _log([(name, 100, 900)], 1000))
        root = xml.etree.ElementTree.fromstring(svg)
        shown = name.replace("\t", "\\x09")  # as in all reports
        self.assertIn(shown, [text.text for text in root.iter(_SVG + "text")])
        self.assertEqual(shown, next(root.iter(_SVG + "title")).text.splitlines()[0])
        self.assertEqual(2, self._assert_colours(svg, "light")[1])

    def test_every_bar_has_a_tooltip(self):
        end = self.sample_host().shell(f"bootweave --init --parallel >/dev/null 2>&1 && exec {_ANALYZE} plot")
        self.assertEqual((0, ""), (end.status, end.stderr))
        root = xml.etree.ElementTree.fromstring(end.stdout)
        plugins = set(re.findall(r"sysboot: (.*)", end.read(PROFILE)))
        self.assertGreater(len(plugins), 30)
        titles = [group.find(_SVG + "title").text.splitlines()[0] for group in root.iter(_SVG + "g")]
        self.assertLessEqual(plugins, set(titles))
        self._assert_colours(end.stdout, "light")


class FileTest(SystemTest):
    """Where the picture goes."""

    def test_a_file_is_replaced_whole_and_nothing_is_left_beside_it(self):
        host = self.host(plugin("a"), _log([("a", 100, 900)], 1000), {"/pictures/boot.svg": "old"})
        end = host.shell(f"{_ANALYZE} plot -o /pictures/boot.svg && {_ANALYZE} plot | "
                         "cmp - /pictures/boot.svg && ls /pictures")
        self.assertEqual((0, "boot.svg\n", ""), (end.status, end.stdout, end.stderr))

    def test_a_picture_that_does_not_fit_leaves_the_old_one(self):
        host = self.host(plugin("a"), _log([("a", 100, 900)], 1000))
        end = host.shell(f"""mkdir /full && mount -t tmpfs -o size=4k none /full &&
            echo old >/full/boot.svg || exit; {_ANALYZE} plot -o /full/boot.svg; echo $?; cat /full/*""")
        self.assertEqual(("1\nold\n", "bootweave-analyze: cannot write /full/boot.svg: "
                          "No space left on device\n"), (end.stdout, end.stderr))

    def test_a_picture_beyond_the_limit_of_files_is_an_error_and_leaves_nothing(self):
        host = self.host(plugin("a"), _log([("a", 100, 900)], 1000))
        end = host.shell(f"""mkdir /pictures && cd /pictures &&
            (ulimit -f 1; {_ANALYZE} plot -o boot.svg); echo $?; ls""")
        self.assertEqual(("1\n", "bootweave-analyze: cannot write boot.svg: File too large\n"),
                         (end.stdout, end.stderr))

    def test_plugin_files_that_are_newer_than_the_run_cost_one_line(self):
        log = {path: text.replace("2099", "2001")
               for path, text in _log([("a", 1, 2), ("b", 1, 2)], 3).items()}
        end = self.host(plugin("a"), plugin("b"), log).run(_ANALYZE, "plot")
        self.assertEqual((0, f"bootweave-analyze: {PLUGINS}/a.json and 1 more are newer than the run: "
                          "what waited for what may have changed\n"), (end.status, end.stderr))
