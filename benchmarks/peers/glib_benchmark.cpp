#include "benchmarks/peers/bus_cases.h"

#include <glib-object.h>

namespace zel::benchmarks {

namespace {

// One pointer as the argument: GLib has a marshaller of its own for that and does
// not have to go through the slow general one.
class glib_signal {
public:
    using token = std::unique_ptr<counting_handler>;

    glib_signal() : object_(g_object_new(type(), nullptr)) {}
    glib_signal(const glib_signal&) = delete;
    glib_signal& operator=(const glib_signal&) = delete;
    ~glib_signal() { g_object_unref(object_); }

    token subscribe(const std::string&, counting_handler handler) {
        token subscribed(new counting_handler(handler));
        g_signal_connect_data(object_, "broadcast", reinterpret_cast<GCallback>(&receive),
                              subscribed.get(), nullptr, GConnectFlags{});
        return subscribed;
    }

    void broadcast(const std::string& path, const event_data& data,
                   const routing_parameters& parameters) {
        const message sent{path, data, parameters};
        g_signal_emit(object_, signal_, 0, &sent);
    }

private:
    static void receive(GObject*, const message* sent, const counting_handler* handler) {
        (*handler)(sent->path, sent->data, sent->parameters);
    }

    static GType type() {
        static const GType made =
            g_type_register_static_simple(G_TYPE_OBJECT, "BenchmarkSubject", sizeof(GObjectClass),
                                          nullptr, sizeof(GObject), nullptr, GTypeFlags{});
        return made;
    }

    static guint signal() {
        static const guint made = g_signal_new("broadcast", type(), G_SIGNAL_RUN_LAST, 0, nullptr,
                                               nullptr, nullptr, G_TYPE_NONE, 1, G_TYPE_POINTER);
        return made;
    }

    gpointer object_;
    const guint signal_ = signal(); // before somebody connects to it
};

[[maybe_unused]] const bool listed = compare_signal<glib_signal>("glib_signal");

} // namespace

} // namespace zel::benchmarks
