# Shared by the scripts: sourced, not run.
# shellcheck shell=bash

set -euo pipefail

project_root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
jobs=$(nproc)

# What the library, the command and the development server are built with.
build_packages=(
    cmake g++ libcli11-dev libcpp-httplib-dev libcurl4-openssl-dev libfmt-dev libmbedtls-dev
    libssl-dev ninja-build nlohmann-json3-dev pkg-config
)
# What the tests need on top; the servers are started by the tests themselves.
test_packages=(
    abigail-tools binutils dpkg-dev file libgmock-dev libgtest-dev libpam-pwdfile lintian
    nginx-light openssl python3 squid vsftpd
)
# What lint needs on top.
lint_packages=(clang-format clang-tidy)
# What the static and dynamic analysis needs on top.
analysis_packages=(cppcheck valgrind)
# What making packages needs on top.
package_packages=(dpkg-dev file lintian)
# What the build for the device and its emulation need on top.
cross_packages=(
    cmake cpio dpkg-dev g++-powerpc-linux-gnu googletest libcli11-dev ninja-build nlohmann-json3-dev
    qemu-user
)
# What the fuzz targets need on top.
fuzz_packages=(clang libclang-rt-14-dev)
# What the benchmarks need on top.
bench_packages=(binutils curl nginx-light python3 strace time valgrind vsftpd)
# What the plot of the growth needs on top.
plot_packages=(python3-matplotlib wget)

say() { printf '%s\n' "$*"; }

fail() {
    printf '%s: %s\n' "$(basename "$0")" "$*" >&2
    exit 1
}

as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    else
        command -v sudo >/dev/null || fail "not root, and there is no sudo to become it"
        sudo "$@"
    fi
}

is_installed() {
    [ "$(dpkg-query -W -f='${db:Status-Status}' "$1" 2>/dev/null)" = installed ]
}

# Installs the named Debian packages that are missing.
need_packages() {
    local package missing=()
    command -v dpkg-query >/dev/null || fail "needs a Debian system (no dpkg-query found)"
    for package in $(printf '%s\n' "$@" | sort -u); do
        is_installed "$package" || missing+=("$package")
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    say "Installing with apt-get: ${missing[*]}"
    as_root apt-get update -qq || fail "${missing[*]} missing, and apt-get update failed; is there a network?"
    install_packages "${missing[@]}"
}

# Servers that come with a package are not to be started by its installation: the tests start their
# own, on free ports.
install_packages() {
    local policy=/usr/sbin/policy-rc.d made_policy=
    if [ ! -e "$policy" ]; then
        printf '#!/bin/sh\nexit 101\n' | as_root tee "$policy" >/dev/null
        as_root chmod 755 "$policy"
        made_policy=yes
    fi
    local status=0
    as_root env DEBIAN_FRONTEND=noninteractive \
        apt-get install -y -qq --no-install-recommends "$@" >/dev/null || status=$?
    [ -z "$made_policy" ] || as_root rm -f "$policy"
    [ "$status" -eq 0 ] || fail "apt-get could not install: $*"
}

# configure_preset PRESET [cmake arguments ...]
configure_preset() {
    local preset=$1
    shift
    local log="$project_root/build/$preset.log"
    mkdir -p "$project_root/build"
    (cd "$project_root" && cmake --preset "$preset" "$@") >"$log" 2>&1 || {
        cat "$log" >&2
        fail "configuring '$preset' failed"
    }
}

# Builds a configured preset: build_targets PRESET [cmake --build arguments ...]
build_targets() {
    local preset=$1
    shift
    local log="$project_root/build/$preset.log"
    cmake --build "$project_root/build/$preset" -j "$jobs" "$@" >"$log" 2>&1 || {
        grep -v '^\[[0-9]*/[0-9]*\] Building' "$log" >&2
        fail "building '$preset' failed"
    }
}

# Configures and builds a preset: build_preset PRESET [cmake arguments ...]
build_preset() {
    configure_preset "$@"
    build_targets "$1"
}

# Runs the tests of a built preset.
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
