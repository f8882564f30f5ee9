#!/usr/bin/env bash
# package_test.sh BUILD_FOLDER COMPILER README
#
# Makes the Debian packages of the build and unpacks them into folders of their own. README's
# program is built with the development package, and a component through pkg-config; the
# program, and the packed tool with the component, then run with the runtime package alone.
set -euo pipefail

build=$1
compiler=$2
readme=$3
for program in dpkg-deb dpkg-shlibdeps file; do
    if ! command -v "$program" >/dev/null; then
        echo "package_test: skipped, there is no $program to make or open packages with"
        exit 77
    fi
done
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
unset LD_LIBRARY_PATH

fail() {
    echo "package_test: $*" >&2
    exit 1
}

# unpack FOLDER PACKAGE...: a root with just these packages.
unpack() {
    local root=$1 package found
    shift
    for package in "$@"; do
        found=("$scratch/packages/${package}"_*.deb)
        [[ -e ${found[0]} ]] || fail "no package $package"
        dpkg-deb -x "${found[0]}" "$root"
    done
}

# expect_depends PACKAGE DEPENDENCY...: each may be the beginning of a name.
expect_depends() {
    local package=$1 depends dependency
    shift
    depends=$(dpkg-deb -f "$scratch/packages/${package}"_*.deb Depends)
    for dependency in "$@"; do
        [[ ", $depends" == *", $dependency"* ]] ||
            fail "$package does not depend on $dependency, but on: $depends"
    done
}

# expect_files PACKAGE FILE...: in its root.
expect_files() {
    local package=$1 file files
    shift
    files=$(dpkg-deb -c "$scratch/packages/${package}"_*.deb)$'\n'
    for file in "$@"; do
        [[ $files == *" ./usr/share/$file"$'\n'* ]] || fail "$package has no $file"
    done
}

expect_letter() {
    local output
    output=$("$scratch/letters/build/letters") || fail "README's program ended with $?"
    [[ $output == "document.saved: Letter" ]] || fail "README's program printed: $output"
}

# block LANGUAGE BEGINNING: README's code in that language whose first line begins so.
block() {
    awk -v fence="\`\`\`$1" -v beginning="$2" '
        $0 == fence { first = 1; next }
        $0 == "```" { inside = 0 }
        first { inside = index($0, beginning) == 1; first = 0 }
        inside' "$readme"
}

"$here/../../cmake/make_packages.sh" "$build" "$scratch/packages" >"$scratch/made"
# The bridge is built on demand.
has_bridge=0
[[ ! -e $build/lib/libevent_routing_nats.so ]] || has_bridge=1
[[ $(wc -l <"$scratch/made") == $((3 + has_bridge)) ]] ||
    fail "not the packages that were expected: $(cat "$scratch/made")"

runtime=$(sed -n 's|.*/\(libevent-routing[0-9]*\)_.*|\1|p' "$scratch/made")
version=$(dpkg-deb -f "$scratch/packages/${runtime}"_*.deb Version)
expect_depends "$runtime" libc6 libfmt libjsoncpp libmd libspdlog
expect_depends libevent-routing-dev "$runtime (= $version)" libfmt-dev libjsoncpp-dev libmd-dev
expect_depends event-routing-tools "$runtime (= $version)" libc6 libfmt

if ((has_bridge)); then
    expect_depends event-routing-nats "$runtime (= $version)" libc6 libnats
    expect_files event-routing-nats doc/event-routing-nats/{changelog.gz,bridge.md,bridge.schema.json} \
        man/man1/event_routing_bridge.1.gz
fi

expect_files "$runtime" "doc/$runtime/changelog.gz"
expect_files libevent-routing-dev doc/libevent-routing-dev/{changelog.gz,README.md,docs/guide.md}
expect_files event-routing-tools doc/event-routing-tools/{changelog.gz,inspect.md} \
    man/man1/event_routing_inspect.1.gz

unpack "$scratch/development" "$runtime" libevent-routing-dev
unpack "$scratch/user" "$runtime" event-routing-tools

# Links of the packed documents to other files lead to files of the package.
documents=$scratch/development/usr/share/doc/libevent-routing-dev
while IFS=: read -r document link; do
    target=${link#](}
    target=${target%[)#]}
    [[ -e $(dirname "$document")/$target ]] || fail "a link in $document leads nowhere: $target"
done < <(grep -roE '\]\([[:alnum:]_./-]+\.(md|json)[)#]' "$documents")

mkdir "$scratch/letters"
block cpp "#include <event_routing/client.h>" >"$scratch/letters/main.cpp"
block cmake cmake_minimum_required >"$scratch/letters/CMakeLists.txt"

cmake -S "$scratch/letters" -B "$scratch/letters/build" -G Ninja \
    -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_PREFIX_PATH="$scratch/development/usr" \
    >"$scratch/configure.log" 2>&1 ||
    { cat "$scratch/configure.log" >&2; fail "find_package failed"; }
cmake --build "$scratch/letters/build" >"$scratch/build.log" ||
    { cat "$scratch/build.log" >&2; fail "README's program does not build"; }

export PKG_CONFIG_PATH=$scratch/development/usr/lib/pkgconfig
eval "flags=($(pkg-config --cflags --libs event_routing))" # quoted for a shell
"$compiler" -shared -fPIC "$here/../../examples/guide/greeter.cpp" "${flags[@]}" -o "$scratch/libgreeter.so"

expect_letter
# The development package goes; the user's folder stands for where programs find the
# libraries once the packages are installed for real.
rm -rf "$scratch/development"
export LD_LIBRARY_PATH=$scratch/user/usr/lib
expect_letter

manual=$(gzip -dc "$scratch/user/usr/share/man/man1/event_routing_inspect.1.gz" | tr -d '\\')
for command in "" list reach send watch; do
    # shellcheck disable=SC2086 # none or one
    help=$("$scratch/user/usr/bin/event_routing_inspect" $command --help)
    [[ $manual == *".SS $command"* ]] || fail "the man page does not have the command $command"
    for option in $(grep -o -- '^  --[a-z]*' <<<"$help"); do
        [[ $manual == *"$option"* ]] || fail "the man page does not have $option of $command"
    done
done

if ((has_bridge)); then
    unpack "$scratch/user" event-routing-nats
    manual=$(gzip -dc "$scratch/user/usr/share/man/man1/event_routing_bridge.1.gz" | tr -d '\\')
    for option in $("$scratch/user/usr/bin/event_routing_bridge" --help | grep -o -- '^  --[a-z]*'); do
        [[ $manual == *"$option"* ]] || fail "the man page does not have $option of the bridge"
    done
    echo '{"realm": "a", "host": "b", "export_events": [{"pattern": "c"}]}' >"$scratch/bridge.json"
    # The component is there, and ends although no server is.
    EVENT_ROUTING_BRIDGE_CONFIGURATION=$scratch/bridge.json \
        "$scratch/user/usr/bin/event_routing_inspect" list event_routing_bridge >"$scratch/listed" ||
        fail "the packed bridge was not loaded, but ended with $?"
    grep -q "^event" "$scratch/listed" || fail "the packed bridge has no handler: $(cat "$scratch/listed")"
fi

answer=$("$scratch/user/usr/bin/event_routing_inspect" send request greet \
    --payload '["you"]' "$scratch/libgreeter.so") || fail "the packed tool ended with $?"
[[ $answer == *'["Hello you",[]]'* ]] || fail "the packed tool printed: $answer"
