#!/usr/bin/env bash
# Checks the format of every source file and lints every source file with clang-tidy.
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

start=$SECONDS
need_packages "${build_packages[@]}" "${test_packages[@]}" "${lint_packages[@]}"
build_preset debug
mapfile -t sources <"$project_root/build/debug/sources.txt"
cd "$project_root"
clang-format --dry-run --Werror "${sources[@]}" || fail "run: clang-format -i on the files above"

# The sources, not the headers: those are linted with the sources that include them.
printf '%s\n' "${sources[@]}" | grep '\.cpp$' |
    xargs -P "$jobs" -n 4 clang-tidy --quiet -p build/debug 2>build/lint.log ||
    fail "clang-tidy found the above"
say "Format and lint are clean (${#sources[@]} files) in $((SECONDS - start)) s."
