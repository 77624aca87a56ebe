#!/usr/bin/env python3
"""Proves that check_exports.py catches what it is there to catch.

  check_exports_selftest.py --cc CC [--readelf PATH] [--workdir DIR]

Builds one small shared library per case with CC (the same way the real
library is linked: hidden visibility, a version script), runs the check on it
and expects it to pass, or to fail naming the fault.
"""

import argparse
import os
import re
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))

BASE = """
#include <string.h>
#define API __attribute__((visibility("default")))
API int f_one(char *dst, const char *src, unsigned long n) { memcpy(dst, src, n); return 0; }
API const int obj_one[4] = {1, 2, 3, 4};
"""
def version_script(functions, objects=()):
    """A version script in the project's form: the kind of each name by its section."""
    return ("{\n  global:\n    /* functions */\n" + "".join(f"    {n};\n" for n in functions)
            + "    /* objects */\n" + "".join(f"    {n};\n" for n in objects)
            + "  local:\n    *;\n};\n")


EXPORTS = version_script(["f_one"], ["obj_one"])
MAP = ["f_one", "obj_one"]

# name, added code, names the library is linked to export, the list it is checked against, extra link
# flags, a pattern of the problem the check must report (None: it must pass)
CASES = [
    ("clean", "", MAP, EXPORTS, [], None),
    ("pointer table after relocation is read-only",
     'static const char *const names[] = {"a", "b"};\n'
     "const char *pick(int i) { return names[i]; }\n", MAP, EXPORTS, [], None),
    ("stray export", "API void stray(void) {}\n", MAP + ["stray"], EXPORTS, [],
     r"exported but not in exports.map: stray \(FUNC\)"),
    ("missing export", "", ["f_one"], EXPORTS, [], r"not exported: obj_one \(OBJECT\)"),
    ("wrong kind", "", MAP, version_script(["f_one", "obj_one"]), [],
     "obj_one is exported as OBJECT, listed as FUNC"),
    ("writable global", "int g_counter;\nint bump(void) { return ++g_counter; }\n", MAP,
     EXPORTS, [], "writable data: g_counter"),
    ("initialised global", "int g_mode = 3;\nint mode(void) { return g_mode++; }\n", MAP,
     EXPORTS, [], "writable data: g_mode"),
    ("function-local static",
     "int calls(void) { static int calls_seen; return ++calls_seen; }\n", MAP, EXPORTS, [],
     r"writable data: \S*calls_seen"),
    ("thread-local", "_Thread_local int t_state;\nint touch(void) { return ++t_state; }\n",
     MAP, EXPORTS, [], "thread-local variable: t_state"),
    ("libc import", "#include <stdlib.h>\nvoid *grab(unsigned long n) { return malloc(n); }\n",
     MAP, EXPORTS, [], "imports malloc"),
    ("C++ runtime needed", "", MAP, EXPORTS, ["-Wl,--no-as-needed", "-lstdc++"],
     "needs libstdc++"),
]


def build(cc, workdir, name, code, names, extra_flags):
    slug = "".join(c if c.isalnum() else "_" for c in name)
    source = os.path.join(workdir, slug + ".c")
    script = os.path.join(workdir, slug + ".map")
    library = os.path.join(workdir, "lib" + slug + ".so")
    with open(source, "w", encoding="utf-8") as f:
        f.write(BASE + code)
    with open(script, "w", encoding="utf-8") as f:
        f.write("{\n  global:\n" + "".join(f"    {n};\n" for n in names)
                + "  local:\n    *;\n};\n")
    command = [cc, "-O2", "-fPIC", "-shared", "-fvisibility=hidden",
               f"-Wl,--version-script={script}", "-o", library, source, *extra_flags]
    subprocess.run(command, check=True)
    return library


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--cc", required=True)
    parser.add_argument("--readelf", default="readelf")
    parser.add_argument("--workdir")
    args = parser.parse_args()
    workdir = args.workdir or tempfile.mkdtemp(prefix="check_exports_selftest.")
    os.makedirs(workdir, exist_ok=True)
    exports = os.path.join(workdir, "exports.map")

    failures = 0
    for name, code, names, exports_text, flags, expected in CASES:
        with open(exports, "w", encoding="utf-8") as f:
            f.write(exports_text)
        library = build(args.cc, workdir, name, code, names, flags)
        run = subprocess.run([sys.executable, os.path.join(HERE, "check_exports.py"),
                              "--readelf", args.readelf, library, exports],
                             capture_output=True, text=True, check=False)
        if expected is None:
            ok = run.returncode == 0
        else:
            ok = run.returncode == 1 and re.search(expected, run.stdout) is not None
        if not ok:
            failures += 1
            wanted = "pass" if expected is None else f"fail with '{expected}'"
            print(f"FAIL {name}: expected the check to {wanted}; it returned "
                  f"{run.returncode}:\n{run.stdout}{run.stderr}")
        else:
            print(f"ok   {name}")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
