#!/usr/bin/env bash
# windows_test.sh PROGRAM: the words of some lines, counted in the order of the lines.
set -euo pipefail

lines() {
    printf '%s\n' 'one' '' 'two words'
    for ((i = 0; i < 2000; ++i)); do echo "line $i has five words"; done
    printf 'no newline'
}

expected() {
    printf '%s\n' '1 words: one' '0 words: ' '2 words: two words'
    for ((i = 0; i < 2000; ++i)); do echo "5 words: line $i has five words"; done
    echo '2 words: no newline'
}

diff <(expected) <(lines | "$1")
diff /dev/null <("$1" </dev/null)
