#!/usr/bin/env bash
# Measures how the cost of downloads grows with their number and size. Draws docs/performance.svg.
#
#   bench/growth.sh [LARGEST-SIZE-IN-MIB] [ROUNDS]
. "$(dirname "${BASH_SOURCE[0]}")/../scripts/common.sh"

need_packages "${build_packages[@]}" "${bench_packages[@]}" "${plot_packages[@]}"
build_preset bench
# Debian's interpreter: the plotting package belongs to that one.
/usr/bin/python3 -B "$project_root/bench/growth.py" "$project_root/build/bench" \
    "$project_root/docs/performance.svg" "$@"
