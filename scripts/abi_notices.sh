#!/usr/bin/env bash
# abi_notices.sh BUILD_DIR: changes the interface in several ways, each time in a copy, and fails when
# abi.sh lets one of them pass or does not name what has changed. BUILD_DIR is a build with debug
# information.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
build_dir=$(readlink -f "$1")
objects=$build_dir/source/CMakeFiles/zu_net_dev_objects.dir/src
copy=$PWD/build/abi_notices
api_h=$copy/source/inc/zu_net_dev_api.h

begin_copy() {
    rm -rf "$copy"
    mkdir -p "$copy/scripts" "$copy/packaging" "$copy/source" "$copy/objects"
    cp scripts/abi.sh "$copy/scripts"
    cp -r packaging/abi "$copy/packaging"
    cp -r source/inc source/src "$copy/source"
    cp "$objects"/*.o "$copy/objects"
}

compile() { # ROOM
    c++ -std=c++17 -g -O2 -fPIC -fno-exceptions -fno-rtti -fvisibility=hidden \
        -I "$copy/source/inc" -c "$copy/source/src/$1.cpp" -o "$copy/objects/$1.cpp.o"
}

link() {
    cc -shared -pthread -Wl,-soname,libzu_net_dev.so.1 \
        -Wl,--version-script="$copy/source/src/zu_net_dev.map" "$copy"/objects/*.o \
        -o "$copy/libzu_net_dev.so.1"
}

# replace FILE OLD NEW: fails when there is nothing to replace.
replace() {
    grep -qE "$2" "$1"
    sed -i -E "s/$2/$3/" "$1"
}

compare() { # the shared library of the copy unless another one is given
    "$copy/scripts/abi.sh" "${1:-$copy/libzu_net_dev.so.1}" >"$copy/said" 2>&1
}

# notices NAME: the comparison fails, and says what it is about.
notices() {
    if compare "${2-}" || ! grep -qF "$1" "$copy/said"; then
        echo "nobody would notice a change of $1:"
        cat "$copy/said"
        exit 1
    fi
    echo "noticed: $1"
}

# Without the headers' own look at it, which would end the matter sooner.
change_record() { # RECORD OLD NEW
    sed -i "/^ZU_ASSERT_[A-Z]*($1,/d" "$api_h"
    replace "$api_h" "$2" "$3"
}

begin_copy
link
compare || {
    echo 'a library that was linked anew counts as changed:'
    cat "$copy/said"
    exit 1
}

replace "$copy/source/src/zu_net_dev.map" '^    ZU_NET_DEV_StopVoice;$' ''
link
notices ZU_NET_DEV_StopVoice

begin_copy
printf 'int one_more(void);\nint one_more(void) { return 0; }\n' |
    cc -g -fPIC -x c - -c -o "$copy/objects/one_more.o"
replace "$copy/source/src/zu_net_dev.map" '^local:$' '    one_more;\nlocal:'
link
notices one_more

begin_copy
replace "$api_h" 'ZU_NET_DEV_StopRecord\(ZU_U32 ' 'ZU_NET_DEV_StopRecord(ZU_S32 '
replace "$copy/source/src/zu_net_dev_api.cpp" 'ZU_NET_DEV_StopRecord\(ZU_U32' 'ZU_NET_DEV_StopRecord(ZU_S32'
compile zu_net_dev_api
link
notices ZU_NET_DEV_StopRecord

begin_copy
change_record ZU_S_Display '^    ZU_U32 u32Hue;$' '    ZU_U32 u32Hue, u32Gamma;'
notices ZU_S_Display "$build_dir/source/libzu_net_dev.so.1"

begin_copy
change_record ZU_S_Display '^    ZU_U32 u32Hue;$' '    ZU_S32 u32Hue;'
notices u32Hue "$build_dir/source/libzu_net_dev.so.1"

begin_copy
replace "$api_h" '(ZU_ON_VMD_CALLBACK\)\(ZU_U32), ZU_U32,' '\1, ZU_U8,'
notices ZU_ON_VMD_CALLBACK "$build_dir/source/libzu_net_dev.so.1"

rm -rf "$copy"
