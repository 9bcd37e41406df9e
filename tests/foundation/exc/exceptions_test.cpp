#include "foundation/exc/exceptions.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/system/system_error.hpp>
#include <thread>

#include "foundation/logging/log_writer.h"
#include "platform/testing/fakes.h"

namespace {

class Exceptions : public ::testing::Test {
protected:
    platform::testing::test_system system_;
};

class silent_exception : public std::exception {
public:
    const char* what() const noexcept override { return nullptr; }
};

TEST_F(Exceptions, EmptyChainRendersAsNothing) {
    const exc::exc_base_t e;
    EXPECT_STREQ(e.what(), "");
    EXPECT_EQ(e.plain_text(), "");
}

TEST_F(Exceptions, OneTraceRecordHasNoLineFeed) {
    exc::exc_base_t e;
    e.add_trace_message("only");
    EXPECT_STREQ(e.what(), "--tr:only");
    EXPECT_EQ(e.plain_text(), "only");
}

TEST_F(Exceptions, ChainRendersOneLineARecord) {
    exc::runtime_exc_t e("Slot [%1] of [%2].", "3", "lib");
    e.add_trace_message("engineers");
    e.add_message("people");
    EXPECT_STREQ(e.what(), "Slot [3] of [lib].\n--tr:engineers\npeople");
    EXPECT_EQ(e.plain_text(), "Slot [3] of [lib].\nengineers\npeople");
    EXPECT_EQ(e.code(), 0);
}

TEST_F(Exceptions, SystemErrorStartsWithTheSystemsSentence) {
    EXPECT_STREQ(exc::win_sys_exc_t(5).what(), "Access is denied.\n--tr:Error code: 0x00000005");
    const exc::win_sys_exc_t e("Cannot open [%1].", "Tape0", 5);
    EXPECT_STREQ(e.what(), "Access is denied.\nCannot open [Tape0].\n--tr:Error code: 0x00000005");
    EXPECT_EQ(e.code(), 5U);
    EXPECT_STREQ(exc::win_sys_exc_t("%1%2%3", "a", "b", "c", 5).what(), "Access is denied.\nabc\n--tr:Error code: 0x00000005");
    EXPECT_STREQ(exc::win_sys_exc_t("%1%2", "a", "b", 5).what(), "Access is denied.\nab\n--tr:Error code: 0x00000005");
}

TEST_F(Exceptions, ErrorTextLosesOneLineEnd) {
    system_.errors.set_system_text(1, "One.\r\n");
    system_.errors.set_system_text(2, "Two.\r\n\r\n");
    system_.errors.set_system_text(3, "None.");
    EXPECT_EQ(exc::win_error_text(1), "One.");
    EXPECT_EQ(exc::win_error_text(2), "Two.\r\n");
    EXPECT_EQ(exc::win_error_text(3), "None.");
}

TEST_F(Exceptions, ErrorTextOfTheInternetsRangeComesFromItsLibrary) {
    for (const std::uint32_t code : {11999U, 12000U, 12175U, 12176U}) {
        system_.errors.set_system_text(code, std::nullopt);
        system_.errors.set_internet_text(code, "internet\r\n");
        system_.errors.set_category_text(code, "category\r\n");
    }
    EXPECT_EQ(exc::win_error_text(11999), "category");
    EXPECT_EQ(exc::win_error_text(12000), "internet");
    EXPECT_EQ(exc::win_error_text(12175), "internet");
    EXPECT_EQ(exc::win_error_text(12176), "category");
    system_.errors.set_system_text(12001, std::nullopt);
    system_.errors.set_category_text(12001, "category");
    EXPECT_EQ(exc::win_error_text(12001), "category");
}

TEST_F(Exceptions, CodeBecomesAWithClause) {
    EXPECT_EQ(exc::with_error_text(0), "");
    EXPECT_EQ(exc::with_error_text(5), "with error Access is denied.");
}

TEST_F(Exceptions, ComErrorKeepsTheBlankBeforeItsCode) {
    EXPECT_STREQ(exc::com_exc_t(0x80010106U, "Cannot initialize COM runtime").what(),
                 " Error code: 0x80010106\nCannot initialize COM runtime");
    system_.errors.set_com_description("Object said.");
    const exc::com_exc_t e(0x80004005U, "Failed.");
    EXPECT_STREQ(e.what(), "Object said. Error code: 0x80004005\nFailed.");
    EXPECT_EQ(e.hr(), 0x80004005U);
    EXPECT_FALSE(system_.errors.take_com_description().has_value());
}

TEST_F(Exceptions, LockedFileKeepsItsPathThroughAClone) {
    const exc::file_locked_exc_t e("C:\\a.log");
    EXPECT_STREQ(e.what(), "File [C:\\a.log] is locked.");
    const auto copy = e.clone();
    const auto* typed = dynamic_cast<const exc::file_locked_exc_t*>(copy.get());
    ASSERT_NE(typed, nullptr);
    EXPECT_EQ(typed->path(), "C:\\a.log");
    try {
        e.rethrow();
    } catch (const exc::file_locked_exc_t&) {
        FAIL() << "the type should be lost";
    } catch (const exc::exc_base_t& thrown) {
        EXPECT_STREQ(thrown.what(), e.what());
    }
}

TEST_F(Exceptions, DeviceErrorCarriesItsRecord) {
    system_.errors.set_last_error(5);
    const exc::xml_type_exc_t e("GetTapeStatus", "a & b < c 'd' \"e\" > f");
    EXPECT_STREQ(e.what(), "Access is denied.");
    EXPECT_EQ(e.xml(),
              "<Error><ApiFunctionName>GetTapeStatus</ApiFunctionName>"
              "<ServiceMessage>a &amp; b &lt; c &#39;d&#39; &#34;e&#34; &gt; f</ServiceMessage>"
              "<ApiCode>5</ApiCode><ApiMessage>Access is denied.</ApiMessage></Error>");
    const auto copy = e.clone();
    EXPECT_EQ(dynamic_cast<const exc::xml_type_exc_t*>(copy.get()), nullptr);
    EXPECT_STREQ(copy->what(), "Access is denied.");
}

TEST_F(Exceptions, DeviceErrorCanBeMadeTwiceWithALogLineBetween) {
    system_.errors.set_last_error(21);
    const exc::xml_type_exc_t first("EraseTape", "Erase failed.");
    g_log.LogError(first.xml());
    const exc::xml_type_exc_t second("EraseTape", "Erase failed.");
    EXPECT_EQ(first.xml(), second.xml());
    EXPECT_THAT(second.xml(), ::testing::HasSubstr("<ApiCode>21</ApiCode>"));
}

template <typename Exception>
void expect_own_clone_and_rethrow(const Exception& e) {
    EXPECT_NE(dynamic_cast<const Exception*>(e.clone().get()), nullptr);
    EXPECT_THROW(e.rethrow(), Exception);
}

TEST_F(Exceptions, CloneAndRethrowKeepTheTypeWhereItIsKept) {
    expect_own_clone_and_rethrow(exc::exc_base_t("a"));
    expect_own_clone_and_rethrow(exc::runtime_exc_t("a"));
    expect_own_clone_and_rethrow(exc::win_sys_exc_t(5));
    expect_own_clone_and_rethrow(exc::com_exc_t(5, "a"));
}

TEST_F(Exceptions, RethrowingKeepsTypeAndThread) {
    std::uint32_t born = 0;
    boost::shared_ptr<exc::exc_base_t> carried;
    std::thread([&] {
        try {
            throw exc::win_sys_exc_t("First.", 5);
        } catch (const std::exception& e) {
            carried = exc::clone_current(e);
            born = carried->thread_id();
        }
    }).join();
    ASSERT_NE(born, 0U);
    ASSERT_NE(born, system_.process.current_thread_id());
    try {
        try {
            carried->rethrow();
        } catch (std::exception& e) {
            exc::rethrow_with_message("Slot %1 of %2.", "1", "2", e);
        }
    } catch (const exc::win_sys_exc_t& e) {
        EXPECT_STREQ(e.what(), "Access is denied.\nFirst.\n--tr:Error code: 0x00000005\nSlot 1 of 2.");
        EXPECT_EQ(e.thread_id(), born);
        EXPECT_EQ(e.code(), 5U);
    }
}

TEST_F(Exceptions, RethrowingWithTraceMarksTheSentence) {
    try {
        try {
            throw exc::file_locked_exc_t("f");
        } catch (std::exception& e) {
            exc::rethrow_with_trace("%1%2%3%4", "a", "b", "c", "d", e);
        }
    } catch (const exc::file_locked_exc_t& e) {
        EXPECT_STREQ(e.what(), "File [f] is locked.\n--tr:abcd");
        EXPECT_EQ(e.path(), "f");
    }
}

TEST_F(Exceptions, ForeignExceptionIsAdopted) {
    try {
        try {
            throw std::out_of_range("too far");
        } catch (std::exception& e) {
            exc::rethrow_with_trace("Context.", e);
        }
    } catch (const exc::runtime_exc_t& e) {
        EXPECT_STREQ(e.what(), "too far\n--tr:Context.");
        EXPECT_EQ(e.code(), 0);
    }
    try {
        try {
            throw silent_exception();
        } catch (std::exception& e) {
            exc::rethrow_with_message("Context.", e);
        }
    } catch (const exc::runtime_exc_t& e) {
        EXPECT_STREQ(e.what(), "\nContext.");
    }
}

TEST_F(Exceptions, BoostSystemErrorGivesItsValue) {
    system_.text_encoding.set_ansi_page(platform::testing::fake_text_encoding::ansi_page::western);
    try {
        try {
            throw boost::system::system_error(boost::system::error_code(2, boost::system::generic_category()), "d\xE9");
        } catch (std::exception& e) {
            exc::rethrow_with_message("Context.", e);
        }
    } catch (const exc::runtime_exc_t& e) {
        EXPECT_EQ(e.code(), 2);
        EXPECT_THAT(e.what(), ::testing::StartsWith("d\xC3\xA9: "));
        EXPECT_THAT(e.what(), ::testing::EndsWith("\nContext."));
    }
}

TEST_F(Exceptions, RethrowingMergesTraceInformation) {
    exc::trace_info_t more;
    more.parameters = {{"old", "new value"}, {"new", "2"}};
    more.events = {{4, "later"}};
    try {
        try {
            exc::runtime_exc_t e("a");
            e.trace_info().parameters = {{"old", "first value"}};
            e.trace_info().events = {{1, "first"}};
            throw e;
        } catch (std::exception& e) {
            exc::rethrow_with({"b", false}, more, e);
        }
    } catch (const exc::runtime_exc_t& e) {
        EXPECT_EQ(e.trace_info().parameters.at("old"), "first value");
        EXPECT_EQ(e.trace_info().parameters.at("new"), "2");
        ASSERT_EQ(e.trace_info().events.size(), 2U);
        EXPECT_EQ(e.trace_info().events[1].info, "later");
    }
}

TEST_F(Exceptions, CloneOfAForeignExceptionIsARuntimeError) {
    const auto copy = exc::clone_current(std::out_of_range("too far"));
    EXPECT_NE(dynamic_cast<const exc::runtime_exc_t*>(copy.get()), nullptr);
    EXPECT_STREQ(copy->what(), "too far");
    EXPECT_STREQ(exc::clone_current(silent_exception())->what(), "");
}

class shouting final : public exc::translator_t {
public:
    std::string translate(const std::string& text) override { return text + "!"; }
};

TEST_F(Exceptions, TranslationKeepsTheTraceMarks) {
    exc::runtime_exc_t e("a");
    e.add_trace_message("b");
    shouting translator;
    e.translate(translator);
    EXPECT_STREQ(e.what(), "a!\n--tr:b!");
    EXPECT_EQ(e.plain_text(), "a!\nb!");
}

TEST_F(Exceptions, ChecksOfBoundsAndWidthsHaveTheirWords) {
    EXPECT_NO_THROW(exc::check_array_bound(1, 2));
    try {
        exc::check_array_bound(2, 2);
        FAIL();
    } catch (const exc::runtime_exc_t& e) {
        EXPECT_STREQ(e.what(), "Out of the array bound. Index of the requested array element: [2]. Array size: [2].");
    }
    EXPECT_EQ(exc::narrow_to_u16(65535), 65535);
    try {
        (void)exc::narrow_to_u16(65536);
        FAIL();
    } catch (const exc::runtime_exc_t& e) {
        EXPECT_STREQ(e.what(), "Unable to cast value from [unsigned long] to [unsigned short].");
    }
}

}  // namespace
