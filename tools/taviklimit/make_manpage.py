#!/usr/bin/env python3
"""Writes taviklimit.1, the manual page, from `taviklimit --help`, so that the
two always say the same thing.

    make_manpage.py TAVIKLIMIT taviklimit.1           writes the page
    make_manpage.py --check TAVIKLIMIT taviklimit.1   fails if it is stale

The help text is laid out as a page already: section names at the margin,
paragraphs indented four spaces, option descriptions eight, and anything
indented deeper than its paragraph (lists, command lines) kept as it is.
"""

import re
import subprocess
import sys


def escape(text):
    text = text.replace("\\", "\\e").replace("-", "\\-")
    return "\\&" + text if text.startswith((".", "'")) else text


def paragraph(lines, body, out):
    """Plain lines at the body indent; deeper runs kept as they are."""
    keep = False
    for line in lines:
        deep = len(line) - len(line.lstrip()) > body
        if deep != keep:
            out.append(".nf" if deep else ".fi")
            keep = deep
        out.append(escape(line[body:] if deep else line.strip()))
    if keep:
        out.append(".fi")


def section(name, lines, out):
    out.append(".SH " + escape(name))
    blocks, block = [], []
    for line in lines + [""]:
        if line.strip():
            block.append(line)
        elif block:
            blocks.append(block)
            block = []
    for i, block in enumerate(blocks):
        first = block[0]
        status = re.match(r"    (\d+)\s+(.*)", first) if name == "EXIT STATUS" else None
        if name == "NAME":
            out.append(escape(first.strip()))
        elif name == "SYNOPSIS":
            out.append(".nf")
            out.extend(escape(line[4:]) for line in block)
            out.append(".fi")
        elif name == "OPTIONS" and first.startswith("    -"):
            out.extend([".TP", ".B " + escape(first.strip())])
            paragraph(block[1:], 8, out)
        elif status:
            out.extend([".TP", ".B " + status.group(1), escape(status.group(2))])
            paragraph(block[1:], 9, out)
        else:
            if i:
                out.append(".PP")
            paragraph(block, 4, out)


def manpage(help_text, version):
    out = ['.TH TAVIKLIMIT 1 "" "%s" "User Commands"' % escape(version)]
    name, lines = None, []
    for line in help_text.splitlines():
        if line and not line[0].isspace():
            if name:
                section(name, lines, out)
            name, lines = line.strip(), []
        else:
            lines.append(line.rstrip())
    section(name, lines, out)
    return "\n".join(out) + "\n"


def main(argv):
    check = argv[:1] == ["--check"]
    tool, page = argv[1:] if check else argv
    run = lambda arg: subprocess.run([tool, arg], check=True, capture_output=True, text=True).stdout
    text = manpage(run("--help"), run("--version").split(",")[0].strip())
    if not check:
        with open(page, "w") as f:
            f.write(text)
        return 0
    with open(page) as f:
        if f.read() == text:
            return 0
    print(f"{page} does not match --help; regenerate it: {sys.argv[0]} {tool} {page}",
          file=sys.stderr)
    return 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
