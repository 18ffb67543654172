#!/usr/bin/env bash
# Builds the libraries, the command and the tests for 32-bit PowerPC (big-endian) and runs the tests
# under emulation; the servers that they talk to run natively. Makes the packages and checks them.
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

[ $# -eq 0 ] || fail "takes no arguments"

start=$SECONDS
"$project_root/scripts/powerpc-root.sh"
need_packages "${build_packages[@]}" "${test_packages[@]}"
say "== powerpc: building the development server for this machine"
configure_preset debug
build_targets debug --target voinet-server
say "== powerpc: building"
build_preset powerpc
say "== powerpc: testing"
run_tests powerpc
"$project_root/scripts/package.sh" --preset powerpc
say "All tests passed (powerpc) in $((SECONDS - start)) s."
