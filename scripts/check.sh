#!/usr/bin/env bash
# Everything that must hold besides the tests of an ordinary build. Each step is one line of output;
# the first that fails shows what it said and ends the check. Called by `./run check`, which has
# installed the packages.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
. scripts/lib.sh

# ---- sources -----------------------------------------------------------------------------------

formatting() {
    sources_in "${source_dirs[@]}" | xargs clang-format --dry-run -Werror
}

shell_scripts() {
    shellcheck -x run .ci/run scripts/*.sh packaging/debian/*.sh tools/zucam/completion/zucam.bash
}

# The files among ours that the build compiles; others have no compile command to go by.
compiled_sources() {
    local file
    while IFS= read -r file; do
        ! grep -qF "\"file\": \"$PWD/$file\"" build/dev/compile_commands.json ||
            printf '%s\n' "$file"
    done < <(sources_in "$@" | grep -vE '\.h(pp)?$')
}

linted_by_clang_tidy() {
    compiled_sources source client virtual_camera tools examples >build/tidy.list
    [ -s build/tidy.list ] || return 1
    xargs -P "$(nproc)" -n 1 clang-tidy -p build/dev --quiet <build/tidy.list
}

linted_by_cppcheck() {
    local dirs=() dir
    for dir in source client virtual_camera tools examples; do
        [ ! -d "$dir" ] || dirs+=("$dir")
    done
    cppcheck --quiet --error-exitcode=1 --inline-suppr --enable=warning,performance,portability \
        --std=c++17 --std=c11 -I source/inc -I client/include -I virtual_camera/include \
        -I tools/zucam "${dirs[@]}"
}

# ---- the library as it is shipped --------------------------------------------------------------

release_library=build/release/source/libzu_net_dev.so

# The version node itself is an absolute symbol (type A) and no export.
exported_symbols() {
    nm -D --defined-only "$release_library" | sed -nE 's/^[0-9a-f]+ [^A] ([^@]+).*/\1/p' |
        LC_ALL=C sort | diff -u scripts/exports.txt -
}

needs_libc_alone() {
    local needed
    needed=$(readelf -d "$release_library" | sed -nE 's/.*\(NEEDED\).*\[(.*)\]/\1/p')
    printf 'needed: %s\n' "$needed"
    [ "$needed" = libc.so.6 ]
}

# A machine with a compiler, CMake and ninja gets both libraries by the line that README.md gives. It
# is run as it stands, but for the packages, which are as good as not there, and for where it
# installs.
libraries_alone() {
    local line stage=$PWD/build/plain/stage
    line=$(grep '^cmake -S \. -B build/plain ' README.md)
    # shellcheck disable=SC2317 # called by the line
    cmake() {
        local more=()
        if [ "$1" = -S ]; then
            more=(-DZU_WERROR=ON -DCMAKE_DISABLE_FIND_PACKAGE_PkgConfig=ON
                -DCMAKE_DISABLE_FIND_PACKAGE_CLI11=ON -DCMAKE_DISABLE_FIND_PACKAGE_GTest=ON)
        fi
        DESTDIR=$stage command cmake "$@" "${more[@]}"
    }
    # shellcheck disable=SC2317 # likewise
    sudo() { "$@"; }
    rm -rf build/plain
    eval "$line"
    ls build/plain/source/libzu_net_dev.so.1 build/plain/source/libzu_net_dev.a
    find "$stage" -name zu_net_dev_api.h | grep -q .
    find "$stage" -name 'libzu_net_dev.so.1*' | grep -q .
}

# What was installed above serves other projects from wherever it is moved to.
outside_projects() {
    rm -rf build/plain/moved
    mv build/plain/stage/usr/local build/plain/moved
    scripts/outside_projects.sh build/plain/moved
}

# The library of the preset dev is the same one with debug information, by which it is compared.
same_interface() {
    scripts/abi.sh build/dev/source/libzu_net_dev.so.1
}

# The program in README.md is shown to people, so it has to be one.
readme_program() {
    awk '/^```c$/ {inside = 1; next} /^```$/ {inside = 0} inside' README.md >build/readme_program.c
    grep -q ZU_NET_DEV_Login build/readme_program.c
    cc -std=gnu11 -Wall -Wextra -pedantic -Werror -I source/inc build/readme_program.c \
        -o build/readme_program -L build/release/source -lzu_net_dev
}

# ---- at run time -------------------------------------------------------------------------------

tests_under_asan() {
    ASAN_OPTIONS=detect_leaks=1:detect_stack_use_after_return=1 \
        LSAN_OPTIONS=suppressions=$PWD/scripts/lsan.supp:print_suppressions=0 \
        UBSAN_OPTIONS=print_stacktrace=1 \
        run_tests asan
}

tests_under_tsan() {
    TSAN_OPTIONS=halt_on_error=0:exitcode=66:second_deadlock_stack=1 \
        run_tests tsan
}

# Only what is compiled along can run under the memory sanitizer: programs in C, which need libc
# alone, and the library on the simulated machine.
msan_targets=(live_view settings ptz events c_abi_trace_all c_abi_library_from_c
    fuzz_receiver fuzz_sender fuzz_calls)

under_msan() {
    "${test_launcher[@]}" scripts/msan_round.sh build/msan build/dev
    run_tests msan -R '^(c_abi\.library_from_c|fuzz)\.'
}

# The sanitizers of these compilers can't live with the highest setting of address randomisation, so
# it is turned off for them where that is in force.
fix_addresses() {
    local bits
    bits=$(cat /proc/sys/vm/mmap_rnd_bits 2>/dev/null || echo 0)
    [ "$bits" -gt 28 ] || return 0
    setarch --addr-no-randomize true 2>/dev/null ||
        fail "the sanitizers need sysctl vm.mmap_rnd_bits=28, but it is $bits, and setarch may not help"
    test_launcher=(setarch --addr-no-randomize)
}

# ctest's own closing lines, from the output of the step before.
show_totals() {
    grep -E '^[0-9]+% tests passed|^Total Test time' <<<"$step_output"
}

fix_addresses # first, as it may end the check
step 'check: formatting' formatting
step 'check: shell scripts' shell_scripts
step 'check: house rules' scripts/house_rules.sh
build dev
step 'check: clang-tidy' linted_by_clang_tidy
step 'check: cppcheck' linted_by_cppcheck
build release zu_net_dev zu_bench
step 'check: exported symbols' exported_symbols
step 'check: needs libc alone' needs_libc_alone
step 'check: programs built before still fit' same_interface
step 'check: a change of the interface would be noticed' scripts/abi_notices.sh build/dev
step 'check: the program in README.md' readme_program
step 'check: libraries without any package' libraries_alone
step 'check: other projects find and use what was installed' outside_projects
step 'check: all that is installed, elsewhere' scripts/whole_install.sh build/dev
step 'check: valgrind over a login, a stream and a logout' scripts/valgrind_round.sh build/dev
build asan
step 'check: tests under the address and undefined-behaviour sanitizers' tests_under_asan
show_totals
build msan "${msan_targets[@]}"
step 'check: C programs and fuzz inputs under the memory sanitizer' under_msan
show_totals
build tsan
step 'check: tests under the thread sanitizer' tests_under_tsan
show_totals
