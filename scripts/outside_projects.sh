#!/usr/bin/env bash
# outside_projects.sh PREFIX [WORK_DIR]: other projects, in C and in C++, find the library that is
# installed in PREFIX, by CMake and by pkg-config, and use it. PREFIX may be another folder than the
# one that it was installed to. What is built stands in WORK_DIR, build/outside unless told.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
. scripts/lib.sh
prefix=$(readlink -f "$1")
work=${2-build/outside}
rm -rf "$work"
mkdir -p "$work"

version=$(project_version)
config=$(find "$prefix" -name zu_net_devConfig.cmake)
pc=$(find "$prefix" -name zu_net_dev.pc)
if [ ! -f "$config" ] || [ ! -f "$pc" ]; then
    echo "no zu_net_devConfig.cmake, or no zu_net_dev.pc, or several of them, in $prefix"
    exit 1
fi

# ---- CMake ----

# by_cmake NAME SOURCE_DIR [CMAKE_ARGUMENT...]
by_cmake() {
    local name=$1 source=$2
    shift 2
    cmake -G Ninja -S "$source" -B "$work/$name" -DCMAKE_PREFIX_PATH="$prefix" "$@"
    grep -qFx "zu_net_dev_DIR:PATH=$(dirname "$config")" "$work/$name/CMakeCache.txt" || {
        echo "$name has found another zu_net_dev than that of $prefix"
        exit 1
    }
    cmake --build "$work/$name"
}

for language in c cpp; do
    by_cmake "$language" "tests/installed/$language" -DCMAKE_BUILD_TYPE=Release
    for program in "$work/$language"/with_*; do
        "$program"
    done
    [ -x "$work/$language/with_net_dev_static" ]
done

# A program that asks for another interface gets none.
mkdir "$work/wrong_version"
cat >"$work/wrong_version/CMakeLists.txt" <<TEXT
cmake_minimum_required(VERSION 3.25)
project(wrong_version LANGUAGES C)
foreach(wrong 0.9 $((${version%%.*} + 1)).0)
    find_package(zu_net_dev \${wrong} QUIET)
    if(zu_net_dev_FOUND)
        message(FATAL_ERROR "version \${wrong} was found")
    endif()
endforeach()
find_package(zu_net_dev $version EXACT REQUIRED)
TEXT
cmake -G Ninja -S "$work/wrong_version" -B "$work/wrong_version/build" -DCMAKE_PREFIX_PATH="$prefix"

# The examples that were installed are a project too.
examples=$(find "$prefix/share/doc" -path '*/examples/live_view.c')
by_cmake examples "$(dirname "$examples")"
"$work/examples/live_view" --help

# ---- pkg-config ----

export PKG_CONFIG_PATH
PKG_CONFIG_PATH=$(dirname "$pc")
[ "$(pkg-config --modversion zu_net_dev)" = "$version" ]
libraries=$(pkg-config --variable=libdir zu_net_dev)

# by_pkg_config PACKAGE COMPILER SOURCE
by_pkg_config() {
    local package=$1 compiler=$2 source=$3 flags
    read -ra flags <<<"$(pkg-config --cflags --libs "$package")"
    "$compiler" "$source" -Wall -Wextra -Werror "${flags[@]}" -o "$work/by_pkg_config"
    LD_LIBRARY_PATH=$libraries "$work/by_pkg_config"
}

by_pkg_config zu_net_dev cc tests/installed/c/program.c
by_pkg_config zu_net_dev c++ tests/installed/cpp/program.cpp
by_pkg_config zu_client c++ tests/installed/cpp/layer.cpp

# ---- nothing remembers where it was built ----

! grep -IE -e "$(path_pattern "$PWD")" "$(dirname "$config")"/* "$(dirname "$pc")"/zu_*.pc || {
    echo "the files above know the folder $PWD"
    exit 1
}
