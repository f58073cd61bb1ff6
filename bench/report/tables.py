# SPDX-License-Identifier: Apache-2.0

"""Figures as tables, which are Markdown and can be read as they are."""


def number(value):
    """Three digits that count; thousands in groups."""
    if value >= 100:
        return f"{value:,.0f}"
    if value >= 10:
        return f"{value:.1f}"
    return f"{value:.2f}"


def table(rows):
    widths = [max(len(row[i]) for row in rows) for i in range(len(rows[0]))]

    def line(cells):
        first, *others = zip(cells, widths)
        padded = [first[0].ljust(first[1])] + [text.rjust(width) for text, width in others]
        return "| " + " | ".join(padded) + " |"

    rule = ["-" * widths[0]] + ["-" * (width - 1) + ":" for width in widths[1:]]
    return "\n".join([line(rows[0]), line(rule), *map(line, rows[1:])])


def metric_table(group, results, metric):
    contestants = results.contestants(metric)
    rows = [[f"{metric.replace('_', ' ')}, {results.units[metric]}", *contestants]]
    for case in results.cases(metric):
        limit = results.median(case, group.limit, metric)
        rows.append([case] + [cell(results.median(case, c, metric), limit) for c in contestants])
    return table(rows)


def cell(value, limit):
    if value is None:
        return "-"
    return f"{number(value)} ({value / limit:.2f})" if limit else number(value)


def goal_table(group, results):
    rows = [["case", "figure", "goal", "reached", "95 % within", "met"]]
    for goal in group.goals:
        figure = f"{goal.contestant} {goal.metric.replace('_', ' ')}"
        # One that can not be judged, since a measurement failed, is not met.
        for case in goal.cases(results) or [goal.pattern]:
            judged = goal.judge(case, results)
            if judged is None:
                rows.append([case, figure, str(goal), "-", "-", "NO"])
                continue
            reached, low, high, met = judged
            within = f"{number(low)} to {number(high)}"
            rows.append([case, figure, str(goal), number(reached), within, "yes" if met else "NO"])
    return table(rows) if len(rows) > 1 else ""


def group_text(group, results):
    parts = [metric_table(group, results, metric) for metric in results.units]
    parts.append(goal_table(group, results))
    return "\n\n".join(part for part in parts if part)
