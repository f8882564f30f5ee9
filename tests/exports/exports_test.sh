#!/usr/bin/env bash
# The library's dynamic symbols are its four exports and the type information of
# the exceptions that leave it, and nothing else.
set -euo pipefail

exported=$(nm -D --defined-only "$1" | cut -d' ' -f3- | LC_ALL=C sort)
expected='CreateModuleRaw
_ZN3zel13event_routing6detail12CreateModuleEv
_ZN3zel13event_routing6detail23GetModuleLifetimeObjectEv
_ZTIN3zel10exceptions16special_handlingE
_ZTIN3zel10exceptions5errorE
_ZTIN3zel10exceptions5fatalE
_ZTIN3zel10exceptions6detail4baseE
_ZTIN3zel13serialization16conversion_errorE
_ZTIN3zel15WrongIfcVersionE
_ZTIN3zel8lifetime21object_creation_errorE
_ZTIN3zel8lifetime24object_already_destroyedE
_ZTSN3zel10exceptions16special_handlingE
_ZTSN3zel10exceptions5errorE
_ZTSN3zel10exceptions5fatalE
_ZTSN3zel10exceptions6detail4baseE
_ZTSN3zel13serialization16conversion_errorE
_ZTSN3zel15WrongIfcVersionE
_ZTSN3zel8lifetime21object_creation_errorE
_ZTSN3zel8lifetime24object_already_destroyedE
on_morna_dll_unload'
diff <(echo "$expected") <(echo "$exported")
