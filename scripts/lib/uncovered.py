#!/usr/bin/env python3
"""Lists what no test reached, from gcovr's JSON: file:line, 'line' or 'branch taken/all', and the line's text."""

import json
import sys


def main():
    with open(sys.argv[1], encoding="utf-8") as file:
        report = json.load(file)
    for entry in report["files"]:
        with open(entry["file"], encoding="utf-8") as source:
            text = source.read().split("\n")
        for line in entry["lines"]:
            if line.get("gcovr/noncode"):
                continue
            number = line["line_number"]
            branches = line.get("branches", [])
            taken = sum(1 for branch in branches if branch["count"] > 0)
            what = "line" if line["count"] == 0 else f"branch {taken}/{len(branches)}" if taken < len(branches) else ""
            if what:
                print(f"{entry['file']}:{number}: {what}: {text[number - 1].strip()}")


if __name__ == "__main__":
    main()
