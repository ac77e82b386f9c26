#!/usr/bin/env bash
# package_round.sh: installs the packages of build/package in this very system, uses what is in them
# as their users would, and removes them; however it ends, they are gone again. As root or with sudo.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
. scripts/lib.sh
camera_program=/usr/bin/zucam-sim
. scripts/camera.sh

debs=(build/package/*.deb)
names=()
for deb in "${debs[@]}"; do
    names+=("$(dpkg-deb -f "$deb" Package)")
done

if [ "$(missing_packages "${names[@]}" | wc -l)" -ne ${#names[@]} ]; then
    echo "one of ${names[*]} is installed already; remove it first, for this would"
    exit 1
fi

# Documents too, where a small system leaves them out. What is not as it was packed is only printed by
# dpkg, which calls that a success.
install_debs() {
    local broken
    as_root dpkg --path-include='/usr/*' --install "${debs[@]}"
    broken=$(dpkg --verify "${names[@]}")
    [ -z "$broken" ] || {
        echo "$broken"
        return 1
    }
}

remove_debs() {
    as_root dpkg --purge "${names[@]}"
}

end_round() {
    clean_up
    if [ "$(missing_packages "${names[@]}" | wc -l)" -ne ${#names[@]} ]; then
        remove_debs
    fi
}
trap end_round EXIT

# The program in README.md, and an example that shows what a camera sends.
use_library() {
    local flags
    awk '/^```c$/ {inside = 1; next} /^```$/ {inside = 0} inside' README.md >"$work/first.c"
    read -ra flags <<<"$(pkg-config --cflags --libs zu_net_dev)"
    cc "$work/first.c" -o "$work/first" "${flags[@]}"
    ldd "$work/first" | grep -F 'libzu_net_dev.so.1 => /'

    scripts/outside_projects.sh /usr build/package/outside
    start_camera
    build/package/outside/examples/live_view --host 127.0.0.1 --port "$port" --seconds 3 \
        --out "$work/live.h264"
    [ -s "$work/live.h264" ]
    use_tool
    end_camera
}

# The unit's own command with the configuration of the example, but for the camera, the place of the
# files and the end.
use_tool() {
    local unit=/usr/lib/systemd/system/zucam-record@.service line
    line=$(sed -n 's/^ExecStart=//p' "$unit")
    line=${line//%S\/zucam\/%i\/%i/$work/door}
    sed "s/^ZUCAM_CAMERA=.*/ZUCAM_CAMERA=127.0.0.1:$port/" /usr/share/doc/zucam/examples/camera.conf \
        >"$work/door.conf"
    [ -n "$line" ]
    [[ $line != *%* ]]
    [[ $line != *PASSWORD* ]]
    (
        set -a
        eval "$(sed -n 's/^Environment=//p' "$unit")"
        # shellcheck disable=SC1091 # made above
        . "$work/door.conf"
        [ -n "$ZUCAM_PASSWORD" ]
        eval "$line --seconds 2"
    )
    ls "$work"/door-*.mkv
}

# Completions stand where both shells look for them.
find_completions() {
    ls /usr/share/bash-completion/completions/zucam /usr/share/zsh/vendor-completions/_zucam
}

# Every option is told in the manual.
compare_manual() {
    local options option
    options=$(zucam-sim --help | grep -oE '(^|[ ,])--[a-z-]+' | tr -d ' ,' | sort -u)
    for option in $options; do
        zgrep -qF -- "${option//-/\\-}" /usr/share/man/man1/zucam-sim.1.gz || {
            echo "zucam-sim.1 does not tell $option"
            return 1
        }
    done
}

# systemd takes a unit with mistakes and only remarks on them; here any remark fails. The second number
# is ten times the exposure that its own list of precautions leaves, out of 10.
judge_unit() {
    local remarks
    remarks=$(systemd-analyze --man=no verify zucam-record@door.service 2>&1) || {
        echo "$remarks"
        return 1
    }
    ! grep -F zucam-record <<<"$remarks" || return 1
    systemd-analyze security --offline=true --threshold=15 zucam-record@door.service
}

nothing_is_left() {
    local deb file
    for deb in "${debs[@]}"; do
        while read -r file; do
            [ ! -e "${file#.}" ] || {
                echo "${file#.} is left"
                return 1
            }
        done < <(dpkg-deb --fsys-tarfile "$deb" | tar -t | grep -v '/$')
    done
    ! ldconfig_lists_library || {
        echo 'the cache of libraries still knows the library'
        return 1
    }
}

ldconfig_lists_library() {
    /sbin/ldconfig -p | grep -F libzu_net_dev
}

install_debs
ldconfig_lists_library
use_library
compare_manual
find_completions
judge_unit
remove_debs
nothing_is_left
