#!/usr/bin/env bash
# install_test.sh BUILD_FOLDER COMPILER
#
# Installs the build, moves the installed tree away, and builds and runs the guide's
# program against it, once through find_package and once through pkg-config, and a host with
# a component, which the installed tool loads, too. Also compiles every installed header: one
# that includes a header left behind in the checkout would break only at the user's.
set -euo pipefail

build=$1
compiler=$2
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

fail() {
    echo "install_test: $*" >&2
    exit 1
}

# Moved, so that a path into the first place shows as a failure.
cmake --install "$build" --prefix "$scratch/first_place" >"$scratch/install.log" ||
    { cat "$scratch/install.log" >&2; fail "cmake --install failed"; }
prefix=$scratch/moved
mv "$scratch/first_place" "$prefix"

pc_file=$(find "$prefix" -name event_routing.pc)
libraries=$(dirname "$(dirname "$pc_file")")
export PKG_CONFIG_PATH=$libraries/pkgconfig
unset LD_LIBRARY_PATH
# It quotes for a shell.
eval "cflags=($(pkg-config --cflags event_routing))"
eval "libs=($(pkg-config --libs event_routing))"

(cd "$prefix"/include/event_routing-* && find . -name '*.h' -printf '#include <%P>\n' | sort) \
    >"$scratch/all_headers.cpp"
[[ -s $scratch/all_headers.cpp ]] || fail "no headers were installed"
"$compiler" "${cflags[@]}" -fsyntax-only "$scratch/all_headers.cpp" ||
    fail "an installed header does not compile"

cmake -S "$here" -B "$scratch/cmake_build" -G Ninja -DCMAKE_CXX_COMPILER="$compiler" \
    -DCMAKE_PREFIX_PATH="$prefix" >"$scratch/configure.log" 2>&1 ||
    { cat "$scratch/configure.log" >&2; fail "find_package failed"; }
cmake --build "$scratch/cmake_build"
"$scratch/cmake_build/guide_example" || fail "the program built through find_package ended with $?"
answer=$("$scratch/cmake_build/host_example") || fail "the host ended with $?"
[[ $answer == $'Hello you\nHello again' ]] || fail "the host printed: $answer"

answer=$("$prefix"/bin/event_routing_inspect send request greet --payload '["you"]' \
    "$scratch/cmake_build/libgreeter.so") || fail "the installed tool ended with $?"
[[ $answer == *'["Hello you",[]]'* ]] || fail "the installed tool printed: $answer"

"$compiler" "${cflags[@]}" "$here/../../examples/guide/guide_example.cpp" "${libs[@]}" \
    -o "$scratch/pkg_config_program"
LD_LIBRARY_PATH=$libraries "$scratch/pkg_config_program" ||
    fail "the program built through pkg-config ended with $?"
