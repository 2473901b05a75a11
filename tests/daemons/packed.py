# SPDX-License-Identifier: Apache-2.0
"""Directories as archives, to be handed to a host in one file."""

import io
import tarfile


def packed(directory):
    """The bytes of an archive of it."""
    archive = io.BytesIO()
    with tarfile.open(fileobj=archive, mode="w") as file:
        file.add(directory, ".")
    return archive.getvalue()
