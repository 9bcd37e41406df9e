#include "foundation/crash/deinit_seq.h"

#include <gtest/gtest.h>

#include <boost/make_shared.hpp>

#include <stdexcept>
#include <string>
#include <vector>

namespace {

class noting_step : public crash::deinit_step_t {
public:
    noting_step(std::vector<std::string>& notes, std::string name) : notes_(notes), name_(std::move(name)) {}
    void run() override {
        notes_.push_back(name_);
        if (name_ == "bad") {
            throw std::runtime_error("The step can't be done.");
        }
    }

private:
    std::vector<std::string>& notes_;
    const std::string name_;
};

class DeinitSeq : public ::testing::Test {
protected:
    void add(std::int32_t key, const std::string& name) { steps_.add(key, boost::make_shared<noting_step>(notes_, name)); }

    std::vector<std::string> notes_;
    crash::deinit_seq_t steps_;
};

TEST_F(DeinitSeq, RunsInTheOrderOfTheKeys) {
    add(10, "third");
    add(-1, "first");
    add(2, "second");
    steps_.run();
    EXPECT_EQ(notes_, (std::vector<std::string>{"first", "second", "third"}));
}

TEST_F(DeinitSeq, RunsNothingThatIsGone) {
    add(1, "kept");
    add(2, "gone");
    steps_.remove(2);
    steps_.remove(7);
    steps_.run();
    EXPECT_EQ(notes_, (std::vector<std::string>{"kept"}));
}

TEST_F(DeinitSeq, TheLaterStepTakesAKey) {
    add(1, "former");
    add(1, "later");
    steps_.run();
    EXPECT_EQ(notes_, (std::vector<std::string>{"later"}));
}

TEST_F(DeinitSeq, AStepThatThrowsIsTheLast) {
    add(1, "good");
    add(2, "bad");
    add(3, "never");
    EXPECT_THROW(steps_.run(), std::runtime_error);
    EXPECT_EQ(notes_, (std::vector<std::string>{"good", "bad"}));
}

TEST_F(DeinitSeq, AStepMayChangeTheSequence) {
    class nested : public crash::deinit_step_t {
    public:
        explicit nested(crash::deinit_seq_t& steps) : steps_(steps) {}
        void run() override { steps_.remove(99); }

    private:
        crash::deinit_seq_t& steps_;
    };
    steps_.add(1, boost::make_shared<nested>(steps_));
    add(2, "next");
    steps_.run();
    EXPECT_EQ(notes_, (std::vector<std::string>{"next"})) << "the lock is the thread's own";
}

}  // namespace
