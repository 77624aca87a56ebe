#!/usr/bin/env python3
"""Keeps the library's source lists in step.

  check_build_lists.py PROJECT_DIR

cmake/sources.cmake (TAVIKLIMITER_SOURCES) is the list; every srcs array of
Android.bp that names library sources must hold the same files, and the
.cpp files under src/ must be exactly the listed ones.
"""

import os
import re
import sys


def cmake_sources(path):
    text = re.sub(r"#[^\n]*", "", open(path, encoding="utf-8").read())
    m = re.search(r"set\(\s*TAVIKLIMITER_SOURCES\s+([^)]*)\)", text)
    if not m:
        sys.exit(f"check_build_lists: no set(TAVIKLIMITER_SOURCES ...) in {path}")
    return m.group(1).split()


def blueprint_library_srcs(path):
    """Each srcs list of Android.bp that names files under src/."""
    text = re.sub(r"//[^\n]*", "", open(path, encoding="utf-8").read())
    lists = []
    for m in re.finditer(r"\bsrcs\s*:\s*\[([^\]]*)\]", text):
        names = re.findall(r'"([^"]*)"', m.group(1))
        if any(name.startswith("src/") for name in names):
            lists.append(names)
    return lists


def report(problems, what, names):
    for name in names:
        problems.append(f"{what}: {name}")


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    top = sys.argv[1]
    listed = cmake_sources(os.path.join(top, "cmake", "sources.cmake"))
    problems = []

    duplicates = sorted({name for name in listed if listed.count(name) > 1})
    report(problems, "listed twice in cmake/sources.cmake", duplicates)

    on_disk = sorted(os.path.relpath(os.path.join(root, name), top).replace(os.sep, "/")
                     for root, _, files in os.walk(os.path.join(top, "src"))
                     for name in files if name.endswith(".cpp"))
    report(problems, "in src/ but not in cmake/sources.cmake",
           sorted(set(on_disk) - set(listed)))
    report(problems, "in cmake/sources.cmake but not on disk",
           sorted(name for name in listed if not os.path.isfile(os.path.join(top, name))))

    bp_lists = blueprint_library_srcs(os.path.join(top, "Android.bp"))
    if not bp_lists:
        problems.append("Android.bp: no srcs list of library sources")
    for bp in bp_lists:
        report(problems, "in Android.bp but not in cmake/sources.cmake",
               sorted(set(bp) - set(listed)))
        report(problems, "in cmake/sources.cmake but not in Android.bp",
               sorted(set(listed) - set(bp)))
        report(problems, "listed twice in Android.bp",
               sorted({name for name in bp if bp.count(name) > 1}))

    if problems:
        print(f"check_build_lists: {len(problems)} problem(s)")
        for problem in problems:
            print(f"  {problem}")
        return 1
    print(f"check_build_lists: {len(listed)} sources, Android.bp and src/ agree")
    return 0


if __name__ == "__main__":
    sys.exit(main())
