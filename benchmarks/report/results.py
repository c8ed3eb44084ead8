"""The figures that benchmarks/run left, and what is worked out of them."""
import json
import statistics

OURS = ("libktthread", "libktasync", "ktsum")


class Comparison:
    """The samples of each contestant at one piece of work, repetition by repetition."""

    def __init__(self, workload, title, unit):
        self.workload, self.title, self.unit = workload, title, unit
        self.samples = {}

    def add(self, samples):
        for name, values in samples.items():
            self.samples.setdefault(name, []).extend(values)

    @property
    def ours(self):
        return next(name for name in OURS if name in self.samples)

    def median(self, name):
        return statistics.median(self.samples[name])

    def quartiles(self, name):
        values = self.samples[name]
        if len(values) < 2:
            return values[0], values[0]
        first, _, third = statistics.quantiles(values, n=4)
        return first, third

    def ratio(self, name, other):
        """The median, over the repetitions, of one's figure to another's in the same one."""
        pairs = zip(self.samples[name], self.samples[other])
        return statistics.median(mine / theirs for mine, theirs in pairs if theirs)

    def ranking(self):
        return sorted(self.samples, key=self.median)

    def best_peer(self):
        return next(name for name in self.ranking() if not name.startswith(OURS))


def read(folder):
    """All comparisons in a folder, in order; those of the same work in several files are put together."""
    found = {}
    files = sorted(folder.glob("*.json"), key=lambda file: (file.name != "pools.json", file.name))
    for file in files:
        if file.name == "primitives.json":
            continue
        for entry in json.loads(file.read_text())["comparisons"]:
            key = entry["workload"], entry["title"]
            found.setdefault(key, Comparison(*key, entry["unit"])).add(entry["samples"] or {})
    return list(found.values())


def read_primitives(folder):
    """Of each kind of call: the nanoseconds of the platform's and of ours, one a repetition."""
    calls = {}
    for run in json.loads((folder / "primitives.json").read_text())["benchmarks"]:
        if run["run_type"] == "iteration":
            kind, name = run["run_name"].split("/")
            calls.setdefault(kind, {}).setdefault(name, []).append(run["cpu_time"])
    return calls
