#!/usr/bin/env bash
# Checks the format of every source file and lints the product's with clang-tidy.
#
#   lint.sh          src, host, tools, bench and docs
#   lint.sh --tests  the tests as well, which takes much longer
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

linted='/(src|host|tools|bench|docs)/'
case "${1-}" in
    '') ;;
    --tests) linted='.' ;;
    *) fail "unknown argument '$1'; usage: lint.sh [--tests]" ;;
esac

start=$SECONDS
need_packages "${build_packages[@]}" "${test_packages[@]}" "${lint_packages[@]}"
configure_preset debug
mapfile -t sources <"$project_root/build/debug/sources.txt"
cd "$project_root"
clang-format --dry-run --Werror "${sources[@]}" || fail "run: clang-format -i on the files above"

# The sources, not the headers: those are linted with the sources that include them.
printf '%s\n' "${sources[@]#"$project_root"/}" | grep '\.cpp$' | sed 's|^|/|' | grep -E "$linted" |
    sed 's|^/||' >build/linted.txt
xargs -P "$jobs" -n 3 clang-tidy --quiet -p build/debug <build/linted.txt 2>build/lint.log ||
    fail "clang-tidy found the above"
say "Format (${#sources[@]} files) and lint ($(wc -l <build/linted.txt) sources) are clean in $((SECONDS - start)) s."
