#include "foundation/logging/debug_output_log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "foundation/exc/exceptions.h"
#include "foundation/logging/writers.h"
#include "foundation/util/zip_writer.h"
#include "platform/testing/fakes.h"

namespace {

using platform::datagram_endpoint;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::IsEmpty;
using ::testing::Pair;

constexpr const char* settings_key = "SOFTWARE\\TarnO\\Tarno NFS";

class DebugOutputLog : public ::testing::Test {
protected:
    void enable() { system_.registry.set_dword(settings_key, "ExtLogEnabled", 1); }

    platform::testing::test_system system_;
    logging::receiver::COutputDebugStringLog log_;
};

TEST_F(DebugOutputLog, HasNoPathAndNoSize) {
    EXPECT_EQ(log_.path(), "");
    EXPECT_EQ(log_.line_end(), "\n");
    system_.registry.add_key(settings_key);
    log_.write("text");
    EXPECT_EQ(log_.size(), 0U);
    EXPECT_NO_THROW(log_.compress({}));
}

TEST_F(DebugOutputLog, WritesToTheDebugChannelAlone) {
    system_.registry.add_key(settings_key);
    log_.write("one\n");
    log_.write("two\n");
    EXPECT_THAT(system_.debug_output.texts(), ElementsAre("one\n", "two\n"));
    EXPECT_THAT(system_.debug_output.datagrams(), IsEmpty());
    EXPECT_EQ(system_.debug_output.sockets_asked_for(), 1);
}

TEST_F(DebugOutputLog, DatagramsGoToThisMachineWhenNoOtherIsNamed) {
    enable();
    log_.write("one\n");
    EXPECT_THAT(system_.debug_output.texts(), ElementsAre("one\n"));
    EXPECT_THAT(system_.debug_output.datagrams(), ElementsAre(Pair(datagram_endpoint{0x7F000001, 37183}, "one\n")));
}

TEST_F(DebugOutputLog, DatagramsGoToTheConfiguredMachine) {
    enable();
    system_.registry.set_string(settings_key, "ExtLogHost", "192.168.1.20");
    system_.registry.set_dword(settings_key, "ExtLogPort", 514);
    log_.write("one\n");
    enable();
    log_.write("two\n");
    EXPECT_THAT(system_.debug_output.datagrams(),
                ElementsAre(Pair(datagram_endpoint{0xC0A80114, 514}, "one\n"), Pair(datagram_endpoint{0xC0A80114, 514}, "two\n")));
}

TEST_F(DebugOutputLog, ValueThatCannotBeReadLeavesItsDefault) {
    enable();
    system_.registry.set_dword(settings_key, "ExtLogHost", 1);
    system_.registry.set_dword(settings_key, "ExtLogPort", 514);
    log_.write("one\n");
    EXPECT_THAT(system_.debug_output.datagrams(), ElementsAre(Pair(datagram_endpoint{0x7F000001, 514}, "one\n")));
    system_.registry.set_string(settings_key, "ExtLogEnabled", "yes");
    logging::receiver::COutputDebugStringLog second;
    EXPECT_NO_THROW(second.write("two\n"));
    EXPECT_EQ(system_.debug_output.datagrams().size(), 1U);
}

TEST_F(DebugOutputLog, KeyThatCannotBeOpenedIsToldOnce) {
    try {
        log_.write("one\n");
        FAIL();
    } catch (const exc::win_sys_exc_t& e) {
        EXPECT_STREQ(e.what(),
                     "The system cannot find the file specified.\n"
                     "Failed to open registry key [SOFTWARE\\TarnO\\Tarno NFS].\n--tr:Error code: 0x00000002");
    }
    EXPECT_NO_THROW(log_.write("two\n"));
    EXPECT_THAT(system_.debug_output.texts(), ElementsAre("one\n", "two\n"));
    system_.registry.add_key(settings_key);
    system_.registry.fail_open(5);
    logging::receiver::COutputDebugStringLog second;
    try {
        second.write("three\n");
        FAIL();
    } catch (const exc::win_sys_exc_t& e) {
        EXPECT_STREQ(e.what(),
                     "Access is denied.\nFailed to open registry key [SOFTWARE\\TarnO\\Tarno NFS].\n"
                     "--tr:Error code: 0x00000005");
    }
}

TEST_F(DebugOutputLog, SocketIsAskedForUntilThereIsOne) {
    enable();
    system_.debug_output.refuse_sockets(true);
    log_.write("one\n");
    system_.debug_output.refuse_sockets(false);
    log_.write("two\n");
    EXPECT_THAT(system_.debug_output.texts(), ElementsAre("one\n", "two\n"));
    EXPECT_THAT(system_.debug_output.datagrams(), ElementsAre(Pair(datagram_endpoint{0x7F000001, 37183}, "two\n")));
}

TEST_F(DebugOutputLog, DebugWriterHasALogOfItsOwn) {
    system_.registry.add_key(settings_key);
    EXPECT_EQ(g_debugLog.log().path(), "");
    EXPECT_NE(&g_debugLog.log(), logging::log_t::process_log().get());
    system_.log.clear();
    g_debugLog.LogInfo("hello");
    EXPECT_THAT(system_.debug_output.texts(), ElementsAre(EndsWith("dbg| hello\n")));
    EXPECT_THAT(system_.log.lines(), IsEmpty());
}

}  // namespace
