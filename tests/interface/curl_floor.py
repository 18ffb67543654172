#!/usr/bin/env python3
"""Which libcurl the library's sources need.

    curl_floor.py list SOURCE_ROOT VERSIONS    writes every name of libcurl's interface that the sources
                                          use, with the version that brought it, after libcurl's own
                                          list of them (docs/libcurl/symbols-in-versions)
    curl_floor.py check SOURCE_ROOT LIST FLOOR  fails when the sources use a name that the list lacks,
                                          or one that came after the version FLOOR
"""

import glob
import os
import re
import sys

NAME = re.compile(r"\b(?:CURL[A-Z]*_\w+|CURL(?:code|INFO|option)?|curl_(?!global)[a-z_]+)\b")
# What libcurl's list leaves out, being no constant: the types and functions that were there before
# version 7.1 got its options, curl_off_t (7.11.1), curl_easy_strerror (7.12.0) and those that came
# with them.
BEFORE_THE_LIST = {"CURL", "CURLcode", "CURL_ERROR_SIZE", "CURLINFO", "CURLoption", "curl_easy_cleanup",
                   "curl_easy_getinfo", "curl_easy_init", "curl_easy_perform", "curl_easy_setopt",
                   "curl_easy_strerror", "curl_infotype", "curl_off_t", "curl_slist", "curl_slist_append",
                   "curl_slist_free_all"}


def names_in(root):
    names = set()
    for pattern in ("src/*.cpp", "src/*.h", "include/voinet/*.h"):
        for path in glob.glob(os.path.join(root, pattern)):
            with open(path, encoding="utf-8") as file:
                code = re.sub(r"//.*|\"[^\"\n]*\"", "", file.read())
            names.update(NAME.findall(code))
    if "CURLOPT_URL" not in names:
        sys.exit(f"no sources that use libcurl in {root}")
    return names - BEFORE_THE_LIST


def versions_in(path):
    with open(path, encoding="utf-8") as file:
        rows = (line.split() for line in file)
        return {row[0]: row[1] for row in rows if len(row) > 1 and re.fullmatch(r"[\d.]+", row[1])}


def comparable(version):
    return [int(number) for number in version.split(".")]


def write_list(root, versions):
    introduced = versions_in(versions)
    for name in sorted(names_in(root)):
        print(name, introduced.get(name, "unknown"))


def check(root, agreed, floor):
    introduced = versions_in(agreed)
    faults = [f"{name}: {introduced.get(name, 'not in ' + agreed)}" for name in sorted(names_in(root))
              if name not in introduced or comparable(introduced[name]) > comparable(floor)]
    if faults:
        sys.exit(f"Names of libcurl that version {floor} may not have (after a look at them renew the "
                 "list with scripts/curl-floor.sh):\n  " + "\n  ".join(faults))


def main():
    if len(sys.argv) == 4 and sys.argv[1] == "list":
        write_list(*sys.argv[2:])
    elif len(sys.argv) == 5 and sys.argv[1] == "check":
        check(*sys.argv[2:])
    else:
        sys.exit(__doc__)


if __name__ == "__main__":
    main()
