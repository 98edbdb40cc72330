#!/usr/bin/env python3
"""Follows the includes of src. Fails on one that points up the list of layers, on one that
leaves x11, and on files that include each other in a circle."""

import pathlib
import re
import sys

# A layer may include its own files and those of the layers before it.
LAYERS = ["base", "model", "storage", "service", "update", "tracking", "widgets", "notifications", "ui", "app"]
# Every layer may include its files, which include only each other.
LEAF = "x11"

INCLUDE = re.compile(r'^\s*#\s*include\s*[<"]([^>"]+)[>"]', re.MULTILINE)


def read_includes(source):
    """Each source file with what it includes from src, generated headers too, as paths below src."""
    includes = {}
    for path in sorted(source.rglob("*")):
        if path.suffix in (".h", ".cpp"):
            folder = path.parent.relative_to(source)
            found = INCLUDE.findall(path.read_text(encoding="utf-8"))
            includes[str(path.relative_to(source))] = [
                text if "/" in text else str(folder / text) for text in found
                if (source / text.split("/")[0]).is_dir() or (path.parent / text).is_file()]
    return includes


def is_allowed(folder, included):
    if folder == included or included == LEAF:
        return True
    return folder != LEAF and included in LAYERS[:LAYERS.index(folder)]


def find_circles(includes):
    circles, done, trail = [], set(), []

    def walk(file):
        if file in trail:
            circles.append(trail[trail.index(file):] + [file])
        elif file not in done:
            trail.append(file)
            for included in includes.get(file, []):
                walk(included)
            done.add(trail.pop())

    for file in includes:
        walk(file)
    return circles


def main():
    source = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else pathlib.Path(__file__).resolve().parent.parent / "src")
    includes = read_includes(source)
    problems = []
    for file, found in includes.items():
        folder = file.split("/")[0]
        if folder not in LAYERS + [LEAF]:
            problems.append(f"{file}: the folder {folder} is no layer; name it in {sys.argv[0]}")
            continue
        problems += [f"{file} includes {included}: {folder} must not include {included.split('/')[0]}"
                     for included in found if not is_allowed(folder, included.split("/")[0])]
    problems += ["circle: " + " -> ".join(circle) for circle in find_circles(includes)]
    print("\n".join(problems) or f"{len(includes)} files: no include points up, none is in a circle")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
