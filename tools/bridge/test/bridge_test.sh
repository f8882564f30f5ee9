#!/usr/bin/env bash
# bridge_test.sh PROGRAM COMPONENTS
#
# Runs the program with components in two processes around a real server.
set -euo pipefail

program=$1
components=$2
document=$(cd "$(dirname "${BASH_SOURCE[0]}")/../../../docs" && pwd)/bridge.md
scratch=$(mktemp -d)
started=()
trap '((${#started[@]} == 0)) || kill -9 "${started[@]}" 2>/dev/null || true; rm -rf "$scratch"' EXIT
cd "$scratch"
failures=0

fail() {
    echo "FAILED: $*" >&2
    failures=$((failures + 1))
}

# check EXIT_CODE OUTPUT ARGUMENTS...: of the output an asterisk stands for anything.
check() {
    local expected_code=$1 expected=$2 code=0 printed
    shift 2
    printed=$(timeout -k 5 60 "$program" "$@" 2>&1 </dev/null) || code=$?
    # shellcheck disable=SC2053 # so it is meant
    [[ $code == "$expected_code" && $printed == $expected ]] || fail "$*: ended with $code and $printed"
}

# wait_for FILE TEXT: until somebody has written it there.
wait_for() {
    local tries
    for ((tries = 0; tries < 600; ++tries)); do
        ! grep -qsF -- "$2" "$1" || return 0
        sleep 0.1
    done
    fail "no '$2' in $1, but: $(cat "$1")"
    return 1
}

awk '/^```json$/ { inside = 1; next } /^```$/ { inside = 0 } inside' "$document" >press.json
documented=$(awk '/^    host "press 4"/ { inside = 1 } inside && !/^    / { exit } inside' "$document")
check 0 "$(sed 's/^    //' <<<"$documented")" --config press.json --check
check 0 "event_routing_bridge [0-9]*" --version
check 1 "event_routing_bridge: *no.so*" --config press.json ./no.so
check 2 "event_routing_bridge: --config FILE is missing; --help shows the usage" "$components"
check 2 "event_routing_bridge: --entry 'e': no LIBRARY follows*" --config=press.json --check --entry e
check 2 "event_routing_bridge: The configuration none.json: it cannot be read: No such file*" \
    --config none.json "$components"
((failures == 0)) || exit 1

# Debian puts it where only root looks for programs.
server=$(PATH=$PATH:/usr/sbin command -v nats-server) ||
    { echo "skipped: nats-server is not installed"; exit 77; }

# It tells the port that it has chosen; then it has to come and go at that one.
"$server" -a 127.0.0.1 -p -1 --ports_file_dir "$scratch" -l server.log &
started+=($!)
wait_for server.log "Server is ready"
port=$(sed -n 's/.*"nats:\/\/127.0.0.1:\([0-9]*\)".*/\1/p' ./*.ports)
kill "${started[0]}"
wait "${started[0]}" || true

# configure NAME MEMBERS
configure() {
    echo "{\"realm\": \"test\", \"host\": \"$1\", \"servers\": [\"nats://127.0.0.1:$port\"], $2}" >"$1.json"
}
configure speaking '"export_events": [{"pattern": "spoken"}], "serve_requests": [{"pattern": "name"}]'
configure listening '"import_events": [{"pattern": "spoken"}], "ask_requests": [{"pattern": "name"}]'

"$program" --config speaking.json "$components" >speaking 2>speaking.log &
speaking=$!
"$program" --config listening.json --entry start_listener "$components" >listening 2>listening.log &
listening=$!
started=("$speaking" "$listening")
# They were there before the server is.
wait_for speaking.log "there is no connection to a server yet"
[[ ! -s speaking ]] || fail "ready without a server: $(cat speaking)"
"$server" -a 127.0.0.1 -p "$port" -l server.log &
started+=($!)
for output in speaking listening; do
    wait_for "$output" ready
done
wait_for listening.log "speaking: hello, and the speaker is Ada"

# Who claims what has an owner is told whose it is, and ends.
code=0
timeout -k 5 60 "$program" --config speaking.json "$components" >second 2>second.log || code=$?
((code == 1)) || fail "a second owner ended with $code"
grep -q "'name'" second.log || fail "a second owner was told: $(cat second.log)"

# A shell has its background programs ignore Ctrl-C, so they are ended as the system does it.
kill "$speaking" "$listening"
for process in "$speaking" "$listening"; do
    code=0
    wait "$process" || code=$?
    ((code == 0)) || fail "a program that was asked to end ended with $code"
done
grep -q "the speaker has ended" speaking.log || fail "the component was not ended"
[[ $(cat speaking listening) == $'ready\nready' ]] || fail "other output: $(cat speaking listening)"
! grep -h "stays mapped" ./*.log || fail "a component was not unloaded"
kill "${started[2]}"
wait "${started[2]}" || true
started=()
((failures == 0))
