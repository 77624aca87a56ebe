#!/usr/bin/env python3
"""Proves that check_exports.py catches what it is there to catch.

  check_exports_selftest.py --cc CC [--readelf PATH] [--workdir DIR]

Builds a small shared library per case with CC, linked as the real one is (hidden visibility, a
version script), checks it with the work directory as a path it must not hold, and expects the
check to pass or to fail naming the fault."""

import argparse
import os
import re
import subprocess
import sys
import tempfile

BASE = """
#include <string.h>
#define API __attribute__((visibility("default")))
API int f_one(char *dst, const char *src, unsigned long n) { memcpy(dst, src, n); return 0; }
API const int obj_one[4] = {1, 2, 3, 4};
"""
LINKED = ["f_one", "obj_one"]


def version_script(functions, objects=()):  # the project's form: each name's kind by its section
    return ("{\n  global:\n    /* functions */\n" + "".join(f"    {n};\n" for n in functions)
            + "    /* objects */\n" + "".join(f"    {n};\n" for n in objects)
            + "  local:\n    *;\n};\n")


def case(name, expected, code="", flags=(), linked=LINKED, listed=version_script(["f_one"], ["obj_one"])):
    """BASE + code linked to export `linked`, checked against `listed`; expected: the problem, or None."""
    return name, expected, code, list(flags), linked, listed


CASES = [
    case("clean", None),
    case("pointer table after relocation is read-only", None,
         'static const char *const names[] = {"a", "b"};\nconst char *pick(int i) { return names[i]; }\n'),
    case("stray export", r"exported but not in exports.map: stray \(FUNC\)", "API void stray(void) {}\n",
         linked=LINKED + ["stray"]),
    case("missing export", r"not exported: obj_one \(OBJECT\)", linked=["f_one"]),
    case("wrong kind", "obj_one is exported as OBJECT, listed as FUNC", listed=version_script(["f_one", "obj_one"])),
    case("writable global", "writable data: g_counter", "int g_counter;\nint bump(void) { return ++g_counter; }\n"),
    case("initialised global", "writable data: g_mode", "int g_mode = 3;\nint mode(void) { return g_mode++; }\n"),
    case("function-local static", r"writable data: \S*calls_seen",
         "int calls(void) { static int calls_seen; return ++calls_seen; }\n"),
    case("thread-local", "thread-local variable: t_state",
         "_Thread_local int t_state;\nint touch(void) { return ++t_state; }\n"),
    case("libc import", "imports malloc", "#include <stdlib.h>\nvoid *grab(unsigned long n) { return malloc(n); }\n"),
    case("C++ runtime needed", "needs libstdc\\+\\+", flags=["-Wl,--no-as-needed", "-lstdc++"]),
    case("run path", r"R(UN)?PATH \[/opt/elsewhere\]", flags=["-Wl,-rpath,/opt/elsewhere"]),
    case("build directory in the debug information", "holds the path", flags=["-g"]),
]


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--cc", required=True)
    parser.add_argument("--readelf", default="readelf")
    parser.add_argument("--workdir")
    args = parser.parse_args()
    workdir = os.path.abspath(args.workdir or tempfile.mkdtemp(prefix="check_exports_selftest."))
    os.makedirs(workdir, exist_ok=True)
    check = os.path.join(os.path.dirname(os.path.abspath(__file__)), "check_exports.py")
    failures = 0
    for name, expected, code, flags, linked, listed in CASES:
        slug = "".join(c if c.isalnum() else "_" for c in name)
        for file_name, text in ((f"{slug}.c", BASE + code), (f"{slug}.map", version_script(linked)),
                                ("exports.map", listed)):
            with open(os.path.join(workdir, file_name), "w", encoding="utf-8") as f:
                f.write(text)
        # Relative names, compiled in workdir: only debug information records it.
        subprocess.run([args.cc, "-O2", "-fPIC", "-shared", "-fvisibility=hidden", f"-Wl,--version-script={slug}.map",
                        "-o", f"lib{slug}.so", f"{slug}.c", *flags], cwd=workdir, check=True)
        run = subprocess.run([sys.executable, check, "--readelf", args.readelf, "--no-path", workdir,
                              os.path.join(workdir, f"lib{slug}.so"), os.path.join(workdir, "exports.map")],
                             capture_output=True, text=True, check=False)
        ok = run.returncode == 0 if expected is None else run.returncode == 1 and re.search(expected, run.stdout)
        failures += not ok
        print(f"ok   {name}" if ok else f"FAIL {name}: expected the check to {expected or 'pass'}; it returned "
              f"{run.returncode}:\n{run.stdout}{run.stderr}")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
