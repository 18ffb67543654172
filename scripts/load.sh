#!/usr/bin/env bash
# Makes transfers in a row in one process, checks each, and fails when descriptors, files or memory
# are left of them.
#
#   load.sh      100,000 downloads over HTTP and local copies, 10,000 over FTP and packages
#   load.sh N    N downloads, a multiple of 1,000 from 2,000 on
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

usage='usage: load.sh [N], a multiple of 1,000 from 2,000 on'
[ $# -le 1 ] || fail "$usage"
downloads=${1:-100000}
[[ $downloads =~ ^([2-9]|[1-9][0-9]{1,5})000$ ]] || fail "$usage"
# Over FTP, and packages; local copies are as many as downloads over HTTP.
others=$((downloads / 10))

need_packages "${build_packages[@]}" "${test_packages[@]}"
# A build for packages in the same directory has no tests.
configure_preset release -D VOINET_BUILD_TESTS=ON
build_targets release --target voinet_load

# The C library counts what its cache of each thread keeps at hand as in use.
export GLIBC_TUNABLES=glibc.malloc.tcache_count=0
start=$SECONDS
status=0
table=$("$project_root/build/release/tests/faults/load/voinet_load" --http "$downloads" \
    --ftp "$others" --copies "$downloads" --exchanges "$others") || status=$?
say "After the first hundred transfers, and at the end:"
say "$table"
say "$((SECONDS - start)) s."
[ "$status" -eq 0 ] || fail "something has grown, or a transfer went wrong"
