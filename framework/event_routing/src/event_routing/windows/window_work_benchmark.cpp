#include "framework/event_routing/src/event_routing/events/event_routing_impl.h"
#include "framework/event_routing/src/event_routing/windows/in_wnd_proc_handling_manager.h"

#include <event_routing/window_work.h>

#include <atomic>
#include <benchmark/benchmark.h>
#include <thread>

namespace zel::event_routing::impl {
namespace {

using namespace platform;

std::shared_ptr<InWndProcHandling> handling_of(window_handle window) {
    return InWndProcHandlingManager::GetHandling(window, std::make_shared<EventRoutingImpl>());
}

// A window whose thread does nothing but take messages.
class window_thread_of_its_own {
public:
    window_thread_of_its_own()
        : thread_([this] {
              handle_ = create_window();
              made_.set();
              run_message_loop();
          }) {
        made_.wait();
    }
    ~window_thread_of_its_own() { send_message(handle_, quit_message); }
    window_handle handle() const { return handle_; }

private:
    window_handle handle_{};
    event made_{reset_mode::manual, false};
    std::jthread thread_;
};

constexpr int batch = 1'000;

// One thread posts and takes: what a message costs without a wait.
void post_and_dispatch_messages(benchmark::State& state) {
    const window_handle window = create_window();
    for (auto _ : state) {
        for (int i = 0; i < batch; ++i)
            post_message(window, first_own_message);
        dispatch_messages();
    }
    destroy_window(window);
    state.SetItemsProcessed(state.iterations() * batch);
}
BENCHMARK(post_and_dispatch_messages)->Name("window/post_and_dispatch/message");

void post_and_dispatch_work(benchmark::State& state) {
    const window_handle window = create_window();
    const auto handling = handling_of(window);
    int ran = 0;
    for (auto _ : state) {
        for (int i = 0; i < batch; ++i)
            post_to_window(*handling, [&ran] { ++ran; });
        dispatch_messages();
    }
    destroy_window(window);
    state.SetItemsProcessed(state.iterations() * batch);
}
BENCHMARK(post_and_dispatch_work)->Name("window/post_and_dispatch/work");

void post_to_another_thread(benchmark::State& state) {
    const window_thread_of_its_own window;
    for (auto _ : state)
        while (!post_message(window.handle(), first_own_message)) // full
            std::this_thread::yield();
}
BENCHMARK(post_to_another_thread)->Name("window/post/another_thread")->UseRealTime();

void send_on_the_own_thread(benchmark::State& state) {
    const window_handle window = create_window();
    for (auto _ : state)
        benchmark::DoNotOptimize(send_message(window, first_own_message));
    destroy_window(window);
}
BENCHMARK(send_on_the_own_thread)->Name("window/send/own_thread");

void send_to_another_thread(benchmark::State& state) {
    const window_thread_of_its_own window;
    for (auto _ : state)
        benchmark::DoNotOptimize(send_message(window.handle(), first_own_message));
}
BENCHMARK(send_to_another_thread)->Name("window/send/another_thread")->UseRealTime();

// The measure of the last one: two threads that wake each other in turn.
void wake_another_thread_and_wait(benchmark::State& state) {
    event there(reset_mode::automatic, false), back(reset_mode::automatic, false);
    std::atomic<bool> ends{false};
    std::jthread other([&] {
        while (there.wait(), !ends)
            back.set();
    });
    for (auto _ : state) {
        there.set();
        back.wait();
    }
    ends = true;
    there.set();
}
BENCHMARK(wake_another_thread_and_wait)->Name("window/send/two_events")->UseRealTime();

} // namespace
} // namespace zel::event_routing::impl
