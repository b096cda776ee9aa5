#!/usr/bin/env python3
"""Checks the help texts in the documentation against what the programs say.

usage: check_help_md.py --loader WINE --bin FOLDER [--write]

In docs/*.md a block that begins with ```help PROGRAM [COMMAND] must hold exactly what `PROGRAM [COMMAND] --help` prints,
and every program and command must have such a block in the page named after the program. --write replaces what differs
instead of complaining. Run it in an open Wine prefix. Prints one line a block; exit code 1 when one differs or is missing.
"""

import argparse
import pathlib
import re
import subprocess
import sys

DOCS = pathlib.Path(__file__).resolve().parents[2] / "docs"
BLOCK = re.compile(r"^```help ([a-z ]+)\n(.*?)^```$", re.MULTILINE | re.DOTALL)

# Every program, and the commands that have a help of their own.
PROGRAMS = {
    "rvfeeder": [],
    "rvhost": [],
    "rvsetup": ["install", "uninstall", "doctor", "report", "trace"],
    "rvclient": ["start", "stop", "remove", "list"],
}


def help_of(options, words):
    command = [options.loader, str(options.bin / f"{words[0]}.exe"), *words[1:], "--help"]
    done = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=60)
    if done.returncode != 0 or not done.stdout:
        raise RuntimeError(f"{' '.join(words)} --help ended with {done.returncode}: {done.stderr.decode()}")
    text = done.stdout.decode().replace("\r\n", "\n")
    return "\n".join(line.rstrip() for line in text.strip("\n").split("\n")) + "\n"


def check_page(options, page):
    """The titles of the blocks of one page, and how many of them differ."""
    text = page.read_text()
    titles, wrong = [], 0

    def judge(match):
        nonlocal wrong
        title = match.group(1).strip()
        titles.append(title)
        said = help_of(options, title.split())
        if said == match.group(2):
            print(f"ok        {page.name}: {title}")
            return match.group(0)
        if options.write:
            print(f"replaced  {page.name}: {title}")
            return f"```help {title}\n{said}```"
        wrong += 1
        print(f"DIFFERS   {page.name}: {title}; the program says:\n{said}")
        return match.group(0)

    replaced = BLOCK.sub(judge, text)
    if replaced != text:
        page.write_text(replaced)
    return titles, wrong


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--loader", required=True)
    parser.add_argument("--bin", type=pathlib.Path, required=True)
    parser.add_argument("--write", action="store_true")
    options = parser.parse_args()

    failed = 0
    for program, commands in PROGRAMS.items():
        page = DOCS / f"{program}.md"
        wanted = {program, *(f"{program} {command}" for command in commands)}
        titles, wrong = check_page(options, page) if page.exists() else ([], 0)
        failed += wrong
        for title in sorted(wanted - set(titles)):
            print(f"MISSING   docs/{page.name} has no block ```help {title}")
            failed += 1
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
