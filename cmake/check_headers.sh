#!/usr/bin/env bash
# Compiles every header of the repository by itself, so that none relies on what
# its users happen to include before it. Names each header that fails.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

mapfile -d '' headers < <(git ls-files -z --cached --others --exclude-standard -- '*.h')
wait $! # fails where git does

# A header is named by its path in the repository or below a folder "include".
flags=(-I.)
for folder in $(pkg-config --cflags-only-I jsoncpp); do
    flags+=(-isystem "${folder#-I}")
done
while read -r folder; do
    flags+=("-I$folder")
done < <(printf '%s\n' "${headers[@]}" | sed -n 's|^\(.*/include\)/.*|\1|p' | sort -u)

check_one() {
    local header=$1 output
    shift
    [[ -e $header ]] || return 0 # deleted, but not yet from the index
    # What its own source reads first is compiled alone by every build of the tests.
    [[ $header == fuzz/* ||
        $(grep -sm1 '^#include' "${header%.h}.cpp") != "#include \"$header\"" ]] || return 0
    if ! output=$(g++ -std=c++20 -Wall -Wextra -Wpedantic -Werror -fsyntax-only "$@" \
        -x c++ - <<<"#include \"$PWD/$header\"" 2>&1); then
        printf '%s\n%s does not compile alone\n' "$output" "$header"
        return 1
    fi
}
export -f check_one

printf '%s\0' "${headers[@]}" |
    xargs -0 -P "$(nproc)" -I '{}' bash -c 'check_one "$@"' check '{}' "${flags[@]}"
