#!/usr/bin/env bash
# changelog.sh CHANGELOG.md REVISION MAINTAINER: the project's changes as Debian writes them. Each
# "## VERSION (DATE)" becomes an entry, each item below it a point of that entry.
set -euo pipefail
file=$1 revision=$2 maintainer=$3
date='' # of the entry that is open

end_entry() {
    [ -n "$date" ] || return 0
    printf '\n -- %s  %s\n' "$maintainer" "$(LC_ALL=C date --utc --date "$date 12:00" -R)"
}

# An item may have several lines; Debian's are short.
item=''
end_item() {
    [ -z "$item" ] || printf '%s\n' "$item" | fmt -w 74 | sed -e '1s/^/  * /' -e '2,$s/^/    /'
    item=''
}

while IFS= read -r line; do
    if [[ $line =~ ^'## '([0-9.]+)' ('([0-9-]+)')'$ ]]; then
        end_item
        end_entry
        [ -z "$date" ] || echo
        date=${BASH_REMATCH[2]}
        printf 'zu-net-dev (%s-%s) stable; urgency=medium\n\n' "${BASH_REMATCH[1]}" "$revision"
    elif [[ $line == '- '* ]]; then
        end_item
        item=${line#- }
    elif [[ $line == '  '* ]]; then
        item+=" ${line#  }"
    fi
done <"$file"
end_item
end_entry
[ -n "$date" ]
