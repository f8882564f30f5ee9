#include "tools/inspect/usage.h"

namespace inspect {

const char* const usage = R"(usage: event_routing_inspect COMMAND [OPTIONS] ... LIBRARY...

Loads libraries with components, starts these, and looks at them from outside.

  list     shows all handlers as a tree
  reach    tells which handlers a path reaches, in which order
  send     sends a request, a snowball or an event
  watch    shows the traffic: rates, slowest handlers, busiest paths

event_routing_inspect COMMAND --help tells more. Of every command:

  LIBRARY       a file (./libspelling.so), or the name of a library that lies
                beside this program or where the system looks (spelling)
  --entry NAME  the exported function that starts the components of the
                libraries after it (start_event_routing_component); it is
                declared as in <event_routing/component.h>
  --            what follows is no option

Ends with 0 when all went well, with 1 when a component, a message or this
program failed, with 2 when the command line is at fault.
)";

namespace {

constexpr const char* list_usage =
    R"(usage: event_routing_inspect list [--format FORMAT] LIBRARY...

Shows all handlers as a tree: the subnodes of their paths and their descriptions,
for each routing service and each named event routing instance (channel).
Redirections and fallbacks of requests are not listed by the library.

  --format text    indented, descriptions in brackets; the default
  --format json    one document, for other programs
  --format dot     a graph in the language of Graphviz
  --format svg     the graph drawn, by the program dot of Graphviz
)";

constexpr const char* reach_usage =
    R"(usage: event_routing_inspect reach [OPTIONS] PATH LIBRARY...

Tells which handlers PATH would reach and in which order, without calling any. PATH
of an event may be several paths, separated by ";".

  --type TYPE      event, request or snowball; otherwise all of them
  --channel NAME   a named event routing instance; otherwise all of them
  --format FORMAT  text (the default) or json

Priorities of request handlers, redirections and fallbacks are not known from
outside, so a request may take another order. A path that was registered with a
full stop at its beginning is listed, and found, without that.
)";

constexpr const char* send_usage =
    R"(usage: event_routing_inspect send TYPE [OPTIONS] PATH LIBRARY...

Sends a request, a snowball or an event (TYPE) to PATH and prints the answer as one
JSON document, with the name of its data type:

  {"zel.data":"hello","zel.data_type":"string"}

Of an event it prints the handlers that were reached, after waiting for their
asynchronous parts. When a message fails, the library's message goes to standard
error.

  --payload JSON       what is sent along; a document of the form above becomes a
                       value of that type, any other is sent as JSON
  --number NAME=VALUE  a routing parameter that is a number
  --text NAME=VALUE    a routing parameter that is a text
  --channel NAME       of an event: the named event routing instance
)";

constexpr const char* watch_usage =
    R"(usage: event_routing_inspect watch [OPTIONS] LIBRARY...

Shows what the components send to each other: messages a second by service and
channel, the handlers with the longest calls, the busiest paths. Ends after the
given time or when interrupted (Ctrl-C), with a summary.

  --seconds N      how long; otherwise until interrupted
  --interval N     seconds between two reports (1); decimals are fine
  --rows N         handlers and paths in the tables (10)
  --format FORMAT  text (the default) or json: one document a line for each report
)";

} // namespace

const char* usage_of(command what) {
    switch (what) {
    case command::list:
        return list_usage;
    case command::reach:
        return reach_usage;
    case command::send:
        return send_usage;
    case command::watch:
        return watch_usage;
    }
    return usage;
}

} // namespace inspect
