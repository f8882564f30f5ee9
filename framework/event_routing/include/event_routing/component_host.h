// Components in shared libraries of their own, loaded and unloaded at run time.
//
//     zel::event_routing::component_host components;
//     components.start("spelling"); // libspelling.so, beside the program or where the system looks
//     ...
//     components.reload("spelling"); // the file may have changed
//     ...
//     if (const auto end = components.stop("spelling"); !end.is_unmapped)
//         std::cerr << end.text() << '\n';
//
// What a component is made of is told in component.h. Others may go on sending while one is
// stopped: its library stays mapped until no call is inside of it and nothing of it, a
// payload that somebody keeps for instance, is left. A library that has to stay has ended
// nevertheless: it is unmapped when the last of that has gone and the loader has something
// to do, and cannot be loaded again until then.
//
// What the library cannot know of is the component's own: it ends and joins its threads in
// its destructor.
#pragma once

#include <platform/timeout.h>

#include <memory>
#include <string>
#include <vector>

namespace zel::event_routing {

/// What became of the library of components that were stopped.
struct stopped_library {
    std::string library;      ///< as it was named when it was started
    bool is_unmapped = false; ///< it is out of memory
    /// What keeps it mapped, a text for each, such as "handler of events 'a.b' (title bar)".
    std::vector<std::string> in_use;
    /// Others have references to it, so that it has not ended.
    bool is_loaded_by_others = false;

    /// All of this in a sentence.
    std::string text() const;
};

/// Used by one thread at a time, and not from inside of a component's own handler, which
/// would wait for itself. Different objects know nothing of each other, but a library that
/// two of them have started is unmapped only when both have stopped it.
class component_host {
public:
    /// As long as the library's end is waited for unless the caller says otherwise.
    static constexpr platform::milliseconds patience{5000};

    component_host();
    /// Stops all components, the latest first, and writes into the log which libraries had
    /// to stay.
    ~component_host();
    component_host(const component_host&) = delete;
    component_host& operator=(const component_host&) = delete;

    /// Loads a library by its name or, with a folder in it, by its path, and calls the
    /// function that starts its component. Throws exceptions::error, which names the library:
    /// when it cannot be loaded or does not export the function, when that throws or makes no
    /// component. Nothing is left of it then, unless something that it has made is still in use
    /// or something else keeps the library mapped.
    void start(const std::string& library,
               const std::string& entry = "start_event_routing_component");

    /// Drops the component, gives the library back and waits until it is unmapped, for so
    /// long. Of several that were started from one library all are stopped, the latest first.
    /// Throws exceptions::error when there is none of that library.
    stopped_library stop(const std::string& library, platform::milliseconds longest = patience);

    /// Stops them and starts them again, from the file as it is now. Throws exceptions::error
    /// when the library could not be unmapped, with what is in use, and what `start` throws.
    /// They remain stopped then.
    void reload(const std::string& library, platform::milliseconds longest = patience);

    /// Stops all, the latest first; the time is for each library. Returns those that had to
    /// stay. Throws what the first one that failed has thrown, when all are stopped.
    std::vector<stopped_library> stop_all(platform::milliseconds longest = patience);

    /// The libraries of the components, in the order in which they were started.
    std::vector<std::string> running() const;

private:
    struct component;

    std::vector<std::unique_ptr<component>> take(const std::string& library);

    std::vector<std::unique_ptr<component>> running_;
};

} // namespace zel::event_routing
