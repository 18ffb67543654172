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

start=$SECONDS
need_packages "${build_packages[@]}" "${test_packages[@]}"
for preset in "${presets[@]}"; do
    say "== $preset: building"
    build_preset "$preset"
    say "== $preset: testing"
    run_tests "$preset"
done
say "All tests passed (${presets[*]}) in $((SECONDS - start)) s."
