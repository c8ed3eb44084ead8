"""What was aimed at, and how near the figures come."""
import re
import statistics


def find(comparisons, workload, title):
    return next(one for one in comparisons if one.workload == workload and re.fullmatch(title, one.title))


def against_best(comparisons, workload, title, most, ours="libktthread"):
    one = find(comparisons, workload, title)
    peer = one.best_peer()
    return f"{workload}, {title}: {ours}'s time by the best peer's ({peer})", most, one.ratio(ours, peer)


def against(comparisons, workload, title, peer, most):
    one = find(comparisons, workload, title)
    return f"{workload}, {title}: time by {peer}'s", most, one.ratio(one.ours, peer)


def blocking(comparisons):
    one = find(comparisons, "W3", "as they come.*")
    fixed = [name for name in one.samples if not name.startswith("libkt") and "up to" not in name]
    growing = min((name for name in one.samples if "up to" in name), key=one.median)
    fastest = min(fixed, key=one.median)
    yield f"W3: time by that of the best pool of fixed size ({fastest})", 0.05, one.ratio(one.ours, fastest)
    yield f"W3: time by that of the best growing one ({growing})", 1.0, one.ratio(one.ours, growing)


def library(comparisons):
    """What libktasync is to reach."""

    def best(workload, title, most):
        return against_best(comparisons, workload, title, most, "libktasync")

    for producers in ("1 producer", "4 producers"):
        for grain, most in ((0, 0.5), (1, 0.7), (10, 0.97)):
            yield best("W2", f"{grain} us, {producers}", most)
        yield best("W1", f"0 us, {producers}", 0.9)
        yield best("W10", f"empty tasks with service, observed, {producers}", 0.6)
    yield best("W3", "as they come, 2 workers at the start", 1.05)
    yield best("W3", "1 ms of computing and 9 ms of sleep, 2 workers at the start", 1.05)
    most_at_once = find(comparisons, "W3", "2 ms of computing, most at once")
    yield "W3, 2 ms of computing: most tasks at once", 3, most_at_once.median("libktasync")
    yield best("W4", "to a task's first instruction, median", 1.0)
    yield best("W10", "an idle pool that spins, to a task's first instruction", 1.1)
    few, many = (find(comparisons, "W6", f"{workers} workers, all given work") for workers in (2, 512))
    yield "W6: libktasync with 512 workers by 2", 1.5, many.median("libktasync") / few.median("libktasync")
    yield best("W10", "a future each, asked for", 0.8)
    yield best("W10", r"fib\(30\) by fork and join, cut off at 12", 1.5)
    memory = find(comparisons, "W6", "memory of a queued task")
    yield "W6: bytes of a queued task of libktasync", 128, memory.median("libktasync")


def flatness(comparisons, what, titles):
    medians = [one.median(one.ours) for one in comparisons if one.workload == "W6" and re.fullmatch(titles, one.title)]
    return f"W6: dearest by cheapest, {what}", 1.2, max(medians) / min(medians)


def primitives(calls):
    for kind, names in calls.items():
        bare = statistics.median(names["pthread"])
        for name, samples in names.items():
            if name != "pthread":
                yield f"{name}, {kind}: time by the platform's", 1.15, statistics.median(samples) / bare


def rows(comparisons, calls):
    for producers in ("1 producer", "4 producers"):
        for grain, most in ((0, 1.2), (1, 1.1), (10, 1.02), (100, 1.02)):
            yield against_best(comparisons, "W2", f"{grain} us, {producers}", most)
    yield against(comparisons, "W1", "0 us, 1 producer", "APR-util", 1.0)
    yield against_best(comparisons, "W1", "10 us, 1 producer", 1.05)
    yield against_best(comparisons, "W1", "100 us, 1 producer", 1.005)
    yield from blocking(comparisons)
    yield against(comparisons, "W4", "to a task's first instruction, median", "QThreadPool", 1.0)
    for loop in ("sum", "cheap map"):
        yield against(comparisons, "W5", f"{loop} (of|over) 10,000,000 elements", "oneTBB", 1.05)
    yield flatness(comparisons, "1,000 to 1,000,000 tasks queued", r"\d+ tasks queued")
    yield flatness(comparisons, "2 to 512 workers, all but one idle", r"\d+ workers, all but one idle")
    yield flatness(comparisons, "2 to 512 workers, all given work", r"\d+ workers, all given work")
    yield against(comparisons, "W8", "1 GiB .*", "sha256sum", 1.0)
    yield against(comparisons, "W8", "1 GiB .*", "xargs -P2 openssl dgst", 1.0)
    yield from primitives(calls)
    yield from library(comparisons)


def plain(what):
    return what.replace("(of|over) ", "of ").replace(" .*", "").replace("\\(", "(").replace("\\)", ")")


def without_peer(what):
    """The best peer is another one in the next run."""
    return re.sub(r"( by (the best peer's|that of the best .*)) \(.*\)$", r"\1", what)


def worst(runs):
    """Of each row, the largest figure of all runs."""
    found = {}
    for run in runs:
        for what, _, measured in rows(*run):
            key = without_peer(what)
            found[key] = max(measured, found.get(key, measured))
    return found


def table(runs):
    """Of the first run, beside the worst of all; each is its comparisons and its calls of primitives."""
    worst_of_all = worst(runs)
    lines = [f"| | at most | measured | worst of {len(runs)} | |", "|---|--:|--:|--:|---|"]
    for what, most, measured in rows(*runs[0]):
        largest = worst_of_all[without_peer(what)]
        verdict = "met" if largest <= most else "**missed**"
        lines.append(f"| {plain(what)} | {most:g} | {measured:.3g} | {largest:.3g} | {verdict} |")
    return "\n".join(lines) + "\n"
