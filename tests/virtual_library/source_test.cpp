#include "platform/virtual_library/virtual_library_source.h"
#include "virtual_library/library_fixture.h"

namespace platform::tape_library {

class source_test : public library_test {
protected:
    source_test() {
        create_library(u"C:\\one");
        create_library(u"C:\\two", library_options{.drives = 1, .serial = "SECOND  ", .drive_serial = "OTHER"});
    }
};

TEST_F(source_test, lists_the_units_of_its_folders_in_order) {
    virtual_library_source source({u"C:\\one", u"C:\\two"});
    std::vector<std::string> found;
    for (const device_stack::logical_unit_info& each : source.enumerate()) {
        found.push_back(each.identity + " " + std::to_string(each.peripheral_type) + " '" + each.serial + "' " +
                        std::to_string(each.location.port) + ":" + std::to_string(each.location.path) + ":" +
                        std::to_string(each.location.target) + ":" + std::to_string(each.location.lun));
    }
    EXPECT_EQ(found, (std::vector<std::string>{"C:\\one#0 8 'TRNLIB0001' 0:0:0:0", "C:\\one#1 1 'TRNDRV0001' 0:0:0:1",
                                               "C:\\one#2 1 'TRNDRV0002' 0:0:0:2", "C:\\two#0 8 'SECOND  ' 0:0:1:0",
                                               "C:\\two#1 1 'OTHER0001' 0:0:1:1"}));
    EXPECT_TRUE(source.problems().empty());
}

TEST_F(source_test, opens_a_unit_by_its_identity) {
    virtual_library_source source({u"C:\\one", u"C:\\two"});
    std::uint32_t code = 99;
    const auto unit = source.open("C:\\two#1", code);
    ASSERT_NE(unit, nullptr);
    EXPECT_EQ(code, 0U);
    EXPECT_EQ(result(*unit, test_unit_ready_cdb), "2/3a/00");
    EXPECT_EQ(source.open("C:\\two#2", code), nullptr);
    EXPECT_EQ(code, 2U);
    EXPECT_EQ(source.open("C:\\two", code), nullptr);
}

TEST_F(source_test, is_one_initiator) {
    virtual_library_source source({u"C:\\one"});
    std::uint32_t code = 0;
    const auto robot = source.open("C:\\one#0", code);
    ASSERT_EQ(result(*robot, move_cdb(slot, drive_element)), "ok");
    EXPECT_EQ(result(*source.open("C:\\one#1", code), test_unit_ready_cdb), "6/28/00");
    EXPECT_EQ(result(*source.open("C:\\one#1", code), test_unit_ready_cdb), "ok");
}

TEST_F(source_test, leaves_out_a_library_that_cannot_be_opened_and_tries_again) {
    virtual_library_source source({u"C:\\three", u"C:\\two"});
    ASSERT_EQ(source.problems().size(), 1U);
    EXPECT_NE(source.problems()[0].find("C:\\three\\library.xml"), std::string::npos);
    EXPECT_EQ(source.enumerate().size(), 2U);
    EXPECT_EQ(source.enumerate()[0].location.target, 1);
    EXPECT_EQ(system.log.lines().size(), 1U);
    create_library(u"C:\\three");
    EXPECT_EQ(source.enumerate().size(), 5U);
    EXPECT_TRUE(source.problems().empty());
    // Said once, like the trouble before it.
    EXPECT_EQ(source.enumerate().size(), 5U);
    ASSERT_EQ(system.log.lines().size(), 2U);
    EXPECT_NE(system.log.lines()[1].find("The virtual library 'C:\\three' can be used now."), std::string::npos);
}

TEST_F(source_test, has_a_folder_that_is_named_twice_once) {
    virtual_library_source source({u"C:\\two", u"C:\\two"});
    EXPECT_EQ(source.enumerate().size(), 2U);
    ASSERT_EQ(source.problems().size(), 1U);
    EXPECT_EQ(source.problems()[0],
              "Library file 'C:\\two\\state.xml.lock': the library is in use already, here or by another process");
}

TEST_F(source_test, leaves_out_a_library_whose_folder_cannot_be_written_to) {
    system.files.set_failure([](testing::memory_files::operation what, const std::string& path) {
        return what == testing::memory_files::operation::open && path.ends_with(".lock") ? error::write_protect : error::success;
    });
    virtual_library_source source({u"C:\\one", u"C:\\two"});
    EXPECT_TRUE(source.enumerate().empty());
    EXPECT_EQ(source.problems().size(), 2U);
    system.files.set_failure({});
    EXPECT_EQ(source.enumerate().size(), 5U);
}

TEST_F(source_test, leaves_out_a_unit_that_does_not_answer) {
    system.files.put("C:\\one\\faults.xml", "<faults><fault kind=\"dead\" unit=\"1\"/></faults>");
    virtual_library_source source({u"C:\\one"});
    const auto found = source.enumerate();
    ASSERT_EQ(found.size(), 2U);
    EXPECT_EQ(found[1].identity, "C:\\one#2");
}

}  // namespace platform::tape_library
