#!/usr/bin/env bash
# whole_install.sh BUILD_DIR: installs all that BUILD_DIR has built, for the prefix /usr/local, and moves it
# elsewhere. Nothing is missing there, nothing is too many, nothing knows where it was built, and the
# programs run.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
. scripts/lib.sh
build_dir=$1
work=$PWD/build/whole_install
moved=$work/moved
version=$(project_version)

rm -rf "$work"
mkdir -p "$work"
cmake --install "$build_dir" --prefix "$work/first" >"$work/install.log"
mv "$work/first" "$moved"

# Below share/doc stand whole folders of the project, and headers are the project's too.
expected() {
    (cd source/inc && find . -name '*.h' -printf 'include/zu_net_dev/%P\n')
    (cd client/include && find zu -name '*.hpp' -printf 'include/zu_net_dev/%p\n')
    find docs examples README.md CHANGELOG.md -type f -printf 'share/doc/zu_net_dev/%p\n'
    cat <<TEXT
bin/zucam
bin/zucam-sim
lib/cmake/zu_net_dev/zu_net_devConfig.cmake
lib/cmake/zu_net_dev/zu_net_devConfigVersion.cmake
lib/cmake/zu_net_dev/zu_net_devTargets.cmake
lib/libzu_client.a
lib/libzu_net_dev.a
lib/libzu_net_dev.so
lib/libzu_net_dev.so.${version%%.*}
lib/libzu_net_dev.so.$version
lib/pkgconfig/zu_client.pc
lib/pkgconfig/zu_net_dev.pc
lib/systemd/system/zucam-record@.service
share/bash-completion/completions/zucam
share/doc/zucam/examples/camera.conf
share/man/man1/zucam-sim.1
share/man/man1/zucam.1
share/man/man8/zucam-record@.service.8
share/zsh/site-functions/_zucam
TEXT
}

# The one file whose name depends on the kind of build is left out.
found() {
    find "$moved" ! -type d ! -name 'zu_net_devTargets-*.cmake' -printf '%P\n'
}

diff -u <(expected | LC_ALL=C sort) <(found | LC_ALL=C sort)

# ---- from where it is now ----

run_path() {
    readelf -d "$1" | sed -nE 's/.*\((RPATH|RUNPATH)\).*\[(.*)\]/\2/p'
}

# shellcheck disable=SC2016 # the loader's own word
for program in zucam zucam-sim; do
    [ "$(run_path "$moved/bin/$program")" = '$ORIGIN/../lib' ]
done
[ -z "$(run_path "$moved/lib/libzu_net_dev.so")" ]
ldd "$moved/bin/zucam" | grep -F "=> $moved/bin/../lib/libzu_net_dev.so.${version%%.*} "
"$moved/bin/zucam" --version | grep -F "$version"
"$moved/bin/zucam" sim --help | grep -F -e --port # the camera beside it

# ---- nothing remembers where it was built ----

! grep -rIE -e "$(path_pattern "$PWD")" -e "$(path_pattern "$(readlink -f "$build_dir")")" "$moved" || {
    echo 'the files above know where they were built or first installed'
    exit 1
}

# The unit can't be moved: it names what was configured.
grep -Fx 'EnvironmentFile=/usr/local/etc/zucam/%i.conf' "$moved/lib/systemd/system/zucam-record@.service"
grep '^ExecStart=/usr/local/bin/zucam record ' "$moved/lib/systemd/system/zucam-record@.service"
grep -F /usr/local/etc/zucam/door.conf "$moved/share/doc/zucam/examples/camera.conf"
rm -rf "$work"
