#!/usr/bin/env bash
# directory_index_test.sh PROGRAM [HIDE_INSTALLED_COPIES]
#
# Runs the program on small trees made for the purpose and compares what it prints. Without
# the library that hides copies installed in the system, no library can be missing there.
# shellcheck disable=SC2016 # what stands in '' is for the shells started with it
set -euo pipefail

program=$1 hide_installed_copies=${2:-}
scratch=$(mktemp -d)
trap 'chmod -R u+rwx "$scratch"; rm -rf "$scratch"' EXIT
chmod 755 "$scratch" # another user walks in it below
cd "$scratch"
failures=0

fail() {
    echo "FAILED: $*" >&2
    failures=$((failures + 1))
}

# check NAME EXIT_CODE COMMAND...: compares both streams with the text on stdin. A
# program that hangs (opening a fifo, following a loop) is ended.
check() {
    local name=$1 expected_code=$2 code=0
    shift 2
    cat >expected
    (cd tree && timeout -k 5 30 "$@") >printed 2>&1 </dev/null || code=$?
    ((code == expected_code)) || fail "$name: ended with $code instead of $expected_code"
    diff -u expected printed >&2 || fail "$name: other output"
}

# refused MESSAGE ARGUMENTS...
refused() { check "$1" 2 "$program" "${@:2}" <<<"directory_index: $1"; }

# same_with_ui ARGUMENTS...
same_with_ui() {
    local code=0
    (cd tree && "$program" "$@") >plain 2>&1 || code=$?
    check "--ui $*" "$code" "$program" --ui "$@" <plain
}

mkdir -p tree/sub/deep
(
    cd tree
    printf 'a\nb\nc\n' >one.txt
    printf 'no newline' >'sub/with space.TXT'
    printf '#\n\n' >$'sub/line\nbreak.md'
    : >empty.c
    printf 12345 | tee .bashrc >README
    printf 1234 | tee 'sub/star.*' >'sub/semi.a;b'
    truncate -s 1023 sub/ends.with.
    truncate -s 1048575 $'sub/deep/\e[31m\\\xff\xc2\x9b\xc3\xa9.GZ'
    truncate -s 5G sub/deep/a.bin
    truncate -s 1536 sub/deep/c.bin sub/deep/b.bin
    ln -s .. sub/loop
    ln -s ../one.txt sub/link.txt
    ln -s nowhere dangling.txt
    mkfifo pipe.txt
)
check "mixed tree" 0 "$program" . <<'TEXT'
       Files         Size         Lines  Extension
           3      5.0 GiB             -  bin
           1      1.0 MiB             -  gz
           3      1.0 KiB             -  (none)
           2         16 B             4  txt
           1          4 B             -  *
           1          4 B             -  a_b
           1          3 B             2  md
           1          0 B             0  c

Largest files
     5.0 GiB  ./sub/deep/a.bin
     1.0 MiB  ./sub/deep/\x1b[31m\\\xff\xc2\x9bé.GZ
     1.5 KiB  ./sub/deep/b.bin
     1.5 KiB  ./sub/deep/c.bin
      1023 B  ./sub/ends.with.
        10 B  ./sub/with space.TXT
         6 B  ./one.txt
         5 B  ./.bashrc
         5 B  ./README
         4 B  ./sub/semi.a;b

Total: 13 files, 5.0 GiB (5,369,761,827 bytes)

Text: 6 lines in 4 files

Words: 2 distinct, 2 in all, in 7 files
           1  newline
           1  no
TEXT
same_with_ui .

rm -r tree && mkdir tree tree/empty && ln -s tree linked
check "empty folder through a link" 0 "$program" ../linked <<<'Total: 0 files, 0 B (0 bytes)'

# The first files are left out, the others are not.
(
    cd tree && mkdir -p build .git .cache sub/.cache/deep sub/{build,doc} doc/sub a/b
    for file in build/x .git/config .cache/x sub/.cache/deep/x {a,sub/}.swp doc/a.pdf abc axbxbxc \
        sub/a.o sub/build/x doc/.cache swp a.swp.txt a.pdf doc/sub/a.pdf sub/doc/a.pdf abcd a/b/c ab.o
    do echo word >"$file"; done
    printf '%s\n' '# build' '' /build/ $'*.swp  \r' .cache/ 'doc/*.pdf' 'a*b*c' '?.o' \
        '!kept.swp' '[ab]' '**/x' '\#' >.gitignore
)
check "what .gitignore names" 0 bash -c '"$1" --gitignore --ask word -- . | grep -o " \./.*" | LC_ALL=C sort' \
    bash "$program" <<'TEXT'
directory_index: passes over '!kept.swp' in .gitignore; --help says what it takes
directory_index: passes over '[ab]' in .gitignore; --help says what it takes
directory_index: passes over '**/x' in .gitignore; --help says what it takes
directory_index: passes over '\\#' in .gitignore; --help says what it takes
 ./a.pdf
 ./a.swp.txt
 ./a/b/c
 ./ab.o
 ./abcd
 ./doc/.cache
 ./doc/sub/a.pdf
 ./sub/build/x
 ./sub/doc/a.pdf
 ./swp
TEXT
rm -r tree && mkdir tree

for extension in {a..w} txt; do echo x >"tree/f.$extension"; done
check "many extensions" 0 bash -c '"$1" . | sed -n "21,22p"' bash "$program" <<'TEXT'
           1          2 B             -  t
           4          8 B             1  (others)
TEXT
for option in --ui --handlers --; do
    check "full disk, $option" 1 bash -c '"$1" "$2" . >/dev/full' bash "$program" "$option" \
        <<<'directory_index: The report cannot be written: No space left on device'
done

handlers=$("$program" --handlers) # of all three services, of host and components
[[ $handlers == '[{"channelId":"","handlers":[{"description":"totals","path":"file.*"},'*\
'{"description":"pending work","path":"work.pending"}],"type":{"name":"event","value":1}},'*\
'{"description":"word index","path":"index.lookup"}'*'"type":{"name":"request","value":2}},'*\
'"path":"report.build"}],"type":{"name":"snowball","value":3}}]' ]] || fail "--handlers: $handlers"
same_with_ui --handlers

refused "DIR is missing; --help shows the usage"
refused "unknown option '--size'; --help shows the usage" --size .
refused "one DIR at a time, and 'b' is a second; --help shows the usage" . b
refused "'no\\nwhere': No such file or directory" $'no\nwhere'
refused "'-x': No such file or directory" -- -x
refused "'f.a': Not a directory" f.a
"$program" --help | grep -q '^usage: directory_index ' || fail "--help: no usage or not exit code 0"

refused "--trace needs a FILE; --help shows the usage" . --trace
refused "'/nowhere/trace': No such file or directory" --trace /nowhere/trace .
refused "'/dev/full': No space left on device" --trace /dev/full .

refused "--ask needs a WORD; --help shows the usage" --ask -- .

rm -r tree && mkdir tree && echo 'Word of the other word' >tree/a.txt && echo word >tree/b.txt
check "questions" 1 "$program" --ask word nothing WORD the --trace ../trace -- . <<'TEXT'
word: 3 times in 2 files
           2  ./a.txt
           1  ./b.txt
directory_index: 'nothing': no text file has this word
WORD: 3 times in 2 files
           2  ./a.txt
           1  ./b.txt
directory_index: 'the': stands nearly everywhere and is not looked up
TEXT
same_with_ui --ask word nothing WORD the -- .
[[ $(grep -c '"answered_by":"word index"' trace) == 2 ]] || fail "requests are not in the trace"
# Spans end where they have begun, and asynchronous parts are tied to their broadcasts.
jq -e '.traceEvents | [.[] | select(.ph == "b" or .ph == "e")] as $ends
    | [.[] | select(.ph == "M").tid] as $named
    | [.[] | select(.ph == "X" and .cat == "asynchronous").args.message | tostring] as $later
    | ($later | length > 2) and $later - [$ends[].id] == [] and [.[].tid] - $named == []
    and all(range(0; $ends | length; 2); $ends[.] as $b | $ends[. + 1] as $e |
        $b.ph == "b" and $e.ph == "e" and $b.id == $e.id and $b.cat == $e.cat and $b.ts <= $e.ts)
    and all(.[] | select(.ph == "X" and (.cat | endswith("synchronous"))); .args.level > 0)' \
    trace >/dev/null || fail "the events of the trace do not fit together: $(<trace)"
check "answers of the cache" 0 "$program" . --ask other other --trace ../trace <<'TEXT'
other: 1 time in 1 file
           1  ./a.txt
other: 1 time in 1 file
           1  ./a.txt
TEXT
[[ $(grep -c '"answered_by":"word index"' trace) == 1 ]] || fail "the index was asked again"
check "unknown question" 1 "$program" . --ask index.size \
    <<<"directory_index: 'index.size': nobody answers this question; there is index.lookup"

mkdir bin && cp "$program" bin && cp -R "$(dirname "$program")/../lib" lib
rm -r tree && mkdir tree && echo word >tree/a.txt
rm lib/libdirectory_index_largest_files.so lib/libdirectory_index_extension_table.so
echo broken >lib/libdirectory_index_totals.so
cp lib/libzel_perfstats.so lib/libdirectory_index_word_index.so
check "component libraries at fault" 1 bash -c '"$1" . 2>&1 | sed "s/ [^ ]*word_index.so/ X/"
    exit "${PIPESTATUS[0]}"' bash ../bin/directory_index < <(
    for component in extension_table largest_files; do
        echo "directory_index: goes on without $component: The library directory_index_$component\
 could not be loaded: libdirectory_index_$component.so: cannot open shared object file: No such file or directory"
    done
    echo "directory_index: goes on without totals: The library directory_index_totals could not be\
 loaded: $scratch/bin/../lib/libdirectory_index_totals.so: file too short"
    echo "directory_index: goes on without word_index: The library X does not export\
 start_event_routing_component."
    printf 'Text: 1 line in 1 file\n'
)
rm lib/libzel_log.so
if [[ -z $hide_installed_copies && $(ldconfig -p) == *libzel_log.so* ]]; then
    echo "skipped a missing neighbour: the system has it" >&2
else
    check "missing neighbour" 1 env LD_AUDIT="$hide_installed_copies" ../bin/directory_index . \
        <<<"directory_index: The library zel_log could not be loaded: libzel_log.so: cannot open\
 shared object file: No such file or directory"
fi

# --- Following a folder ------------------------------------------------------

# start ARGUMENTS...: what it prints is read from descriptor $printed.
start() {
    exec {printed}< <(exec env --default-signal=INT "$program" "$@" 2>&1)
    pid=$!
    seen=
}

# await PATTERN: reads on to a line like that; what it passes is added to $seen.
await() {
    local line
    while IFS= read -r -t 60 -u "$printed" line; do
        seen+=$line$'\n'
        # shellcheck disable=SC2053 # a pattern
        [[ $line == $1 ]] && return
    done
    fail "no line like '$1'"
}

# ends_with EXIT_CODE
ends_with() {
    local code=0
    wait "$pid" || code=$?
    ((code == $1)) || fail "ended with $code instead of $1"
    seen+=$(cat <&"$printed")
    exec {printed}<&-
}

start --watch --log --trace trace tree
await 'Words: 1 distinct, 1 in all, in 1 file'
echo 'another word' >>tree/a.txt
await 'Changed  tree/a.txt'
await 'Words: 2 distinct, 3 in all, in 1 file'
mkdir -p tree/new/deep tree/newer && echo third >tree/new/deep/b.txt
await 'Words: 3 distinct, 4 in all, in 2 files'
deadline=$((SECONDS + 60)) # what is written just now may be there in part
until jq . trace >/dev/null 2>&1; do
    ((SECONDS < deadline)) || { fail "the trace is no JSON while the program runs"; break; }
    sleep 0.02
done
mv tree/new tree/moved
await '* tree/moved/deep/b.txt'
echo 'third fourth' >tree/moved/deep/b.txt
await 'Changed  tree/moved/deep/b.txt'
await 'Words: 4 distinct, 5 in all, in 2 files'
: >tree/newer/c.txt # which only begins like what was moved
await 'New      tree/newer/c.txt'
chmod a-w tree/newer/c.txt
await 'Changed  tree/newer/c.txt'
rm -r tree/newer
await 'Gone     tree/newer*'
rm -r tree/moved
await 'Gone     tree/moved*'
await 'Words: 2 distinct, 3 in all, in 1 file'
kill -STOP "$pid" # meanwhile the system keeps a limited number of changes for it
most=$(cat /proc/sys/fs/inotify/max_queued_events)
for ((i = 0; i < most; ++i)); do : >"tree/many$i"; done
find tree -name 'many*' -delete
echo last >tree/z.txt
kill -CONT "$pid"
await 'Total: 2 files*'
await 'Words: 3 distinct, 4 in all, in 2 files'
kill -INT "$pid"
await 'Words: 3 distinct, 4 in all, in 2 files'
await '*Event routing statistic*'
ends_with 130
for traced in 'word index' watch.changed walk.ended report.build; do
    grep -q "\"$traced\"" trace || fail "'$traced' is not in the trace"
done
[[ $(tail -n 1 trace) == ']}' ]] || fail "the trace has no end"

mkdir tree/build && echo '*.swp' >tree/.gitignore && echo build >>tree/.gitignore
start --watch --gitignore tree
await 'Words: *'
touch tree/a.swp tree/build/a && mv tree/build tree/moved && touch tree/new
await 'New      tree/new'
[[ $seen != *[ab].swp* && $seen != *tree/build* ]] || fail "ignored files are news: $seen"
rm -r tree
await "directory_index: 'tree': No such file or directory"
ends_with 2

reports=()
for options in --watch --watch\ --ui; do
    rm -rf tree && mkdir tree && echo word >tree/a.txt && echo other >new.txt
    # shellcheck disable=SC2086 # several words
    start $options tree
    await 'Words: 1 distinct, 1 in all, in 1 file'
    mv new.txt tree
    await 'New      tree/new.txt'
    await 'Words: 2 distinct, 2 in all, in 2 files'
    kill -INT "$pid"
    ends_with 130
    reports+=("$seen")
done
[[ ${reports[0]} == *New*Total*Total* ]] || fail "the last report is missing"
[[ ${reports[1]} == "${reports[0]}" ]] || fail "--watch --ui: other output: ${reports[1]}"

rm -r tree && mkdir tree
"$program" --watch tree >tree/own_output & # whose changes are no news, or there would be no end
pid=$!
# await_in_file PATTERN
await_in_file() {
    local deadline=$((SECONDS + 60))
    until grep -q "$1" tree/own_output; do
        ((SECONDS < deadline)) || { fail "no '$1' in the file"; return; }
        sleep 0.02
    done
}
await_in_file '^Total: '
touch tree/new
await_in_file '^New .* tree/new'
kill -TERM "$pid"
code=0; wait "$pid" || code=$?
((code == 143)) || fail "SIGTERM: ended with $code"
! grep '^Changed' tree/own_output || fail "its own output is news"

# Permissions mean nothing to root.
as_other=(); ((EUID != 0)) || as_other=(setpriv --reuid=65534 --regid=65534 --clear-groups)
rm -r tree && mkdir -p tree/{closed,no_entry} && touch tree/{secret.txt,no_entry/file,open.c}
chmod 000 tree/secret.txt tree/closed && chmod 444 tree/no_entry
if ! "${as_other[@]}" test -x "$program"; then
    echo "skipped unreadable files: another user cannot run $program" >&2
else
    check "unreadable DIR" 2 "${as_other[@]}" "$program" closed \
        <<<"directory_index: 'closed': Permission denied"
    check "unreadable files" 0 "${as_other[@]}" "$program" . < <(
        printf '%12s%13s%14s  %s\n' Files Size Lines Extension 1 '0 B' 0 c
        printf '\nLargest files\n%12s  ./open.c\n\nTotal: 1 file, 0 B (0 bytes), 3 unreadable\n' '0 B'
        printf '\nText: 0 lines in 1 file\n\nUnreadable\n'
        printf '  ./%s: Permission denied\n' closed no_entry/file secret.txt
    )
fi
exit $((failures > 0))
