#!/usr/bin/env python3
"""Fails when a source file is not shown, as it is, in a block of README.md.

Usage: compare_with_readme.py README SOURCE...
"""
import pathlib
import re
import sys

blocks = re.findall(r"^```cpp\n(.*?)^```$", pathlib.Path(sys.argv[1]).read_text(), re.MULTILINE | re.DOTALL)
different = [name for name in sys.argv[2:] if pathlib.Path(name).read_text() not in blocks]
for name in different:
    print(f"{sys.argv[1]} does not show {name} as it is")
sys.exit(1 if different else 0)
