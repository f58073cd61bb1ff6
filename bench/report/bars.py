# SPDX-License-Identifier: Apache-2.0

"""A bar chart as SVG: for each case a bar for each contestant, as a ratio to the limit."""

from xml.sax.saxutils import escape

from tables import number

LEFT, RIGHT, BAR, GAP, TOP = 250, 130, 15, 16, 58
SCALE_WIDTH = 420
LONGEST_RATIO = 4.0
OURS, OTHERS = "#1f6f8b", "#b9b9b9"


def bars(group, results):
    """The text of the file; empty when there is nothing to draw."""
    blocks = []
    for metric in group.drawn:
        for case in results.cases(metric):
            limit = results.median(case, group.limit, metric)
            if limit:
                blocks.append((case, metric, limit))
    if not blocks:
        return ""
    shapes, y = [], TOP
    for case, metric, limit in blocks:
        y = draw_case(shapes, y, case, metric, limit, results)
    return page(group, shapes, y)


def draw_case(shapes, y, case, metric, limit, results):
    unit = results.units[metric]
    label(shapes, 10, y + 10, case, weight="bold")
    label(shapes, 10, y + 24, metric.replace("_", " "))
    for contestant in results.contestants(metric):
        value = results.median(case, contestant, metric)
        if value is None:
            continue
        width = min(value / limit, LONGEST_RATIO) / LONGEST_RATIO * SCALE_WIDTH
        color = OURS if contestant.startswith("ours") else OTHERS
        shapes.append(f'<rect x="{LEFT}" y="{y}" width="{width:.1f}" height="{BAR - 3}" '
                      f'fill="{color}"/>')
        label(shapes, LEFT - 6, y + 10, contestant, "end")
        text = f"{value / limit:.2f}  ({number(value)} {unit})"
        label(shapes, LEFT + width + 5, y + 10, text)
        y += BAR
    return y + GAP


def label(shapes, x, y, text, anchor="start", weight="normal"):
    shapes.append(f'<text x="{x:.1f}" y="{y}" text-anchor="{anchor}" font-weight="{weight}">'
                  f"{escape(text)}</text>")


def page(group, shapes, height):
    width = LEFT + SCALE_WIDTH + RIGHT
    limit_x = LEFT + SCALE_WIDTH / LONGEST_RATIO
    better = "for figures in 1/s longer is better, for all others shorter"
    return "\n".join([
        f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{height}" '
        f'viewBox="0 0 {width} {height}" font-family="sans-serif" font-size="11">',
        '<rect width="100%" height="100%" fill="white"/>',
        f'<text x="10" y="20" font-size="15">{group.name}: ratio to {group.limit}</text>',
        f'<text x="10" y="38">{better}; bars end at {LONGEST_RATIO:g}</text>',
        *shapes,
        f'<line x1="{limit_x}" y1="{TOP - 8}" x2="{limit_x}" y2="{height - GAP}" '
        'stroke="#c0392b" stroke-dasharray="3 3"/>',
        "</svg>\n",
    ])
