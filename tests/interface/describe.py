#!/usr/bin/env python3
"""Writes what hosts see of a shared library: its exported symbols, and the types behind them.

    describe.py --headers DIRECTORY LIBRARY types|symbols

types    abidw's description, cut down to the public headers' declarations. Types of other headers
         are left with their name and size, so that the C++ library's inside does not count, and
         those of the library's own sources with their name alone. It is the same whichever
         directory the library was built in.
symbols  one exported symbol a line, readable and sorted.
"""

import argparse
import os
import re
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as ElementTree

# Where in the description one type names another one.
REFERENCES = ("type-id", "naming-typedef-id", "containing-type-id")
TYPES = {
    "array-type-def", "class-decl", "enum-decl", "function-type", "pointer-type-def",
    "qualified-type-def", "reference-type-def", "subrange", "type-decl", "typedef-decl",
    "union-decl",
}
# Where a declaration stands in the source is no part of the interface.
PLACES = ("filepath", "line", "column")


def output_of(*command):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout


class Description:
    """The tree that abidw writes for a library, cut down to the interface."""

    def __init__(self, library, headers):
        self.headers = os.path.realpath(headers) + os.sep
        self.root = self.read(library)
        self.parents = {child: parent for parent in self.root.iter() for child in parent}
        self.definitions = {}
        for element in self.root.iter():
            if element.tag in TYPES and "id" in element.attrib:
                self.definitions.setdefault(element.get("id"), []).append(element)
        self.wanted = set()
        self.close_foreign_types()
        self.keep_what_is_exported()
        self.remove(lambda element: element.tag != "abi-corpus" and element not in self.wanted)
        self.remove_repetitions()
        self.forget_the_sources()

    @staticmethod
    def read(library):
        with tempfile.TemporaryDirectory() as directory:
            file = os.path.join(directory, "description")
            output_of("abidw", "--no-corpus-path", "--no-comp-dir-path", "--no-parameter-names",
                      "--drop-undefined-syms", "--no-elf-needed", "--type-id-style", "hash",
                      "--out-file", file, library)
            return ElementTree.parse(file).getroot()

    def remove(self, unwanted):
        for parent in list(self.root.iter()):
            for child in [child for child in parent if unwanted(child)]:
                parent.remove(child)

    def is_public(self, element):
        return os.path.realpath(element.get("filepath", "/")).startswith(self.headers)

    def close_foreign_types(self):
        """Of a class that a public header does not define only the size counts; a host has nothing
        but addresses of one that the library's sources define."""
        sources = {os.path.dirname(unit.get("path")) for unit in self.root.iter("abi-instr")}
        for element in list(self.root.iter()):
            if element.tag not in ("class-decl", "union-decl", "enum-decl"):
                continue
            if not self.is_public(element):
                for child in list(element):
                    if child.tag not in ("underlying-type", "member-type"):
                        element.remove(child)
                if os.path.dirname(element.get("filepath", "")) in sources:
                    element.attrib.pop("size-in-bits", None)
                    element.set("is-declaration-only", "yes")

    def keep_what_is_exported(self):
        for element in self.root.iter():
            if element.tag.endswith("-symbols"):
                self.wanted.update(element.iter())
            elif "elf-symbol-id" in element.attrib:
                self.keep_with_scope(element)

    def keep_with_scope(self, element):
        self.keep_with_types(element)
        while element in self.parents:
            element = self.parents[element]
            if element in self.wanted:
                continue
            self.wanted.add(element)
            if element.tag in TYPES:
                self.keep_with_types(element)

    def keep_with_types(self, element):
        waiting = [element]
        while waiting:
            element = waiting.pop()
            self.wanted.add(element)
            for reference in REFERENCES:
                for definition in self.definitions.get(element.get(reference), ()):
                    if definition not in self.wanted:
                        self.keep_with_scope(definition)
            waiting.extend(child for child in element
                           if child not in self.wanted and self.is_part(child))

    @staticmethod
    def is_part(child):
        """Whether an element belongs to the interface because what it stands in does."""
        if child.tag == "member-function":
            return "vtable-offset" in child.attrib
        return child.tag != "member-type"

    def remove_repetitions(self):
        """A type that several sources include is described once."""
        seen = set()

        def is_repetition(element):
            if element.tag not in TYPES or "id" not in element.attrib:
                return False
            text = ElementTree.tostring(element)
            known = text in seen
            seen.add(text)
            return known

        self.remove(is_repetition)
        for tag in ("member-type", "namespace-decl"):
            # From the inside to the outside.
            for _ in range(4):
                self.remove(lambda element, tag=tag: element.tag == tag and len(element) == 0)

    def forget_the_sources(self):
        for element in self.root.iter():
            for place in PLACES:
                element.attrib.pop(place, None)
            if element.tag == "abi-instr":
                element.set("path", os.path.basename(element.get("path", "")))
            if len(element) == 0:
                element.text = None
            if element.tag in ("abi-instr", "namespace-decl"):
                # abidw's own order follows the directory.
                element[:] = sorted(element, key=lambda child: [
                    child.get(key, "") for key in ("name", "mangled-name", "id")])

    def text(self):
        ElementTree.indent(self.root)
        return ElementTree.tostring(self.root, encoding="unicode") + "\n"


def exported_symbols(library):
    """The demangled names, each as often as there are symbols of it (a destructor has three)."""
    names = []
    for line in output_of("readelf", "--dyn-syms", "--wide", library).splitlines():
        fields = line.split()
        if len(fields) >= 8 and fields[4] in ("GLOBAL", "WEAK", "UNIQUE") and fields[6] != "UND":
            names.append(fields[7].split("@")[0])
    if not names:
        sys.exit(f"{library} exports nothing")
    return sorted(shortened(name) for name in output_of("c++filt", *names).splitlines())


def shortened(name):
    """With the C++ library's texts by their usual names; those of its older interface differ."""
    for character, text in (("char", "string"), ("wchar_t", "wstring")):
        full = f"<{character}, std::char_traits<{character}>, std::allocator<{character}> >"
        name = name.replace(f"std::__cxx11::basic_string{full}", f"std::__cxx11::{text}")
    return name


def main():
    arguments = argparse.ArgumentParser()
    arguments.add_argument("--headers", required=True)
    arguments.add_argument("library")
    arguments.add_argument("what", choices=("types", "symbols"))
    given = arguments.parse_args()
    if given.what == "symbols":
        print("\n".join(exported_symbols(given.library)))
    else:
        description = Description(given.library, given.headers)
        sys.stdout.write(description.text())


if __name__ == "__main__":
    main()
