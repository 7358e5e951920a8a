#!/usr/bin/env python3
"""Holds the includes of the tree against the table of rooms in scripts/rooms.txt.

    check_rooms.py [--sizes]

Says each include that the table does not allow, each folder without a line, each circle and a room
that has grown beyond a quarter of the code, and ends with 1 when there is one. With --sizes it prints
how many lines each room has.
"""
import re
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
TABLE = ROOT / "scripts" / "rooms.txt"
SUFFIXES = {".h", ".cpp", ".c"}
PUBLIC = {
    "KRLVesk": "include/KRLVesk",
    "CoreFoundation": "corefoundation/include/CoreFoundation",
    "MobileDevice": "mobiledevice/include/MobileDevice",
}
NOT_OURS = {"build", "demo", ".git", ".cache"}
# Programs to copy from: they include the file beside them as a program of its own would.
STAND_ALONE = {"examples"}
INCLUDE = re.compile(r'^\s*#\s*include\s*(["<])([^">]+)[">]', re.MULTILINE)


def read_table():
    rooms = {}
    for number, line in enumerate(TABLE.read_text().splitlines(), 1):
        line = line.split("#")[0].strip()
        if not line:
            continue
        room, colon, others = line.partition(":")
        if not colon or room in rooms:
            sys.exit(f"{TABLE.name}:{number}: not a line of the form 'room: other rooms', or a second one")
        rooms[room.strip()] = set(others.split())
    return rooms


def sources():
    for path in sorted(ROOT.rglob("*")):
        relative = path.relative_to(ROOT)
        if relative.parts[0] not in NOT_OURS and path.suffix in SUFFIXES and path.is_file():
            yield relative


def room_of_include(kind, name, including):
    """The room that an include leads to; None for what is not ours; an error as a string in a list."""
    if kind == "<":
        return PUBLIC.get(name.split("/")[0])
    if including.parts[0] in STAND_ALONE and (ROOT / including.parent / name).is_file():
        return str(including.parent)
    if not (ROOT / name).is_file():
        return ["is not written from the root of the tree"]
    return str(Path(name).parent)


def circles(rooms):
    """Each room from which a row of rooms leads back to it."""
    done, found = set(), []

    def walk(room, way):
        if room in way:
            found.append(" -> ".join(way[way.index(room):] + [room]))
            return
        if room in done:
            return
        for other in sorted(rooms.get(room, ())):
            walk(other, way + [room])
        done.add(room)

    for room in sorted(rooms):
        walk(room, [])
    return found


def main():
    rooms = read_table()
    wrong, lines, used = [], {}, set()
    for room, others in rooms.items():
        wrong += [f"{TABLE.name}: {room} names {other}, which has no line" for other in sorted(others - rooms.keys())]
    for source in sources():
        room = str(source.parent)
        text = (ROOT / source).read_text()
        lines[room] = lines.get(room, 0) + text.count("\n")
        if room not in rooms:
            wrong.append(f"{source}: {room} has no line in {TABLE.name}")
            continue
        for match in INCLUDE.finditer(text):
            target = room_of_include(match[1], match[2], source)
            where = f"{source}:{text.count(chr(10), 0, match.start()) + 1}: {match[2]}"
            if isinstance(target, list):
                wrong.append(f"{where} {target[0]}")
            elif target is not None and target != room:
                used.add((room, target))
                if target not in rooms[room]:
                    wrong.append(f"{where}: {room} may not include {target}")
    for room, others in rooms.items():
        if room not in lines:
            wrong.append(f"{TABLE.name}: {room} has no sources")
        wrong += [f"{TABLE.name}: {room} does not include {other}; take it out of the line"
                  for other in sorted(others) if (room, other) not in used]
    wrong += [f"circle: {circle}" for circle in circles(rooms)]
    whole = sum(lines.values())
    wrong += [f"{room} holds {count} of {whole} lines, a quarter or more"
              for room, count in lines.items() if count * 4 >= whole]
    if "--sizes" in sys.argv[1:]:
        for room, count in sorted(lines.items(), key=lambda item: -item[1]):
            print(f"{count:7} {room}")
    if wrong:
        print("\n".join(wrong))
        sys.exit(1)
    print(f"{len(rooms)} rooms, {whole} lines: every include goes where the table allows")


main()
