#include "common/threads/Threadable.h"

#include "common/threads/ThreadHandle.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

namespace {

using namespace ORBCOMMON;

static_assert(std::is_abstract_v<Threadable>);
static_assert(std::has_virtual_destructor_v<Threadable>);
static_assert(!std::is_copy_constructible_v<Threadable> && !std::is_copy_assignable_v<Threadable>);
static_assert(sizeof(Threadable) == sizeof(void*), "no data members");

struct Step {
    std::string name;
    std::thread::id thread;
};

class Recorder : public Threadable {
public:
    explicit Recorder(std::vector<Step>& steps) : m_steps(steps) {}
    ~Recorder() override { note("destroyed"); }

    void run() override { note("run"); }
    void finish() override { note("finish"); }

private:
    void note(const std::string& name) { m_steps.push_back({name, std::this_thread::get_id()}); }

    std::vector<Step>& m_steps;
};

class WithoutFinish : public Threadable {
public:
    void run() override { ++runs; }

    int runs = 0;
};

TEST(Threadable, CallsFinishOnTheSameThreadAfterARunThatReturnsAtOnce) {
    std::vector<Step> steps;
    Recorder recorder(steps);
    ThreadHandle handle;
    ASSERT_EQ(start(handle, &recorder), 0);
    join(handle);
    ASSERT_EQ(steps.size(), 2U);
    EXPECT_EQ(steps[0].name, "run");
    EXPECT_EQ(steps[1].name, "finish");
    EXPECT_EQ(steps[0].thread, steps[1].thread);
    EXPECT_NE(steps[0].thread, std::this_thread::get_id());
}

TEST(Threadable, IsDestroyedThroughItsBase) {
    std::vector<Step> steps;
    std::unique_ptr<Threadable> threadable = std::make_unique<Recorder>(steps);
    threadable.reset();
    ASSERT_EQ(steps.size(), 1U);
    EXPECT_EQ(steps[0].name, "destroyed");
}

TEST(Threadable, NeedsNoFinishOfItsOwnAndRunsAgainOnASecondThread) {
    WithoutFinish threadable;
    for (int runs = 1; runs <= 2; ++runs) {
        ThreadHandle handle;
        ASSERT_EQ(start(handle, &threadable), 0);
        join(handle);
        EXPECT_EQ(threadable.runs, runs);
        threadable.Threadable::finish();
        EXPECT_EQ(threadable.runs, runs);
    }
}

} // namespace
