#!/usr/bin/env python3
"""A picture of a terminal in which vesk is used, from what it really says.

    terminal_picture.py BUILD SOURCE >docs/pictures/terminal.svg
"""
import os
import re
import subprocess
import sys
import tempfile
from html import escape
from pathlib import Path

TYPED = ["vesk devices", "vesk sync samples", "vesk list", "vesk rename Harp Lyre", "vesk undo"]
UDID = "5f0c1d2e3b4a59687766554433221100ffeeddcc"
SIZE, LINE, LETTER, EDGE = 14, 20, 8.43, 16


def screen(build, source):
    """What stands in the terminal: lines, those that were typed with "$ " before them."""
    typed = "; ".join(f"echo '$ {command}'; {command}" for command in TYPED)
    with tempfile.TemporaryDirectory() as folder:
        done = subprocess.run(
            ["virtualphone", "--root", f"{folder}/phone", "--name", "My Phone", "--udid", UDID,
             "--session", "ssl3", "--", "bash", "-c", f"exec 2>&1; {typed}"],
            cwd=source, check=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True,
            env={**os.environ, "PATH": f"{build}/bin:{os.environ['PATH']}",
                 "XDG_STATE_HOME": f"{folder}/state", "XDG_CACHE_HOME": f"{folder}/cache"})
    # The times at which these phones were new.
    return re.sub(r"\d{4}-\d\d-\d\d \d\d:\d\d", "2008-02-14 18:30", done.stdout).splitlines()


def picture(lines):
    width = round(max(map(len, lines)) * LETTER + 2 * EDGE)
    height = len(lines) * LINE + 2 * EDGE
    text = []
    for number, line in enumerate(lines):
        style = ' class="typed"' if line.startswith("$ ") else ""
        # Spaces would be drawn as one.
        shown = escape(line, quote=False).replace(" ", "\u00a0")
        text.append(f'<text x="{EDGE}" y="{EDGE + number * LINE + SIZE}"{style}>{shown}</text>')
    body = "\n".join(text)
    return f"""<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" width="{width}" height="{height}">
<style>
text {{ font: {SIZE}px "DejaVu Sans Mono", Menlo, Consolas, monospace; fill: #deddda; }}
.typed {{ fill: #ffffff; font-weight: bold; }}
</style>
<rect width="{width}" height="{height}" rx="10" fill="#241f31"/>
{body}
</svg>
"""


if __name__ == "__main__":
    sys.stdout.write(picture(screen(Path(sys.argv[1]).resolve(), Path(sys.argv[2]).resolve())))
