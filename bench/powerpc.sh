#!/usr/bin/env bash
# Builds the library in release mode for 32-bit PowerPC and shows its size, what it needs, and the
# resident memory of one download under emulation.
. "$(dirname "${BASH_SOURCE[0]}")/../scripts/common.sh"

[ $# -eq 0 ] || fail "takes no arguments"

"$project_root/scripts/powerpc-root.sh"
need_packages "${build_packages[@]}" "${bench_packages[@]}"
configure_preset debug
build_targets debug --target voinet-server
build=$project_root/build/powerpc-release
configure_preset powerpc -B "$build" -D CMAKE_BUILD_TYPE=Release -D VOINET_BUILD_TOOLS=OFF
cmake --build "$build" -j "$jobs" --target voinet sample_host >"$build.log" 2>&1 || {
    cat "$build.log" >&2
    fail "building for powerpc failed"
}
python3 "$project_root/bench/powerpc.py" "$build" "$project_root/build/debug/tools/server/voinet-server"
