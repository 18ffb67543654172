#!/usr/bin/env bash
# Looks for mistakes that compilers and sanitizers miss: cppcheck over the product, and the unit tests
# under valgrind.
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

[ $# -eq 0 ] || fail "takes no arguments"

start=$SECONDS
need_packages "${build_packages[@]}" "${test_packages[@]}" "${analysis_packages[@]}"

say "== cppcheck"
cd "$project_root"
mkdir -p build/cppcheck
cppcheck --quiet -j "$jobs" --cppcheck-build-dir=build/cppcheck --std=c++17 --language=c++ \
    --enable=warning,portability --suppress=readdirCalled --inline-suppr --error-exitcode=1 \
    --library=posix,googletest -I include -I host/include -D VOINET_VERSION='"0"' \
    src host tools bench docs || fail "cppcheck found the above"

say "== valgrind"
configure_preset debug
build_targets debug --target voinet_unit_tests
log=$project_root/build/valgrind.log
# All but the cases that go through thousands of sequences, which repeat what the others do, and those
# that replace the operator new, which valgrind replaces itself.
valgrind --quiet --error-exitcode=9 --leak-check=full --errors-for-leak-kinds=definite,indirect \
    --suppressions=scripts/valgrind.supp build/debug/tests/unit/voinet_unit_tests \
    --gtest_filter='-*EverySequence*:*AllSequences:*NoMemory*' --gtest_brief=1 >"$log" 2>&1 || {
    tail -n 60 "$log" >&2
    fail "valgrind found the above; all of it is in build/valgrind.log"
}
grep -E '^\[  PASSED  \]' "$log"
say "cppcheck and valgrind are content, in $((SECONDS - start)) s."
