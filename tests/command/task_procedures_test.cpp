#include <gtest/gtest.h>
#include <pthread.h>

#include <functional>
#include <set>
#include <thread>

#include "command/erase_worker.h"
#include "foundation/exc/exceptions.h"
#include "support/drive_fixture.h"

namespace {

using test_support::call_answer;
using test_support::DriveFixture;
using test_support::tape_link;

class TaskProcedures : public DriveFixture {
protected:
    TaskProcedures() { plug_in_drives(1); }

    static std::string erase_arguments(unsigned number, const std::string& long_erasure) {
        return "<SymLinkName value=\"" + tape_link(number) + "\" /><LongErasure value=\"" + long_erasure + "\" />";
    }

    /// Starts an erase and gives its id.
    std::string start(unsigned number = 0, const std::string& long_erasure = "false") {
        return output_value(owner_call("EraseTape", erase_arguments(number, long_erasure)), "TaskID");
    }
    call_answer task_call(const std::string& procedure, const std::string& id) {
        return owner_call(procedure, "<TaskID value=\"" + id + "\" />");
    }
    std::string status(const std::string& id) { return output_value(task_call("TaskStatus", id), "TaskStatus"); }
    std::string unknown(const std::string& id) {
        system_.errors.set_last_error(0);
        return exc::win_sys_exc_t("There is no task with id = %1", id, 0).what();
    }
    /// An erase from its start to its end, by its status.
    std::string erased(unsigned number = 0, const std::string& long_erasure = "false") {
        const std::string id = start(number, long_erasure);
        await_threads();
        return status(id);
    }

    [[nodiscard]] platform::testing::tape_request last_erase() const {
        const std::vector<platform::testing::tape_request> requests = system_.tape.requests();
        const auto found =
            std::find_if(requests.rbegin(), requests.rend(), [](const auto& one) { return one.what == tape_kind::erase; });
        return found != requests.rend() ? *found : platform::testing::tape_request{};
    }
};

TEST_F(TaskProcedures, ARunningTaskTells997EachTime) {
    tape_.close_gate();
    const std::string id = start();
    for (int look = 0; look < 3; ++look) {
        EXPECT_EQ(task_call("TaskStatus", id).output, "<OutputArguments><TaskStatus value=\"997\" /></OutputArguments>");
    }
    tape_.await_waiting(1);
    EXPECT_EQ(status(id), "997");
    EXPECT_TRUE(system_.log.has_line("tap| Checking task status"));
    EXPECT_TRUE(system_.log.has_line("tap| Checking task status ok."));
}

TEST_F(TaskProcedures, ASuccessIsToldOnce) {
    const std::string id = start();
    await_threads();
    EXPECT_EQ(status(id), "0");
    system_.errors.set_last_error(0);
    const call_answer again = task_call("TaskStatus", id);
    EXPECT_FALSE(again.success);
    EXPECT_EQ(again.error, unknown(id));
    EXPECT_TRUE(system_.log.has_line("tap| Checking task status Failed."));
    EXPECT_EQ(system_.devices.open_handles(), 0u);
}

TEST_F(TaskProcedures, AFailureIsToldEachTime) {
    system_.tape.always(tape_kind::erase, 19);
    const std::string id = start();
    await_threads();
    for (int look = 0; look < 3; ++look) {
        EXPECT_EQ(status(id), "19");
    }
    EXPECT_EQ(system_.devices.open_handles(), 0u);
}

TEST_F(TaskProcedures, TheLengthOfTheErasureIsPassedOn) {
    const std::pair<const char*, std::uint32_t> cases[] = {{"true", platform::TAPE_ERASE_LONG},
                                                           {"false", platform::TAPE_ERASE_SHORT},
                                                           {"0", platform::TAPE_ERASE_SHORT},
                                                           {"yes", platform::TAPE_ERASE_LONG}};
    for (const auto& [text, type] : cases) {
        EXPECT_EQ(erased(0, text), "0");
        EXPECT_EQ(last_erase().number, type) << text;
        EXPECT_FALSE(last_erase().immediate);
    }
}

TEST_F(TaskProcedures, TheIdIsThatOfTheTasksOwnThread) {
    tape_.close_gate();
    const std::string id = start();
    tape_.await_waiting(1);
    std::vector<std::string> of_thread;
    for (const std::string& entry : system_.log.entries()) {
        if (entry.find("Erasing tape.") != std::string::npos) {
            of_thread.push_back(entry);
        }
    }
    ASSERT_EQ(of_thread.size(), 1u);
    EXPECT_NE(of_thread[0].find(" " + id + "> tap| Erasing tape."), std::string::npos) << of_thread[0];
}

TEST_F(TaskProcedures, TheWorkIsInTheLog) {
    EXPECT_EQ(erased(), "0");
    std::vector<std::string> of_thread;
    for (const std::string& line : system_.log.lines()) {
        for (const char* part : {"Erasing", "Set position", "Beginning"}) {
            if (line.find(part) != std::string::npos) {
                of_thread.push_back(line);
            }
        }
    }
    EXPECT_EQ(of_thread, (std::vector<std::string>{"tap| Erasing tape.", "tap|   Set position [0] to tape .",
                                                   "tap|   Set position [0] to tape . ok.", "tap|   Beginning tape erasing.",
                                                   "tap|   Beginning tape erasing. ok.", "tap| Erasing tape. ok."}));
}

TEST_F(TaskProcedures, EveryStatusOfAFailedEraseIsTheTasks) {
    for (const std::uint32_t error : {1u, 6u, 15u, 19u, 20u, 21u, 50u, 1100u, 1104u, 1110u, 1111u, 1112u, 1117u}) {
        system_.tape.always(tape_kind::erase, error);
        system_.clock.forget_sleeps();
        EXPECT_EQ(erased(), std::to_string(error));
        EXPECT_EQ(system_.clock.sleeps(), std::vector<std::int64_t>(7, 10'000)) << error;
    }
}

TEST_F(TaskProcedures, TheTextOfAFailedEraseIsInTheLog) {
    system_.tape.always(tape_kind::erase, 19);
    EXPECT_EQ(erased(), "19");
    const std::vector<std::string> lines = system_.log.lines();
    const auto timed_out =
        std::find(lines.begin(), lines.end(), "tap| ERR |Timed out waiting for EraseTape symLink = \\\\.\\Tape0'");
    ASSERT_NE(timed_out, lines.end());
    const std::vector<std::string> end(timed_out + 1, timed_out + 6);
    EXPECT_EQ(end,
              (std::vector<std::string>{"tap|   Beginning tape erasing. Failed.", "tap| ERR |" + exc::win_error_text(19),
                                        "tap| >>  |19", "tap| >>  |--tr:Error code: 0x00000013", "tap| Erasing tape. Failed."}));
}

/// A failure of another kind than a failed system call is told by the last error: here the rewind's.
TEST_F(TaskProcedures, AFailedRewindIsToldByTheLastError) {
    system_.tape.always(tape_kind::set_position, 1117);
    EXPECT_EQ(erased(), "1117");
    EXPECT_EQ(system_.tape.count(tape_kind::erase), 0u);
    EXPECT_EQ(log_lines_with("unknown _error"), std::vector<std::string>{"tap| ERR |unknown _error = 1117"});
    EXPECT_TRUE(system_.log.has_line("tap| Erasing tape. Failed."));
    EXPECT_EQ(system_.devices.open_handles(), 0u);
}

TEST_F(TaskProcedures, AFilemarkInTheRewindDoesNotKeepFromErasing) {
    system_.tape.always(tape_kind::set_position, 1101);
    EXPECT_EQ(erased(), "0");
    EXPECT_EQ(system_.tape.count(tape_kind::erase), 1u);
}

TEST_F(TaskProcedures, ALinkThatDoesNotExistGivesATaskThatFails) {
    const std::string id = start(7);
    await_threads();
    EXPECT_EQ(status(id), "2");
    EXPECT_EQ(status(id), "2");
    EXPECT_EQ(log_lines_with("unknown _error"), std::vector<std::string>{"tap| ERR |unknown _error = 2"});
    EXPECT_TRUE(system_.log.has_line("tap| Erasing tape. Failed."));
}

/// Tape functions that fail with words but without a number.
class wordless_tape final : public platform::tape_functions {
public:
    std::uint32_t get_parameters(platform::device_handle, std::uint32_t, std::uint32_t&, std::span<std::uint8_t>) override {
        return 0;
    }
    std::uint32_t prepare(platform::device_handle, std::uint32_t, bool) override { return 0; }
    std::uint32_t set_position(platform::device_handle, std::uint32_t, std::uint32_t, std::uint64_t, bool) override { return 0; }
    std::uint32_t erase(platform::device_handle, std::uint32_t, bool) override { throw failure; }
    std::uint32_t get_status(platform::device_handle) override { return 0; }

    exc::win_sys_exc_t failure{"The drive has no number for it.", 5};
};

TEST_F(TaskProcedures, AFailedEraseWithoutATapeStatusIs1627) {
    wordless_tape tape;
    platform::system_set set = platform::system();
    set.tape_functions = &tape;
    const platform::scoped_system scope(set);
    EXPECT_EQ(erased(), "1627");
    EXPECT_TRUE(log_lines_with("unknown _error").empty());
}

TEST_F(TaskProcedures, WaitForResultOfARunningTaskReturnsAtOnce) {
    tape_.close_gate();
    const std::string id = start();
    tape_.await_waiting(1);
    EXPECT_EQ(task_call("WaitForResult", id).output, "<OutputArguments />");
    EXPECT_EQ(status(id), "997");
}

TEST_F(TaskProcedures, WaitForResultOfAFinishedTaskLeavesItsStatus) {
    system_.tape.always(tape_kind::erase, 19);
    const std::string id = start();
    await_threads();
    EXPECT_TRUE(task_call("WaitForResult", id).success);
    EXPECT_TRUE(task_call("WaitForResult", id).success);
    EXPECT_EQ(status(id), "19");
}

TEST_F(TaskProcedures, AnUnknownTaskIsAFailure) {
    for (const char* procedure : {"TaskStatus", "WaitForResult"}) {
        EXPECT_EQ(task_call(procedure, "77").error, unknown("77"));
        EXPECT_EQ(task_call(procedure, "nonsense").error, unknown("0"));
        EXPECT_EQ(
            owner_call(procedure).error,
            "Value of the argument 'TaskID' is not defined.\n--tr:Failed to retrieve value of the UInt64 attribute 'TaskID'.");
    }
}

TEST_F(TaskProcedures, TheIdIsCutTo32Bits) {
    tape_.close_gate();
    const std::string id = start();
    EXPECT_EQ(status(std::to_string((std::uint64_t{7} << 32) + std::stoul(id))), "997");
}

TEST_F(TaskProcedures, EraseNeedsBothArgumentsAndThenStartsNothing) {
    EXPECT_EQ(owner_call("EraseTape", "<LongErasure value=\"true\" />").error,
              "Value of the argument 'SymLinkName' is not defined.\n--tr:Failed to retrieve value of the multibyte attribute "
              "'SymLinkName'.");
    EXPECT_EQ(drive_call("EraseTape").error,
              "Value of the argument 'LongErasure' is not defined.\n--tr:Failed to retrieve value of the boolean attribute "
              "'LongErasure'.");
    await_threads();
    EXPECT_TRUE(system_.devices.requests().empty());
}

TEST_F(TaskProcedures, TwoErasesOfOneDriveAreTheCallersAffair) {
    tape_.close_gate();
    const std::string first = start();
    const std::string second = start();
    EXPECT_NE(first, second);
    tape_.await_waiting(2);
    tape_.open_gate();
    await_threads();
    EXPECT_EQ(status(first), "0");
    EXPECT_EQ(status(second), "0");
}

TEST_F(TaskProcedures, TwoHundredErasesLeaveTheServerAnswering) {
    constexpr unsigned count = 200;
    plug_in_drives(count);
    tape_.close_gate();
    std::set<std::string> ids;
    for (unsigned number = 0; number < count; ++number) {
        ids.insert(start(number, "true"));
    }
    EXPECT_EQ(ids.size(), count);
    tape_.await_waiting(count);
    for (const std::string& id : ids) {
        EXPECT_EQ(status(id), "997");
        EXPECT_TRUE(task_call("WaitForResult", id).success);
    }
    EXPECT_TRUE(call("GetOwnerName").success);
    EXPECT_TRUE(drive_call("GetDriveError").success);
    EXPECT_TRUE(owner_call("GetMediaInfo", "<SymLinkName value=\"\\\\.\\Tape199\" />").success);
    EXPECT_NE(output_value(owner_call("GetDrives"), "Drives").find("DeviceName=\"Tape199\""), std::string::npos);
    tape_.open_gate();
    await_threads();
    for (const std::string& id : ids) {
        EXPECT_EQ(status(id), "0");
        EXPECT_FALSE(task_call("TaskStatus", id).success);
    }
    EXPECT_EQ(system_.tape.count(tape_kind::erase), count);
    EXPECT_EQ(system_.devices.open_handles(), 0u);
}

/// Gives new threads of this process a stack that no machine has room for.
class impossible_stack {
public:
    impossible_stack() {
        pthread_getattr_default_np(&former_);
        pthread_attr_t huge;
        pthread_getattr_default_np(&huge);
        pthread_attr_setstacksize(&huge, std::size_t{1} << 46);
        pthread_setattr_default_np(&huge);
        pthread_attr_destroy(&huge);
    }
    ~impossible_stack() {
        pthread_setattr_default_np(&former_);
        pthread_attr_destroy(&former_);
    }
    impossible_stack(const impossible_stack&) = delete;
    impossible_stack& operator=(const impossible_stack&) = delete;

private:
    pthread_attr_t former_{};
};

TEST_F(TaskProcedures, AThreadThatCannotBeStartedFailsTheCall) {
    {
        const impossible_stack no_thread;
        const call_answer answer = owner_call("EraseTape", erase_arguments(0, "true"));
        EXPECT_FALSE(answer.success);
        EXPECT_EQ(answer.error.find("boost::thread_resource_error"), 0u) << answer.error;
    }
    EXPECT_FALSE(EraseThreadsRunning());
    EXPECT_TRUE(system_.devices.requests().empty());
    EXPECT_EQ(erased(), "0");
}

// The worker itself.

class EraseWorker : public TaskProcedures {
protected:
    void start_worker() { worker_ = boost::make_shared<CEraseTapeWorker>(tape_link(0), false); }

    boost::shared_ptr<CEraseTapeWorker> worker_;
};

TEST_F(EraseWorker, RunsUntilTheDriveHasFinished) {
    tape_.close_gate();
    start_worker();
    EXPECT_FALSE(worker_->IsFinished());
    EXPECT_EQ(worker_->GetStatus(), 997u);
    EXPECT_NE(worker_->task_id(), 0u);
    EXPECT_TRUE(EraseThreadsRunning());
    tape_.await_waiting(1);
    worker_->Join();
    EXPECT_FALSE(worker_->IsFinished());
    tape_.open_gate();
    await_threads();
    EXPECT_TRUE(worker_->IsFinished());
    EXPECT_EQ(worker_->GetStatus(), 0u);
}

TEST_F(EraseWorker, ManyMayJoinAFinishedOne) {
    start_worker();
    while (!worker_->IsFinished()) {
        std::this_thread::yield();
    }
    std::vector<std::thread> threads;
    for (int index = 0; index < 4; ++index) {
        threads.emplace_back([&] { EXPECT_NO_THROW(worker_->Join()); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_FALSE(EraseThreadsRunning());
    EXPECT_NO_THROW(worker_->Join());
}

TEST_F(EraseWorker, OneThatNobodyHoldsRunsToItsEnd) {
    tape_.close_gate();
    start_worker();
    tape_.await_waiting(1);
    worker_.reset();
    EXPECT_TRUE(EraseThreadsRunning());
    tape_.open_gate();
    await_threads();
    EXPECT_TRUE(system_.log.has_line("tap| Erasing tape. ok."));
    EXPECT_EQ(system_.devices.open_handles(), 0u);
}

/// The fakes' clock, with an eye on each look at the time that a thread takes for a line of the log.
class watched_clock final : public platform::clock {
public:
    watched_clock(platform::clock& inner, std::function<void()> look) : inner_(inner), look_(std::move(look)) {}

    std::int64_t seconds() override { return inner_.seconds(); }
    std::int64_t milliseconds() override { return inner_.milliseconds(); }
    platform::local_time now_local() override {
        look_();
        return inner_.now_local();
    }
    void sleep(std::int64_t milliseconds) override { inner_.sleep(milliseconds); }

private:
    platform::clock& inner_;
    std::function<void()> look_;
};

/// Runs something at the last line that a worker logs, when it is finished already.
class EraseWorkerAtItsEnd : public EraseWorker {
protected:
    void run_at_the_end(std::function<void()> work) {
        std::atomic<bool> begun = false;  // `worker_` is another thread's until then
        watched_clock clock(system_.clock, [&] {
            if (begun && at_the_end()) {
                work();
            }
        });
        platform::system_set set = platform::system();
        set.clock = &clock;
        const platform::scoped_system scope(set);
        tape_.close_gate();
        start_worker();
        tape_.await_waiting(1);
        begun = true;
        tape_.open_gate();
        await_threads();
    }

private:
    [[nodiscard]] bool at_the_end() const {
        return worker_->IsFinished() && platform::system().process->current_thread_id() == worker_->task_id();
    }
};

TEST_F(EraseWorkerAtItsEnd, DoesNotJoinItself) {
    std::string refusal;
    run_at_the_end([&] {
        try {
            worker_->Join();
        } catch (const std::exception& e) {
            refusal = e.what();
        }
    });
    EXPECT_EQ(refusal.find("boost thread: trying joining itself"), 0u) << refusal;
    EXPECT_EQ(worker_->GetStatus(), 0u);
    EXPECT_NO_THROW(worker_->Join());
}

TEST_F(EraseWorkerAtItsEnd, ALogThatFailsDoesNotTurnAnErasedTapeIntoAFailure) {
    bool failed = false;
    run_at_the_end([&] {
        failed = true;
        platform::system().errors->set_last_error(112);
        throw std::runtime_error("The log is full.");
    });
    EXPECT_TRUE(failed);
    EXPECT_EQ(worker_->GetStatus(), 0u);
}

}  // namespace
