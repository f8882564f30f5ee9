#include "generic/tasklib/src/tasks/reg_cookie.h"
#include "generic/tasklib/src/tasks/task_support_test.h"

#include <stdexcept>
#include <thread>

namespace zel::tasklib::test {
namespace {

struct callback final : cancellation_callback {
    explicit callback(std::function<void()> what) : does(std::move(what)) {}
    void on_cancel(cancellation_ifc&) override { does(); }
    std::function<void()> does;
};

TEST(Cancellation, CallsEachCallbackOnceInOrderButThoseThatAreRemovedMeanwhile) {
    cancellation_base object;
    std::string called;
    callback b([&] { called += 'b'; }), c([&] { called += 'c'; });
    callback a([&] {
        called += 'a';
        object.remove_callback(&a);
        object.remove_callback(&b);
    });
    for (auto* added : {&c, &a, &b, &c})
        object.add_callback(added);
    object.remove_callback(&c); // the first of the two
    EXPECT_FALSE(object.cancel());
    EXPECT_TRUE(object.cancel());
    EXPECT_EQ(called, "ac");
}

TEST(Cancellation, CallsWhatWasThereAtItsBeginningAndIsThereAgainWhenItsTurnComes) {
    cancellation_base object;
    std::string called;
    callback b([&] { called += 'b'; }), c([&] { called += 'c'; }), twice([&] { called += 't'; }),
        late([&] { called += 'l'; });
    callback a([&] {
        called += 'a';
        for (auto* removed : {&a, &b, &c, &twice})
            object.remove_callback(removed);
        for (auto* added : {&a, &b, &late})
            object.add_callback(added);
    });
    for (auto* added : {&a, &twice, &b, &c, &twice})
        object.add_callback(added);
    object.cancel();
    EXPECT_EQ(called, "atbt");
}

TEST(Cancellation, FindsACallbackAmongManyWithoutASearch) {
    cancellation_base object;
    std::vector<callback> many(200'000, callback([] { ADD_FAILURE(); }));
    const auto began = std::chrono::steady_clock::now();
    for (auto& each : many)
        object.add_callback(&each);
    for (auto each = many.rbegin(); each != many.rend(); ++each)
        object.remove_callback(&*each);
    EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(30));
    object.cancel();
}

TEST(Cancellation, LetsACallbackGoWhenItIsNotRunningOnAnotherThread) {
    cancellation_base object;
    signal inside, go_on;
    bool has_left = false;
    callback slow([&] {
        inside.set();
        go_on.wait();
        has_left = true;
    });
    object.add_callback(&slow);
    watched_thread canceler([&] { object.cancel(); });
    EXPECT_TRUE(inside.comes());
    watched_thread remover([&] {
        object.remove_callback(&slow);
        EXPECT_TRUE(has_left);
    });
    EXPECT_TRUE(remover.falls_asleep());
    go_on.set();
}

TEST(Cancellation, ReachesTheTasksMadeInsideOfATask) {
    const auto processor = get_task_processor();
    const auto room = std::make_shared<waiting_room>();
    const auto payload = std::make_shared<int>();
    std::vector<std::unique_ptr<sample>> made; // outlive what they were made in
    const auto make = [&] { made.push_back(std::make_unique<sample>()); };
    sample outer([&] {
        make();
        { const sample gone_before; }
        room->submit(make_task("kept by its place alone", nullptr, [payload] {}).share(), 0);
        sample inner([&] {
            make();
            EXPECT_FALSE(made[0]->is_over() || made[1]->is_over());
            outer.handle.cancel();
            EXPECT_TRUE(inner.share()->is_canceled() && !inner.handle.wait(at_once));
            EXPECT_TRUE(made[0]->is_over() && made[1]->is_over());
            make();
            EXPECT_TRUE(made[2]->is_over()) << "comes too late";
        });
        processor->execute(inner.share(), true);
    });
    processor->execute(outer.share(), true);
    EXPECT_EQ(payload.use_count(), 1);
    EXPECT_EQ(made.at(0)->bodies + made.at(1)->bodies + made.at(2)->bodies, 0);
    EXPECT_EQ(get_this_taskcancellation(), nullptr);
}

TEST(Cancellation, HoldsNoGuardWhileCapturesOfFollowersOrSinksAreRun) {
    callback ignored([] {});
    callback throws([] { throw std::runtime_error("contained"); });
    sample outer;
    const auto needs_the_guard = [&] {
        std::jthread([&] {
            outer.share()->add_callback(&ignored);
            outer.share()->remove_callback(&ignored);
        }).join();
    };
    struct sink final : log::ILogSink {
        explicit sink(std::function<void()> what) : does(std::move(what)) {}
        void Write(const log::record&) override { does(); }
        std::function<void()> does;
    };
    const auto logged = log::get_log_module()->AddSink(std::make_shared<sink>(needs_the_guard), 7);
    const auto room = std::make_shared<waiting_room>();
    outer.body = [&] {
        room->submit(make_task("", nullptr, [held = make_reg_cookie(needs_the_guard)] {}).share(),
                     0);
        outer.share()->add_callback(&throws);
        outer.handle.cancel();
        outer.share()->remove_callback(&throws);
    };
    get_task_processor()->execute(outer.share(), true);
    EXPECT_EQ(outer.bodies, 1);
    EXPECT_TRUE(room->tasks.empty());
}

} // namespace
} // namespace zel::tasklib::test
