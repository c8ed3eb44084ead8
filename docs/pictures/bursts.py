"""bursts.py SVG TRACE...: workers and queue against time, a panel a recording; bursts-PERIOD.json."""
import re
import sys

import recording
from recording import pyplot

files = sys.argv[2:]
figure, panels = pyplot.subplots(len(files), 1, figsize=(8, 2.1 * len(files)), sharex=True, sharey=True)
for panel, file in zip(panels, files):
    events = recording.read(file)
    period = int(re.search(r"-(\d+)\.json$", file).group(1))
    queue = panel.twinx()
    times, values = recording.counter(events, "queue", ["queued"])
    queue.fill_between(times, values, step="post", label="tasks in the queue (right)", color="#ecf0f1")
    queue.set_ylim(0, 160)
    panel.set_zorder(queue.get_zorder() + 1)
    panel.patch.set_visible(False)
    for series, label, colour in ((["busy", "idle"], "workers", "#2980b9"), (["busy"], "busy workers", "#c0392b")):
        times, values = recording.counter(events, "workers", series)
        panel.step(times, values, where="post", label=label, color=colour)
    panel.set_title("looks when tasks come in" + (f", and each {period} that end" if period else ""), fontsize=9)
    panel.grid(alpha=0.3)
panels[0].set_ylim(bottom=0)
lines = panels[0].get_legend_handles_labels()
area = queue.get_legend_handles_labels()
panels[0].legend(lines[0] + area[0], lines[1] + area[1], loc="upper right", fontsize=8)
panels[-1].set_xlabel("milliseconds")
recording.save(figure, sys.argv[1])
