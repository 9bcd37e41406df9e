#include <gmock/gmock.h>

#include "platform/conformance/implementations.h"

namespace {

using namespace platform;

constexpr std::uint32_t read_write = file_access::read | file_access::write;
constexpr std::uint32_t share_all = file_share::read | file_share::write;

template <typename Implementation>
class FilesConformance : public conformance::suite<Implementation> {
protected:
    files& under_test() { return this->under_test_.files; }
    std::u16string path(const std::u16string& name) { return this->under_test_.folder + under_test().separator() + name; }

    std::unique_ptr<file> open(const std::u16string& name, std::uint32_t access = read_write, std::uint32_t share = share_all,
                               file_open_mode mode = file_open_mode::open_always) {
        std::unique_ptr<file> opened;
        EXPECT_EQ(under_test().open_file(path(name), access, share, mode, opened), 0U);
        return opened;
    }
    std::uint32_t open_result(const std::u16string& name, std::uint32_t access, std::uint32_t share, file_open_mode mode) {
        std::unique_ptr<file> opened;
        const std::uint32_t result = under_test().open_file(path(name), access, share, mode, opened);
        EXPECT_EQ(result == 0, opened != nullptr);
        return result;
    }
    static void write(file& to, std::string_view text) {
        std::size_t count = 0;
        EXPECT_EQ(to.write({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()}, count), 0U);
        EXPECT_EQ(count, text.size());
    }
    static std::string read(file& from, std::size_t size) {
        std::vector<std::uint8_t> data(size);
        std::size_t count = 99;
        EXPECT_EQ(from.read(data, count), 0U);
        return {data.begin(), data.begin() + static_cast<std::ptrdiff_t>(count)};
    }
    void put(const std::u16string& name, std::string_view text) {
        const std::unique_ptr<file> made = open(name, file_access::write, share_all, file_open_mode::create_always);
        write(*made, text);
    }
    std::string content(const std::u16string& name) {
        return read(*open(name, file_access::read, share_all, file_open_mode::open_existing), 1000);
    }
};
TYPED_TEST_SUITE(FilesConformance, conformance::implementations, conformance::implementation_names);

TYPED_TEST(FilesConformance, OpensAsTheModeSays) {
    EXPECT_EQ(this->open_result(u"a", read_write, share_all, file_open_mode::open_existing), error::file_not_found);
    EXPECT_EQ(this->open_result(u"a", read_write, share_all, file_open_mode::create_new), 0U);
    EXPECT_EQ(this->open_result(u"a", read_write, share_all, file_open_mode::create_new), error::file_exists);
    this->put(u"a", "content");
    EXPECT_EQ(this->open_result(u"a", read_write, share_all, file_open_mode::open_existing), 0U);
    EXPECT_EQ(this->open_result(u"a", read_write, share_all, file_open_mode::open_always), 0U);
    EXPECT_EQ(this->content(u"a"), "content");
    EXPECT_EQ(this->open_result(u"a", read_write, share_all, file_open_mode::create_always), 0U);
    EXPECT_EQ(this->content(u"a"), "");
}

TYPED_TEST(FilesConformance, TellsAnAbsentFolderFromAnAbsentFile) {
    const std::u16string deep = std::u16string(u"absent") + this->under_test().separator() + u"a";
    for (const file_open_mode mode : {file_open_mode::open_existing, file_open_mode::open_always, file_open_mode::create_new}) {
        EXPECT_EQ(this->open_result(deep, read_write, share_all, mode), error::path_not_found);
    }
    std::unique_ptr<file> opened;
    EXPECT_EQ(this->under_test().open_file(u"", read_write, share_all, file_open_mode::open_always, opened), error::path_not_found);
}

TYPED_TEST(FilesConformance, OpensNoFolder) {
    EXPECT_EQ(this->under_test().create_folder(this->path(u"folder")), 0U);
    EXPECT_EQ(this->open_result(u"folder", file_access::read, share_all, file_open_mode::open_existing), error::access_denied);
    EXPECT_EQ(this->open_result(u"folder", read_write, share_all, file_open_mode::open_always), error::access_denied);
    EXPECT_EQ(this->open_result(u"folder", read_write, share_all, file_open_mode::create_new), error::access_denied);
}

TYPED_TEST(FilesConformance, ReadsAndWritesAtItsPosition) {
    const std::unique_ptr<file> opened = this->open(u"a");
    this->write(*opened, "0123456789");
    EXPECT_EQ(this->read(*opened, 10), "");
    EXPECT_EQ(opened->seek(4), 0U);
    EXPECT_EQ(this->read(*opened, 3), "456");
    this->write(*opened, "xyz!");
    std::uint64_t size = 0;
    EXPECT_EQ(opened->size(size), 0U);
    EXPECT_EQ(size, 11U);
    EXPECT_EQ(this->content(u"a"), "0123456xyz!");
    EXPECT_EQ(opened->flush(), 0U);
}

TYPED_TEST(FilesConformance, RefusesAPositionThatNoFileHas) {
    const std::unique_ptr<file> opened = this->open(u"a");
    this->write(*opened, "0123");
    EXPECT_EQ(opened->seek(1), 0U);
    EXPECT_EQ(opened->seek(std::uint64_t{1} << 63), error::invalid_parameter);
    EXPECT_EQ(opened->seek(~std::uint64_t{0}), error::invalid_parameter);
    EXPECT_EQ(this->read(*opened, 2), "12");
    EXPECT_EQ(opened->seek(std::uint64_t{1} << 40), 0U);
    EXPECT_EQ(this->read(*opened, 2), "");
}

TYPED_TEST(FilesConformance, AppendsWhereverThePositionIs) {
    this->put(u"a", "0123");
    const std::unique_ptr<file> opened = this->open(u"a", read_write | file_access::append, file_share::read);
    this->write(*opened, "45");
    EXPECT_EQ(opened->seek(1), 0U);
    EXPECT_EQ(this->read(*opened, 2), "12");
    this->write(*opened, "67");
    EXPECT_EQ(opened->seek(6), 0U);
    EXPECT_EQ(opened->truncate_here(), 0U);
    EXPECT_EQ(opened->seek(0), 0U);
    this->write(*opened, "!");
    EXPECT_EQ(this->open_result(u"a", file_access::write, share_all, file_open_mode::open_existing), error::sharing_violation);
    EXPECT_EQ(this->content(u"a"), "012345!");
}

TYPED_TEST(FilesConformance, KnowsItsName) {
    this->put(u"other", "content");
    const std::unique_ptr<file> opened = this->open(u"a");
    EXPECT_TRUE(opened->is_named(this->path(u"a")));
}

TYPED_TEST(FilesConformance, FillsAGapWithZerosAndCutsWhereItStands) {
    const std::unique_ptr<file> opened = this->open(u"a");
    this->write(*opened, "ab");
    EXPECT_EQ(opened->seek(4), 0U);
    this->write(*opened, "cd");
    EXPECT_EQ(this->content(u"a"), std::string("ab\0\0cd", 6));
    EXPECT_EQ(opened->seek(3), 0U);
    EXPECT_EQ(opened->truncate_here(), 0U);
    EXPECT_EQ(this->content(u"a"), std::string("ab\0", 3));
}

TYPED_TEST(FilesConformance, KeepsToTheAccessThatWasAskedFor) {
    this->put(u"a", "content");
    std::size_t count = 99;
    std::vector<std::uint8_t> data(4);
    const std::unique_ptr<file> reader = this->open(u"a", file_access::read);
    EXPECT_EQ(reader->write(data, count), error::access_denied);
    EXPECT_EQ(count, 0U);
    EXPECT_EQ(reader->truncate_here(), error::access_denied);
    EXPECT_EQ(reader->flush(), error::access_denied);
    const std::unique_ptr<file> writer = this->open(u"a", file_access::write);
    count = 99;
    EXPECT_EQ(writer->read(data, count), error::access_denied);
    EXPECT_EQ(count, 0U);
}

TYPED_TEST(FilesConformance, SharesAsBothOpenersGrant) {
    const std::uint32_t accesses[] = {file_access::read, file_access::write, read_write};
    const std::uint32_t shares[] = {file_share::none, file_share::read, file_share::write, share_all};
    this->put(u"a", "content");
    for (const std::uint32_t first_access : accesses) {
        for (const std::uint32_t first_share : shares) {
            const std::unique_ptr<file> first = this->open(u"a", first_access, first_share);
            for (const std::uint32_t second_access : accesses) {
                for (const std::uint32_t second_share : shares) {
                    const bool allowed = (second_access & ~first_share) == 0 && (first_access & ~second_share) == 0;
                    EXPECT_EQ(this->open_result(u"a", second_access, second_share, file_open_mode::open_existing),
                              allowed ? error::success : error::sharing_violation)
                        << first_access << first_share << second_access << second_share;
                }
            }
        }
    }
    EXPECT_EQ(this->open_result(u"a", read_write, file_share::none, file_open_mode::open_existing), 0U);
}

TYPED_TEST(FilesConformance, CutsNothingWhenSharingForbidsTheOpen) {
    this->put(u"a", "content");
    {
        const std::unique_ptr<file> holder = this->open(u"a", file_access::read, file_share::read);
        EXPECT_EQ(this->open_result(u"a", read_write, share_all, file_open_mode::create_always), error::sharing_violation);
    }
    EXPECT_EQ(this->content(u"a"), "content");
}

TYPED_TEST(FilesConformance, MakesOneFolderAtATime) {
    const std::u16string deep = this->path(u"one") + this->under_test().separator() + u"two";
    EXPECT_EQ(this->under_test().create_folder(deep), error::path_not_found);
    EXPECT_EQ(this->under_test().create_folder(this->path(u"one")), 0U);
    EXPECT_EQ(this->under_test().create_folder(this->path(u"one")), error::already_exists);
    EXPECT_EQ(this->under_test().create_folder(deep), 0U);
    EXPECT_TRUE(this->under_test().exists(deep));
    EXPECT_FALSE(this->under_test().exists(this->path(u"three")));
}

TYPED_TEST(FilesConformance, TellsFilesFromFolders) {
    this->put(u"a", "content");
    EXPECT_EQ(this->under_test().create_folder(this->path(u"folder")), 0U);
    const auto kind_of = [this](const std::u16string& path) {
        auto kind = path_kind::absent;
        EXPECT_EQ(this->under_test().look_up(path, kind), 0U);
        return kind;
    };
    EXPECT_EQ(kind_of(this->path(u"a")), path_kind::file);
    EXPECT_EQ(kind_of(this->path(u"folder")), path_kind::folder);
    EXPECT_EQ(kind_of(this->path(u"folder") + this->under_test().separator()), path_kind::folder);
    EXPECT_EQ(kind_of(this->path(u"absent")), path_kind::absent);
    EXPECT_EQ(kind_of(this->path(u"absent") + this->under_test().separator() + u"a"), path_kind::absent);
    EXPECT_EQ(kind_of(this->path(u"a") + this->under_test().separator() + u"a"), path_kind::absent);
    auto kind = path_kind::file;
    EXPECT_EQ(this->under_test().look_up(u"", kind), error::path_not_found);
}

TYPED_TEST(FilesConformance, HasAFolderForTemporaryFiles) {
    std::u16string folder;
    EXPECT_EQ(this->under_test().temp_folder(folder), 0U);
    EXPECT_TRUE(this->under_test().exists(folder));
    EXPECT_NE(folder.back(), this->under_test().separator());
}

TYPED_TEST(FilesConformance, RemovesFilesOnly) {
    this->put(u"a", "content");
    EXPECT_EQ(this->under_test().remove_file(this->path(u"a")), 0U);
    EXPECT_FALSE(this->under_test().exists(this->path(u"a")));
    EXPECT_EQ(this->under_test().remove_file(this->path(u"a")), error::file_not_found);
    EXPECT_EQ(this->under_test().create_folder(this->path(u"folder")), 0U);
    EXPECT_EQ(this->under_test().remove_file(this->path(u"folder")), error::access_denied);
}

TYPED_TEST(FilesConformance, RenamesWithoutReplacing) {
    for (const auto rename : {&files::rename_file, &files::rename_file_durably}) {
        const auto renamed = [&](const std::u16string& from, const std::u16string& to) {
            return (this->under_test().*rename)(this->path(from), this->path(to));
        };
        this->put(u"a", "first");
        this->put(u"b", "second");
        EXPECT_EQ(renamed(u"a", u"b"), error::already_exists);
        EXPECT_EQ(this->content(u"b"), "second");
        EXPECT_EQ(renamed(u"a", u"c"), 0U);
        EXPECT_EQ(this->content(u"c"), "first");
        EXPECT_FALSE(this->under_test().exists(this->path(u"a")));
        EXPECT_EQ(renamed(u"a", u"d"), error::file_not_found);
        EXPECT_EQ(renamed(u"c", std::u16string(u"absent") + this->under_test().separator() + u"c"), error::path_not_found);
        EXPECT_EQ(this->under_test().remove_file(this->path(u"c")), 0U);
    }
}

TYPED_TEST(FilesConformance, ReplacesInOneStep) {
    this->put(u"new", "new content");
    this->put(u"old", "old");
    EXPECT_EQ(this->under_test().replace_file(this->path(u"new"), this->path(u"old")), 0U);
    EXPECT_EQ(this->content(u"old"), "new content");
    EXPECT_FALSE(this->under_test().exists(this->path(u"new")));
    EXPECT_EQ(this->under_test().replace_file(this->path(u"new"), this->path(u"old")), error::file_not_found);
    this->put(u"new", "again");
    EXPECT_EQ(this->under_test().replace_file(this->path(u"new"), this->path(u"fresh")), 0U);
    EXPECT_EQ(this->content(u"fresh"), "again");
    EXPECT_EQ(this->under_test().create_folder(this->path(u"folder")), 0U);
    EXPECT_EQ(this->under_test().replace_file(this->path(u"fresh"), this->path(u"folder")), error::access_denied);
}

TYPED_TEST(FilesConformance, TellsOpenFilesApart) {
    const std::unique_ptr<file> first = this->open(u"a");
    const std::unique_ptr<file> second = this->open(u"a");
    EXPECT_NE(first->number(), second->number());
    EXPECT_EQ(first->number(), first->number());
}

TYPED_TEST(FilesConformance, ListsWhatBearsSuchNames) {
    for (const char16_t* const name : {u"tape_1.log", u"tape_.log", u"tape_1.logs", u"ape_1.log", u"tape_.lo"}) {
        this->put(name, "x");
    }
    EXPECT_EQ(this->under_test().create_folder(this->path(u"tape_folder.log")), 0U);
    std::vector<folder_entry> entries{{u"former", 1}};
    EXPECT_EQ(this->under_test().list_folder(this->under_test_.folder, u"tape_", u".log", entries), 0U);
    std::vector<std::u16string> names;
    for (const folder_entry& entry : entries) {
        names.push_back(entry.name);
    }
    EXPECT_THAT(names, ::testing::UnorderedElementsAre(u"tape_1.log", u"tape_.log", u"tape_folder.log"));
    EXPECT_EQ(this->under_test().list_folder(this->under_test_.folder, u"tape_.l", u".log", entries), 0U);
    EXPECT_TRUE(entries.empty()) << "beginning and end don't share characters";
}

TYPED_TEST(FilesConformance, ListsNothingOfAnAbsentFolder) {
    std::vector<folder_entry> entries{{u"former", 1}};
    EXPECT_EQ(this->under_test().list_folder(this->path(u"absent"), u"", u"", entries), error::path_not_found);
    EXPECT_EQ(this->under_test().list_folder(u"", u"", u"", entries), error::path_not_found);
    EXPECT_EQ(entries.size(), 1U);
}

TYPED_TEST(FilesConformance, ListsTheTimesOfTheLastChange) {
    this->put(u"first", "x");
    this->put(u"second", "x");
    std::vector<folder_entry> entries;
    EXPECT_EQ(this->under_test().list_folder(this->under_test_.folder, u"", u"t", entries), 0U);
    ASSERT_EQ(entries.size(), 1U);
    const std::uint64_t first = entries.front().written;
    EXPECT_EQ(this->under_test().list_folder(this->under_test_.folder, u"s", u"d", entries), 0U);
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_GE(entries.front().written, first);
    EXPECT_NE(first, 0U);
}

TYPED_TEST(FilesConformance, NamesTheSystemsFolders) {
    for (const std::u16string& folder : {this->under_test().system_folder(), this->under_test().common_data_folder()}) {
        EXPECT_TRUE(this->under_test().exists(folder));
        EXPECT_NE(folder.back(), this->under_test().separator());
    }
}

}  // namespace
