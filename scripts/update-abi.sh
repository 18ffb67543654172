#!/usr/bin/env bash
# Renews what the tests compare the binary interface with (tests/interface/baseline), after a change
# of the interface that was intended; see docs/interface.md.
#
#   update-abi.sh            for both architectures
#   update-abi.sh PRESET...  only for these: debug (x86_64), powerpc
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

declare -A architectures=([debug]=x86_64 [powerpc]=powerpc)
presets=("$@")
[ $# -gt 0 ] || presets=(debug powerpc)
for preset in "${presets[@]}"; do
    [ -n "${architectures[$preset]-}" ] ||
        fail "unknown preset '$preset'; usage: update-abi.sh [debug] [powerpc]"
done

# describe ARCHITECTURE LIBRARY HEADERS [describe.py arguments ...]
describe() {
    local baseline=$project_root/tests/interface/baseline/$1 library=$2 headers=$3 name
    shift 3
    name=$(basename "$library" .so)
    mkdir -p "$baseline"
    local -A kinds=([abi]=types [symbols]=symbols)
    for suffix in "${!kinds[@]}"; do
        python3 -B "$project_root/tests/interface/describe.py" --headers "$headers" "$@" \
            "$library" "${kinds[$suffix]}" >"$work/$suffix" || fail "$library cannot be described"
        mv "$work/$suffix" "$baseline/$name.$suffix"
    done
}

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
need_packages "${build_packages[@]}" abigail-tools binutils python3
for preset in "${presets[@]}"; do
    say "== $preset"
    if [ "$preset" = powerpc ]; then
        "$project_root/scripts/powerpc-root.sh"
    elif [ "$(uname -m)" != "${architectures[$preset]}" ]; then
        fail "the preset '$preset' builds for $(uname -m) here, not for ${architectures[$preset]}"
    fi
    # A directory of its own: the libraries alone, whatever the preset's own build has.
    build=$project_root/build/abi-$preset
    configure_preset "$preset" -B "$build" -D VOINET_BUILD_TESTS=OFF -D VOINET_BUILD_TOOLS=OFF \
        -D VOINET_BUILD_BENCH=OFF
    cmake --build "$build" -j "$jobs" --target voinet kvecomn >"$build.log" 2>&1 || {
        cat "$build.log" >&2
        fail "building '$preset' failed"
    }
    describe "${architectures[$preset]}" "$build/src/libvoinet.so" "$project_root/include/voinet"
    describe "${architectures[$preset]}" "$build/host/libkvecomn.so" \
        "$project_root/host/include/kvecomn"
done
say "Renewed; look at what changed: git diff tests/interface/baseline"
