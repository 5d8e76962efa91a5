# SPDX-License-Identifier: MIT
"""Are the committed numbers those of the present kit, and the pictures drawn from them?

    check.py COMPUTED COMMITTED PICTURES

Numbers may differ by what another mathematical library makes of sines and logarithms, no more.
Needs Python's own library only.
"""

import csv
import hashlib
import math
import pathlib
import sys

RELATIVE = 1e-4
ABSOLUTE = 1e-4


def rows(path):
    with path.open(newline="") as file:
        return list(csv.reader(file))


def same(computed, committed):
    if computed == committed:
        return True
    try:
        a, b = float(computed), float(committed)
    except ValueError:
        return False
    return math.isclose(a, b, rel_tol=RELATIVE, abs_tol=ABSOLUTE)


def differences(computed, committed):
    """The first difference of two tables, as a line, or nothing."""
    if len(computed) != len(committed):
        return f"{len(computed)} rows, committed {len(committed)}"
    for number, (new, old) in enumerate(zip(computed, committed), 1):
        if len(new) != len(old) or not all(map(same, new, old)):
            return f"line {number}: {','.join(new)}, committed {','.join(old)}"
    return None


def main(computed, committed, pictures):
    failures = []
    names = {path.name for path in computed.glob("*.csv")}
    for name in sorted(names ^ {path.name for path in committed.glob("*.csv")}):
        failures.append(f"{name} is on one side only")
    numbers = 0
    for name in sorted(names):
        if not (committed / name).exists():
            continue
        table = rows(computed / name)
        numbers += sum(map(len, table[1:]))
        difference = differences(table, rows(committed / name))
        if difference:
            failures.append(f"{name}, {difference}")

    drawn = sorted(pictures.glob("*.svg"))
    for picture in drawn:
        text = picture.read_text()
        sources = text.split("drawn from: ", 1)[-1].split("<", 1)[0].split()
        if not sources or "drawn from: " not in text:
            failures.append(f"{picture.name} does not name the data that it was drawn from")
        for source in sources:
            name, digest = source.split(":")
            path = committed / name
            if not path.exists() or hashlib.sha256(path.read_bytes()).hexdigest()[:16] != digest:
                failures.append(f"{picture.name} was not drawn from the present {name}")

    for failure in failures:
        print(f"error: {failure}", file=sys.stderr)
    if not numbers or not drawn:
        print("error: nothing to check", file=sys.stderr)
        return 1
    if failures:
        print("error: run scripts/pictures streams, look at the pictures, commit them", file=sys.stderr)
        return 1
    print(f"figures: {numbers} numbers of {len(names)} tables are the kit's; {len(drawn)} pictures are drawn from them")
    return 0


if __name__ == "__main__":
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    sys.exit(main(*map(pathlib.Path, sys.argv[1:])))
