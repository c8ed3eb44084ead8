"""What was aimed at, and how near the figures come."""
import re
import statistics


def find(comparisons, workload, title):
    return next(one for one in comparisons if one.workload == workload and re.fullmatch(title, one.title))


def against_best(comparisons, workload, title, most):
    one = find(comparisons, workload, title)
    peer = one.best_peer()
    return f"{workload}, {title}: time by that of the best peer ({peer})", most, one.ratio(one.ours, peer)


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


def table(comparisons, calls):
    lines = ["| | at most | measured | |", "|---|--:|--:|---|"]
    for what, most, measured in rows(comparisons, calls):
        what = what.replace("(of|over) ", "of ").replace(" .*", "")
        verdict = "met" if measured <= most else "**missed**"
        lines.append(f"| {what} | {most:g} | {measured:.3g} | {verdict} |")
    return "\n".join(lines) + "\n"
