# SPDX-License-Identifier: Apache-2.0

"""A bar chart as SVG: for each case a bar for each contestant, as a ratio to the limit."""

import math
from xml.sax.saxutils import escape

from tables import number

LEFT, RIGHT, BAR, GAP, TOP = 250, 150, 15, 16, 72
SCALE_WIDTH = 400
LONGEST_RATIO = 4.0
OURS, OTHERS, LIMIT = "#1f6f8b", "#b9b9b9", "#c0392b"


class Scale:
    """Begins and ends where the ratios do; what is longer than LONGEST_RATIO is cut."""

    def __init__(self, ratios):
        least, most = min(ratios), min(max(ratios), LONGEST_RATIO)
        # Bars show how long they are only from nought, which is worth it where they differ much.
        self.begin = 0.0 if least < 0.5 or most > 2 else math.floor((least - 0.1) * 10) / 10
        self.end = max(math.ceil(most * 10) / 10, 1.1)

    def x(self, ratio):
        return LEFT + (min(ratio, self.end) - self.begin) / (self.end - self.begin) * SCALE_WIDTH

    def cuts(self, ratio):
        return ratio > self.end


def bars(group, results):
    """The text of the file; empty when there is nothing to draw."""
    blocks = [(case, metric) for metric in group.drawn for case in results.cases(metric)
              if results.median(case, group.limit, metric)]
    if not blocks:
        return ""
    drawn = [(case, metric, ratios(case, metric, group, results)) for case, metric in blocks]
    scale = Scale([ratio for _, _, rows in drawn for _, ratio, _ in rows])
    shapes, y = [], TOP
    for case, metric, rows in drawn:
        y = draw_case(shapes, y, case, metric, rows, scale, results.units[metric])
    return page(group, scale, shapes, y)


def ratios(case, metric, group, results):
    """A row for each contestant: its name, its ratio to the limit, and its figure."""
    limit = results.median(case, group.limit, metric)
    values = [(name, results.median(case, name, metric)) for name in results.contestants(metric)]
    return [(name, value / limit, value) for name, value in values if value is not None]


def draw_case(shapes, y, case, metric, rows, scale, unit):
    label(shapes, 10, y + 10, case, weight="bold")
    label(shapes, 10, y + 24, metric.replace("_", " "))
    shapes.append(line(scale.x(1), y - 4, y + len(rows) * BAR + 1))
    for contestant, ratio, value in rows:
        color = OURS if contestant.startswith("ours") else OTHERS
        end = scale.x(ratio)
        shapes.append(f'<rect x="{LEFT}" y="{y}" width="{end - LEFT:.1f}" height="{BAR - 3}" '
                      f'fill="{color}"/>')
        if scale.cuts(ratio):
            shapes.append(cut(end - 14, y))
        label(shapes, LEFT - 6, y + 10, contestant, "end")
        # In a column of their own, where no line goes through them.
        label(shapes, LEFT + SCALE_WIDTH + 8, y + 10, f"{ratio:.2f}  ({number(value)} {unit})")
        y += BAR
    return y + max(GAP, 2 * BAR - len(rows) * BAR)


def line(x, top, bottom):
    return (f'<line x1="{x:.1f}" y1="{top}" x2="{x:.1f}" y2="{bottom}" stroke="{LIMIT}" '
            'stroke-dasharray="3 3"/>')


def cut(x, y):
    """Two strokes through a bar that goes on."""
    return "".join(f'<path d="M{x + shift:.1f} {y + BAR}l5 -{BAR + 3}" stroke="white" '
                   'stroke-width="2"/>' for shift in (0, 5))


def label(shapes, x, y, text, anchor="start", weight="normal"):
    shapes.append(f'<text x="{x:.1f}" y="{y}" text-anchor="{anchor}" font-weight="{weight}">'
                  f"{escape(text)}</text>")


def page(group, scale, shapes, height):
    width = LEFT + SCALE_WIDTH + RIGHT
    axis = []
    for ratio in dict.fromkeys((scale.begin, 1.0, scale.end)):
        label(axis, scale.x(ratio), TOP - 10, f"{ratio:g}", "middle")
    cuts = "; bars with two strokes are cut" if any("<path" in shape for shape in shapes) else ""
    begins = f"; the axis begins at {scale.begin:g}" if scale.begin > 0 else ""
    return "\n".join([
        f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{height}" '
        f'viewBox="0 0 {width} {height}" font-family="sans-serif" font-size="11">',
        '<rect width="100%" height="100%" fill="white"/>',
        f'<text x="10" y="20" font-size="15">{group.name}: ratio to {group.limit}</text>',
        '<text x="10" y="38">for figures in 1/s longer is better, for all others shorter'
        f"{begins}{cuts}</text>",
        *axis,
        *shapes,
        "</svg>\n",
    ])
