# SPDX-License-Identifier: MIT
# Shared by the commands in this folder and CI; sourced, not run.
# Messages go to stderr: stdout is for the program that runs at the end.

unset CDPATH
root=$(cd -- "$(dirname -- "$(readlink -f -- "${BASH_SOURCE[0]}")")/.." && pwd -P)

say() {
    printf '%s\n' "$*" >&2
}

# runQuietly NOTE LOG COMMAND...: shows the output only if the command fails.
runQuietly() {
    local note=$1 log=$2 status=0
    shift 2
    say "$note"
    "$@" >"$log" 2>&1 || status=$?
    if [ "$status" -ne 0 ]; then
        cat -- "$log" >&2
        say "$note: failed"
    fi
    return "$status"
}

hasHeader() {
    printf '#if !__has_include(<%s>)\n#error\n#endif\n' "$1" | "${CXX:-c++}" -E -x c++ -
}

# isThere PACKAGE: looks for the tool or header instead of the package. So it also finds one that was
# installed in another way, and works without dpkg.
isThere() {
    case $1 in
        g++) command -v "${CXX:-c++}" ;;
        ninja-build) command -v ninja ;;
        pkgconf) command -v pkg-config ;;
        debhelper) command -v dh ;;
        dpkg-dev) command -v dpkg-buildpackage ;;
        debian-archive-keyring) [ -e /usr/share/keyrings/debian-archive-keyring.gpg ] ;;
        libcli11-dev) hasHeader CLI/CLI.hpp ;;
        nlohmann-json3-dev) hasHeader nlohmann/json.hpp ;;
        libbenchmark-dev) hasHeader benchmark/benchmark.h ;;
        libgtest-dev) hasHeader gtest/gtest.h ;;
        libclang-rt-dev) [ -e "$(clang++ --rtlib=compiler-rt -print-libgcc-file-name)" ] ;;
        *) command -v "$1" ;;
    esac >/dev/null 2>&1
}

missingOf() {
    local package
    for package in "$@"; do
        isThere "$package" || printf '%s ' "$package"
    done
}

# aptInstall PACKAGE...
aptInstall() {
    local -a asRoot=() apt=(env DEBIAN_FRONTEND=noninteractive apt-get -qq -o DPkg::Lock::Timeout=300)
    [ "$(id -u)" -eq 0 ] || asRoot=(sudo)
    # Old package lists may be good enough, so only the installation decides.
    "${asRoot[@]}" "${apt[@]}" update || say "apt-get update failed, continuing with the old package lists"
    "${asRoot[@]}" "${apt[@]}" install -y --no-install-recommends "$@"
}

canInstall() {
    command -v apt-get >/dev/null && { [ "$(id -u)" -eq 0 ] || command -v sudo >/dev/null; }
}

# needPackages PACKAGE...: installs missing packages, or names them and exits.
needPackages() {
    local -a missing
    read -ra missing <<<"$(missingOf "$@")"
    [ "${#missing[@]}" -gt 0 ] || return 0
    if canInstall; then
        local log
        log=$(mktemp)
        runQuietly "installing ${missing[*]}" "$log" aptInstall "${missing[@]}" || true
        rm -f -- "$log"
        read -ra missing <<<"$(missingOf "$@")"
        [ "${#missing[@]}" -gt 0 ] || return 0
    fi
    say "These packages are missing and cannot be installed from here. As root:"
    say "apt-get install ${missing[*]}"
    exit 1
}

# configure PRESET [CMAKE ARGUMENT...]: configures build/PRESET.
configure() {
    local preset=$1 dir=$root/build/$1
    shift
    # A build folder that was copied together with the tree still refers to the original tree.
    if [ -f "$dir/CMakeCache.txt" ] &&
        ! grep -qxF "CMAKE_HOME_DIRECTORY:INTERNAL=$root" "$dir/CMakeCache.txt"; then
        rm -rf -- "$dir"
    fi
    mkdir -p -- "$dir"
    runQuietly "configuring build/$preset" "$dir/configure.log" \
        cmake -S "$root" --preset "$preset" "$@"
}

# build PRESET [CMAKE ARGUMENT...]: configures and builds.
build() {
    local preset=$1 dir=$root/build/$1
    configure "$@"
    runQuietly "building build/$preset" "$dir/build.log" cmake --build "$dir"
}

# runTests PRESET [CTEST ARGUMENT...]
runTests() {
    local dir=$root/build/$1
    shift
    ctest --test-dir "$dir" --output-on-failure --no-tests=error -j "$(nproc)" "$@"
}
