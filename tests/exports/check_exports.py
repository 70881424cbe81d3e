#!/usr/bin/env python3
"""Compares the exported names of the shared library with exports.txt.

usage: check_exports.py LIBRARY EXPORTS.TXT [--write]

The list is the same on every system: names are compared independently of the types that a system
uses for 32- and 64-bit integers. A library with 32 bits has one type less, so widths are not compared
there. Type information and thunks depend on the compiler and are left out.
"""
import re
import subprocess
import sys


def windows_names(library):
    text = subprocess.check_output(["objdump", "-p", library], text=True)
    table = text[text.index("[Ordinal/Name Pointer]"):]
    return re.findall(r"^\s*\[.*\s(\S+)$", table.split("\n\n")[0], re.M)[1:]


def linux_names(library):
    text = subprocess.check_output(["nm", "-D", "--defined-only", library], text=True)
    return [line.split()[2].split("@")[0] for line in text.splitlines() if line.split()[1] != "A"]


def same_integers(name, windows):
    spelled = [("unsigned long long", "u64"), ("long long", "i64"),
               ("unsigned long", "u32" if windows else "u64"),
               ("long", "i32" if windows else "i64"), ("unsigned int", "u32"), ("int", "i32")]
    for long_name, short_name in spelled:
        name = re.sub(r"\b%s\b" % long_name, short_name, name)
    return name


def has_32_bits(library):
    with open(library, "rb") as file:
        head = file.read(4096)
    if head.startswith(b"\x7fELF"):
        return head[4] == 1
    pe = head.find(b"PE\0\0")
    return head[pe + 4:pe + 6] == b"\x4c\x01"


def without_widths(names):
    return sorted(re.sub(r"\b([iu])(32|64)\b", r"\1", name) for name in names)


def exported(library):
    windows = library.endswith(".dll")
    mangled = windows_names(library) if windows else linux_names(library)
    names = subprocess.run(["c++filt", "-n"], input="\n".join(mangled), text=True,
                           stdout=subprocess.PIPE, check=True).stdout.splitlines()
    compilers_own = re.compile(r"^(typeinfo|vtable|non-virtual thunk)")
    return sorted({same_integers(n, windows) for n in names if not compilers_own.match(n)})


def main():
    library, list_path = sys.argv[1:3]
    names = exported(library)
    if "--write" in sys.argv:
        with open(list_path, "w") as out:
            out.write("\n".join(names) + "\n")
        return 0
    with open(list_path) as wanted_file:
        wanted = wanted_file.read().splitlines()
    if has_32_bits(library):
        names, wanted = without_widths(names), without_widths(wanted)
    for name in sorted(set(wanted) - set(names)):
        print("missing:", name)
    for name in sorted(set(names) - set(wanted)):
        print("unexpected:", name)
    print(f"{library}: {len(names)} names exported, {len(wanted)} expected")
    return 0 if names == wanted else 1


if __name__ == "__main__":
    sys.exit(main())
