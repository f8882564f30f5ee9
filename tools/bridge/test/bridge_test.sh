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
    printed=$("$program" "$@" 2>&1 </dev/null) || code=$?
    # shellcheck disable=SC2053 # so it is meant
    [[ $code == "$expected_code" && $printed == $expected ]] || fail "$*: ended with $code and $printed"
}

# start PROGRAM ARGUMENTS...: beside this script, and ends with it even if it is killed.
start() {
    setpriv --pdeathsig KILL "$@" &
    started+=($!)
}

# wait_for PROCESS FILE TEXT: until it has written that there.
wait_for() {
    echo "waiting for '$3' in $2"
    until grep -qsF -- "$3" "$2"; do
        kill -0 "$1" 2>/dev/null || { fail "no '$3' in $2, but: $(cat "$2")"; return 1; }
        sleep 0.1
    done
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

# A free one below those that the system gives to outgoing connections.
until port=$((10000 + RANDOM % 20000)) && ! (: <"/dev/tcp/127.0.0.1/$port") 2>/dev/null; do :; done

# configure NAME MEMBERS
configure() {
    echo "{\"realm\": \"test\", \"host\": \"$1\", \"servers\": [\"nats://127.0.0.1:$port\"], $2}" >"$1.json"
}
configure speaking '"export_events": [{"pattern": "spoken"}], "serve_requests": [{"pattern": "name"}]'
configure listening '"import_events": [{"pattern": "spoken"}], "ask_requests": [{"pattern": "name"}]'

start "$program" --config speaking.json "$components" >speaking 2>speaking.log
speaking=$!
start "$program" --config listening.json --entry start_listener "$components" >listening 2>listening.log
listening=$!
# They were there before the server is.
wait_for "$speaking" speaking.log "there is no connection to a server yet"
[[ ! -s speaking ]] || fail "ready without a server: $(cat speaking)"
start "$server" -a 127.0.0.1 -p "$port" -l server.log
wait_for "$speaking" speaking ready
wait_for "$listening" listening ready
wait_for "$listening" listening.log "speaking: hello, and the speaker is Ada"

# Who claims what has an owner is told whose it is, and ends.
code=0
"$program" --config speaking.json "$components" >second 2>second.log || code=$?
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
