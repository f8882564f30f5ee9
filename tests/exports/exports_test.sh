#!/usr/bin/env bash
# The library's dynamic symbols are its four exports and the type information of
# the exceptions that leave it, and nothing else.
set -euo pipefail

exported=$(nm -D --defined-only "$1" | cut -d' ' -f3- | LC_ALL=C sort)
functions=$(grep -vE '^_ZT[IS]' <<<"$exported" || true)
expected='CreateModuleRaw
_ZN3zel13event_routing6detail12CreateModuleEv
_ZN3zel13event_routing6detail23GetModuleLifetimeObjectEv
on_morna_dll_unload'
[[ $functions == "$expected" ]] || { diff <(echo "$expected") <(echo "$functions"); exit 1; }

foreign=$(grep -E '^_ZT[IS]' <<<"$exported" | c++filt |
    grep -vE 'zel::(exceptions::|lifetime::object_|WrongIfcVersion)' || true)
[[ -z $foreign ]] || { echo "unexpected: $foreign"; exit 1; }
grep -q '^_ZTIN3zel10exceptions5errorE$' <<<"$exported"
