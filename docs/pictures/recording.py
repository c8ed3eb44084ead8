"""Reading and drawing the files of KTTraceRecorder."""
import json

import matplotlib

matplotlib.use("svg")
matplotlib.rcParams["svg.hashsalt"] = "pictures"  # the same figures, the same file
matplotlib.rcParams["font.size"] = 9
from matplotlib import pyplot  # noqa: E402, the back end comes first


def read(file):
    with open(file, encoding="utf-8") as text:
        return json.load(text)


def counter(events, name, series):
    """Times in milliseconds, and values; series: those to add up."""
    found = [event for event in events if event["ph"] == "C" and event["name"] == name]
    return [event["ts"] / 1000 for event in found], [sum(event["args"][one] for one in series) for event in found]


def save(figure, file):
    figure.tight_layout()
    figure.savefig(file, metadata={"Date": None})
    pyplot.close(figure)
