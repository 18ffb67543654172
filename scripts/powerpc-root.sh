#!/usr/bin/env bash
# Builds for 32-bit PowerPC what the cross build needs and no package brings: mbedTLS, libcurl with
# it, fmt and GoogleTest, from Debian's source packages. The result is $cache/root, which
# cmake/toolchains/powerpc.cmake finds; the directory can be removed at any time.
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

[ $# -eq 0 ] || fail "takes no arguments"

cache=${XDG_CACHE_HOME:-$HOME/.cache}/voinet/powerpc
source_packages=(mbedtls curl fmtlib)
# Packages of nothing but headers, which serve every target as they are.
header_packages=(libcli11-dev nlohmann-json3-dev)

# apt-get with a list of source packages of our own, made from this machine's binary ones: the
# machine's configuration stays as it is.
apt_get_source() {
    apt-get -qq -o Dir::Etc::SourceList="$cache/apt/sources.list" -o Dir::Etc::SourceParts=- \
        -o Dir::State::Lists="$cache/apt/lists" -o Dir::Cache="$cache/apt/cache" \
        -o APT::Sandbox::User="$(id -un)" "$@"
}

read_source_lists() {
    [ ! -e "$cache/apt/complete" ] || return 0
    mkdir -p "$cache/apt/lists/partial" "$cache/apt/cache/archives/partial"
    # The words in $(...) are apt-get's.
    # shellcheck disable=SC2016
    apt-get indextargets --format 'deb-src $(REPO_URI) $(RELEASE) $(COMPONENT)' 'Created-By: Packages' |
        sort -u >"$cache/apt/sources.list"
    [ -s "$cache/apt/sources.list" ] || fail "apt-get knows no package source to take libcurl's source from"
    apt_get_source -o APT::Update::Error-Mode=any update >"$cache/apt/update.log" 2>&1 || {
        cat "$cache/apt/update.log" >&2
        fail "the lists of Debian's source packages cannot be fetched; is there a network?"
    }
    touch "$cache/apt/complete"
}

# A source package is downloaded next to its place and moved there whole.
fetch_source() {
    local package=$1 place="$cache/sources/$1"
    [ ! -d "$place" ] || return 0
    say "Fetching the source of $package"
    read_source_lists
    rm -rf "$place.partial"
    mkdir -p "$place.partial"
    (cd "$place.partial" && apt_get_source source --download-only "$package") >"$cache/fetch.log" 2>&1 || {
        cat "$cache/fetch.log" >&2
        # The next run asks for newer lists.
        rm -f "$cache/apt/complete"
        fail "the source of $package cannot be fetched; is there a network?"
    }
    mv "$place.partial" "$place"
}

# What the result depends on: another compiler, source or recipe makes another root.
root_key() {
    {
        powerpc-linux-gnu-g++ --version
        find "${source_packages[@]/#/$cache/sources/}" -name '*.dsc' -exec basename {} \; | sort
        dpkg-query -W googletest "${header_packages[@]}"
        cat "${BASH_SOURCE[0]}" "$project_root/cmake/toolchains/powerpc.cmake"
    } | sha256sum | cut -c 1-12
}

# install_for_target NAME SOURCE_DIRECTORY [cmake arguments ...]
install_for_target() {
    local name=$1 source=$2
    shift 2
    say "Building $name for powerpc"
    {
        cmake -G Ninja -S "$source" -B "$work/$name-build" \
            -D CMAKE_TOOLCHAIN_FILE="$project_root/cmake/toolchains/powerpc.cmake" \
            -D VOINET_TARGET_ROOT="$root" -D CMAKE_BUILD_TYPE=Release \
            -D CMAKE_INSTALL_PREFIX="$root/usr" "$@" &&
            cmake --build "$work/$name-build" -j "$jobs" &&
            cmake --install "$work/$name-build"
    } >"$work/$name.log" 2>&1 || {
        tail -n 40 "$work/$name.log" >&2
        fail "$name cannot be built for powerpc"
    }
}

# install_from_source PACKAGE [cmake arguments ...]
install_from_source() {
    local package=$1
    shift
    dpkg-source --extract "$cache/sources/$package"/*.dsc "$work/$package" >"$work/$package.log" 2>&1 || {
        cat "$work/$package.log" >&2
        fail "the source of $package in $cache/sources is damaged; remove it and start again"
    }
    install_for_target "$package" "$work/$package" "$@"
}

install_headers() {
    local package
    for package in "${header_packages[@]}"; do
        dpkg-query -L "$package" | grep -E '^/usr/(include|share/cmake)/' |
            (cd / && cpio --quiet -pdum "$root")
    done
}

build_root() {
    rm -rf "$root"
    mkdir -p "$root/usr"
    install_headers
    # Static, so that the device's libcurl brings its own TLS.
    install_from_source mbedtls -D CMAKE_POSITION_INDEPENDENT_CODE=ON \
        -D ENABLE_PROGRAMS=OFF -D ENABLE_TESTING=OFF
    install_from_source curl -D BUILD_CURL_EXE=OFF -D BUILD_TESTING=OFF -D ENABLE_MANUAL=OFF \
        -D CURL_USE_OPENSSL=OFF -D CURL_USE_MBEDTLS=ON -D CURL_USE_LIBSSH2=OFF -D CURL_ZLIB=OFF \
        -D USE_NGHTTP2=OFF -D CURL_DISABLE_LDAP=ON -D CURL_CA_BUNDLE=none -D CURL_CA_PATH=none \
        -D CMAKE_SHARED_LINKER_FLAGS=-Wl,--exclude-libs,ALL
    install_from_source fmtlib -D FMT_DOC=OFF -D FMT_TEST=OFF
    install_for_target googletest /usr/src/googletest
    touch "$root/complete"
}

need_packages "${cross_packages[@]}"
mkdir -p "$cache/sources"
for package in "${source_packages[@]}"; do
    fetch_source "$package"
done
root="$cache/roots/$(root_key)"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
[ -e "$root/complete" ] || build_root
ln -sfn "$root" "$cache/root"
