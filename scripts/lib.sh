# shellcheck shell=bash
# shellcheck disable=SC2034 # the names below are read by the scripts that source this file
#
# What the commands of ./run share: Debian packages, steps with one line of output, building, ctest.
# Sourced with the repository's root as the working directory and `set -euo pipefail` in force.

# Tests compare what programs say; perl and shells complain of a language that is not installed.
export LC_ALL=C

# The packages of Debian 12 by what they are for; README.md says what each is good for.
packages_build=(g++ cmake ninja-build pkg-config)
packages_camera=(libavcodec-dev libavfilter-dev libavutil-dev libswscale-dev libcli11-dev)
packages_tool=(libavformat-dev libavcodec-dev libavutil-dev libswscale-dev libcli11-dev
    nlohmann-json3-dev libfmt-dev scdoc)
packages_demo=(ffmpeg)
packages_test=(libgtest-dev libgmock-dev binutils)
packages_check=(clang-format clang-tidy cppcheck shellcheck valgrind binutils abigail-tools)
packages_fuzz=(clang libclang-rt-14-dev)
packages_msan=(clang libclang-rt-14-dev libc++-14-dev libc++abi-14-dev llvm-14)
packages_coverage=(gcovr)
packages_docs=(doxygen)
packages_package=(dpkg-dev file lintian systemd)
packages_bench=(libcli11-dev nlohmann-json3-dev binutils)
packages_peers=(libavformat-dev libavcodec-dev libavutil-dev libgstreamer1.0-dev
    gstreamer1.0-plugins-good libzmq3-dev libcurl4-openssl-dev)

# The folders whose sources are ours; every one that exists is formatted and checked.
source_dirs=(source client virtual_camera tools examples tests fuzz bench)

# The groups of figures that the benchmarks know.
bench_groups=(stream request scale idle login peers)

# Most tests wait for a time limit of the protocol rather than compute, so many run side by side.
test_jobs=36
test_launcher=() # a command that tests are listed and run by

fail() {
    printf 'run: %s\n' "$*" >&2
    exit 1
}

# A command line that makes no sense: one line, exit code 2.
usage_error() {
    printf 'run: %s\n' "$*" >&2
    exit 2
}

project_version() {
    sed -nE 's/^project\(zu_net_dev VERSION ([0-9.]+).*/\1/p' CMakeLists.txt
}

is_number() { # TEXT LEAST MOST
    [[ $1 =~ ^[0-9]{1,6}$ ]] && [ "$((10#$1))" -ge "$2" ] && [ "$((10#$1))" -le "$3" ]
}

as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    elif command -v sudo >/dev/null; then
        sudo "$@"
    else
        return 1
    fi
}

# Says which of the packages are not installed, one a line.
missing_packages() {
    local installed package
    # The query fails when it has never heard of a package, and tells about the others all the same.
    installed=$(dpkg-query -W -f='${db:Status-Status} ${Package}\n' "$@" 2>/dev/null) ||
        installed+=$'\n'
    for package in "$@"; do
        grep -qx "installed $package" <<<"$installed" || printf '%s\n' "$package"
    done
}

# Installs what is missing; quiet and quick when nothing is.
need_packages() {
    command -v dpkg-query >/dev/null || return 0 # not a Debian: build/*.configure.log says what is left out
    local missing
    mapfile -t missing < <(missing_packages "$@" | sort -u)
    [ ${#missing[@]} -gt 0 ] || return 0
    if [ "$(id -u)" -ne 0 ] && ! command -v sudo >/dev/null; then
        fail "these packages are missing, and there is no sudo to install them: ${missing[*]}"
    fi
    step "install ${missing[*]}" install_packages "${missing[@]}"
}

install_packages() {
    as_root env DEBIAN_FRONTEND=noninteractive apt-get update -q
    as_root env DEBIAN_FRONTEND=noninteractive \
        apt-get install -q -y --no-install-recommends "$@"
}

# step WHAT COMMAND...: runs the command with its output kept in a file and prints one line. When it
# fails, that output follows and the program ends.
step() {
    local what=$1 started=$SECONDS log status
    shift
    mkdir -p build
    log=$(mktemp build/step.XXXXXX)
    printf '%s ... ' "$what"
    set +e
    (
        set -e
        "$@"
    ) >"$log" 2>&1
    status=$?
    set -e
    if [ $status -ne 0 ]; then
        printf 'FAILED (%d s)\n' $((SECONDS - started))
        cat "$log"
        rm -f "$log"
        exit 1
    fi
    printf 'ok (%d s)\n' $((SECONDS - started))
    step_output=$(cat "$log")
    rm -f "$log"
}

configure() {
    cmake --preset "$1" >"build/$1.configure.log" 2>&1 || {
        cat "build/$1.configure.log"
        return 1
    }
}

# build PRESET [TARGET...]: configures and builds. Prints nothing when all is up to date.
build() {
    local preset=$1 targets
    shift
    targets=("$@")
    mkdir -p build
    configure "$preset" || fail "the preset $preset can't be configured, see above"
    if ninja -C "build/$preset" -n "${targets[@]}" 2>/dev/null | grep -q 'no work to do'; then
        return 0
    fi
    step "build $preset" "${test_launcher[@]}" \
        ninja --quiet -C "build/$preset" "${targets[@]}"
}

# run_tests PRESET [CTEST ARGUMENT...]: the arguments given last win over these.
run_tests() {
    local preset=$1
    shift
    "${test_launcher[@]}" ctest --test-dir "build/$preset" --output-on-failure --no-tests=error --timeout 120 \
        -j "$test_jobs" "$@"
}

# path_pattern PATH: an extended regular expression for the path and what is below it. Other paths
# that end or begin alike, such as /usr/src or /src-2 for /src, are left out; an option may stand
# right in front, as in -I/src.
path_pattern() {
    local outside='(^|[^][A-Za-z0-9_./~)}>*-])' path
    path=$(printf '%s' "$1" | sed 's/[][\.*^$+?(){}|]/\\&/g')
    printf '%s(-[A-Za-z])?%s(/|[^A-Za-z0-9_-]|$)' "$outside" "$path"
}

# Says the sources below the given folders, one a line.
sources_in() {
    local dir
    for dir in "$@"; do
        [ ! -d "$dir" ] || find "$dir" -type f \( -name '*.c' -o -name '*.cpp' -o -name '*.h' -o -name '*.hpp' \)
    done | sort
}
