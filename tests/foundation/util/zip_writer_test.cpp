#include "foundation/util/zip_writer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/testing/fakes.h"
#include "support/failure_text.h"
#include "support/gunzip.h"

namespace {

using test_support::failure_of;
using ::testing::ElementsAre;
using operation = platform::testing::memory_files::operation;

class ZipWriter : public ::testing::Test {
protected:
    static void append(util::zip_writer_t& writer, std::string_view text) {
        writer.append({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
    }

    /// Bytes without a pattern.
    static std::string noise(std::size_t size) {
        std::string bytes(size, '\0');
        std::uint32_t state = 1;
        for (char& byte : bytes) {
            state = state * 1664525 + 1013904223;
            byte = static_cast<char>(state >> 24);
        }
        return bytes;
    }

    platform::testing::test_system system_;
};

TEST_F(ZipWriter, MakesAnArchiveOfTheStrongestLevel) {
    const std::string content = noise(3'000'000) + std::string(3'000'000, 'x');
    {
        util::zip_writer_t writer(u"C:\\a.gz");
        EXPECT_EQ(writer.path(), "C:\\a.gz");
        append(writer, content.substr(0, 10));
        append(writer, "");
        append(writer, content.substr(10));
        writer.close();
    }
    EXPECT_THAT(system_.files.paths(), ElementsAre("C:\\a.gz"));
    const std::string archive = *system_.files.content("C:\\a.gz");
    EXPECT_EQ(gunzip(archive), content);
    EXPECT_LT(archive.size(), 3'020'000U);
    EXPECT_EQ(archive.substr(0, 4), std::string("\x1F\x8B\x08\x00", 4));
    EXPECT_EQ(archive[8], 2);  // the mark of the strongest level
}

TEST_F(ZipWriter, EmptyArchiveIsWhole) {
    util::zip_writer_t writer(u"C:\\a.gz");
    writer.close();
    EXPECT_EQ(gunzip(*system_.files.content("C:\\a.gz")), "");
}

TEST_F(ZipWriter, WhatIsGivenUpLeavesNothing) {
    {
        util::zip_writer_t writer(u"C:\\a.gz");
        append(writer, "content");
        EXPECT_THAT(system_.files.paths(), ElementsAre("C:\\a.gz.part"));
    }
    EXPECT_THAT(system_.files.paths(), ElementsAre());
}

TEST_F(ZipWriter, ArchiveIsOnTheDiskBeforeItTakesItsPlace) {
    util::zip_writer_t writer(u"C:\\a.gz", [this] { system_.files.lose_power(); });
    append(writer, "content");
    writer.close();
    EXPECT_EQ(gunzip(*system_.files.content("C:\\a.gz")), "content");
}

TEST_F(ZipWriter, PlaceIsItsOwnForGood) {
    util::zip_writer_t writer(u"C:\\a.gz");
    append(writer, "content");
    writer.close();
    system_.files.lose_power();
    EXPECT_THAT(system_.files.paths(), ElementsAre("C:\\a.gz"));
    EXPECT_EQ(gunzip(*system_.files.content("C:\\a.gz")), "content");
}

TEST_F(ZipWriter, PlaceThatIsTakenStaysTaken) {
    system_.files.put("C:\\a.gz", "whole");
    {
        util::zip_writer_t writer(u"C:\\a.gz");
        append(writer, "content");
        EXPECT_EQ(failure_of([&] { writer.close(); }),
                  "Cannot create a file when that file already exists.\nFailed to move file [C:\\a.gz.part] to [C:\\a.gz].\n"
                  "--tr:Error code: 0x000000b7\n--tr:Cannot close GZ archive [C:\\a.gz].");
    }
    EXPECT_THAT(system_.files.paths(), ElementsAre("C:\\a.gz"));
    EXPECT_EQ(system_.files.content("C:\\a.gz"), "whole");
}

TEST_F(ZipWriter, FailuresNameTheArchive) {
    const std::string full = "There is not enough space on the disk.\nFailed to write data to the file [C:\\a.gz.part].\n";
    {
        util::zip_writer_t writer(u"C:\\a.gz");
        system_.files.set_free_bytes(1000);
        EXPECT_EQ(failure_of([&] { append(writer, noise(3'000'000)); }),
                  full + "--tr:Error code: 0x00000070\nCannot add data to the GZ archive [C:\\a.gz].");
    }
    EXPECT_THAT(system_.files.paths(), ElementsAre());
    {
        util::zip_writer_t writer(u"C:\\a.gz");
        system_.files.set_free_bytes(12);
        append(writer, "little");
        EXPECT_EQ(failure_of([&] { writer.close(); }),
                  full + "--tr:Error code: 0x00000070\nError code: -1\n--tr:Cannot close GZ archive [C:\\a.gz].");
        EXPECT_EQ(failure_of([&] { writer.close(); }), "Error code: -2\n--tr:Cannot close GZ archive [C:\\a.gz].");
        EXPECT_EQ(failure_of([&] { append(writer, "more"); }), "stream error\nCannot add data to the GZ archive [C:\\a.gz].");
    }
    EXPECT_THAT(system_.files.paths(), ElementsAre());
    EXPECT_EQ(failure_of([] { util::zip_writer_t writer(u"C:\\absent\\a.gz"); }),
              "The system cannot find the path specified.\nFailed to create or open file [C:\\absent\\a.gz.part].\n"
              "--tr:Error code: 0x00000003\nFailed to open GZ archive [C:\\absent\\a.gz].");
}

}  // namespace
