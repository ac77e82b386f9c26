#!/usr/bin/env bash
# House rules that no compiler and no linter knows. Prints a line for each breach and fails when
# there is one.
#
# Tests wait through tests/support/eventually.h. A line elsewhere that must sleep (a callback that is
# slow on purpose) says why behind the mark "// sleep:".
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
. scripts/lib.sh

breaches=0

breach() {
    printf '%s\n' "$*"
    breaches=$((breaches + 1))
}

# The rooms of the library from the ground up: a file includes only rooms above it in this list.
rooms=(zu_net_dev_msg log fd_wait tcp_link link sdk_user event_handler msg_dispatch msg_receiver
    msg_sender request_channel stream_control settings ptz device_manager login ping zu_net_dev_api)

# Prints a source without its comments; line numbers stay. Texts in quotes are passed over whole, so
# that nothing in them counts as a comment's begin.
code_of() {
    perl -0777 -pe 's{("(?:\\.|[^"\\\n])*")|/\*.*?\*/|//[^\n]*}{$1 // $& =~ tr/\n//cdr}gse' "$1"
}

# report WHY FILE HITS: one breach for each line of `grep -n`.
report() {
    local why=$1 file=$2 hit
    while IFS= read -r hit; do
        [ -z "$hit" ] || breach "$file:${hit%%:*}: $why"
    done <<<"$3"
}

# forbid WHY PATTERN FILE...: no code line of the files may match the Perl pattern. A grep that fails
# (status 2) ends the script; status 1 says that nothing matches.
forbid() {
    local why=$1 pattern=$2 file hits
    shift 2
    for file in "$@"; do
        hits=$(code_of "$file" | grep -nP "$pattern") || [ $? -eq 1 ]
        report "$why" "$file" "$hits"
    done
}

# forbid_text WHY PATTERN FILE...: no line at all may match.
forbid_text() {
    local why=$1 pattern=$2 hits file line
    shift 2
    hits=$(grep -HnE "$pattern" "$@") || [ $? -eq 1 ]
    while IFS=: read -r file line _; do
        [ -z "$file" ] || breach "$file:$line: $why"
    done <<<"$hits"
}

# without_reason FILE HITS: those hits whose line does not say behind the mark why it sleeps.
without_reason() {
    local hit
    while IFS= read -r hit; do
        [ -z "$hit" ] || sed -n "${hit%%:*}p" "$1" | grep -qE '// sleep: .{8}' ||
            printf '%s\n' "$hit"
    done <<<"$2"
}

room_number() {
    local i
    for i in "${!rooms[@]}"; do
        if [ "${rooms[$i]}" = "$1" ]; then
            printf '%d' "$i"
            return 0
        fi
    done
    printf '%d' -1
}

# The library is a ladder: nothing includes what stands below it.
check_rooms() {
    local file room number header included
    for file in source/src/*.h source/src/*.cpp; do
        room=$(basename "${file%.*}")
        number=$(room_number "$room")
        if [ "$number" -lt 0 ]; then
            breach "$file: this room is missing in the list of $0"
            continue
        fi
        while IFS= read -r header; do
            case $header in
            zu_net_dev_api.h | zu_data_type.h | zu_net_dev_disk.h | queue.h | ../inc/*) continue ;;
            esac
            included=$(room_number "${header%.h}")
            if [ "$included" -lt 0 ] || [ "$included" -gt "$number" ]; then
                breach "$file: includes $header, which stands below it"
            fi
        done < <(sed -nE 's/^#include "([^"]+)".*/\1/p' "$file")
    done
}

# Each source of the library has its header, and every file says at its head what it is for.
check_heads() {
    local file room
    for file in source/src/*.cpp; do
        room=$(basename "${file%.cpp}")
        [ -e "source/src/$room.h" ] || [ -e "source/inc/$room.h" ] ||
            breach "$file: has no header of its own"
    done
    for file in "$@"; do
        case $(head -n 1 "$file") in
        //* | '/*'*) ;;
        *) breach "$file: does not open with a comment that tells its job" ;;
        esac
    done
}

# The camera is written apart from the library; the C++ layer, the tools and the examples see what an
# application sees.
check_borders() {
    local file
    while IFS= read -r file; do
        forbid 'the camera includes nothing of the library' \
            '^#include .*(zu_net_dev|zu_data_type|source/)' "$file"
    done < <(sources_in virtual_camera)
    while IFS= read -r file; do
        forbid 'the C++ layer includes the public headers of the library only' \
            '^#include .*(source/|\.\./|zu_net_dev_msg|sdk_user|"log\.h)' "$file"
    done < <(sources_in client)
    while IFS= read -r file; do
        forbid 'a tool includes public headers and those of the C++ layer only' \
            '^#include .*(source/|client/|virtual_camera/|\.\./|zu_net_dev_msg|sdk_user|"log\.h)' \
            "$file"
    done < <(sources_in tools)
    while IFS= read -r file; do
        forbid 'an example includes public headers only' \
            '^#include .*(source/|\.\./|zu_net_dev_msg|sdk_user|log\.h)' "$file"
    done < <(sources_in examples)
}

# The version stands in CMakeLists.txt alone; what tells of changes must have got as far.
check_version() {
    local version latest
    version=$(project_version)
    latest=$(sed -nE 's/^## ([0-9.]+) \([0-9]{4}-[0-9]{2}-[0-9]{2}\)$/\1/p' CHANGELOG.md | head -n 1)
    [ "$version" = "$latest" ] ||
        breach "CHANGELOG.md: opens with ${latest:-no version}, but CMakeLists.txt says $version"
}

# Whoever exports something says since which version, for packages that are built against it.
check_symbols() {
    local symbol
    while read -r symbol; do
        grep -qE "^ $symbol@ZU_NET_DEV_[0-9.]+ [0-9.]+$" packaging/debian/symbols ||
            breach "packaging/debian/symbols: $symbol is missing"
    done <scripts/exports.txt
}

# Whoever lets a command of ./run install something says what it is for.
check_packages() {
    local list package told
    told=$(sed -nE 's/^\| ([^|]*) \|.*/\1/p' README.md | sed 's/, /\n/g')
    for list in $(compgen -A variable packages_); do
        local -n packages=$list
        for package in "${packages[@]}"; do
            grep -qxF "$package" <<<"$told" ||
                breach "README.md: does not say what the package $package is for"
        done
    done
}

mapfile -t library < <(sources_in source/src)
mapfile -t tests < <(sources_in tests)
mapfile -t all < <(sources_in "${source_dirs[@]}")
mapfile -t texts < <(find README.md CHANGELOG.md CONTRIBUTING.md docs cmake CMakeLists.txt \
    CMakePresets.json .clang-tidy .clang-format run .ci scripts packaging "${source_dirs[@]}" \
    -type f ! -name house_rules.sh ! -path 'fuzz/corpus/*')
wait "$!" # a path that is not there ends the script

mapfile -t waiting < <(printf '%s\n' "${library[@]}" | grep -v '/fd_wait\.cpp$')
forbid 'a plain fd_set ends at descriptor 1023; wait with fd_wait' \
    '\b(FD_SET|FD_ISSET|FD_CLR|FD_ZERO|fd_set)\b' "${waiting[@]}"
forbid 'thread functions return; pthread_exit loads the unwinder' '\bpthread_exit\b' "${library[@]}"
forbid 'a thread is never cancelled' '\bpthread_cancel\b' "${library[@]}"
forbid 'the library has no exceptions' '\b(throw|try|catch)\b' "${library[@]}"
forbid 'the library allocates nothing but its records' '\b(new|delete)\b[^;]*[[({A-Za-z]' \
    "${library[@]}"
forbid 'the library uses std::atomic and nothing else of the C++ run time' \
    'std::(?!atomic\b|memory_order)' "${library[@]}"
forbid 'the library includes C headers and <atomic> alone' \
    '^#include <(?!c[a-z]+>|atomic>|[a-z/_0-9]+\.h>)' "${library[@]}"

for file in "${tests[@]}"; do
    [ "$file" != tests/support/eventually.h ] || continue
    hits=$(code_of "$file" |
        grep -nE '\b(u?sleep|(clock_)?nanosleep|sleep_(for|until))[[:space:]]*\(') || [ $? -eq 1 ]
    report 'a test polls for a condition instead of sleeping' "$file" \
        "$(without_reason "$file" "$hits")"
done
forbid 'a test runs or is deleted; it is never skipped' '\bGTEST_SKIP\b|\bDISABLED_' "${tests[@]}"

mapfile -t scripts < <(printf '%s\n' "${texts[@]}" | grep -E '^(run$|\.ci/|scripts/|packaging/.*\.sh$)')
forbid_text 'a failure is dealt with or ends the script; it is never ignored' \
    '\|\|[[:space:]]*(true|:)([[:space:];)]|$)' "${scripts[@]}"
forbid_text 'an open end' '\b(TODO|FIXME|XXX)\b' "${texts[@]}"
forbid_text "a path of somebody's machine" '(^|[^A-Za-z0-9_.}*-])/(home|root|work|Users|opt|mnt)/' \
    "${texts[@]}"

check_rooms
check_version
check_symbols
check_packages
check_heads "${all[@]}"
check_borders

if [ $breaches -gt 0 ]; then
    printf '%d breaches of the house rules\n' $breaches
    exit 1
fi
