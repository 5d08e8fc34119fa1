#!/usr/bin/env python3
"""Runs clang-tidy over the project's sources in a build tree's compile_commands.json.

A source that passed is looked at again only when it, a header of the project that it includes, its compile
command or a .clang-tidy file has changed; a new header that hides another is not noticed. Like ccache, it
remembers that for every clone of the project, in $XDG_CACHE_HOME/hbbtv_ryn-lint (~/.cache without that
variable). Exit code: 0 all pass, 1 findings, 2 usage.

Usage: scripts/lint.py BUILD [FOLDER]   (FOLDER: only the sources below it)
"""
import concurrent.futures
import hashlib
import json
import os
import pathlib
import re
import shlex
import subprocess
import sys

PROJECT = pathlib.Path(__file__).resolve().parent.parent


def headers_read_by(entry):
    """What the preprocessor reads for a source besides itself, as far as it is the project's own."""
    command = shlex.split(entry["command"])
    if pathlib.Path(command[0]).name == "ccache":
        command = command[1:]
    output = command.index("-o")
    command[output:output + 2] = ["-MM"]
    command.remove("-c")
    rule = subprocess.run(command, cwd=entry["directory"], capture_output=True, text=True, check=True).stdout
    names = rule.split(":", 1)[1].replace("\\\n", " ").split()[1:]
    paths = (pathlib.Path(entry["directory"], name).resolve() for name in names)
    return sorted(str(path.relative_to(PROJECT)) for path in paths if path.is_relative_to(PROJECT))


def fingerprint(*parts):
    return hashlib.sha256(b"\0".join(parts)).hexdigest()


def contents(headers):
    paths = (PROJECT / header for header in headers)
    return fingerprint(*(path.read_bytes() if path.exists() else b"" for path in paths))


def has_passed(record):
    """Whether the source of a record has passed with headers as they are now."""
    try:
        lines = record.read_text().splitlines()
        return any(with_contents == contents(headers) for headers, with_contents in map(json.loads, lines))
    except FileNotFoundError:
        return False
    except ValueError:  # half a line: somebody was stopped while writing it
        record.unlink(missing_ok=True)
        return False


def line_for(entry):
    """What a record says of a source that passes with the headers of now."""
    try:
        headers = headers_read_by(entry)
    except subprocess.CalledProcessError:
        return ""  # clang-tidy will say why it does not compile
    return json.dumps([headers, contents(headers)]) + "\n"


def lint(entry, build, passed, tool):
    """The findings in a source; empty when it passes."""
    # Alike in every clone.
    command = entry["command"].replace(str(PROJECT), "").encode()
    record = passed / fingerprint(tool, command, pathlib.Path(entry["file"]).read_bytes())
    if has_passed(record):
        return ""
    line = line_for(entry)  # before the run: who edits a header meanwhile is asked again
    result = subprocess.run(["clang-tidy", "-quiet", f"-p={build}", entry["file"]],
                            capture_output=True, text=True)
    if result.returncode != 0:
        return result.stdout + re.sub(r"^\d+ warnings? .*\n", "", result.stderr, flags=re.MULTILINE)
    with record.open("a") as file:
        file.write(line)
    return ""


def main():
    arguments = sys.argv[1:]
    if len(arguments) not in (1, 2) or arguments[0] == "--help":
        print(__doc__, file=sys.stdout if arguments == ["--help"] else sys.stderr)
        return 0 if arguments == ["--help"] else 2
    build = pathlib.Path(arguments[0]).resolve()
    folder = PROJECT / arguments[1] if len(arguments) == 2 else PROJECT
    # Objects of the library stand once in the list, whatever links them; a source of two programs twice.
    entries = {entry["file"]: entry for entry in json.loads((build / "compile_commands.json").read_text())
               if pathlib.Path(entry["file"]).is_relative_to(folder)
               and not pathlib.Path(entry["file"]).is_relative_to(build)}
    tool = subprocess.run(["clang-tidy", "--version"], capture_output=True, check=True).stdout
    for path in sorted(path for path in PROJECT.glob("**/.clang-tidy") if "build" not in path.parts):
        tool += path.read_bytes()
    passed = pathlib.Path(os.environ.get("XDG_CACHE_HOME") or pathlib.Path.home() / ".cache", "hbbtv_ryn-lint")
    passed.mkdir(parents=True, exist_ok=True)
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        findings = list(filter(None, pool.map(lambda entry: lint(entry, build, passed, tool), entries.values())))
    print("".join(findings), end="")
    print(f"clang-tidy: {len(entries)} sources, {len(findings)} with findings")
    return 1 if findings else 0


sys.exit(main())
