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
rooms=(zu_net_dev_msg log deadline fd_wait rough_pause tcp_link link read_ahead sdk_user event_handler
    msg_dispatch msg_receiver msg_sender request_channel stream_control settings ptz device_manager
    login ping zu_net_dev_api)

# code_lines PATTERN FILE...: where the Perl pattern matches a line of code, as FILE:LINE. Comments do not
# count; texts in quotes are passed over whole, so that nothing in them counts as a comment's begin.
# One process looks at all files, as there are many, and many rules.
code_lines() {
    # shellcheck disable=SC2016 # Perl's variables
    perl -e '
        my $pattern = shift;
        for my $file (@ARGV) {
            open my $in, "<", $file or die "$file: $!\n";
            my $code = do { local $/; <$in> };
            $code =~ s{("(?:\\.|[^"\\\n])*")|/\*.*?\*/|//[^\n]*}{$1 // $& =~ tr/\n//cdr}gse;
            my $number = 0;
            for my $line (split /\n/, $code) {
                ++$number;
                print "$file:$number\n" if $line =~ /$pattern/;
            }
        }' "$@"
}

# forbid WHY PATTERN FILE...: no code line of the files may match.
forbid() {
    local why=$1 hits hit
    shift
    hits=$(code_lines "$@")
    while IFS= read -r hit; do
        [ -z "$hit" ] || breach "$hit: $why"
    done <<<"$hits"
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

# forbid_sleep FILE...: no code line may sleep without saying why behind the mark.
forbid_sleep() {
    local hits file line
    hits=$(code_lines '\b(u?sleep|(clock_)?nanosleep|sleep_(for|until))\s*\(' "$@")
    while IFS=: read -r file line; do
        [ -z "$file" ] || sed -n "${line}p" "$file" | grep -qE '// sleep: .{8}' ||
            breach "$file:$line: a test polls for a condition instead of sleeping"
    done <<<"$hits"
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
    local files
    mapfile -t files < <(sources_in virtual_camera)
    forbid 'the camera includes nothing of the library' \
        '^#include .*(zu_net_dev|zu_data_type|source/)' "${files[@]}"
    mapfile -t files < <(sources_in client)
    forbid 'the C++ layer includes the public headers of the library only' \
        '^#include .*(source/|\.\./|zu_net_dev_msg|sdk_user|"log\.h)' "${files[@]}"
    mapfile -t files < <(sources_in tools)
    forbid 'a tool includes public headers and those of the C++ layer only' \
        '^#include .*(source/|client/|virtual_camera/|\.\./|zu_net_dev_msg|sdk_user|"log\.h)' \
        "${files[@]}"
    mapfile -t files < <(sources_in examples)
    forbid 'an example includes public headers only' \
        '^#include .*(source/|\.\./|zu_net_dev_msg|sdk_user|log\.h)' "${files[@]}"
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
        breach "packaging/debian/symbols: $symbol is missing"
    done < <(LC_ALL=C comm -23 <(LC_ALL=C sort -u scripts/exports.txt) \
        <(sed -nE 's/^ (.*)@ZU_NET_DEV_[0-9.]+ [0-9.]+$/\1/p' packaging/debian/symbols |
            LC_ALL=C sort -u))
}

# Whoever lets a command of ./run install something says what it is for.
check_packages() {
    local list package wanted=()
    for list in $(compgen -A variable packages_); do
        local -n packages=$list
        wanted+=("${packages[@]}")
    done
    while read -r package; do
        breach "README.md: does not say what the package $package is for"
    done < <(LC_ALL=C comm -23 <(printf '%s\n' "${wanted[@]}" | LC_ALL=C sort -u) \
        <(sed -nE 's/^\| ([^|]*) \|.*/\1/p' README.md | sed 's/, /\n/g' | LC_ALL=C sort -u))
}

mapfile -t library < <(sources_in source/src)
mapfile -t tests < <(sources_in tests)
mapfile -t all < <(sources_in "${source_dirs[@]}")
mapfile -t texts < <(find README.md CHANGELOG.md CONTRIBUTING.md docs cmake CMakeLists.txt \
    CMakePresets.json .clang-tidy .clang-format run .ci scripts packaging "${source_dirs[@]}" \
    -type f ! -name house_rules.sh ! -path 'fuzz/corpus/*')
wait "$!" # a path that is not there ends the script

mapfile -t waiting < <(printf '%s\n' "${library[@]}" | grep -v '/fd_wait\.cpp$')
forbid 'waits are made by fd_wait, whatever the numbers of the descriptors' \
    '\b(FD_SET|FD_ZERO|fd_set|(p?select|p?poll|epoll_p?wait)\s*\()' "${waiting[@]}"
forbid 'thread functions return; pthread_exit loads the unwinder' '\bpthread_exit\b' "${library[@]}"
forbid 'a thread is never cancelled' '\bpthread_cancel\b' "${library[@]}"
forbid 'the library has no exceptions' '\b(throw|try|catch)\b' "${library[@]}"
forbid 'the library allocates nothing but its records' '\b(new|delete)\b[^;]*[[({A-Za-z]' \
    "${library[@]}"
forbid 'the library uses std::atomic and nothing else of the C++ run time' \
    'std::(?!atomic\b|memory_order)' "${library[@]}"
forbid 'the library includes C headers and <atomic> alone' \
    '^#include <(?!c[a-z]+>|atomic>|[a-z/_0-9]+\.h>)' "${library[@]}"

mapfile -t polling < <(printf '%s\n' "${tests[@]}" | grep -vx 'tests/support/eventually\.h')
forbid_sleep "${polling[@]}"
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
