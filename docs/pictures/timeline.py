"""timeline.py TRACE SVG: the first moments of a recording, a lane a thread and a slice a task."""
import sys

import recording
from recording import pyplot

SHOWN_MS = 30
COLOURS = ["#1f77b4", "#ff7f0e", "#2ca02c", "#17becf", "#9467bd", "#8c564b", "#e377c2", "#bcbd22"]

events = recording.read(sys.argv[1])
slices = [event for event in events if event["ph"] == "X"]
begin = min(event["ts"] for event in slices) / 1000
lanes = sorted({event["tid"] for event in slices})

figure, (tasks, queue, workers) = pyplot.subplots(
    3, 1, figsize=(9.6, 4.6), sharex=True, height_ratios=[len(lanes) + 1, 2, 2])
for event in slices:
    start, length = event["ts"] / 1000 - begin, event["dur"] / 1000
    if start > SHOWN_MS:
        continue
    lane = lanes.index(event["tid"])
    colour = COLOURS[sum(event["name"].encode()) % len(COLOURS)]
    tasks.broken_barh([(start, length)], (lane - 0.4, 0.8), facecolors=colour, edgecolor="white", linewidth=0.5)
    if length > SHOWN_MS / 14:
        tasks.text(start + length / 2, lane, event["name"], ha="center", va="center", fontsize=7, color="white",
                   clip_on=True)
tasks.set_yticks(range(len(lanes)), [f"worker {lane}" for lane in lanes])
tasks.set_ylim(len(lanes) - 0.5, -0.5)
for panel, name, series, label in ((queue, "queue", ["queued"], "queued"), (workers, "workers", ["busy"], "busy")):
    times, values = recording.counter(events, name, series)
    panel.step([time - begin for time in times], values, where="post", color="#c0392b")
    panel.set_ylabel(label)
    panel.set_ylim(bottom=0)
    panel.grid(alpha=0.3)
workers.set_xlim(0, SHOWN_MS)
workers.set_xlabel("milliseconds")
recording.save(figure, sys.argv[2])
