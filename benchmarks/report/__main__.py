"""report [--docs DOCS] RESULTS [EARLIER...]: makes DOCS/benchmarks.md and its pictures of what benchmarks/run left.

The figures are those of RESULTS; goals are met if they were met in the earlier runs, too.

The text comes from page.md beside this file; what stands in {braces} in it is put in.
"""
import argparse
import datetime
import json
import pathlib
import platform
import re
import subprocess

import goals
import plots
import results
import service
import tables

HERE = pathlib.Path(__file__).parent


def machine():
    cpu = re.search(r"^model name\s*: (.*)$", pathlib.Path("/proc/cpuinfo").read_text(), re.M)
    system = re.search(r'^PRETTY_NAME="(.*)"$', pathlib.Path("/etc/os-release").read_text(), re.M)
    kernel = ".".join(platform.release().split(".")[:2])
    processors = subprocess.run(["nproc"], capture_output=True, text=True, check=True).stdout.strip()
    compiler = subprocess.run(["g++", "-dumpfullversion"], capture_output=True, text=True, check=True).stdout.strip()
    return (
        f"{processors} processors, {cpu.group(1) if cpu else platform.machine()}, Linux"
        f" {kernel}; {system.group(1)}, g++ {compiler}, glibc {platform.libc_ver()[1]};"
        f" {datetime.date.today()}"
    )


def main():
    parser = argparse.ArgumentParser(prog="report", description="Makes a page of what benchmarks/run left.")
    parser.add_argument("--docs", type=pathlib.Path, default=HERE.parent.parent / "docs", help="where it goes")
    parser.add_argument("folders", type=pathlib.Path, nargs="+", help="the run's directory, and those of earlier ones")
    options = parser.parse_args()
    folder, docs = options.folders[0], options.docs
    runs = [(results.read(each), results.read_primitives(each)) for each in options.folders]
    comparisons, calls = runs[0]
    burst = service.read_burst(folder)
    plots.draw(comparisons, docs / "benchmarks")
    service.draw(comparisons, burst, docs / "benchmarks")
    text = {
        "machine": machine(),
        "repetitions": json.loads((folder / "pools.json").read_text())["repetitions"],
        "runs": ", ".join(each.name for each in options.folders),
        "goals": goals.table(runs),
        "primitives": tables.primitives(calls),
        "instructions": json.loads((HERE.parent / "instructions.json").read_text())["instructions a task"],
        "W9": service.table([run[0] for run in runs]),
        "quiet": f"{burst['quiet_s']:g}",
        "W1": tables.grid(comparisons, "W1"),
        "W6": tables.grid([one for one in comparisons if "memory" not in one.title], "W6"),
        "memory": tables.workload([one for one in comparisons if "memory" in one.title], "W6"),
        **{name: tables.workload(comparisons, name) for name in ("W2", "W3", "W4", "W5", "W7", "W8", "W10")},
    }
    page = (HERE / "page.md").read_text().format(**text)
    (docs / "benchmarks.md").write_text(page)


main()
