#!/usr/bin/env bash
# Renews tests/interface/curl-symbols.txt: every name of libcurl's interface that the library uses, with
# the version of libcurl that brought it, after the list in libcurl's source package.
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

[ $# -eq 0 ] || fail "takes no arguments"

"$project_root/scripts/powerpc-root.sh"
need_packages python3
sources=${XDG_CACHE_HOME:-$HOME/.cache}/voinet/powerpc/sources/curl
versions=$(mktemp)
trap 'rm -f "$versions"' EXIT
tar -xOzf "$sources"/curl_*.orig.tar.gz --wildcards '*/docs/libcurl/symbols-in-versions' >"$versions" ||
    fail "no list of symbols in $sources"
list=$project_root/tests/interface/curl-symbols.txt
python3 -B "$project_root/tests/interface/curl_floor.py" list "$project_root" "$versions" >"$list"
say "$(wc -l <"$list") names; the newest is of version $(awk '{print $2}' "$list" | sort -V | tail -n 1)."
