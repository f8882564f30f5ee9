// The same as poll_loop with GLib's main loop, as programs with GTK have it.
#include "examples/windows/word_counter.h"

#include <glib-unix.h>
#include <glib.h>

namespace {

struct program {
    zel::examples::word_counter counter;
    int exit_code = 0;
    GMainLoop* const loop = g_main_loop_new(nullptr, FALSE);
};

gboolean take_messages(gint, GIOCondition, gpointer data) {
    auto& self = *static_cast<program*>(data);
    if (const auto exit_code = zel::platform::dispatch_messages()) {
        self.exit_code = *exit_code;
        g_main_loop_quit(self.loop);
    }
    return G_SOURCE_CONTINUE;
}

gboolean take_input(gint descriptor, GIOCondition, gpointer data) {
    auto& self = *static_cast<program*>(data);
    return self.counter.read_from(descriptor) ? G_SOURCE_CONTINUE : G_SOURCE_REMOVE;
}

} // namespace

int main() {
    program self;
    g_unix_fd_add(zel::platform::message_descriptor(), G_IO_IN, &take_messages, &self);
    const auto input_or_its_end = static_cast<GIOCondition>(G_IO_IN | G_IO_HUP);
    g_unix_fd_add(0, input_or_its_end, &take_input, &self);
    g_main_loop_run(self.loop);
    g_main_loop_unref(self.loop);
    return self.exit_code;
}
