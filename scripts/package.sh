#!/usr/bin/env bash
# package.sh: makes the Debian packages in build/package, has lintian judge them, and installs, uses
# and removes them. Called by `./run package`, which has installed what this needs.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
. scripts/lib.sh

# Flags as Debian builds its packages, with all hardening; without debug information, which would
# stay in the static libraries.
use_flags_of_debian() {
    export DEB_BUILD_MAINT_OPTIONS=hardening=+all
    export DEB_CFLAGS_MAINT_STRIP=-g DEB_CXXFLAGS_MAINT_STRIP=-g
    local preprocessor
    preprocessor=$(dpkg-buildflags --get CPPFLAGS)
    CFLAGS="$(dpkg-buildflags --get CFLAGS) $preprocessor"
    CXXFLAGS="$(dpkg-buildflags --get CXXFLAGS) $preprocessor"
    LDFLAGS=$(dpkg-buildflags --get LDFLAGS)
    export CFLAGS CXXFLAGS LDFLAGS
}

make_packages() {
    rm -rf build/package/_CPack_Packages build/package/*.deb
    cpack --config build/package/CPackConfig.cmake -B build/package
    ls build/package/libzu-net-dev1_*.deb build/package/libzu-net-dev-dev_*.deb \
        build/package/zucam_*.deb
}

# Warnings and remarks count too, but for these:
#   initial-upload-closes-no-bugs  nobody has asked Debian for this
#   ...-unneeded-section(s)        the compiler's name
judge_packages() {
    lintian --allow-root --display-info --fail-on error,warning,info \
        --suppress-tags initial-upload-closes-no-bugs \
        --suppress-tags binary-has-unneeded-section,static-library-has-unneeded-sections \
        build/package/*.deb
}

# What is exported since which version stands in packaging/debian/symbols, for packages that are
# built against the library. Anything new or gone fails.
compare_symbols() {
    local tree=build/package/symbols
    rm -rf "$tree"
    mkdir -p "$tree/debian"
    dpkg-deb --raw-extract build/package/libzu-net-dev1_*.deb "$tree/package"
    printf 'Source: zu-net-dev\n\nPackage: libzu-net-dev1\nArchitecture: any\n' \
        >"$tree/debian/control"
    cd "$tree"
    dpkg-gensymbols -c4 -plibzu-net-dev1 -Ppackage -v"$1" -I../../../packaging/debian/symbols \
        -Odebian/symbols
}

use_flags_of_debian
build package installable
step 'package: Debian packages' make_packages
printf '%s\n' "$step_output" | grep '\.deb$'
step 'package: lintian' judge_packages
step 'package: exported symbols' compare_symbols "$(project_version)-1"
step 'package: install, use, remove' scripts/package_round.sh
