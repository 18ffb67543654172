#!/usr/bin/env python3
"""Compares what hosts see of a shared library with what was agreed on.

    check.py types   --headers DIRECTORY --baseline FILE LIBRARY
    check.py symbols --headers DIRECTORY --baseline FILE LIBRARY
    check.py owner   --headers DIRECTORY [--namespace NAME] LIBRARY
    check.py needs   --soname NAME --needs "NAME ..." LIBRARY
    check.py widths  --headers DIRECTORY

types    as abidiff compares them; everything counts, additions too
symbols  the readable list of the exported symbols
owner    every exported symbol belongs to what a public header declares, in the namespace
needs    the soname, and the libraries that it loads: exactly these, besides the dynamic linker
widths   no public header uses a type whose size depends on the macros that its includer sets
"""

import argparse
import difflib
import os
import re
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as ElementTree

from describe import Description, exported_symbols, output_of

HOW_TO_RENEW = """
The interface that hosts were compiled with has changed. When that was not intended, undo it. When
it was, renew the baseline with scripts/update-abi.sh and commit it with the change
(docs/interface.md says what may change at all)."""

# With _FILE_OFFSET_BITS and _TIME_BITS these have 32 or 64 bits on a 32-bit target.
TYPES_OF_TWO_WIDTHS = {"off_t", "fpos_t", "ino_t", "blkcnt_t", "fsblkcnt_t", "fsfilcnt_t", "rlim_t",
                       "stat", "dirent", "time_t", "timespec", "timeval"}

# What the compiler makes for a class, in front of the class's name.
FOR_A_CLASS = re.compile(r"^(?:vtable for|typeinfo for|typeinfo name for) ")


def fail(message):
    sys.exit(message)


def explained(agreed, built, given):
    return "\n".join(difflib.unified_diff(agreed, built, given.baseline, given.library,
                                          lineterm="", n=0))


def enumerators(description):
    """All of them, second names of a number included, which abidiff passes over."""
    return sorted(f"{enumeration.get('name')}: {one.get('name')} = {one.get('value')}"
                  for enumeration in description.iter("enum-decl")
                  for one in enumeration.iter("enumerator"))


def check_types(given):
    description = Description(given.library, given.headers)
    with tempfile.TemporaryDirectory() as directory:
        built = os.path.join(directory, os.path.basename(given.baseline))
        with open(built, "w", encoding="utf-8") as file:
            file.write(description.text())
        difference = subprocess.run(["abidiff", "--harmless", "--redundant", given.baseline, built],
                                    stdout=subprocess.PIPE, text=True, check=False)
    agreed = enumerators(ElementTree.parse(given.baseline))
    changes = difference.stdout + explained(agreed, enumerators(description.root), given)
    if difference.returncode != 0 or changes:
        fail(changes + HOW_TO_RENEW)


def check_symbols(given):
    with open(given.baseline, encoding="utf-8") as file:
        agreed = file.read().splitlines()
    built = exported_symbols(given.library)
    changes = explained(agreed, built, given)
    if changes:
        fail(changes + HOW_TO_RENEW)


def declared_words(headers):
    words = set()
    for name in os.listdir(headers):
        with open(os.path.join(headers, name), encoding="utf-8") as file:
            code = re.sub(r"//.*", "", file.read())
        words.update(re.findall(r"\w+", code))
    return words


def check_owner(given):
    declared = declared_words(given.headers)
    strangers = []
    for symbol in exported_symbols(given.library):
        # The template's instantiation carries its result's type.
        name = re.sub(r"^bool (?=[\w:]+<)", "", FOR_A_CLASS.sub("", symbol))
        inside = name.startswith(given.namespace)
        owner = re.match(r"\w*", name[len(given.namespace):]).group()
        if not inside or owner not in declared:
            strangers.append(symbol)
    if strangers:
        fail("Exported, but declared in no public header:\n  " + "\n  ".join(strangers))


def check_needs(given):
    dynamic = output_of("readelf", "--dynamic", "--wide", given.library)
    soname = re.findall(r"\(SONAME\).*\[(.*)\]", dynamic)
    needed = re.findall(r"\(NEEDED\).*\[(.*)\]", dynamic)
    needed = {name for name in needed if not re.match(r"ld(-linux.*|64)?\.so\.", name)}
    if soname != [given.soname]:
        fail(f"The soname is {soname}, hosts ask for {given.soname}.")
    if needed != set(given.needs.split()):
        fail(f"Needs {sorted(needed)},\nagreed on {sorted(given.needs.split())}.")


def check_size(given):
    with tempfile.TemporaryDirectory() as directory:
        stripped = os.path.join(directory, os.path.basename(given.library))
        subprocess.run([given.strip, "-o", stripped, given.library], check=True)
        size = os.path.getsize(stripped)
    print(f"{size} bytes, stripped")
    if size >= given.limit:
        fail(f"Too large for a device: the limit is {given.limit} bytes.")


def check_widths(given):
    found = declared_words(given.headers) & TYPES_OF_TWO_WIDTHS
    if found:
        fail(f"Types of two widths in the public headers: {sorted(found)}")


def main():
    arguments = argparse.ArgumentParser()
    arguments.add_argument("what", choices=("types", "symbols", "owner", "needs", "size",
                                              "widths"))
    arguments.add_argument("library", nargs="?")
    arguments.add_argument("--headers")
    arguments.add_argument("--baseline")
    arguments.add_argument("--namespace", default="")
    arguments.add_argument("--soname")
    arguments.add_argument("--needs")
    arguments.add_argument("--strip")
    arguments.add_argument("--limit", type=int)
    given = arguments.parse_intermixed_args()
    {"types": check_types, "symbols": check_symbols, "owner": check_owner,
     "needs": check_needs, "size": check_size, "widths": check_widths}[given.what](given)


if __name__ == "__main__":
    main()
