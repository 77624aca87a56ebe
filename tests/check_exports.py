#!/usr/bin/env python3
"""Checks what libtaviklimiter_vendor.so shows the dynamic linker, and what it holds.

  check_exports.py [--readelf PATH] [--sanitized] [--no-path DIR]... LIBRARY.so VERSION_SCRIPT.map

(a) The defined dynamic symbols are exactly the global names of the version script (the
    one list of exports), each of the kind its section comment gives (FUNC, OBJECT).
(b) The undefined ones are memcpy, memmove, memset and RUNTIME_IMPORTS.
(c) No writable data: no TLS symbol, and no OBJECT but RUNTIME_OBJECTS in a section
    that stays writable once the library is relocated.
(d) No DT_NEEDED entry names a C++ runtime or the shared libgcc; no DT_RUNPATH or DT_RPATH.
(e) No --no-path directory (source, build) is in the file: builds from two give the same bytes.
--sanitized accepts the sanitizer hooks in (b) and skips (c) and (e): instrumentation adds
writable metadata and source file names. GNU readelf reads every target's ELF files.
"""

import argparse
import os
import re
import subprocess
import sys

C_LIBRARY_IMPORTS = {"memcpy", "memmove", "memset"}
# What start-up files bring into every shared library: crtbeginS.o's __cxa_finalize (atexit entries
# at dlclose) and weak transactional memory hooks, crti.o's weak profiling hook, the stack protector
# (default in some toolchains) with its canary where that is a global.
RUNTIME_IMPORTS = {"__cxa_finalize", "_ITM_deregisterTMCloneTable", "_ITM_registerTMCloneTable",
                   "__gmon_start__", "__stack_chk_fail", "__stack_chk_guard"}
# crtbeginS.o's run-once flag and identity for __cxa_atexit, crtendS.o's end of the (empty)
# transactional clone table, and the GOT, whose lazily bound entries are writable.
RUNTIME_OBJECTS = {"completed.0", "__dso_handle", "__TMC_END__", "_GLOBAL_OFFSET_TABLE_"}
FORBIDDEN_NEEDED = re.compile(r"^(libstdc\+\+|libc\+\+(abi|_shared)?|libsupc\+\+|libgcc_s|libunwind)(\.so|$)")


def readelf(tool, *args):
    result = subprocess.run([tool, "-W", *args], capture_output=True, text=True, check=False)
    if result.returncode != 0:
        sys.exit(f"check_exports: {tool} {' '.join(args)} failed:\n{result.stderr}")
    return result.stdout


def read_exports(path):
    """{global name of a version script: FUNC or OBJECT, by its section comment}."""
    with open(path, encoding="utf-8") as f:
        text = re.sub(r"/\*\s*(functions|objects)\s*\*/", r" @\1 ", f.read())
    wanted, kind, in_global = {}, None, False
    for token in re.findall(r"@\w+|[\w*]+[:;]", re.sub(r"/\*.*?\*/", " ", text, flags=re.S)):
        if token.startswith("@"):
            kind = "FUNC" if token == "@functions" else "OBJECT"
        elif token.endswith(":"):
            in_global = token == "global:"
        elif in_global:
            if kind is None:
                sys.exit(f"check_exports: {path}: {token[:-1]} stands before "
                         "a /* functions */ or /* objects */ comment")
            wanted[token[:-1]] = kind
    return wanted or sys.exit(f"check_exports: {path}: no global names")


SYMBOL_ROW = re.compile(  # Num: Value Size Type Bind Vis [other] Ndx [Name[@VERSION]]
    r"^\s*\d+:\s+\S+\s+\S+\s+(\S+)\s+(\S+)\s+\S+\s+(?:\[[^\]]*\]\s+)?(\S+)\s*([^@\s]*)")


def symbol_tables(text):
    """{table name: [(type, bind, ndx, name)]} from `readelf -s`."""
    tables, current = {}, []
    for line in text.splitlines():
        if header := re.match(r"^Symbol table '([^']+)'", line):
            current = tables.setdefault(header.group(1), [])
        elif row := SYMBOL_ROW.match(line):
            current.append(row.groups())
    return tables


SECTION_LINE = re.compile(  # [Nr] Name Type Address Off Size ES Flg Lk Inf Al
    r"^\s*\[\s*(\d+)\]\s+(\S*)\s+\S+\s+([0-9a-fA-F]+)\s+[0-9a-fA-F]+\s+([0-9a-fA-F]+)"
    r"\s+[0-9a-fA-F]+\s+([A-Za-z]*)\s+\d+\s+\d+\s+\d+\s*$")


def writable_sections(library, tool):
    """{index: name} of the sections that stay writable once relocated: writable
    and not covered by PT_GNU_RELRO, which the dynamic linker makes read-only
    after relocating it (so .data.rel.ro, tables of pointers, is read-only)."""
    relro = [(int(f[2], 16), int(f[2], 16) + int(f[5], 16))
             for f in map(str.split, readelf(tool, "-l", library).splitlines())
             if f and f[0] == "GNU_RELRO"]
    found = {}
    for m in filter(None, map(SECTION_LINE.match, readelf(tool, "-S", library).splitlines())):
        address, size = int(m.group(3), 16), int(m.group(4), 16)
        if "W" in m.group(5) and not any(lo <= address and address + size <= hi for lo, hi in relro):
            found[m.group(1)] = m.group(2)
    return found


def problems_of(args):
    wanted = read_exports(args.exports)
    tables = symbol_tables(readelf(args.readelf, "-s", args.library))
    dynsym, symtab = tables.get(".dynsym", []), tables.get(".symtab")
    defined = {name: typ for typ, bind, ndx, name in dynsym
               if name and ndx != "UND" and bind in ("GLOBAL", "WEAK", "GNU_UNIQUE")}
    problems = [f"not exported: {name} ({wanted[name]})" for name in sorted(wanted.keys() - defined.keys())]
    problems += [f"exported but not in {os.path.basename(args.exports)}: {name} ({defined[name]})"
                 for name in sorted(defined.keys() - wanted.keys())]
    problems += [f"{name} is exported as {defined[name]}, listed as {wanted[name]}"
                 for name in sorted(wanted.keys() & defined.keys()) if defined[name] != wanted[name]]
    imports = sorted({name for typ, bind, ndx, name in dynsym if name and ndx == "UND"})
    problems += [f"imports {name}" for name in imports
                 if name not in C_LIBRARY_IMPORTS | RUNTIME_IMPORTS
                 and not (args.sanitized and name.startswith(("__asan_", "__ubsan_", "__sanitizer_", "__lsan_")))]
    if not args.sanitized:
        if symtab is None:
            problems.append("no .symtab: the writable-data check needs an unstripped library")
        writable = writable_sections(args.library, args.readelf)
        for typ, bind, ndx, name in symtab or []:
            if typ == "TLS":
                problems.append(f"thread-local variable: {name}")
            elif typ == "OBJECT" and ndx in writable and name not in RUNTIME_OBJECTS:
                problems.append(f"writable data: {name} ({bind.lower()}, in {writable[ndx]})")
        with open(args.library, "rb") as f:
            content = f.read()
        problems += [f"holds the path {d}" for d in args.no_path if os.fsencode(d) in content]
    for tag, value in re.findall(r"\((NEEDED|RUNPATH|RPATH)\)[^\[]*\[([^\]]*)\]",
                                 readelf(args.readelf, "-d", args.library)):
        if tag != "NEEDED":
            problems.append(f"{tag} [{value}]")
        elif FORBIDDEN_NEEDED.match(value):
            problems.append(f"needs {value}")
    return problems, len(defined), imports


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("library")
    parser.add_argument("exports")
    parser.add_argument("--readelf", default="readelf")
    parser.add_argument("--sanitized", action="store_true")
    parser.add_argument("--no-path", action="append", default=[], metavar="DIR")
    args = parser.parse_args()
    for path in (args.library, args.exports):
        if not os.path.isfile(path):
            sys.exit(f"check_exports: no such file: {path}")
    problems, exports, imports = problems_of(args)
    if problems:
        print(f"check_exports: {args.library}: {len(problems)} problem(s)", *problems, sep="\n  ")
        return 1
    print(f"check_exports: {args.library}: {exports} exports as listed, imports {', '.join(imports) or 'nothing'}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
