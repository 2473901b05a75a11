# SPDX-License-Identifier: Apache-2.0
"""Bar charts as SVG, readable on light and dark pages."""

from xml.sax.saxutils import escape

_STYLE = """
text { font: 12px system-ui, sans-serif; fill: #1f2328 }
.title { font-size: 15px; font-weight: 600 }
.quiet { fill: #59636e }
.page { fill: #ffffff }
.a { fill: #2f6fbb } .b { fill: #d9822b } .c { fill: #5a9e6f } .d { fill: #8d6cab }
.bound { stroke: #b3261e; stroke-width: 2 }
.axis { stroke: #d1d9e0 }
@media (prefers-color-scheme: dark) {
  text { fill: #e6edf3 } .quiet { fill: #9198a1 } .page { fill: #0d1117 }
  .a { fill: #6ea8ec } .b { fill: #f0a35e } .c { fill: #86c99a } .d { fill: #b79bd4 }
  .bound { stroke: #ff7b72 } .axis { stroke: #3d444d }
}"""

_LABEL, _BAR, _WIDTH = 230, 14, 560


def bars(title, note, series, rows):
    """A chart of one group of bars per row.

    :param series: names of the bars of a group
    :param rows: (label, values, bound or None) each; a value of None has no bar
    """
    numbers = [value for _, values, bound in rows for value in [*values, bound] if value is not None]
    longest = max(numbers) * 1.08
    group = _BAR * len(series) + 8
    height = 84 + group * len(rows)
    place = lambda value: _LABEL + _WIDTH * value / longest
    out = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {_LABEL + _WIDTH + 70} {height}" '
           f'role="img" aria-label="{escape(title)}">', f"<style>{_STYLE}</style>",
           f'<rect class="page" width="100%" height="100%"/>',
           f'<text class="title" x="12" y="24">{escape(title)}</text>',
           f'<text class="quiet" x="12" y="42">{escape(note)}</text>']
    for index, name in enumerate(series):
        left = _LABEL + 130 * index
        out.append(f'<rect class="{"abcd"[index]}" x="{left}" y="52" width="10" height="10"/>'
                   f'<text x="{left + 15}" y="61">{escape(name)}</text>')
    for number, (label, values, bound) in enumerate(rows):
        top = 74 + group * number
        middle = top + _BAR * len(series) / 2 + 4
        out.append(f'<text x="{_LABEL - 10}" y="{middle:.0f}" text-anchor="end">{escape(label)}</text>')
        for index, value in enumerate(values):
            if value is None:
                continue
            y = top + _BAR * index
            out.append(f'<rect class="{"abcd"[index]}" x="{_LABEL}" y="{y}" height="{_BAR - 2}" '
                       f'width="{place(value) - _LABEL:.1f}"/>'
                       f'<text x="{place(value) + 5:.1f}" y="{y + 10}">{value:.2f}</text>')
        if bound is not None:
            x = place(bound)
            out.append(f'<line class="bound" x1="{x:.1f}" x2="{x:.1f}" y1="{top - 2}" '
                       f'y2="{top + _BAR * len(series)}"/>')
    out.append(f'<line class="axis" x1="{_LABEL}" x2="{_LABEL}" y1="70" y2="{height - 10}"/></svg>')
    return "\n".join(out) + "\n"
