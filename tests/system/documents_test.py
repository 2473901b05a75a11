# SPDX-License-Identifier: Apache-2.0
"""The documents as they are installed."""

import os
import re

from harness import STAGE_VARIABLE, SystemTest

_ROOT = os.path.join(os.path.dirname(os.path.realpath(__file__)), "..", "..")
_PLACE = "usr/share/doc/bootweave"
_LINK = re.compile(r"\]\(([^)\s]+)\)|\b(?:src|srcset|href)=\"([^\"]+)\"")


def _files(place):
    """The files below a directory, by their paths there."""
    for directory, _, names in os.walk(place):
        for name in names:
            yield os.path.relpath(os.path.join(directory, name), place)


def dead_links(place):
    """The relative links of documents below a directory that lead to nothing there, behind the document."""
    for document in sorted(name for name in _files(place) if name.endswith(".md")):
        with open(os.path.join(place, document), encoding="utf-8") as file:
            text = file.read()
        for found in _LINK.finditer(text):
            target = (found[1] or found[2]).partition("#")[0]
            if ":" in target or target == "":
                continue
            path = os.path.normpath(os.path.join(os.path.dirname(document), target))
            if path.startswith("..") or not os.path.exists(os.path.join(place, path)):
                yield f"{document}: {target}"


class DocumentsTest(SystemTest):
    def setUp(self):
        super().setUp()
        self._place = os.path.join(os.environ[STAGE_VARIABLE], _PLACE)

    def test_every_relative_link_of_a_document_leads_to_an_installed_file(self):
        self.assertEqual([], list(dead_links(self._place)))

    def test_the_guides_and_the_pictures_are_there(self):
        for name in ("README.md", "docs/plugins.md", "docs/pictures/boot.svg", "examples/plugins/README.md"):
            self.assertIn(name, set(_files(self._place)))

    def test_a_program_of_the_examples_is_one_there_too(self):
        for name in _files(os.path.join(self._place, "examples")):
            here = os.path.join(_ROOT, "examples", name)
            if not os.path.islink(here):
                there = os.path.join(self._place, "examples", name)
                self.assertEqual(os.access(here, os.X_OK), os.access(there, os.X_OK), name)

    def test_nothing_that_a_build_has_left_among_the_examples_comes_along(self):
        left = [name for name in _files(os.path.join(self._place, "examples", "plugins"))
                if name.endswith((".so", ".o"))]
        self.assertEqual([], left)
