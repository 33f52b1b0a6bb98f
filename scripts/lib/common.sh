# Shared by the scripts of this folder: where the tree is, and the Debian packages it needs.
# shellcheck shell=bash

set -euo pipefail

# Scripts work from any folder.
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)

# A checkout in another place finds what this one has compiled.
export CCACHE_BASEDIR=$root CCACHE_NOHASHDIR=1 CCACHE_SLOPPINESS=pch_defines,time_macros,include_file_mtime,include_file_ctime

# Debian 13 ships a newer Boost under its own version's names, and no package of the GOST engine.
debian=$(. /etc/os-release && echo "${VERSION_ID:-}")
boost=1.81 gost_engine=(libengine-gost-openssl)
[ "$debian" = 13 ] && boost=1.83 gost_engine=()

build_packages=(
    g++ cmake ninja-build ccache pkg-config
    "libboost-filesystem$boost-dev" "libboost-log$boost-dev" "libboost-date-time$boost-dev" "libboost$boost-dev"
    libssl-dev "${gost_engine[@]}" libxml2-dev libcurl4-openssl-dev
    libcli11-dev nlohmann-json3-dev
    openssl
)
test_packages=(
    libgtest-dev libgmock-dev libbenchmark-dev
    gnutls-bin xmlsec1 default-jdk-headless libbcprov-java libbcpkix-java
)
check_packages=(clang-16 clang-format-16 clang-tidy-16 libclang-rt-16-dev)

say() { printf '== %s\n' "$*"; }

# Installs what is missing, and asks the network for nothing when nothing is.
install_packages() {
    local missing=() package
    for package in "$@"; do
        if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'ok installed'; then
            missing+=("$package")
        fi
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    say "installing ${missing[*]}"
    local sudo=()
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null || { echo "these packages are missing and sudo is not here: ${missing[*]}" >&2; exit 1; }
        sudo=(sudo)
    fi
    "${sudo[@]}" apt-get update -qq
    DEBIAN_FRONTEND=noninteractive "${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
}

# Tells it where the GOST engine cannot be installed from a package, since everything with a GOST key is refused then.
tell_about_engine() {
    openssl engine gost >/dev/null 2>&1 ||
        say "OpenSSL's GOST engine is not installed, and Debian $debian has no package of it: GOST keys will be refused"
}

# Configures and builds a preset: build_preset NAME [cmake options ...] -- [targets ...]
build_preset() {
    local preset=$1 options=()
    shift
    while [ $# -gt 0 ] && [ "$1" != -- ]; do
        options+=("$1")
        shift
    done
    [ $# -gt 0 ] && shift
    say "building ($preset)"
    cmake -S "$root" --preset "$preset" "${options[@]}" >/dev/null
    cmake --build "$root/build/$preset" --parallel "$(nproc)" ${1:+--target "$@"}
}

# LeakSanitizer itself dies at the end of one process in thousands ("Tracer caught signal 11"), mostly on a busy machine. It
# has checked nothing then, so a test in which that happened, in its own process or in one that it started, is run once more
# and that run counts; no other test is repeated. What it dies of is its own list of the thread-local storage of loaded
# libraries, which the second run does without: that leaves fewer places from which memory is still reached, so it finds no
# less.
repeat_where_the_leak_checker_died() {
    local preset=$1 log=$2 numbers
    numbers=$(sed -nE 's/^([0-9]+): .*LeakSanitizer has encountered a fatal error.*/\1/p' "$log" | sort -u | paste -sd,)
    [ -n "$numbers" ] || return 0
    say "the leak checker died in tests $numbers: once more"
    sed -i -E "/ Test +#(${numbers//,/|}): /d" "$log"
    ASAN_OPTIONS="${ASAN_OPTIONS:+$ASAN_OPTIONS:}intercept_tls_get_addr=0" \
        ctest --test-dir "$root/build/$preset" --verbose -I "0,0,0,$numbers" >>"$log" 2>&1 || true
}

# Runs the tests of a built preset and tells how they went: run_tests NAME [ctest options ...]
run_tests() {
    local preset=$1 log status=0
    shift
    say "testing ($preset)"
    log=$(mktemp)
    ctest --test-dir "$root/build/$preset" --verbose --parallel "$(nproc)" "$@" >"$log" 2>&1 || true
    repeat_where_the_leak_checker_died "$preset" "$log"
    "$root/scripts/lib/summary" "$log" || status=$?
    rm -f "$log"
    return "$status"
}
