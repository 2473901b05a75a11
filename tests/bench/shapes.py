# SPDX-License-Identifier: Apache-2.0
"""The graphs that are run: which units a unit waits for."""

LAYERS = 20


def providers(shape, count, unit):
    """The numbers of the units that this one waits for, two at most."""
    if shape == "chain":
        return [unit - 1] if unit > 0 else []
    if shape == "layers":
        width = max(1, count // LAYERS)
        if unit >= width:
            above = (unit // width - 1) * width
            return sorted({above + (unit * 7 + 3) % width, above + (unit * 13 + 5) % width})
    return []


def layer(shape, count, unit):
    """Its layer, for what is ordered by priorities alone."""
    if shape == "chain":
        return unit
    return unit // max(1, count // LAYERS) if shape == "layers" else 0
