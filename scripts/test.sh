#!/usr/bin/env bash
# Builds everything with warnings as errors and runs all tests.
#
#   test.sh             debug build
#   test.sh --sanitize  the same under AddressSanitizer and UndefinedBehaviorSanitizer
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

presets=(debug)
case "${1-}" in
    '') ;;
    --sanitize) presets=(asan ubsan) ;;
    *) fail "unknown argument '$1'; usage: test.sh [--sanitize]" ;;
esac

run_tests() {
    local preset=$1
    local log="$project_root/build/$preset-tests.log"
    # Every case is listed in the log; here only what failed and the closing lines.
    if (cd "$project_root" && ctest --preset "$preset" -j "$jobs") >"$log" 2>&1; then
        tail -n 4 "$log"
    else
        grep -vE '^ *(Start|[0-9]+/[0-9]+ Test .* Passed)' "$log"
        fail "tests of '$preset' failed; all of their output is in build/$preset-tests.log"
    fi
}

start=$SECONDS
need_packages "${build_packages[@]}" "${test_packages[@]}"
for preset in "${presets[@]}"; do
    say "== $preset: building"
    build_preset "$preset"
    say "== $preset: testing"
    run_tests "$preset"
done
say "All tests passed (${presets[*]}) in $((SECONDS - start)) s."
