#!/usr/bin/env bash
# abi.sh LIBRARY [--write]: fails when a program that was built before may no longer fit the shared
# library. LIBRARY has debug information. Two things are compared with what packaging/abi holds:
#
#   libzu_net_dev.so.1.abi  what the library exports: names, versions, arguments, results
#   records.abi             the records and callbacks of the public headers. Settings travel as
#                           untyped blocks, so most records are in no function's signature, and no
#                           look at the library alone would see them change.
#
# Any difference fails, additions too: the interface is changed knowingly or not at all. With --write
# the files are made anew, which belongs into the commit that changes the interface. What takes
# something away, or changes it, also needs another SONAME.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
library=$1
mode=${2-compare}
work=build/abi
mkdir -p "$work"

# The types that the public headers define by a name of their own, one a line.
public_types() {
    cat source/inc/*.h | sed -nE -e 's/^\} ([A-Za-z_0-9]+);$/\1/p' \
        -e 's/^typedef .*\(\*([A-Za-z_0-9]+)\)\(.*/\1/p'
}

# A library with one function for each public type, so that all of them are somewhere to be seen.
build_records() {
    local type header
    {
        for header in source/inc/*.h; do
            printf '#include "%s"\n' "$(basename "$header")"
        done
        while read -r type; do
            printf 'void takes_%s(%s* it);\nvoid takes_%s(%s* it) { (void)it; }\n' \
                "$type" "$type" "$type" "$type"
        done < <(public_types)
    } >"$work/records.c"
    cc -std=c11 -g -fPIC -shared -I source/inc "$work/records.c" -o "$work/records.so"
}

# describe BINARY: what public headers say of it, without places of this machine.
describe() {
    abidw --headers-dir source/inc --drop-private-types --no-show-locs --no-corpus-path \
        --no-comp-dir-path "$1" | sed "s|path='$PWD/|path='|"
}

build_records
describe "$library" >"$work/libzu_net_dev.so.1.abi"
describe "$work/records.so" >"$work/records.abi"

status=0
for name in libzu_net_dev.so.1.abi records.abi; do
    if [ "$mode" = --write ]; then
        cp "$work/$name" "packaging/abi/$name"
    elif ! abidiff --harmless "packaging/abi/$name" "$work/$name"; then
        status=1
    fi
done
exit $status
