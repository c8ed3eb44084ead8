"""terminal.py SCREEN SVG TITLE: draws what a terminal showed, with its colours (tmux capture-pane -e)."""
import io
import sys

from rich.console import Console
from rich.text import Text

screen, picture, title = sys.argv[1:]
lines = open(screen, encoding="utf-8").read().rstrip("\n").split("\n")
console = Console(record=True, width=96, file=io.StringIO(), force_terminal=True, color_system="standard")
for line in lines:
    console.print(Text.from_ansi(line), no_wrap=True, crop=True)
console.save_svg(picture, title=title)
