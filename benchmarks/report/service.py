"""W9, the HTTP service: its table and its pictures."""
import json
import math

from matplotlib import pyplot

import goals
import plots
import tables

# What is compared, as benchmarks/service/measure calls it; what is aimed at: our figure by the better peer's, at most.
GOALS = (
    (r"\d+ requests a second, .*", 1 / 3),
    (r"64 clients without a pause, .*", 1 / 3),
    (r"burst of .*", 1 / 2),
    (r"no request blocks, by our client", 1),
    (r"no request blocks, by wrk", 1),
)
OURS = "libktasync"
COLOURS = {"cpp-httplib": "#2c3e50", "Boost.Asio": "#7f8c8d"}


def read_burst(folder):
    return json.loads((folder / "service.json").read_text())["burst"]


def chosen(comparisons):
    """The comparisons of W9, in the order of GOALS, each with what is aimed at."""
    return [(goals.find(comparisons, "W9", title), most) for title, most in GOALS]


def row(runs, most):
    """Of the same comparison in each run; the figures are the first one's, the goal is for all."""
    one = runs[0]
    ratio = one.ratio(OURS, one.best_peer())
    worst = max(each.ratio(OURS, each.best_peer()) for each in runs)
    cells = []
    for name in one.samples:
        first, third = one.quartiles(name)
        cells.append(f"{tables.number(one.median(name))} ({tables.number(first)} to {tables.number(third)})")
    verdict = "met" if worst <= most else "**missed**"
    return f"| {one.title} | {one.unit} | " + " | ".join(cells) + f" | {ratio:.3g} | {worst:.3g} | {most:.2g}: {verdict} |"


def table(runs):
    """Of the comparisons of each run."""
    rows = [([one for one, _ in same], same[0][1]) for same in zip(*map(chosen, runs))]
    names = list(rows[0][0][0].samples)
    lines = [
        "| load | | " + " | ".join(names) + f" | by the better peer's | worst of {len(runs)} | goal, at most |",
        "|---|---|" + "--:|" * len(names) + "--:|--:|---|",
    ]
    return "\n".join(lines + [row(*each) for each in rows]) + "\n"


def colour(name):
    return COLOURS.get(name, plots.OURS)


def median_run(runs):
    """The one whose end is the median."""
    return sorted(runs, key=lambda run: run[-1])[len(runs) // 2]


def draw_burst(panel, burst):
    """How many are answered, against time. Each line has its name at its end."""
    longest = max(median_run(runs)[-1] for runs in burst["progress_ms"].values())
    for name, runs in burst["progress_ms"].items():
        times = [ms / 1000 for ms in median_run(runs)]
        answered = [burst["requests"] * percent / 100 for percent in range(len(times))]
        panel.plot([0, *times], [0, *answered], color=colour(name), linewidth=2.4 if name == OURS else 1.6)
        panel.annotate(
            f"{name}\n{times[-1]:.1f} s",
            (times[-1], answered[-1]),
            xytext=(6, 0),
            textcoords="offset points",
            ha="left",
            va="top",
            color=colour(name),
        )
    panel.set_xlim(0, 1.25 * longest / 1000)
    panel.set_ylim(0, 1.05 * burst["requests"])
    panel.set_xlabel("seconds since the burst")
    panel.set_ylabel("requests answered")
    panel.spines[["top", "right"]].set_visible(False)


def draw_latency(panel, one):
    names = list(one.samples)[::-1]
    medians = [one.median(name) for name in names]
    bars = panel.barh(names, medians, color=[colour(name) for name in names])
    panel.bar_label(bars, [f"{tables.number(median)} ms" for median in medians], padding=3)
    if max(medians) > 15 * min(medians):
        panel.set_xscale("log")
        panel.set_xlim(10 ** math.floor(math.log10(min(medians) / 2)), 8 * max(medians))
    else:
        panel.set_xlim(0, 1.3 * max(medians))
    load = one.title.split(", 99th")[0]
    panel.set_title(f"{load}: 99th percentile\nof the latency of those that don't block", fontsize=9)
    panel.set_xlabel("ms, less is better")


def draw_rates(panel, comparisons):
    names = list(comparisons[0].samples)
    width = 0.8 / len(names)
    for index, name in enumerate(names):
        rates = [1e6 / one.median(name) for one in comparisons]
        places = [place + width * (index - (len(names) - 1) / 2) for place in range(len(comparisons))]
        panel.bar(places, rates, width, color=colour(name), label=name)
    panel.set_xticks(range(len(comparisons)), [one.title.split(", ")[1] for one in comparisons])
    highest = max(1e6 / one.median(name) for one in comparisons for name in names)
    panel.set_ylim(0, 1.35 * highest)
    panel.legend(fontsize=8, ncol=len(names), loc="upper center", frameon=False)
    panel.set_title("no request blocks", fontsize=9)
    panel.set_ylabel("requests a second, more is better")


def draw(comparisons, burst, folder):
    paced, closed, _, *rates = [one for one, _ in chosen(comparisons)]
    figure, panels = pyplot.subplots(2, 2, figsize=(9.5, 6.6))
    draw_latency(panels[0][0], paced)
    draw_latency(panels[0][1], closed)
    draw_burst(panels[1][0], burst)
    panels[1][0].set_title(f"{burst['requests']:,} requests at once, each blocks for 50 ms", fontsize=9)
    draw_rates(panels[1][1], rates)
    plots.save(figure, folder / "W9.svg")

    figure, panel = pyplot.subplots(figsize=(6.4, 2.6))
    draw_burst(panel, burst)
    plots.save(figure, folder / "burst.svg")
