#include "platform/testing/fakes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "foundation/logging/log_writer.h"
#include "foundation/util/bytes.h"
#include "platform/errors.h"
#include "platform/scsi_records.h"

namespace {

using namespace platform;
using namespace platform::testing;
using ::testing::ElementsAre;

std::uint32_t write_text(file& to, std::string_view text) {
    std::size_t count = 0;
    return to.write({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()}, count);
}

std::unique_ptr<file> open_for_writing(memory_files& files, const std::u16string& path) {
    std::unique_ptr<file> opened;
    EXPECT_EQ(files.open_file(path, file_access::write, file_share::read, file_open_mode::open_always, opened), 0U);
    return opened;
}

TEST(VirtualClock, MovesByWhatIsSleptAndRecordsIt) {
    virtual_clock clock;
    const std::int64_t start = clock.milliseconds();
    clock.sleep(5000);
    clock.sleep(0);
    clock.sleep(-1);
    clock.advance(500);
    EXPECT_EQ(clock.milliseconds() - start, 5500);
    EXPECT_THAT(clock.sleeps(), ElementsAre(5000, 0, -1));
    EXPECT_EQ(clock.slept_milliseconds(), 5000);
    clock.forget_sleeps();
    EXPECT_TRUE(clock.sleeps().empty());
}

TEST(VirtualClock, RunsItsHookAfterTimeHasPassed) {
    virtual_clock clock;
    const std::int64_t start = clock.seconds();
    std::int64_t seen = 0;
    clock.on_sleep([&](std::int64_t milliseconds) {
        seen = clock.seconds() - start;
        EXPECT_EQ(milliseconds, 7000);
    });
    clock.sleep(7000);
    EXPECT_EQ(seen, 7);
}

TEST(VirtualClock, CarriesTheWallClockOverMidnightAndLeapDays) {
    virtual_clock clock;
    clock.set_local({true, 2028, 2, 28, 23, 59, 58});
    clock.sleep(3000);
    const local_time now = clock.now_local();
    EXPECT_EQ(now.month, 2);
    EXPECT_EQ(now.day, 29);
    EXPECT_EQ(now.hour, 0);
    EXPECT_EQ(now.second, 1);
    clock.set_local({});
    EXPECT_FALSE(clock.now_local().valid);
}

TEST(MemoryFiles, LoseWhatWasNotFlushed) {
    memory_files files;
    files.put("C:\\data\\a", "old");
    const std::unique_ptr<file> a = open_for_writing(files, u"C:\\data\\a");
    EXPECT_EQ(write_text(*a, "new"), 0U);
    EXPECT_EQ(a->flush(), 0U);
    EXPECT_EQ(write_text(*a, " and more"), 0U);
    const std::unique_ptr<file> b = open_for_writing(files, u"C:\\data\\b");
    EXPECT_EQ(write_text(*b, "never flushed"), 0U);
    files.lose_power();
    EXPECT_EQ(files.content("C:\\data\\a"), "new");
    EXPECT_EQ(files.content("C:\\data\\b"), std::nullopt);
    EXPECT_EQ(write_text(*a, "x"), error::invalid_handle);
}

TEST(MemoryFiles, ReplaceDurablyButOnlyWithWhatWasFlushed) {
    memory_files files;
    files.put("C:\\data\\a", "old");
    files.put("C:\\data\\b", "old");
    {
        const std::unique_ptr<file> flushed = open_for_writing(files, u"C:\\data\\a.new");
        EXPECT_EQ(write_text(*flushed, "new"), 0U);
        EXPECT_EQ(flushed->flush(), 0U);
        const std::unique_ptr<file> unflushed = open_for_writing(files, u"C:\\data\\b.new");
        EXPECT_EQ(write_text(*unflushed, "new"), 0U);
    }
    EXPECT_EQ(files.replace_file(u"C:\\data\\a.new", u"C:\\data\\a"), 0U);
    EXPECT_EQ(files.replace_file(u"C:\\data\\b.new", u"C:\\data\\b"), 0U);
    files.lose_power();
    EXPECT_EQ(files.content("C:\\data\\a"), "new");
    EXPECT_EQ(files.content("C:\\data\\b"), "");
    EXPECT_THAT(files.paths(), ElementsAre("C:\\data\\a", "C:\\data\\b"));
}

TEST(MemoryFiles, RenameDurablyWithAllNamesOfTheFolder) {
    memory_files files;
    files.put("C:\\data\\a", "a");
    files.put("C:\\data\\b", "b");
    files.put("C:\\data\\c", "c");
    files.put("C:\\other\\d", "d");
    EXPECT_EQ(files.rename_file(u"C:\\data\\a", u"C:\\data\\a.1"), 0U);
    EXPECT_EQ(files.rename_file(u"C:\\other\\d", u"C:\\other\\d.1"), 0U);
    EXPECT_EQ(files.remove_file(u"C:\\data\\c"), 0U);
    EXPECT_EQ(files.rename_file_durably(u"C:\\data\\b", u"C:\\data\\a"), 0U);
    files.lose_power();
    EXPECT_THAT(files.paths(), ElementsAre("C:\\data\\a", "C:\\data\\a.1", "C:\\other\\d"));
    EXPECT_EQ(files.content("C:\\data\\a"), "b");
    EXPECT_EQ(files.content("C:\\data\\a.1"), "a");
}

TEST(MemoryFiles, LoseTheirNamesWhileOpen) {
    memory_files files;
    files.put("C:\\data\\a", "a");
    const std::unique_ptr<file> a = open_for_writing(files, u"C:\\data\\a");
    files.unlink("C:\\data\\a");
    EXPECT_FALSE(a->is_named(u"C:\\data\\a"));
    EXPECT_EQ(write_text(*a, "b"), 0U);
    EXPECT_THAT(files.paths(), ElementsAre());
    const std::unique_ptr<file> second = open_for_writing(files, u"C:\\data\\a");
    EXPECT_FALSE(a->is_named(u"C:\\data\\a"));
    EXPECT_TRUE(second->is_named(u"C:/data/a"));
    EXPECT_EQ(files.content("C:\\data\\a"), "");
}

TEST(MemoryFiles, AreFullAfterTheirLastByte) {
    memory_files files;
    files.put("C:\\data\\a", "12");
    files.set_free_bytes(3);
    const std::unique_ptr<file> a = open_for_writing(files, u"C:\\data\\a");
    const std::string_view text = "abcdefgh";
    std::size_t count = 0;
    EXPECT_EQ(a->write({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()}, count), error::disk_full);
    EXPECT_EQ(count, 5U);
    EXPECT_EQ(files.content("C:\\data\\a"), "abcde");
    EXPECT_THAT(files.writes("C:\\data\\a"), ElementsAre("abcde"));
}

TEST(MemoryFiles, KeepOpenFilesInTheirPlaceAndFailWhenTold) {
    memory_files files;
    files.put("C:\\data\\a", "x");
    {
        const std::unique_ptr<file> a = open_for_writing(files, u"C:\\data\\a");
        EXPECT_EQ(files.open_count(), 1U);
        EXPECT_EQ(files.remove_file(u"C:\\data\\a"), error::sharing_violation);
        EXPECT_EQ(files.rename_file(u"C:\\data\\a", u"C:\\data\\b"), error::sharing_violation);
    }
    EXPECT_EQ(files.open_count(), 0U);
    files.set_failure([](memory_files::operation what, const std::string& path) {
        return what == memory_files::operation::remove && path == "C:\\data\\a" ? error::access_denied : error::success;
    });
    EXPECT_EQ(files.remove_file(u"C:/data/a"), error::access_denied);
}

TEST(MemoryFiles, HaveNoDriveButTheirOwn) {
    memory_files files;
    std::unique_ptr<file> opened;
    EXPECT_EQ(files.create_folder(u"C:"), error::already_exists);
    EXPECT_EQ(files.create_folder(u"Q:"), error::path_not_found);
    EXPECT_EQ(files.create_folder(u"Q:\\data"), error::path_not_found);
    EXPECT_EQ(files.open_file(u"Q:", file_access::write, file_share::none, file_open_mode::open_always, opened),
              error::path_not_found);
    EXPECT_EQ(files.open_file(u"Q:\\a", file_access::write, file_share::none, file_open_mode::open_always, opened),
              error::path_not_found);
    EXPECT_EQ(opened, nullptr);
    files.add_folder("Q:\\data");
    EXPECT_EQ(files.create_folder(u"Q:\\data\\more"), error::success);
}

class ScriptedDevices : public ::testing::Test {
protected:
    test_system system_;
    scripted_devices& devices_ = system_.devices;
};

TEST_F(ScriptedDevices, OpenKnownNamesOnlyAndCloseOnce) {
    devices_.add_device("\\\\.\\Tape0");
    EXPECT_EQ(devices_.open_device("\\\\.\\Tape1"), invalid_device);
    EXPECT_EQ(system_.errors.last_error(), error::file_not_found);
    const device_handle handle = devices_.open_device("\\\\.\\TAPE0");
    ASSERT_NE(handle, invalid_device);
    EXPECT_EQ(devices_.open_handles(), 1U);
    EXPECT_TRUE(devices_.close_device(handle));
    EXPECT_FALSE(devices_.close_device(handle));
    EXPECT_EQ(system_.errors.last_error(), error::invalid_handle);
    devices_.on_open([](const std::string&) { return error::access_denied; });
    EXPECT_EQ(devices_.open_device("\\\\.\\Tape0"), invalid_device);
    EXPECT_EQ(system_.errors.last_error(), error::access_denied);
}

TEST_F(ScriptedDevices, UseUpQueuedAnswersBeforeTheyAsk) {
    devices_.add_device("\\\\.\\Changer0");
    const device_handle handle = devices_.open_device("\\\\.\\Changer0");
    std::array<std::uint8_t, 4> output{};
    std::uint32_t returned = 99;
    EXPECT_FALSE(devices_.control(handle, ioctl::changer_get_status, {}, output, returned));
    EXPECT_EQ(system_.errors.last_error(), error::invalid_function);
    EXPECT_EQ(returned, 0U);
    devices_.on_control([](const device_request&) { return device_answer{error::not_ready, {}, {}, {}}; });
    devices_.queue_control(ioctl::changer_get_status, device_answer{0, {1, 2}, {}, {}});
    devices_.queue_control(ioctl::changer_get_status, device_answer{0, {1, 2, 3, 4, 5}, {}, {}});
    EXPECT_TRUE(devices_.control(handle, ioctl::changer_get_status, {}, output, returned));
    EXPECT_EQ(returned, 2U);
    EXPECT_THAT(output, ElementsAre(1, 2, 0, 0));
    EXPECT_FALSE(devices_.control(handle, ioctl::changer_get_status, {}, output, returned));
    EXPECT_EQ(system_.errors.last_error(), error::insufficient_buffer);
    EXPECT_FALSE(devices_.control(handle, ioctl::changer_get_status, {}, output, returned));
    EXPECT_EQ(system_.errors.last_error(), error::not_ready);
    EXPECT_EQ(devices_.requests(device_request::kind::control).size(), 4U);
    EXPECT_EQ(devices_.unused_answers(), 0U);
}

TEST_F(ScriptedDevices, AnswerPassThroughInPlace) {
    devices_.add_device("\\\\.\\Tape0");
    const device_handle handle = devices_.open_device("\\\\.\\Tape0");
    const std::vector<std::uint8_t> sense{0x70, 0, 2};
    const std::vector<std::uint8_t> data{9, 8, 7};
    devices_.on_direct([&](const device_request& request) { return answer_scsi(request, 2, sense, data); });
    devices_.on_control([&](const device_request& request) { return answer_scsi(request, 0, {}, data); });

    SCSI_PASS_THROUGH header;
    header.Length = sizeof(header);
    header.CdbLength = 6;
    header.Cdb[0] = 0x12;
    header.DataIn = SCSI_DATA_IN;
    header.DataTransferLength = 2;
    header.SenseInfoLength = 32;
    header.SenseInfoOffset = sizeof(header);
    std::vector<std::uint8_t> block(sizeof(header) + 32);
    std::memcpy(block.data(), &header, sizeof(header));
    std::vector<std::uint8_t> area(2);
    std::uint32_t returned = 0;
    ASSERT_TRUE(devices_.pass_through_direct(handle, block, area, returned));
    auto answered = util::load_record<SCSI_PASS_THROUGH>(block);
    EXPECT_EQ(answered.ScsiStatus, 2);
    EXPECT_EQ(answered.SenseInfoLength, 3);
    EXPECT_EQ(answered.DataTransferLength, 2U);
    EXPECT_EQ(block[sizeof(header)], 0x70);
    EXPECT_THAT(area, ElementsAre(9, 8));

    header.DataBufferOffset = sizeof(header) + 32;
    block.assign(sizeof(header) + 34, 0);
    std::memcpy(block.data(), &header, sizeof(header));
    ASSERT_TRUE(devices_.control(handle, ioctl::scsi_pass_through, block, block, returned));
    EXPECT_EQ(returned, block.size());
    EXPECT_EQ(block[block.size() - 2], 9);
    EXPECT_EQ(cdb_of(devices_.requests().back()), (std::vector<std::uint8_t>{0x12, 0, 0, 0, 0, 0}));
}

TEST_F(ScriptedDevices, KeepDosNamesInLayers) {
    devices_.add_object("\\Device\\Changer7");
    std::string target;
    EXPECT_FALSE(devices_.query_dos_device("MyChanger", target));
    EXPECT_EQ(system_.errors.last_error(), error::file_not_found);
    EXPECT_TRUE(devices_.define_dos_device(dos_device::raw_target_path, "MyChanger", "\\Device\\Changer7"));
    EXPECT_TRUE(devices_.query_dos_device("mychanger", target));
    EXPECT_EQ(target, "\\Device\\Changer7");
    EXPECT_NE(devices_.open_device("\\\\.\\MyChanger"), invalid_device);
    EXPECT_TRUE(devices_.define_dos_device(dos_device::remove_definition, "MyChanger", ""));
    EXPECT_FALSE(devices_.define_dos_device(dos_device::remove_definition, "MyChanger", ""));
    EXPECT_EQ(devices_.open_device("\\\\.\\MyChanger"), invalid_device);
}

TEST(FakeAccounts, HaveNobodyCallingUntilTold) {
    test_system system;
    client_context context = 0;
    EXPECT_EQ(system.accounts.open_client_context(context), 1725U);
    system.accounts.set_administrator();
    ASSERT_EQ(system.accounts.open_client_context(context), 0U);
    std::vector<group_entry> groups;
    EXPECT_NE(system.accounts.client_groups_size(context), 0U);
    EXPECT_TRUE(system.accounts.client_groups(context, groups));
    EXPECT_EQ(groups.back().sid, (sid_bytes{1, 2, 0, 0, 0, 0, 0, 5, 32, 0, 0, 0, 0x20, 2, 0, 0}));
    sid_bytes sid;
    EXPECT_TRUE(system.accounts.create_well_known_sid(well_known_builtin_administrators, sid));
    EXPECT_EQ(sid, groups.back().sid);
    EXPECT_FALSE(system.accounts.create_well_known_sid(1, sid));
    EXPECT_EQ(system.accounts.free_client_context(context), 0U);
    EXPECT_EQ(system.accounts.free_client_context(context), error::invalid_handle);
}

TEST(FakeComRuntime, KeepsOneModelToAThread) {
    fake_com_runtime com;
    EXPECT_EQ(com.initialize(com_model::apartment_threaded), 0U);
    EXPECT_EQ(com.initialize(com_model::apartment_threaded), 1U);
    EXPECT_EQ(com.initialize(com_model::multi_threaded), 0x80010106U);
    EXPECT_EQ(com.open_count(), 2U);
    com.uninitialize();
    com.uninitialize();
    EXPECT_EQ(com.open_count(), 0U);
    EXPECT_EQ(com.initialize(com_model::multi_threaded), 0U);
    com.uninitialize();
    EXPECT_EQ(com.uninitialize_count(), 3U);
}

TEST(FakeRpcRuntime, BringsCallsToTheInterfaceWhileItListens) {
    fake_rpc_runtime runtime;
    rpc_interface offered;
    offered.operations = 2;
    offered.dispatch = [](const rpc_request& request, rpc_reply& reply) {
        if (request.operation == 1) {
            return rpc_status::bad_stub_data;
        }
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(request.stub.data()) % 8, 0U);
        const std::span<std::uint8_t> answer = reply.allocate(request.stub.size());
        std::reverse_copy(request.stub.begin(), request.stub.end(), answer.begin());
        return rpc_status::ok;
    };
    EXPECT_EQ(runtime.invoke(0, {}).status, 1722U);
    EXPECT_EQ(runtime.inquire_bindings(), 1718U);
    EXPECT_EQ(runtime.use_endpoint("ncacn_ip_tcp", 10, "6166"), 0U);
    EXPECT_EQ(runtime.inquire_bindings(), 0U);
    EXPECT_EQ(runtime.register_interface(offered, 0, 1234, 0), 0U);
    EXPECT_EQ(runtime.register_interface(offered, 0, 1234, 0), rpc_status::type_already_registered);
    EXPECT_EQ(runtime.listen(2, 1234), 0U);
    EXPECT_EQ(runtime.listen(2, 1234), rpc_status::already_listening);
    EXPECT_EQ(runtime.invoke(0, {1, 2, 3}).reply, (std::vector<std::uint8_t>{3, 2, 1}));
    EXPECT_EQ(runtime.invoke(1, {1}).status, rpc_status::bad_stub_data);
    EXPECT_EQ(runtime.invoke(2, {}).status, rpc_status::procedure_out_of_range);
    EXPECT_EQ(runtime.calls(fake_rpc_runtime::step::use_endpoint).front().endpoint, "6166");
    EXPECT_EQ(runtime.stop_listening(), 0U);
    runtime.set_status(fake_rpc_runtime::step::listen, 5);
    EXPECT_EQ(runtime.listen(2, 1234), 5U);
    EXPECT_FALSE(runtime.listening());
}

TEST(LogCapture, GivesLinesWithoutTheirStamps) {
    test_system system;
    const logging::log_writer_t writer("tst");
    writer.LogInfo("one\ntwo");
    writer.LogWarning("careful > here");
    EXPECT_THAT(system.log.lines(), ElementsAre("tst| one", "tst| two", "tst| WARN|careful > here"));
    EXPECT_EQ(system.log.entries().size(), 2U);
    EXPECT_TRUE(system.log.has_line("WARN|careful > here"));
    system.log.clear();
    EXPECT_TRUE(system.log.lines().empty());
}

}  // namespace
