// C++ types in place of payloads: a layer on top of the three services, which stay whole
// beside it.
//
//     using Check = Request<bool, std::string>; // a word in, whether it is spelled well out
//
//     auto cookie = requests->RegisterRequestHandler(
//         "spelling.check", 0,
//         Check::RequestHandler([](const std::string& word) { return knows(word); }),
//         "dictionary");
//     if (const auto answer = Check::Ask(*requests, "spelling.check", "word"))
//         show(*answer.value);
//
// All types are those that payloads may have (payload.h tells how a type of your own is
// declared). They are registered when a handler or a payload is made. A callable that also
// wants path and parameters of the message takes a message_head as its last argument. What
// conversions throw reaches whoever runs them: a sender, or the service that runs a handler.
//
// A handler whose message has data of another type passes it over. It says so in the log with
// severity 0 and both types, each handler once a second at most.
#pragma once

#include <event_routing/typed/event.h>
#include <event_routing/typed/request.h>
#include <event_routing/typed/snowball.h>
