# SPDX-License-Identifier: Apache-2.0
"""Sharing what takes long among tests."""

import functools


def once(make):
    """A function that returns, or raises, at each call what the first one did."""
    @functools.cache
    def outcome():
        try:
            return make(), None
        except Exception as error:
            return None, error

    @functools.wraps(make)
    def call():
        made, error = outcome()
        if error is not None:
            raise error.with_traceback(None)
        return made
    return call
