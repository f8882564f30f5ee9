#!/usr/bin/env bash
# mistakes_test.sh COMPILER INCLUDE_FOLDER...
#
# Compiles small programs with one mistake each, as users of typed payloads and handlers make
# them. Each must be refused with one error, whose text is a sentence of ours, and which leads
# to the line with the mistake (marked `// here`). The first programs have none and compile.
set -euo pipefail

compiler=$1
shift
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

flags=(-std=c++20 -Wall -Wextra -Werror)
for folder in "$@"; do
    flags+=(-isystem "$folder")
done

cat >"$scratch/common.h" <<'CODE'
#include <event_routing/client.h>
#include <event_routing/typed.h>
#include <framework/serialization/payload.h>

using namespace zel::event_routing;
using namespace zel::serialization;

struct point {
    int x = 0, y = 0;
};
template <>
struct zel::serialization::record<point> {
    static constexpr std::string_view name = "struct point";
    static constexpr std::tuple fields{field("x", &point::x), field("y", &point::y)};
};
struct undeclared {};
template <class T>
struct line {
    T points{};
};
template <class T>
struct zel::serialization::record<line<T>> {
    static constexpr std::string_view name = "struct line";
    static constexpr std::tuple fields{field("points", &line<T>::points)};
};
CODE
"$compiler" "${flags[@]}" -x c++-header "$scratch/common.h" -o "$scratch/common.h.gch"
flags+=(-fsyntax-only -include "$scratch/common.h")

# check FILE SENTENCE: the sentence is empty where there is no mistake.
check() {
    local file=$1 sentence=$2 output status=0 errors place
    output=$("$compiler" "${flags[@]}" "$file" 2>&1) || status=$?
    errors=$(grep 'error:' <<<"$output") || true
    place=$file:$(sed -n '\|// here| =' "$file"):
    if [[ -z $sentence ]]; then
        ((status != 0)) || return 0
    elif ((status != 0)) && [[ $errors == *"$sentence"* && $errors != *$'\n'* ]] &&
        [[ $output == *"$place"* ]]; then
        return 0
    fi
    printf 'mistakes_test: expected %s\n%s\n%s\n' "${sentence:-no error}" "$(cat "$file")" \
        "$output" >>"$scratch/failures"
}

count=0
running=() # the checks that may be under way, the oldest first

# program SENTENCE <<CODE
program() {
    local file=$scratch/$((++count)).cpp
    cat >"$file"
    if ((${#running[@]} == 2)); then
        wait "${running[0]}"
        running=("${running[@]:1}")
    fi
    check "$file" "$1" &
    running+=($!)
}

# --- No mistake ----------------------------------------------------------------

program "" <<'CODE'
struct tree {
    int size = 0;
    std::vector<tree> inside;
    std::unordered_map<std::string, tree> named;
    bool operator==(const tree&) const = default;
};
template <>
struct zel::serialization::record<tree> {
    static constexpr std::string_view name = "struct tree";
    static constexpr std::tuple fields{field("size", &tree::size), field("inside", &tree::inside),
                                       field("named", &tree::named)};
};
auto made = make_payload(tree());
CODE
program "" <<'CODE'
using Sum = Request<std::int64_t, std::int32_t, std::vector<point>>;
using Place = Request<point, std::string>;
using Print = Request<void, std::string>;
using Menu = Snowball<std::vector<std::string>, point>;
using Saved = Event<std::map<std::string, std::optional<point>>>;

request_handler handlers[] = {
    Sum::RequestHandler([](std::int32_t, const std::vector<point>&) { return std::int64_t(1); }),
    Sum::RequestHandler([](auto&&...) { return 1; }),
    Sum::RequestHandler([](auto, auto&, const message_head& m) -> std::optional<std::int64_t> {
        return m.parameters.size();
    }),
    Place::RequestHandler([](const std::string& name) { return point{int(name.size()), 1}; }),
    Place::RequestHandler([](const std::string&) { return typed_answer<point>(); }),
    Request<std::string>::RequestHandler([] { return "made of a literal"; }),
    Request<bool>::RequestHandler(+[] { return true; }),
    Print::RequestHandler([](const std::string&) {}),
    Print::RequestHandler([](const std::string&, const message_head&) { return false; }),
    Print::RequestHandler([](auto&) { return typed_answer<void>{true, nullptr}; })};
snowball_handler snowballs[] = {
    Menu::SnowballHandler([](auto& entries, auto&) { entries.push_back("Print"); }),
    Menu::SnowballHandler([](std::vector<std::string>& entries, const point&,
                             message_head m) { entries.push_back(m.path); })};
synchronous_event_part first[] = {
    Saved::SynchronousPart([](auto& saved) { return saved.empty(); }),
    Saved::SynchronousPart([](auto&, message_head m) { return m.path == "a"; })};
asynchronous_event_part second[] = {Saved::AsynchronousPart([](auto&, const message_head&) {})};

void use(IEventRouting& events, IRequestRouting& requests, ISnowballRouting& snowballs) {
    Saved::Broadcast(events, "a", {{"b", point()}}, {{parameter::synchronous, -1}});
    Saved::BroadcastCumulative(events, std::chrono::milliseconds(50), "a", {});
    if (Print::Ask(requests, "a", "text"))
        Menu::Send(snowballs, "a", point(), {"New"});
    if (const auto place = Place::Ask(requests, "a", "text", {{"b", 1}}))
        static_cast<void>(make_payload(line<point>{*place.value}));
}
CODE

# --- Payload types -------------------------------------------------------------

made_of="a payload is made of the types that binary_form.h and json_form.h list"

program "$made_of" <<'CODE'
auto made = make_payload(undeclared()); // here
CODE
program "$made_of" <<'CODE'
auto made = make_payload(line<std::vector<long double>>()); // here
CODE
program "$made_of" <<'CODE'
auto made = make_payload(line<std::map<int, point>>()); // here
CODE
program "$made_of" <<'CODE'
auto made = make_payload(line<std::vector<char>>()); // here
CODE
program "$made_of" <<'CODE'
auto made = make_payload("letter"); // here
CODE
program "$made_of" <<'CODE'
auto made = ToJson(std::optional<long double>(1)); // here
CODE
program "$made_of" <<'CODE'
void write(out_blob_stream& out, const std::vector<long double>& values) {
    Serialize(out, values); // here
}
CODE
program "$made_of" <<'CODE'
struct mine {
    int x;
};
template <>
struct zel::serialization::record<mine> {
    static constexpr std::string_view name = "struct mine";
    static constexpr std::tuple fields{field("x", &point::x)};
};
void read(const event_data& data, mine& scratch) {
    GetDataValue(data, scratch); // here
}
CODE
program "two fields of a record have the same name in JSON" <<'CODE'
struct mine {
    int x, y;
};
template <>
struct zel::serialization::record<mine> {
    static constexpr std::string_view name = "struct mine";
    static constexpr std::tuple fields{field("x", &mine::x), field("x", &mine::y)};
};
auto made = make_payload(std::vector<mine>()); // here
CODE
program "two values of an enumeration, or their names, are the same" <<'CODE'
enum class mine { a, b };
template <>
struct zel::serialization::enumeration<mine> {
    static constexpr std::string_view name = "enum mine";
    static constexpr std::pair<mine, std::string_view> values[] = {{mine::a, "a"}, {mine::b, "a"}};
};
auto made = make_payload(line<mine>()); // here
CODE
program "what a payload is made of must be default-constructible and movable" <<'CODE'
struct mine {
    explicit mine(int x) : x(x) {}
    int x;
};
template <>
struct zel::serialization::record<mine> {
    static constexpr std::string_view name = "struct mine";
    static constexpr std::tuple fields{field("x", &mine::x)};
};
auto made = make_payload(std::vector<mine>()); // here
CODE

# --- Requests ------------------------------------------------------------------

request_inputs="a callable that handles requests takes the inputs of the request"
request_result="a callable that handles requests returns the output, an optional or a typed_answer"

program "$made_of" <<'CODE'
auto made = Request<bool, undeclared>::RequestHandler([](auto&) { return true; }); // here
CODE
program "$made_of" <<'CODE'
auto made = Request<const char*>::RequestHandler([] { return "text"; }); // here
CODE
program "$made_of" <<'CODE'
void ask(IRequestRouting& requests, const std::string& name) {
    Request<bool, const std::string&>::Ask(requests, "a", name); // here
}
CODE
program "$request_inputs" <<'CODE'
auto made = Request<bool, std::string>::RequestHandler([](int) { return true; }); // here
CODE
program "$request_inputs" <<'CODE'
auto made = Request<bool, std::string>::RequestHandler([](std::string&) { return true; }); // here
CODE
for result in 'std::optional<int>(1)' 'typed_answer<int>()' '"text"' '300' '1.5' 'void()'; do
    program "$request_result" <<CODE
auto made = Request<bool>::RequestHandler([] { return $result; }); // here
CODE
done
program "$request_result" <<'CODE'
auto made = Request<std::uint8_t>::RequestHandler([] { return 300; }); // here
CODE
program "$request_result" <<'CODE'
auto made = Request<void>::RequestHandler([] { return 1; }); // here
CODE
program "a callable that handles requests is copied" <<'CODE'
auto made = Request<bool>::RequestHandler([p = std::make_unique<int>(1)] { return *p; }); // here
CODE
program "ignoring return value" <<'CODE'
void nobody_registers_it() {
    Request<int>::RequestHandler([] { return 1; }); // here
}
CODE

# --- Snowballs -----------------------------------------------------------------

program "a callable that handles snowballs returns nothing" <<'CODE'
auto made = Snowball<std::string>::SnowballHandler([](auto& so_far, auto&) { return so_far; }); // here
CODE
for result in 'std::string' 'const std::string&' 'const auto&'; do
    program "a callable that handles snowballs changes the result" <<CODE
auto made = Snowball<std::string>::SnowballHandler([]($result, auto&) {}); // here
CODE
done
program "a callable that handles snowballs takes the result as a reference" <<'CODE'
auto made = Snowball<std::string>::SnowballHandler([](std::string&) {}); // here
CODE
program "$made_of" <<'CODE'
void send(ISnowballRouting& snowballs) {
    Snowball<std::vector<undeclared>>::Send(snowballs, "a", {}); // here
}
CODE

# --- Events --------------------------------------------------------------------

program "a synchronous part returns a bool" <<'CODE'
auto made = Event<std::string>::SynchronousPart([](const std::string&) {}); // here
CODE
program "an asynchronous part returns nothing" <<'CODE'
auto made = Event<std::string>::AsynchronousPart([](auto&) { return true; }); // here
CODE
program "a callable that handles events takes the payload" <<'CODE'
auto made = Event<std::string>::AsynchronousPart([](const point&) {}); // here
CODE
program "$made_of" <<'CODE'
void tell(IEventRouting& events) {
    Event<undeclared>::Broadcast(events, "a", {}); // here
}
CODE

for check in "${running[@]}"; do
    wait "$check" # a wait for all at once would not fail where a check broke off
done
if [[ -e $scratch/failures ]]; then
    cat "$scratch/failures" >&2
    exit 1
fi
echo "mistakes_test: $count programs"
