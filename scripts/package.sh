#!/usr/bin/env bash
# Makes the Debian packages in build/packages and checks them with lintian.
#
#   package.sh                from a release build for this machine
#   package.sh --preset NAME  from another preset, which is configured already and keeps its settings
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

usage="usage: package.sh [--preset NAME]"
preset=release
configured=
case "${1-}" in
    '') [ $# -eq 0 ] || fail "$usage" ;;
    --preset)
        { [ $# -eq 2 ] && [ -n "$2" ]; } || fail "$usage"
        preset=$2
        configured=yes
        ;;
    *) fail "unknown argument '$1'; $usage" ;;
esac

start=$SECONDS
tree=$project_root/build/$preset
packages=$project_root/build/packages
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

build() {
    say "== $preset: building"
    if [ -n "$configured" ]; then
        [ -e "$tree/CPackConfig.cmake" ] || fail "not configured yet: cmake --preset $preset"
    else
        configure_preset "$preset" -DVOINET_BUILD_TESTS=OFF
    fi
    build_targets "$preset" --target kvecomn voinet voinet_cli
}

# The packages' time is that of the change log, so that the same sources make the same bytes.
make_packages() {
    say "== $preset: packaging"
    SOURCE_DATE_EPOCH=$(dpkg-parsechangelog -l "$project_root/packaging/changelog" -S Timestamp)
    export SOURCE_DATE_EPOCH
    (cd "$tree" && cpack -B "$work") >"$work/cpack.log" 2>&1 || {
        cat "$work/cpack.log" >&2
        fail "cpack failed"
    }
}

check_packages() {
    local user_options=()
    [ "$(id -u)" -ne 0 ] || user_options=(--allow-root)
    say "== lintian"
    lintian "${user_options[@]}" --fail-on error --tag-display-limit 0 "$work"/*.deb ||
        fail "lintian found errors"
}

# Takes the place of earlier packages for the same machine.
put_in_place() {
    local architecture
    architecture=$(dpkg-deb --field "$(find "$work" -maxdepth 1 -name 'libvoinet4_*.deb')" Architecture)
    mkdir -p "$packages"
    rm -f "$packages"/*_"$architecture".deb
    mv "$work"/*.deb "$packages"
    say "== build/packages ($(sed -n 's/^CMAKE_BUILD_TYPE:[A-Z]*=//p' "$tree/CMakeCache.txt") build)"
    local file
    for file in "$packages"/*_"$architecture".deb; do
        say "$(basename "$file"), $(stat -c %s "$file") bytes"
        say "    needs $(dpkg-deb --field "$file" Depends)"
    done
}

need_packages "${build_packages[@]}" "${package_packages[@]}"
build
make_packages
check_packages
put_in_place
say "Packaged in $((SECONDS - start)) s."
