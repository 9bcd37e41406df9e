#include <filesystem>
#include <fstream>
#include <iterator>

#include "support/source_folder.h"
#include "virtual_library/library_fixture.h"

namespace platform::tape_library {

namespace {

const std::string head = "<library serial=\"S\">";
const std::string elements =
    "<elements><transports first=\"0\" count=\"1\"/><slots first=\"0x1000\" count=\"4\"/><ports first=\"16\" count=\"1\"/>"
    "<drives first=\"256\" count=\"1\"/></elements>";
const std::string drives = "<drives><drive serial=\"D1\"/></drives>";
const std::string good = head + elements + drives + "</library>";

}  // namespace

class personality_test : public library_test {
protected:
    static std::string reason(const std::string& xml) {
        try {
            (void)parse_personality(xml, "library.xml");
        } catch (const library_error& problem) {
            const std::string text = problem.plain_text();
            const std::string front = "Library file 'library.xml': ";
            EXPECT_EQ(text.substr(0, front.size()), front);
            return text.substr(std::min(front.size(), text.size()));
        }
        return "none";
    }

    static std::string opening_problem(const std::u16string& folder) {
        try {
            (void)virtual_library::open(folder);
        } catch (const library_error& problem) {
            return problem.plain_text();
        }
        return "none";
    }
};

TEST_F(personality_test, has_defaults_for_all_that_may_be_left_out) {
    const personality value = parse_personality(good, "library.xml");
    EXPECT_EQ(value.vendor, "TARNO");
    EXPECT_EQ(value.serial, "S");
    EXPECT_EQ(value.state, "state.xml");
    EXPECT_EQ(value.slots.first, 0x1000);
    EXPECT_EQ(value.slots.count, 4);
    ASSERT_EQ(value.drive_units.size(), 1U);
    EXPECT_EQ(value.drive_units[0].product, "VIRTUAL-LTO8");
    EXPECT_TRUE(value.cartridges.empty());
    EXPECT_EQ(value.timings.move, 0);
    EXPECT_EQ(value.designators, (std::vector<designator>{designator::t10_vendor, designator::naa}));
    EXPECT_EQ(value.identifier, drive_identifier::t10_vendor);
    EXPECT_TRUE(value.unload_on_move);
    EXPECT_TRUE(value.exchange);
}

TEST_F(personality_test, reads_back_what_it_writes) {
    personality value = make_personality();
    value.vendor = "A&B <\"'>";
    value.timings = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};
    value.designators = {designator::scsi_name, designator::vendor_specific};
    value.identifier = drive_identifier::tail;
    value.extra_bytes = 7;
    value.volume_tags = false;
    value.blank_empty_tags = true;
    value.medium_types = false;
    value.device_identifiers = false;
    value.power_on_attention = true;
    value.unload_on_move = false;
    value.track_storage_only = false;
    value.exchange = false;
    value.refused = {0xA6, 0x1B};
    value.drive.worm_capable = false;
    value.drive.maximum_block = 0x100000;
    value.cartridges[3].worm = true;
    value.cartridges[4].cleaning = true;
    value.cartridges[5].write_protected = true;
    value.capacity = 5000;
    value.cartridges[6].capacity = 0xFFFFFFFF;
    value.cartridges[6].used = 0xFFFFFFFE;
    value.cartridges[7].written = ~std::uint64_t{0};
    value.cartridges[7].read = 0x8000000000000000;
    value.clear_alerts_on_read = false;
    value.log_pages = {0x0C, 0x17};
    const std::string text = personality_text(value);
    const personality back = parse_personality(text, "library.xml");
    EXPECT_EQ(personality_text(back), text);
    EXPECT_EQ(back.vendor, value.vendor);
    EXPECT_EQ(back.refused, value.refused);
    EXPECT_EQ(back.timings.rewind, 6);
    EXPECT_EQ(back.timings.ready, 7);
    EXPECT_EQ(back.timings.erase_short, 8);
    EXPECT_EQ(back.timings.erase_long, 9);
    EXPECT_EQ(back.timings.tension, 10);
    EXPECT_EQ(back.timings.format, 11);
    EXPECT_EQ(back.capacity, 5000U);
    EXPECT_EQ(back.cartridges[6].capacity, 0xFFFFFFFFU);
    EXPECT_EQ(back.cartridges[6].used, 0xFFFFFFFEU);
    EXPECT_EQ(back.cartridges[7].written, ~std::uint64_t{0});
    EXPECT_EQ(back.cartridges[7].read, 0x8000000000000000);
    EXPECT_FALSE(back.cartridges[7].capacity.has_value());
    EXPECT_FALSE(back.clear_alerts_on_read);
    EXPECT_EQ(back.log_pages, value.log_pages);
    EXPECT_TRUE(back.cartridges[4].cleaning);
    EXPECT_EQ(back.drive.maximum_block, 0x100000U);
    EXPECT_FALSE(back.exchange);
}

TEST_F(personality_test, takes_comments_and_a_declaration) {
    EXPECT_EQ(reason("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!-- mine -->\n" + head + elements +
                     "<drives><!-- one --><drive serial=\"D1\"/></drives></library>"),
              "none");
}

TEST_F(personality_test, says_what_is_wrong_with_a_file) {
    const auto with = [](const std::string& more) { return head + elements + drives + more + "</library>"; };
    const auto ranges = [](const std::string& slots, const std::string& ports) {
        return head + "<elements><transports first=\"0\" count=\"1\"/><slots " + slots + "/><ports " + ports +
               "/><drives first=\"256\" count=\"1\"/></elements>" + drives + "</library>";
    };
    struct {
        std::string xml;
        const char* reason;
    } const rows[] = {
        {"<robot/>", "the root element isn't 'library'"},
        {"<library/>", "element 'library' lacks the attribute 'serial'"},
        {head + "</library>", "there is no element 'elements'"},
        {head + "<elements/></library>", "there is no element 'transports' in 'elements'"},
        {head + elements + "</library>", "there are 0 drives for 1 drive elements (at most 254)"},
        {ranges("first=\"4x\" count=\"4\"", "first=\"16\" count=\"1\""), "attribute 'first': '4x' isn't a number"},
        {ranges("first=\"-1\" count=\"4\"", "first=\"16\" count=\"1\""), "attribute 'first': '-1' isn't a number"},
        {ranges("first=\"0x\" count=\"4\"", "first=\"16\" count=\"1\""), "attribute 'first': '0x' isn't a number"},
        {ranges("first=\"65536\" count=\"4\"", "first=\"16\" count=\"1\""), "attribute 'first': 65536 is above 65535"},
        {ranges("first=\"65535\" count=\"2\"", "first=\"16\" count=\"1\""), "slots reach beyond the address 65535"},
        {ranges("first=\"16\" count=\"2\"", "first=\"17\" count=\"1\""), "slots and ports share addresses"},
        {ranges("first=\"0\" count=\"2\"", "first=\"17\" count=\"1\""), "transports and slots share addresses"},
        {with("<cartridges><cartridge barcode=\"A\" element=\"0\"/></cartridges>"),
         "cartridge 'A': there is no slot, port or drive at address 0"},
        {with("<cartridges><cartridge barcode=\"A\" element=\"16\"/><cartridge barcode=\"B\" element=\"16\"/></cartridges>"),
         "cartridge 'B': address 16 holds another one"},
        {with("<cartridges><cartridge barcode=\"A\" element=\"16\"/><cartridge barcode=\"A\" element=\"256\"/></cartridges>"),
         "bar code 'A' is on two cartridges"},
        {with("<cartridges><cartridge barcode=\"A123456789012345678901234567890123\" element=\"16\"/></cartridges>"),
         "bar code 'A123456789012345678901234567890123' is longer than 32 characters"},
        {with("<cartridges><cartridge barcode=\"\xC3\xA4\" element=\"16\"/></cartridges>"),
         "bar code holds a character that isn't printable ASCII"},
        {with("<cartridges>nothing</cartridges>"), "element 'cartridges' holds something else than elements"},
        {with("<behaviour exchange=\"maybe\"/>"), "attribute 'exchange': 'maybe' is neither true nor false"},
        {with("<behaviour designators=\"naa eui\"/>"), "attribute 'designators': 'eui' isn't known"},
        {with("<behaviour drive-identifier=\"wwn\"/>"), "attribute 'drive-identifier': 'wwn' isn't known"},
        {with("<behaviour refused-commands=\"0xA5 0x100\"/>"), "attribute 'refused-commands': 0x100 is above 255"},
        {with("<timings move=\"86400001\"/>"), "attribute 'move': 86400001 is above 86400000"},
        {with("<timings erase-long=\"86400001\"/>"), "attribute 'erase-long': 86400001 is above 86400000"},
        {with("<cartridges capacity=\"4294967296\"/>"), "attribute 'capacity': 4294967296 is above 4294967295"},
        {with("<cartridges capacity=\"9\"><cartridge barcode=\"A\" element=\"16\" used=\"10\"/></cartridges>"),
         "cartridge 'A': more is used than it has room for"},
        {with("<cartridges><cartridge barcode=\"A\" element=\"16\" capacity=\"9\" used=\"10\"/></cartridges>"),
         "cartridge 'A': more is used than it has room for"},
        {with("<cartridges><cartridge barcode=\"A\" element=\"16\" written=\"18446744073709551616\"/></cartridges>"),
         "attribute 'written': 18446744073709551616 is above 18446744073709551615"},
        {with("<cartridges><cartridge barcode=\"A\" element=\"16\" read=\"0x10000000000000000\"/></cartridges>"),
         "attribute 'read': 0x10000000000000000 is above 18446744073709551615"},
        {with("<behaviour log-pages=\"0x17 0x18\"/>"), "there is no log page 24"},
        {with("<behaviour log-pages=\"0x17 0x0C\"/>"), "the log pages aren't in ascending order"},
        {with("<behaviour log-pages=\"0x17 0x17\"/>"), "the log pages aren't in ascending order"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(reason(row.xml), row.reason);
    }
    EXPECT_EQ(reason("<library serial=\"S\"><elements>").substr(0, 10), "XML error:");
    EXPECT_EQ(reason("<library serial=\"S\" vendor=\"NINECHARS\"/>").substr(0, 10), "there is n");
    personality value = make_personality();
    value.vendor = "NINECHARS";
    EXPECT_THROW(check_personality(value, "x"), library_error);
}

TEST_F(personality_test, names_the_file_that_keeps_a_library_shut) {
    EXPECT_EQ(opening_problem(u"C:\\none"),
              "Library file 'C:\\none\\library.xml' can't be read: " + exc::win_error_text(error::path_not_found));
    start();
    EXPECT_EQ(opening_problem(folder),
              "Library file 'C:\\library\\state.xml.lock': the library is in use already, here or by another process");
    stop();
    EXPECT_EQ(opening_problem(folder), "none");
    const std::string row =
        " barcode=\"X\" source=\"none\" write-protected=\"false\" worm=\"false\" cleaning=\"false\" by-operator=\"false\" "
        "loaded=\"false\"/>";
    struct {
        std::string state;
        const char* reason;
    } const rows[] = {
        {"<state version=\"2\"/>", "the version of the state isn't 1"},
        {"<state version=\"1\"><cartridge element=\"9\"" + row + "</state>", "the library has no element 9"},
        {"<state version=\"1\"><cartridge element=\"16\"" + row + "<cartridge element=\"16\"" + row + "</state>",
         "two cartridges are in element 16"},
        {"<state version=\"1\"><cartridge element=\"16\" barcode=\"A\"/></state>",
         "element 'cartridge' lacks the attribute 'source'"},
        {"<state version=\"1\"><cartridge element=\"16\" capacity=\"5\" used=\"6\"" + row + "</state>",
         "attribute 'used': 6 is above 5"},
        {"<state version=\"1\"><drive element=\"16\" loads=\"1\" cleanings=\"0\"/></state>",
         "the library has no drive at element 16"},
        {"<state version=\"1\"><drive element=\"256\" loads=\"1\"/></state>", "element 'drive' lacks the attribute 'cleanings'"},
        {"", "XML error: [Error document empty.]. Error code: [12]."},
    };
    for (const auto& each : rows) {
        system.files.put("C:\\library\\state.xml", each.state);
        EXPECT_EQ(opening_problem(folder), std::string("Library file 'C:\\library\\state.xml': ") + each.reason);
    }
}

TEST_F(personality_test, keeps_the_state_where_the_personality_says) {
    personality value = make_personality();
    value.state = "C:\\elsewhere\\library.state";
    system.files.add_folder("C:\\elsewhere");
    start(value);
    ASSERT_EQ(move(slot, drive_element), "ok");
    EXPECT_TRUE(system.files.content("C:\\elsewhere\\library.state").has_value());
    EXPECT_FALSE(system.files.content("C:\\library\\state.xml").has_value());
}

TEST_F(personality_test, writes_a_state_that_names_every_cartridge_once) {
    start(make_personality({.slots = 2, .ports = 1, .drives = 1, .cartridges = 2}));
    ASSERT_EQ(move(slot, drive_element), "ok");
    EXPECT_EQ(system.files.content("C:\\library\\state.xml"),
              "<state version=\"1\">\n"
              "<cartridge element=\"256\" barcode=\"TRN001L8\" source=\"4096\" write-protected=\"false\" worm=\"false\" "
              "cleaning=\"false\" by-operator=\"false\" loaded=\"true\" capacity=\"11444092\" used=\"0\" written=\"0\" read=\"0\" "
              "loads=\"1\"/>\n"
              "<cartridge element=\"4097\" barcode=\"TRN002L8\" source=\"none\" write-protected=\"false\" worm=\"false\" "
              "cleaning=\"false\" by-operator=\"false\" loaded=\"false\" capacity=\"11444092\" used=\"0\" written=\"0\" read=\"0\" "
              "loads=\"0\"/>\n"
              "<drive element=\"256\" loads=\"1\" cleanings=\"0\"/>\n"
              "</state>\n");
}

/// Cartridges had no capacity in the first states that were written.
TEST_F(personality_test, takes_a_state_without_capacities) {
    personality value = make_personality({.slots = 2, .ports = 1, .drives = 1, .cartridges = 1});
    value.capacity = 5000;
    value.cartridges[0].capacity = 1000;
    value.cartridges[0].used = 300;
    value.cartridges[0].written = 17;
    create_library(folder, value);
    const std::string tail =
        " source=\"none\" write-protected=\"false\" worm=\"false\" cleaning=\"false\" by-operator=\"false\" loaded=\"false\"/>\n";
    system.files.put("C:\\library\\state.xml", "<state version=\"1\">\n<cartridge element=\"4096\" barcode=\"OTHER\"" + tail +
                                                   "<cartridge element=\"4097\" barcode=\"TRN001L8\"" + tail + "</state>\n");
    open();
    ASSERT_EQ(move(slot, drive_element), "ok");
    const std::string attributes = "write-protected=\"false\" worm=\"false\" cleaning=\"false\" by-operator=\"false\" ";
    EXPECT_EQ(system.files.content("C:\\library\\state.xml"),
              "<state version=\"1\">\n"
              "<cartridge element=\"256\" barcode=\"OTHER\" source=\"4096\" " +
                  attributes +
                  "loaded=\"true\" capacity=\"5000\" used=\"0\" written=\"0\" read=\"0\" loads=\"1\"/>\n"
                  "<cartridge element=\"4097\" barcode=\"TRN001L8\" source=\"none\" " +
                  attributes +
                  "loaded=\"false\" capacity=\"1000\" used=\"300\" written=\"17\" read=\"0\" loads=\"0\"/>\n"
                  "<drive element=\"256\" loads=\"1\" cleanings=\"0\"/>\n"
                  "</state>\n");
}

TEST_F(personality_test, reads_back_the_state_that_it_wrote) {
    personality value = make_personality({.slots = 2, .ports = 1, .drives = 1, .cartridges = 2});
    value.cartridges[1].written = ~std::uint64_t{0};
    start(value);
    ASSERT_EQ(move(slot, drive_element), "ok");
    const std::optional<std::string> written = system.files.content("C:\\library\\state.xml");
    stop();
    open();
    ASSERT_EQ(result(*drive, {0x1B, 0, 0, 0, 0, 0}), "ok");
    ASSERT_EQ(result(*drive, {0x1B, 0, 0, 0, 1, 0}), "ok");
    EXPECT_EQ(system.files.content("C:\\library\\state.xml"), written);
}

TEST_F(personality_test, has_an_example_that_is_the_default_library) {
    const auto root = test_support::source_folder();
    std::ifstream example(root / "examples" / "library-24" / "library.xml", std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(example), {}};
    EXPECT_EQ(personality_text(parse_personality(text, "library.xml")), personality_text(make_personality()));
}

TEST_F(personality_test, makes_room_for_many_ports_and_drives) {
    const personality value = make_personality({.slots = 10, .ports = 300, .drives = 4, .cartridges = 3});
    check_personality(value, "x");
    EXPECT_EQ(value.drives.first, 316);
    EXPECT_EQ(value.slots.first, 0x1000);
}

TEST_F(personality_test, refuses_to_create_what_cannot_exist) {
    EXPECT_THROW(create_library(folder, library_options{.slots = 3, .cartridges = 4}), library_error);
    EXPECT_THROW(create_library(u"C:\\no\\parent"), library_error);
}

}  // namespace platform::tape_library
