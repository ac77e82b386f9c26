#!/usr/bin/env bash
# docs.sh: the reference of the public headers in build/docs/html. Fails on any warning, and when
# something that the library exports is not described. Called by `./run docs`.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
. scripts/lib.sh

reference() {
    rm -rf build/docs
    mkdir -p build/docs
    ZU_VERSION=$(project_version) doxygen packaging/doxygen/Doxyfile
}

# What is exported and stands in a public header has a description, and each of its arguments too.
all_is_described() {
    perl -0777 -ne '
        while (m{<memberdef kind="(?:function|variable)".*?</memberdef>}gs) {
            my $member = $&;
            my ($name) = $member =~ m{<name>(\w+)</name>};
            my ($brief) = $member =~ m{<briefdescription>\s*(.*?)\s*</briefdescription>}s;
            my $arguments = () = $member =~ m{<declname>}g;
            my ($list) = $member =~ m{<parameterlist kind="param">(.*?)</parameterlist>}s;
            my $described = () = ($list // "") =~ m{<parametername>}g;
            print "$name\n" if $brief ne "" && $arguments == $described;
        }' build/docs/xml/*.xml | LC_ALL=C sort -u >build/docs/described
    LC_ALL=C sort -u scripts/exports.txt | while read -r name; do
        ! grep -qE "^ZU_NET_DEV_EXPORT .*\b$name\b" source/inc/*.h || printf '%s\n' "$name"
    done >build/docs/exported
    [ -s build/docs/exported ]
    LC_ALL=C comm -13 build/docs/described build/docs/exported >build/docs/missing
    [ ! -s build/docs/missing ] || {
        echo 'not described, or with an argument that is not:'
        cat build/docs/missing
        return 1
    }
    wc -l <build/docs/exported
}

step 'docs: reference' reference
step 'docs: all that is exported is described' all_is_described
echo 'docs: build/docs/html/index.html'
