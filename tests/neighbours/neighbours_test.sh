#!/usr/bin/env bash
# What a client is told when a neighbouring library is missing, damaged or of
# another version: neighbours_test.sh REGISTER_ONE LIBRARY_FOLDER ODD_LOG ASK_FOR_TASKS
# ODD_TASKS_CORE HIDE_INSTALLED_COPIES
set -euo pipefail

program=$1 libraries=$2 odd_log=$3 ask_for_tasks=$4 odd_tasks_core=$5 hide_installed_copies=$6
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

fresh_copy() {
    rm -rf "$scratch/lib"
    mkdir "$scratch/lib"
    cp -P "$libraries"/lib{event_routing,zel_*}.so* "$scratch/lib"
}

expect() {
    local said
    said=$(LD_AUDIT=$hide_installed_copies LD_LIBRARY_PATH=$scratch/lib "$program" 2>&1) || { echo "exit $?: $said"; exit 1; }
    local line
    for line in "$@"; do
        [[ $said == *"$line"* ]] || { printf 'expected: %s\nsaid:\n%s\n' "$line" "$said"; exit 1; }
    done
}

fresh_copy
expect "0 handlers
0 handlers"

rm "$scratch/lib/libzel_module_lifetime.so"
missing="The library zel_module_lifetime could not be loaded: libzel_module_lifetime.so: cannot open shared object file"
expect "$missing" "
$missing" # to every caller

fresh_copy
rm "$scratch/lib/libzel_serialization.so"
expect "The library zel_serialization could not be loaded: libzel_serialization.so: cannot open shared object file"

fresh_copy
echo damaged >"$scratch/lib/libzel_log.so"
damaged="The library zel_log could not be loaded: $scratch/lib/libzel_log.so: file too short"
expect "$damaged" "
$damaged" # the module registers handlers of its own

fresh_copy
cp "$odd_log" "$scratch/lib/libzel_log.so"
expect "Wrong interface version implemented.
Module: $scratch/lib/libevent_routing.so" "	Interface: class zel::log::ILogModule
	Version: 1
Module: $scratch/lib/libzel_log.so" "	Implementation: zel::log::detail::(anonymous namespace)::wrong_log
	Version: 2"

export NO_PAPER=1
failure="The library zel_log could not be used: The log has no paper."
expect "$failure
$failure"

program=$ask_for_tasks
fresh_copy
expect "fine
fine
fine"

cp "$odd_tasks_core" "$scratch/lib/libzel_tasks_core.so"
export NEWER=1
expect "	Interface: class zel::tasklib::tasks_core_module
	Version: 6
Module: $scratch/lib/libzel_tasks_core.so" "odd_module
	Version: 7"
unset NEWER
expect "fine
Wrong interface version implemented." "class zel::tasklib::task_processor_ifc
	Version: 4" "newer_processor
	Version: 5
Wrong interface version implemented." "class zel::tasklib::task_scheduler_ifc
	Version: 9" "newer_scheduler
	Version: 10
Attempt to unload a module which is still used by another"
