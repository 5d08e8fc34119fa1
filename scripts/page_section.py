#!/usr/bin/env python3
"""Puts what a command prints into a page, or checks that it stands there.

The first and the last line that the command prints are those by which its section is found in the page.
Exit code: 0 it stands there; 1 it does not, or the page has no place for it, or the command failed; 2 usage.

Usage: page_section.py --check|--update PAGE COMMAND [ARGUMENT...]
"""
import pathlib
import subprocess
import sys


def main(arguments):
    if len(arguments) < 3 or arguments[0] not in ("--check", "--update"):
        print(__doc__, file=sys.stderr)
        return 2
    action, page = arguments[0], pathlib.Path(arguments[1])
    section = subprocess.run(arguments[2:], stdout=subprocess.PIPE, text=True, check=True).stdout
    first, last = section.splitlines()[0], section.splitlines()[-1]
    text = page.read_text()
    begin, end = text.find(first + "\n"), text.find(last + "\n")
    if begin < 0 or end < begin:
        print(f"{page} has no place between '{first}' and '{last}'", file=sys.stderr)
        return 1
    updated = text[:begin] + section + text[end + len(last) + 1:]
    if action == "--check" and updated != text:
        print(f"{page} differs from what '{' '.join(arguments[2:])}' prints; --update takes that over", file=sys.stderr)
        return 1
    if updated != text:
        page.write_text(updated)
    return 0


sys.exit(main(sys.argv[1:]))
