#!/usr/bin/env bash
# Builds the benchmarks in release mode and measures: bench/run.sh [SIZE-IN-MIB] [ROUNDS]
. "$(dirname "${BASH_SOURCE[0]}")/../scripts/common.sh"

need_packages "${build_packages[@]}" "${bench_packages[@]}"
build_preset bench
python3 -B "$project_root/bench/run.py" "$project_root/build/bench" "$@"
