"""What a Markdown document of this project holds: headings, links, blocks of code."""
import re
from dataclasses import dataclass
from pathlib import Path


@dataclass
class Block:
    """A fenced block."""
    document: Path
    line: int  # of the fence, counted from 1
    language: str
    lines: list

    @property
    def text(self):
        return "\n".join(self.lines) + "\n"

    def __str__(self):
        return f"{self.document.name}:{self.line}"


@dataclass
class Command:
    """A command of a console block, and what it is said to print."""
    typed: str
    printed: list


def blocks_of(document):
    found, block = [], None
    for number, line in enumerate(document.read_text().splitlines(), 1):
        if not line.startswith("```"):
            if block:
                block.lines.append(line)
        elif block:
            found.append(block)
            block = None
        else:
            block = Block(document, number, line[3:].strip(), [])
    assert block is None, f"{document}: the last block has no end"
    return found


def commands_of(block):
    """A console block's commands: lines that begin with "$ ", each with the lines below it."""
    commands = []
    for line in block.lines:
        if line.startswith("$ "):
            commands.append(Command(line[2:], []))
        else:
            assert commands, f"{block} begins with what nobody has typed"
            commands[-1].printed.append(line)
    return commands


def prose_of(document):
    return re.sub(r"^```.*?^```$", "", document.read_text(), flags=re.M | re.S)


def links_of(document):
    """Targets of links and pictures."""
    return re.findall(r"\]\(([^)\s]+)\)", prose_of(document))


def anchors_of(document):
    """What a link to a part of the document may say behind "#"."""
    headings = re.findall(r"^#+ (.*)$", prose_of(document), flags=re.M)
    return {re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-") for heading in headings}


def pattern_of(printed):
    """What matches the lines that a document shows. A line "..." stands for any lines, "..." and
    the ellipsis in a line for any part of it. Sizes, rates and loudness are the encoder's affair."""
    lines = []
    for line in printed:
        if line.strip() == "...":
            lines.append(r"(?:.*\n)*?")
            continue
        line = re.escape(line).replace(r"\.\.\.", ".*").replace("…", ".*")
        line = re.sub(r"-?\d+(?:\\\.\d+)?(?=\\ (?:KiB|MiB|LUFS|kbit))", r"-?[\\d.]+", line)
        lines.append(line + r"\s*\n")
    return re.compile("".join(lines))
