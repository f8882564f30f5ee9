#include "platform/src/watched_thread_test.h"

#include <platform/process.h>
#include <platform/thread_gate.h>

#include <deque>
#include <gtest/gtest.h>
#include <latch>
#include <set>

namespace {

using namespace zel::platform;

TEST(ThreadSlot, IsAThreadsOwnUntilItEndsAndSharedByThoseThatFindNone) {
    constexpr std::ptrdiff_t many = own_thread_slots + 5;
    for (int round = 0; round < 2; ++round) { // those of the first have gone by the second
        std::array<std::atomic<int>, own_thread_slots + 1> owners{};
        std::latch all(many);
        {
            std::deque<watched_thread> threads;
            for (std::ptrdiff_t i = 0; i < many; ++i)
                threads.emplace_back([&] {
                    const auto slot = thread_slot();
                    ++owners[slot];
                    all.arrive_and_wait();
                    EXPECT_EQ(thread_slot(), slot);
                });
        }
        int own = 0;
        for (std::uint32_t slot = 0; slot < own_thread_slots; ++slot) {
            EXPECT_LE(owners[slot], 1);
            own += owners[slot];
        }
        EXPECT_GE(own, int(own_thread_slots) - 3) << "this thread has one, and its watchers may";
        EXPECT_EQ(own + owners[shared_thread_slot], many);
    }
}

// Threads with slots of their own and without read what whoever closes the gate takes away.
TEST(ThreadGate, LetsNobodyInOnceItIsClosedAndWaitsForThoseInside) {
    thread_gate::prepare();
    for (int round = 0; round < 20; ++round) {
        auto gate = std::make_unique<thread_gate>();
        auto value = std::make_unique<int>(1);
        std::latch running(own_thread_slots + 5);
        std::deque<watched_thread> threads;
        for (std::uint32_t i = 0; i < own_thread_slots + 4; ++i)
            threads.emplace_back([&] {
                thread_slot();
                running.arrive_and_wait();
                for (bool is_open = true; is_open;) {
                    const thread_gate::visit inside(*gate);
                    const thread_gate::visit again(*gate);
                    is_open = bool(inside) && bool(again);
                    EXPECT_TRUE(!inside || *value == 1);
                }
            });
        running.arrive_and_wait();
        gate->close();
        value.reset();
        EXPECT_FALSE(thread_gate::visit(*gate));
    }
}

bool waits_for_those_inside() {
    thread_gate::prepare();
    for (int round = 0; round < 200; ++round) {
        thread_gate gate;
        std::latch inside_it(2);
        std::atomic<bool> has_left{false};
        watched_thread visitor([&] {
            const thread_gate::visit inside(gate);
            inside_it.arrive_and_wait();
            while (thread_gate::visit(gate))
                pause_processor();
            for (int pause = 0; pause < 1000; ++pause)
                pause_processor();
            has_left = true;
        });
        inside_it.arrive_and_wait();
        gate.close();
        if (!has_left)
            return false;
    }
    return true;
}

// As in a service that leaves its terminal. The thread of this test alone has a slot.
TEST(ThreadGate, WaitsForThoseInsideInAChildThatLeftNobodyBehind) {
    EXPECT_TRUE(holds_in_a_child(&waits_for_those_inside));
}

} // namespace
