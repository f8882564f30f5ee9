#!/usr/bin/env bash
# inspect_test.sh PROGRAM COMPONENT
#
# Runs the program on a library of components made for the purpose.
set -euo pipefail

program=$1
component=$2
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cd "$scratch"
failures=0

fail() {
    echo "FAILED: $*" >&2
    failures=$((failures + 1))
}

# check NAME EXIT_CODE ARGUMENTS...: compares both streams of the program with stdin.
check() {
    local name=$1 expected_code=$2 code=0
    shift 2
    cat >expected
    timeout -k 5 60 "$program" "$@" >printed 2>&1 </dev/null || code=$?
    ((code == expected_code)) || fail "$name: ended with $code instead of $expected_code"
    diff -u expected printed >&2 || fail "$name: other output"
}

# refused EXIT_CODE MESSAGE ARGUMENTS...
refused() { check "$2" "$1" "${@:3}" <<<"event_routing_inspect: $2"; }

# asked FILTER ARGUMENTS...: whether jq finds the program's documents as they should be.
asked() {
    local filter=$1
    shift
    "$program" "$@" >printed || fail "$*: ended with $?"
    jq -se "$filter" printed >/dev/null || fail "$*: not $filter but $(cat printed)"
}

check "list" 0 list "$component" <<'TEXT'
event
├── *
│   └── [journal]
└── document
    ├── *
    │   └── [title "bar" \\\x1b[31m\x0a]
    ├── forward
    │   └── [forwards]
    └── saved
        └── [indexer]
event, channel 'ui'
└── window
    └── moved
        └── [repaint]
request
├── fail
│   ├── answer
│   │   └── [answers with an error]
│   └── throw
│       └── [throws]
├── note
│   └── double
│       └── [doubles]
├── parameters
│   └── [reads parameters]
└── spelling
    └── check
        └── [dictionary]
snowball
└── menu
    └── build
        ├── [open]
        └── [print]
TEXT
asked '.[0] | map(.type) == ["event", "event", "request", "snowball"] and .[1].channelId == "ui"
    and .[0].subnodes[1].subnodes[0] ==
        {"name": "*", "handlers": ["title \"bar\" \\\u001b[31m\n"], "subnodes": []}
    and .[3].subnodes[0].subnodes[0].handlers == ["open", "print"]' list --format json "$component"

# A program in place of Graphviz, so that what it is given is seen.
mkdir bin no_bin
printf '#!/bin/sh\necho "drawn $*"\ncat\n[ ! -e fails ]\n' >bin/dot && chmod +x bin/dot
"$program" list --format dot "$component" >graph
grep -qF '[label="title \"bar\" \\\\\\x1b[31m\\x0a", shape=note' graph || fail "dot: no escaped label"
! command -v dot >/dev/null || dot -Tsvg graph | grep -q '</svg>' || fail "dot refuses the graph"
{ echo "drawn -Tsvg"; cat graph; } >expected
PATH=$scratch/bin:$PATH "$program" list --format svg "$component" | diff expected - ||
    fail "svg: not what dot has printed"
touch fails
PATH=$scratch/bin:$PATH refused 1 "The program 'dot' could not draw the graph and ended with 1." \
    list --format svg "$component"
PATH=$scratch/no_bin "$program" list --format svg "$component" >printed 2>&1 && fail "svg without dot"
[[ $(<printed) == *"program 'dot' of Graphviz, which is not installed"* ]] || fail "no dot: other text"

check "reach by several paths" 0 reach --type event 'a;document.saved' "$component" <<'TEXT'
event
   1. level 0  *  [journal]
   2. level 2  document.saved  [indexer]  as document.saved
   3. level 1  document.*  [title "bar" \\\x1b[31m\x0a]  as document.saved
event, channel 'ui'
    reaches no handler
TEXT
asked '.[0] | length == 1 and .[0].channelId == "ui" and .[0].handlers ==
    [{"level": 2, "path": "window.moved", "description": "repaint", "routed": "window.moved"}]' \
    reach --channel ui --format json window.moved "$component"
asked '.[0] | length == 1 and .[0].handlers[0].description == "dictionary" and
    (.[0].caution | contains("priorities"))' reach --type=request --format=json spelling.check "$component"

asked '.[0]["zel.data"] == [true, []]' send request spelling.check --payload '["right"]' "$component"
double='{"zel.data_type": "class std::tuple<struct note>", "zel.data": [{"text": "a", "pages": 2}]}'
asked '.[0]["zel.data"][0] == {"text": "aa", "pages": 4}' \
    send request --payload "$double" note.double "$component"
asked '.[0]["zel.data"] == "-3 kg = 1 with data"' send request --number count=-3 --text 'unit=kg = 1' \
    --payload null parameters "$component"
asked '.[0]["zel.data"] == ["open", "print"]' send snowball menu.build --payload '[]' "$component"
# What a handler broadcasts on the way is no part of the answer.
asked '.[0].handlers | map(.level) == [2, 1, 0] and .[0].description == "forwards"' \
    send event document.forward "$component"
asked '.[0] == {"handlers": [{"level": 2, "description": "repaint"}]}' \
    send event --channel ui window.moved "$component"
asked '.[0].handlers == []' send event --channel ui window.closed "$component"

check "an answer that is an error" 1 send request fail.answer "$component" <<'TEXT'
null
event_routing_inspect: answered with an error: {"zel.data":{"pages":0,"text":"out of paper"},"zel.data_type":"struct note"}
TEXT
check "nobody answers, and that is no exception" 1 send request nobody \
    --number supress_not_processed_exception=1 "$component" <<'TEXT'
null
event_routing_inspect: nobody has processed the request
TEXT
refused 1 "no ink" send request fail.throw "$component"
refused 1 "Request 'nobody' was not processed. Routing parameters: " send request nobody "$component"
refused 1 "There is no channel 'x'; there are 'ui'." send event a --channel x "$component"
refused 1 "The library ./none.so could not be loaded: ./none.so: cannot open shared object file:\
 No such file or directory" list none.so
for entry in nothing no_function; do
    refused 1 "The library $component does not export $entry." \
        list --entry $entry "$component"
done
refused 1 "The component $component could not be started: no ink" \
    list "$component" --entry=start_failing "$component"
refused 1 "The component $component could not be started: it gave the host nothing to hold" \
    list "$component" --entry=start_nothing "$component"

# no_note PLACE TYPE DOCUMENT: of a document that does not fit the place is told.
no_note() {
    local data="{\"zel.data_type\": \"$2\", \"zel.data\": $3}"
    refused 1 "$1: zel::serialization::FromJson: String value expected." \
        send request note.double --payload "$data" "$component"
}
no_note payload.text "struct note" '{"text": 1}'
no_note payload[0].text "class std::tuple<struct note>" '[{"text": 1}]'

# What components print is no part of what programs read.
"$program" send request print --payload '[]' --entry start_printing "$component" >printed 2>spoken ||
    fail "a component that prints: ended with $?"
jq -e '.["zel.data"][0] == "answer"' printed >/dev/null || fail "printed: $(<printed)"
[[ $(<spoken) == $'from its start\nfrom a handler\nfrom a stream, and no end of a linefrom its end' ]] ||
    fail "not all that the component printed went to standard error: $(<spoken)"

# crashes SIGNAL ARGUMENTS...: it is told of in which library, and the process ends by it.
# Libraries of the system, or of a sanitizer, may be further inside.
crashes() {
    local signal=$1 code=0
    shift
    { "$program" "$@" >printed 2>spoken; } 2>/dev/null || code=$?
    ((code != 0)) || fail "$*: a crash is no failure"
    grep -qE "^event_routing_inspect: crashed \($signal\) in ([^,]*, called by )*$component" \
        spoken || fail "$*: not named: $(<spoken)"
}
ulimit -c 0
crashes Aborted list --entry start_aborting "$component"
crashes 'Segmentation fault' send request crash.fault --entry start_crashing "$component"
crashes Aborted send request crash.thread --entry start_crashing "$component"

refused 2 "--payload: no component knows the data type 'struct x'" \
    send event a --payload '{"zel.data_type": "struct x", "zel.data": 1}' "$component"
usage="; --help shows the usage"
refused 2 "COMMAND is missing$usage"
refused 2 "unknown command 'show\\x0a'$usage" $'show\n'
printf -v long '%199sééé' ''
refused 2 "unknown command '${long:0:199}...'$usage" "$long"
refused 2 "LIBRARY is missing$usage" list
refused 2 "PATH is missing$usage" send event
refused 2 "TYPE is event, request or snowball, and not 'mail'$usage" send mail a "$component"
refused 2 "unknown option '--type'$usage" list --type event "$component"
refused 2 "there is no format 'svg'$usage" reach a --format svg "$component"
refused 2 "--entry needs a value$usage" list "$component" --entry
refused 2 "--number a takes a number, and not '1.5'$usage" send event a --number a=1.5 "$component"
refused 2 "--text takes NAME=VALUE, and not '=x'$usage" send event a --text =x "$component"
refused 2 "--seconds takes 0.001 to 1000000000 seconds, and not '-1'$usage" \
    watch --seconds -1 "$component"
refused 2 "--channel is for events$usage" send request a --channel ui "$component"
"$program" send event a --payload '{' "$component" >printed 2>&1 && fail "half a payload was sent"
grep -q "^event_routing_inspect: --payload '{': .*JSON" printed || fail "half a payload: other text"
for command in "" list reach send watch; do
    "$program" $command --help | grep -q "^usage: event_routing_inspect ${command:-COMMAND} " ||
        fail "$command --help: no usage or not exit code 0"
done
code=0 && "$program" list "$component" >/dev/full 2>printed || code=$?
((code == 1)) && grep -q 'No space left on device' printed || fail "a full disk: $code, $(<printed)"

# interrupted FORMAT TEST...: a watch that is interrupted once one of its reports passes the test.
# The component broadcasts, also on a channel that it makes after the watch has begun.
interrupted() {
    local format=$1 report watcher code=0
    shift
    "$program" watch --interval 0.1 --format "$format" --entry start_ticking "$component" >reports &
    watcher=$!
    exec 3<reports
    while read -r report <&3; do
        "$@" <<<"$report" >/dev/null && break
    done
    kill -TERM "$watcher"
    cat <&3 >printed
    wait "$watcher" || code=$?
    ((code == 0)) || fail "an interrupted watch ended with $code"
}
mkfifo reports
interrupted json jq -e '(.services | map({(.service): .}) | add |
        .event.messages > 0 and .["event, channel '\''late'\''"].messages > 0 and
        .request.messages > 0 and .request.messages == .request.failures and
        .snowball.messages == 0) and
    (.slowest[0] | .handler == "throws" and .level == 2 and .calls > 0 and
        .longest_seconds >= .mean_seconds and .mean_seconds > 0) and
    (.busiest | map(.path) | sort) == ["clock.tick", "clock.tock", "fail.throw"]'
interrupted text grep -q failed
grep -q '^Slowest handlers' printed || fail "an interrupted watch gave no summary"
asked 'last.seconds >= 0.5' watch --seconds 0.5 --interval 0.25 --format json "$component"
exit $((failures > 0))
