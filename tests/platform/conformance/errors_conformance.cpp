#include <thread>

#include "platform/conformance/implementations.h"

namespace {

using namespace platform;

template <typename Implementation>
using ErrorsConformance = conformance::suite<Implementation>;
TYPED_TEST_SUITE(ErrorsConformance, conformance::implementations, conformance::implementation_names);

TYPED_TEST(ErrorsConformance, KeepsALastErrorForEachThread) {
    errors& under_test = this->under_test_.errors;
    under_test.set_last_error(error::not_ready);
    std::uint32_t fresh = 99;
    std::uint32_t own = 99;
    std::thread other([&] {
        fresh = under_test.last_error();
        under_test.set_last_error(error::access_denied);
        own = under_test.last_error();
    });
    other.join();
    EXPECT_EQ(fresh, 0U);
    EXPECT_EQ(own, 5U);
    EXPECT_EQ(under_test.last_error(), 21U);
    under_test.set_last_error(error::success);
    EXPECT_EQ(under_test.last_error(), 0U);
}

TYPED_TEST(ErrorsConformance, EndsEachTextInALineEnd) {
    errors& under_test = this->under_test_.errors;
    EXPECT_EQ(under_test.system_text(0), "The operation completed successfully.\r\n");
    EXPECT_EQ(under_test.system_text(2), "The system cannot find the file specified.\r\n");
    EXPECT_EQ(under_test.system_text(5), "Access is denied.\r\n");
    EXPECT_EQ(under_test.system_text(21), "The device is not ready.\r\n");
    EXPECT_EQ(under_test.system_text(1110), "The media in the drive may have changed.\r\n");
    EXPECT_EQ(under_test.system_text(1111), "The I/O bus was reset.\r\n");
    EXPECT_EQ(under_test.system_text(1112), "No media in drive.\r\n");
    EXPECT_EQ(under_test.system_text(1117), "The request could not be performed because of an I/O device error.\r\n");
    EXPECT_EQ(under_test.system_text(1160), "The indicated source element has no media.\r\n");
    EXPECT_EQ(under_test.system_text(1168), "Element not found.\r\n");
    EXPECT_EQ(under_test.system_text(1707), "The network address is invalid.\r\n");
    EXPECT_EQ(under_test.system_text(1746), "The binding does not contain any authentication information.\r\n");
    EXPECT_EQ(under_test.system_text(1783), "The stub received bad data.\r\n");
    EXPECT_EQ(under_test.system_text(0x80070005), "Access is denied.\r\n");
}

TYPED_TEST(ErrorsConformance, HasATextForEveryNumberThatTheLogicNames) {
    for (const std::uint32_t code : {error::success,
                                     error::invalid_function,
                                     error::file_not_found,
                                     error::path_not_found,
                                     error::access_denied,
                                     error::invalid_handle,
                                     error::not_enough_memory,
                                     error::invalid_drive,
                                     error::write_protect,
                                     error::bad_unit,
                                     error::not_ready,
                                     error::bad_length,
                                     error::general_failure,
                                     error::sharing_violation,
                                     error::lock_violation,
                                     error::not_supported,
                                     error::device_not_exist,
                                     error::file_exists,
                                     error::invalid_parameter,
                                     error::disk_full,
                                     error::semaphore_timeout,
                                     error::insufficient_buffer,
                                     error::invalid_name,
                                     error::busy,
                                     error::already_exists,
                                     error::more_data,
                                     error::no_more_items,
                                     error::io_pending,
                                     error::no_unicode_translation,
                                     error::end_of_media,
                                     error::filemark_detected,
                                     error::media_changed,
                                     error::bus_reset,
                                     error::no_media_in_drive,
                                     error::io_device,
                                     error::source_element_empty,
                                     error::destination_element_full,
                                     error::illegal_element_address,
                                     error::magazine_not_present,
                                     error::device_door_open,
                                     error::device_not_connected,
                                     error::not_found,
                                     error::function_failed,
                                     1723U,
                                     1740U,
                                     1745U,
                                     1747U,
                                     1764U}) {
        const std::optional<std::string> text = this->under_test_.errors.system_text(code);
        ASSERT_TRUE(text.has_value()) << code;
        EXPECT_TRUE(text->ends_with(".\r\n")) << code;
    }
}

TYPED_TEST(ErrorsConformance, HasNoTextForNumbersOfNobody) {
    errors& under_test = this->under_test_.errors;
    EXPECT_EQ(under_test.system_text(0x7FFFFFFF), std::nullopt);
    EXPECT_EQ(under_test.system_text(12007), std::nullopt);
    EXPECT_EQ(under_test.internet_text(12007), std::nullopt);
    EXPECT_FALSE(under_test.category_text(0x7FFFFFFF).empty());
}

TYPED_TEST(ErrorsConformance, HasNoComErrorPending) {
    EXPECT_EQ(this->under_test_.errors.take_com_description(), std::nullopt);
}

}  // namespace
