"""Pictures of the page, in SVG."""
import matplotlib

matplotlib.use("svg")
matplotlib.rcParams["svg.hashsalt"] = "benchmarks"  # the same figures, the same file
matplotlib.rcParams["font.size"] = 9
from matplotlib import pyplot  # noqa: E402, the back end comes first

OURS, OTHERS = "#c0392b", "#7f8c8d"
PALETTE = ["#1f77b4", "#ff7f0e", "#2ca02c", "#17becf", "#9467bd", "#8c564b", "#e377c2", "#7f7f7f"]


def colour(name):
    return OURS if name.startswith(("libkt", "ktsum")) else OTHERS


def save(figure, file):
    figure.tight_layout()
    figure.savefig(file, metadata={"Date": None})
    pyplot.close(figure)


def bars(chosen, file):
    """A panel a comparison, a bar a contestant, with the quartiles. The bars begin at zero, unless the figures span
    decades."""
    figure, panels = pyplot.subplots(1, len(chosen), figsize=(4.6 * len(chosen), 3.2), squeeze=False)
    for panel, one in zip(panels[0], chosen):
        names = one.ranking()[::-1]
        medians = [one.median(name) for name in names]
        spread = [one.quartiles(name) for name in names]
        errors = [
            [max(0, median - low) for median, (low, _) in zip(medians, spread)],
            [max(0, high - median) for median, (_, high) in zip(medians, spread)],
        ]
        panel.barh(names, medians, xerr=errors, color=[colour(name) for name in names], ecolor="#2c3e50")
        panel.set_title(one.title, fontsize=9)
        panel.set_xlabel(one.unit)
        if max(medians) > 15 * min(medians):
            panel.set_xscale("log")
        else:
            panel.set_xlim(left=0)
    save(figure, file)


def lines(groups, file, xlabel):
    """A panel a group of comparisons: (title, [(x label, comparison)...]); a line a contestant."""
    figure, panels = pyplot.subplots(1, len(groups), figsize=(4.6 * len(groups), 3.6), squeeze=False)
    for panel, (title, points) in zip(panels[0], groups):
        others = iter(PALETTE)
        for name in points[0][1].samples:
            ours = name.startswith("libkt")
            panel.plot(
                [x for x, _ in points],
                [one.median(name) for _, one in points],
                marker="o",
                markersize=3,
                label=name,
                linewidth=2.2 if ours else 1,
                linestyle="--" if name == "libktasync" else "-",
                color=OURS if ours else next(others),
            )
        panel.set_yscale("log")
        panel.set_title(title, fontsize=9)
        panel.set_xlabel(xlabel)
        panel.set_ylabel(points[0][1].unit)
    panels[0][-1].legend(fontsize=7, loc="center left", bbox_to_anchor=(1, 0.5))
    save(figure, file)


def draw(comparisons, folder):
    folder.mkdir(parents=True, exist_ok=True)

    def of(workload, part=""):
        return [one for one in comparisons if one.workload == workload and part in one.title]

    for workload in ("W1", "W2"):
        groups = [
            (producers, [(one.title.split(" us")[0], one) for one in of(workload, producers)])
            for producers in ("1 producer", "4 producers")
        ]
        lines(groups, folder / f"{workload}.svg", "work of a task, us")
    lines(
        [
            (part, [(one.title.split()[0], one) for one in of("W6", part)])
            for part in ("tasks queued", "all but one idle", "all given work")
        ],
        folder / "W6.svg",
        "tasks queued; workers",
    )
    bars(of("W3"), folder / "W3.svg")
    bars(of("W4", "median"), folder / "W4.svg")
    bars(of("W5"), folder / "W5.svg")
    bars(of("W7"), folder / "W7.svg")
    bars(of("W8"), folder / "W8.svg")
    bars(of("W10"), folder / "W10.svg")
