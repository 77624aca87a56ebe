#!/usr/bin/env python3
"""Checks what libtaviklimiter_vendor.so shows the dynamic linker.

  check_exports.py [--readelf PATH] [--sanitized] LIBRARY.so VERSION_SCRIPT.map

(a) The defined dynamic symbols are exactly the names that the version script
    makes global, each of the kind its section comment gives
    (/* functions */ -> FUNC, /* objects */ -> OBJECT). The script the library
    is linked with is the one list of exports.
(b) The undefined dynamic symbols are memcpy, memmove, memset and the few
    start-up and hardening names listed in RUNTIME_IMPORTS below.
(c) The library owns no writable data: no OBJECT or TLS symbol of the full
    symbol table lies in a section that stays writable once the library is
    relocated, apart from the start-up files' own (RUNTIME_OBJECTS).
(d) No DT_NEEDED entry names a C++ runtime or the shared libgcc.

--sanitized (a build with AddressSanitizer/UBSan) also accepts the sanitizer
runtime's hooks in (b) and skips (c), since instrumentation adds writable
metadata of its own. Uses only GNU readelf, which reads ELF files of every
target, so the same check serves the host, arm64 and Android builds.
"""

import argparse
import os
import re
import subprocess
import sys

C_LIBRARY_IMPORTS = {"memcpy", "memmove", "memset"}

# Names that the C start-up files and the hardening options bring along in
# every shared library, never the library's own code:
RUNTIME_IMPORTS = {
    "__cxa_finalize",               # crtbeginS.o: runs the library's atexit entries at dlclose
    "_ITM_deregisterTMCloneTable",  # crtbeginS.o: weak hooks of transactional memory support
    "_ITM_registerTMCloneTable",
    "__gmon_start__",               # crti.o: weak profiling hook
    "__stack_chk_fail",             # -fstack-protector (default in some toolchains)
    "__stack_chk_guard",            # the canary where it is a global rather than in TLS
}

# Writable objects that the start-up files define in every shared library.
RUNTIME_OBJECTS = {
    "completed.0",            # crtbeginS.o: __do_global_dtors_aux ran once
    "__dso_handle",           # crtbeginS.o: the library's identity for __cxa_atexit
    "__TMC_END__",            # crtendS.o: end of the (empty) transactional clone table
    "_GLOBAL_OFFSET_TABLE_",  # the linker's GOT, lazily bound entries are writable
}

SANITIZER_PREFIXES = ("__asan_", "__ubsan_", "__sanitizer_", "__lsan_")

FORBIDDEN_NEEDED = re.compile(
    r"^(libstdc\+\+|libc\+\+|libc\+\+abi|libc\+\+_shared|libsupc\+\+|libgcc_s|libunwind)(\.so|$)")

def readelf(tool, *args):
    result = subprocess.run([tool, "-W", *args], capture_output=True, text=True, check=False)
    if result.returncode != 0:
        sys.exit(f"check_exports: {tool} {' '.join(args)} failed:\n{result.stderr}")
    return result.stdout


def read_exports(path):
    """The global names of a version script, by the kind its comments give."""
    wanted = {}
    kind = None
    in_global = False
    with open(path, encoding="utf-8") as f:
        text = f.read()
    text = re.sub(r"/\*\s*(functions|objects)\s*\*/", r" @\1 ", text)
    text = re.sub(r"/\*.*?\*/", " ", text, flags=re.S)
    for token in re.findall(r"@\w+|[\w*]+:|[\w*]+;", text):
        if token in ("@functions", "@objects"):
            kind = "FUNC" if token == "@functions" else "OBJECT"
        elif token.endswith(":"):
            in_global = token == "global:"
        elif in_global:
            if kind is None:
                sys.exit(f"check_exports: {path}: {token[:-1]} stands before "
                         "a /* functions */ or /* objects */ comment")
            wanted[token[:-1]] = kind
    if not wanted:
        sys.exit(f"check_exports: {path}: no global names")
    return wanted


def symbol_tables(text):
    """{table name: [(type, bind, ndx, name)]} from `readelf -s` or `--dyn-syms`.
    A row is "Num: Value Size Type Bind Vis [other] Ndx [Name[@VERSION (n)]]"."""
    tables, current = {}, None
    for line in text.splitlines():
        header = re.match(r"^Symbol table '([^']+)'", line)
        if header:
            current = tables.setdefault(header.group(1), [])
            continue
        fields = line.split()
        if current is None or len(fields) < 7 or not re.fullmatch(r"\d+:", fields[0]):
            continue
        rest = fields[6:]
        if rest[0].startswith("["):  # "other" flags, e.g. [VARIANT_PCS]
            while not rest.pop(0).endswith("]"):
                pass
        ndx = rest[0]
        name = rest[1].split("@")[0] if len(rest) > 1 else ""  # drop "@VERSION (n)"
        current.append((fields[3], fields[4], ndx, name))
    return tables


SECTION_LINE = re.compile(
    r"^\s*\[\s*(\d+)\]\s+(\S*)\s+\S+\s+([0-9a-fA-F]+)\s+[0-9a-fA-F]+\s+([0-9a-fA-F]+)"
    r"\s+[0-9a-fA-F]+\s+([A-Za-z]*)\s+\d+\s+\d+\s+\d+\s*$")


def sections(text):
    """{index: (name, address, size, flags)} from `readelf -S`."""
    found = {}
    for line in text.splitlines():
        m = SECTION_LINE.match(line)
        if m:
            found[m.group(1)] = (m.group(2), int(m.group(3), 16), int(m.group(4), 16),
                                 m.group(5))
    return found


def relro_ranges(text):
    """Address ranges of PT_GNU_RELRO from `readelf -l`."""
    ranges = []
    for line in text.splitlines():
        fields = line.split()
        if fields and fields[0] == "GNU_RELRO":
            start, memsz = int(fields[2], 16), int(fields[5], 16)
            ranges.append((start, start + memsz))
    return ranges


def writable_after_relocation(section, relro):
    """A writable section stays writable unless PT_GNU_RELRO covers it: the
    dynamic linker makes that segment read-only once it has relocated it, so
    .data.rel.ro (tables of pointers, for instance) is read-only data."""
    _, address, size, flags = section
    if "W" not in flags:
        return False
    return not any(lo <= address and address + size <= hi for lo, hi in relro)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("library")
    parser.add_argument("exports")
    parser.add_argument("--readelf", default="readelf")
    parser.add_argument("--sanitized", action="store_true")
    args = parser.parse_args()

    for path in (args.library, args.exports):
        if not os.path.isfile(path):
            sys.exit(f"check_exports: no such file: {path}")
    wanted = read_exports(args.exports)
    problems = []

    dynsym = symbol_tables(readelf(args.readelf, "--dyn-syms", args.library)).get(".dynsym", [])
    defined = {name: typ for typ, bind, ndx, name in dynsym
               if name and ndx != "UND" and bind in ("GLOBAL", "WEAK", "GNU_UNIQUE")}
    undefined = sorted({name for typ, bind, ndx, name in dynsym if name and ndx == "UND"})

    # (a) exactly the listed exports, each of its kind
    for name in sorted(wanted.keys() - defined.keys()):
        problems.append(f"not exported: {name} ({wanted[name]})")
    for name in sorted(defined.keys() - wanted.keys()):
        problems.append(f"exported but not in {os.path.basename(args.exports)}: "
                        f"{name} ({defined[name]})")
    for name in sorted(wanted.keys() & defined.keys()):
        if defined[name] != wanted[name]:
            problems.append(f"{name} is exported as {defined[name]}, listed as {wanted[name]}")

    # (b) imports
    for name in undefined:
        if name in C_LIBRARY_IMPORTS or name in RUNTIME_IMPORTS:
            continue
        if args.sanitized and name.startswith(SANITIZER_PREFIXES):
            continue
        problems.append(f"imports {name}")

    # (c) writable data of the library's own
    if not args.sanitized:
        all_tables = symbol_tables(readelf(args.readelf, "-s", args.library))
        if ".symtab" not in all_tables:
            problems.append("no .symtab: the writable-data check needs an unstripped library")
        section_by_index = sections(readelf(args.readelf, "-S", args.library))
        relro = relro_ranges(readelf(args.readelf, "-l", args.library))
        for typ, bind, ndx, name in all_tables.get(".symtab", []):
            if typ == "TLS":
                problems.append(f"thread-local variable: {name}")
                continue
            if typ != "OBJECT" or ndx not in section_by_index or name in RUNTIME_OBJECTS:
                continue
            section = section_by_index[ndx]
            if writable_after_relocation(section, relro):
                problems.append(f"writable data: {name} ({bind.lower()}, in {section[0]})")

    # (d) no C++ runtime, no shared libgcc
    for needed in re.findall(r"\(NEEDED\)\s+Shared library: \[([^\]]+)\]",
                             readelf(args.readelf, "-d", args.library)):
        if FORBIDDEN_NEEDED.match(needed):
            problems.append(f"needs {needed}")

    if problems:
        print(f"check_exports: {args.library}: {len(problems)} problem(s)")
        for problem in problems:
            print(f"  {problem}")
        return 1
    print(f"check_exports: {args.library}: {len(defined)} exports as listed, "
          f"imports {', '.join(undefined) or 'nothing'}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
