#include "platform/conformance/implementations.h"

namespace {

using namespace platform;
using bytes = std::vector<std::uint8_t>;

template <typename Implementation>
class RegistryConformance : public conformance::suite<Implementation> {
protected:
    registry& under_test() { return this->under_test_.registry; }

    registry_key created(const std::u16string& path) {
        registry_key key = 0;
        EXPECT_EQ(under_test().create_key(path, registry_access::write, key), 0U);
        return key;
    }
    registry_key opened(const std::u16string& path) {
        registry_key key = 0;
        EXPECT_EQ(under_test().open_key(path, registry_access::read, key), 0U);
        return key;
    }
};
TYPED_TEST_SUITE(RegistryConformance, conformance::implementations, conformance::implementation_names);

TYPED_TEST(RegistryConformance, AnswersTwoOrThreeForAnAbsentKeyAndLeavesTheOutputAlone) {
    registry_key key = 77;
    const std::uint32_t result = this->under_test().open_key(u"SOFTWARE\\Absent\\Deeper", registry_access::read, key);
    EXPECT_TRUE(result == error::file_not_found || result == error::path_not_found) << result;
    EXPECT_EQ(key, 77U);
}

TYPED_TEST(RegistryConformance, MakesAKeyWithItsParents) {
    const registry_key key = this->created(u"SOFTWARE\\One\\Two");
    EXPECT_NE(key, 0U);
    this->under_test().close_key(key);
    this->under_test().close_key(this->opened(u"SOFTWARE\\One"));
    this->under_test().close_key(this->opened(u"software\\ONE\\two"));
    registry_key again = 0;
    EXPECT_EQ(this->under_test().create_key(u"SOFTWARE\\One\\Two", registry_access::write, again), 0U);
}

TYPED_TEST(RegistryConformance, GivesBackEveryByteOfEveryType) {
    const registry_key writer = this->created(u"SOFTWARE\\Values");
    const registry_key reader = this->opened(u"SOFTWARE\\Values");
    const struct {
        std::u16string name;
        std::uint32_t type;
        bytes data;
    } cases[] = {
        {u"text", registry_type::string, {'h', 0, 'i', 0, 0, 0}},
        {u"unterminated", registry_type::string, {'h', 0, 'i', 0}},
        {u"two terminators", registry_type::string, {'h', 0, 0, 0, 0, 0}},
        {u"empty text", registry_type::string, {0, 0}},
        {u"no text at all", registry_type::string, {}},
        {u"quotes \\ and \"", registry_type::string, {'"', 0, '\\', 0, 0, 0}},
        {u"line feed", registry_type::string, {'\n', 0, '\r', 0, 0, 0}},
        {u"lone surrogate", registry_type::string, {0x00, 0xD8, 0, 0}},
        {u"expand", registry_type::expand_string, {'%', 0, 0, 0}},
        {u"binary", registry_type::binary, {1, 2, 3}},
        {u"empty binary", registry_type::binary, {}},
        {u"number", registry_type::dword, {0x78, 0x56, 0x34, 0x12}},
        {u"list", registry_type::multi_string, {'a', 0, 0, 0, 'b', 0, 0, 0, 0, 0}},
        {u"large", registry_type::qword, {1, 2, 3, 4, 5, 6, 7, 8}},
        {u"", registry_type::string, {'@', 0, 0, 0}},
        {u"\u00C4nderung", registry_type::dword, {1, 0, 0, 0}},
    };
    for (const auto& entry : cases) {
        EXPECT_EQ(this->under_test().set_value(writer, entry.name, entry.type, entry.data), 0U);
    }
    for (const auto& entry : cases) {
        std::uint32_t type = 0;
        bytes data{9};
        EXPECT_EQ(this->under_test().query_value(reader, entry.name, type, data), 0U);
        EXPECT_EQ(type, entry.type);
        EXPECT_EQ(data, entry.data);
    }
}

TYPED_TEST(RegistryConformance, FindsValuesInAnyCaseAndReplacesThem) {
    const registry_key writer = this->created(u"SOFTWARE\\Values");
    const registry_key reader = this->opened(u"SOFTWARE\\Values");
    EXPECT_EQ(this->under_test().set_value(writer, u"Owner", registry_type::string, {'a', 0, 0, 0}), 0U);
    EXPECT_EQ(this->under_test().set_value(writer, u"OWNER", registry_type::dword, {7, 0, 0, 0}), 0U);
    std::uint32_t type = 0;
    bytes data;
    EXPECT_EQ(this->under_test().query_value(reader, u"owner", type, data), 0U);
    EXPECT_EQ(type, registry_type::dword);
    EXPECT_EQ(data, (bytes{7, 0, 0, 0}));
}

TYPED_TEST(RegistryConformance, AnswersTwoForAnAbsentValueAndLeavesTheOutputsAlone) {
    static_cast<void>(this->created(u"SOFTWARE\\Values"));
    const registry_key reader = this->opened(u"SOFTWARE\\Values");
    std::uint32_t type = 55;
    bytes data{1, 2};
    EXPECT_EQ(this->under_test().query_value(reader, u"Absent", type, data), error::file_not_found);
    EXPECT_EQ(type, 55U);
    EXPECT_EQ(data, (bytes{1, 2}));
}

TYPED_TEST(RegistryConformance, KeepsToTheRightsThatAKeyWasOpenedWith) {
    const registry_key writer = this->created(u"SOFTWARE\\Values");
    const registry_key reader = this->opened(u"SOFTWARE\\Values");
    std::uint32_t type = 0;
    bytes data;
    std::u16string name;
    EXPECT_EQ(this->under_test().set_value(reader, u"A", registry_type::dword, {1, 0, 0, 0}), error::access_denied);
    EXPECT_EQ(this->under_test().query_value(writer, u"A", type, data), error::access_denied);
    EXPECT_EQ(this->under_test().enumerate_subkey(writer, 0, name), error::access_denied);
    std::size_t units = 7;
    EXPECT_EQ(this->under_test().longest_subkey(writer, units), error::access_denied);
    EXPECT_EQ(units, 7U);
}

TYPED_TEST(RegistryConformance, RefusesAClosedKey) {
    const registry_key key = this->created(u"SOFTWARE\\Values");
    this->under_test().close_key(key);
    EXPECT_EQ(this->under_test().set_value(key, u"A", registry_type::dword, {1, 0, 0, 0}), error::invalid_handle);
    std::u16string name;
    EXPECT_EQ(this->under_test().enumerate_subkey(0, 0, name), error::invalid_handle);
    std::size_t units = 0;
    EXPECT_EQ(this->under_test().longest_subkey(key, units), error::invalid_handle);
}

TYPED_TEST(RegistryConformance, EnumeratesSubkeysByName) {
    for (const char16_t* child : {u"gamma", u"Beta", u"alpha"}) {
        static_cast<void>(this->created(u"SOFTWARE\\Parent\\" + std::u16string(child)));
    }
    const registry_key reader = this->opened(u"SOFTWARE\\Parent");
    std::u16string name;
    EXPECT_EQ(this->under_test().enumerate_subkey(reader, 0, name), 0U);
    EXPECT_EQ(name, u"alpha");
    EXPECT_EQ(this->under_test().enumerate_subkey(reader, 1, name), 0U);
    EXPECT_EQ(name, u"Beta");
    EXPECT_EQ(this->under_test().enumerate_subkey(reader, 2, name), 0U);
    EXPECT_EQ(name, u"gamma");
    EXPECT_EQ(this->under_test().enumerate_subkey(reader, 3, name), error::no_more_items);
    EXPECT_EQ(name, u"gamma");
    std::size_t units = 0;
    EXPECT_EQ(this->under_test().longest_subkey(reader, units), 0U);
    EXPECT_EQ(units, 5U);
}

TYPED_TEST(RegistryConformance, HasOneTreeForBothViews) {
    static_cast<void>(this->created(u"SOFTWARE\\Views"));
    registry_key key = 0;
    EXPECT_EQ(this->under_test().open_key(u"SOFTWARE\\Views", registry_access::read_64, key), 0U);
    std::u16string name;
    EXPECT_EQ(this->under_test().enumerate_subkey(key, 0, name), error::no_more_items);
    std::size_t units = 7;
    EXPECT_EQ(this->under_test().longest_subkey(key, units), 0U);
    EXPECT_EQ(units, 0U);
}

}  // namespace
