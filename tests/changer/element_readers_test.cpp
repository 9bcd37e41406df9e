#include "changer/element_readers.h"

#include "foundation/exc/exceptions.h"
#include "platform/testing/fakes.h"

namespace {

TEST(ElementReaders, PortionsOfNothingFailInsteadOfGoingOnForEver) {
    const platform::testing::test_system world;
    int reads = 0;
    const element_block_reader read = [&](std::uint16_t, std::uint16_t count) {
        ++reads;
        return std::vector<CHANGER_ELEMENT_STATUS_EX>(count);
    };
    EXPECT_THROW((void)ReadByPortions(read, 0, 5, 0), exc::runtime_exc_t);
    EXPECT_EQ(reads, 0);
    EXPECT_TRUE(ReadByPortions(read, 0, 0, 0).empty());
}

}  // namespace
