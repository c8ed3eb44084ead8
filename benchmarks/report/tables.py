"""Tables of the page, in Markdown."""
import statistics


def number(value):
    return f"{value:,.0f}" if value >= 100 else f"{value:.1f}" if value >= 1 else f"{value:.3f}"


def comparison(one):
    lines = [
        f"**{one.title}** ({one.unit})",
        "",
        "| | median | quartiles | ratio to ours |",
        "|---|--:|--:|--:|",
    ]
    for name in one.ranking():
        first, third = one.quartiles(name)
        shown = f"**{name}**" if name == one.ours else name
        ratio = one.ratio(name, one.ours)
        lines.append(f"| {shown} | {number(one.median(name))} | {number(first)} to {number(third)} | {ratio:.2f} |")
    return "\n".join(lines) + "\n"


def workload(comparisons, name):
    return "\n".join(comparison(one) for one in comparisons if one.workload == name)


def grid(comparisons, name):
    """Medians of all comparisons of a workload: a line a pool, a column a comparison."""
    chosen = [one for one in comparisons if one.workload == name]
    pools = list(dict.fromkeys(pool for one in chosen for pool in one.samples))
    lines = ["| | " + " | ".join(one.title for one in chosen) + " |", "|---|" + "--:|" * len(chosen)]
    for pool in pools:
        cells = [number(one.median(pool)) if pool in one.samples else "" for one in chosen]
        lines.append(f"| {pool} | " + " | ".join(cells) + " |")
    return f"Medians, {chosen[0].unit}.\n\n" + "\n".join(lines) + "\n"


def primitives(calls):
    lines = ["| | ns | ratio to the platform's |", "|---|--:|--:|"]
    for kind, names in calls.items():
        bare = statistics.median(names["pthread"])
        for name, samples in names.items():
            median = statistics.median(samples)
            lines.append(f"| {kind}: {name} | {median:.1f} | {median / bare:.2f} |")
    return "\n".join(lines) + "\n"
