#include <thread>

#include "platform/conformance/implementations.h"

namespace {

template <typename Implementation>
using ThreadsConformance = conformance::suite<Implementation>;
TYPED_TEST_SUITE(ThreadsConformance, conformance::implementations, conformance::implementation_names);

TYPED_TEST(ThreadsConformance, TakesAnyTextForADescription) {
    const std::u16string half_of_a_pair{u'a', char16_t{0xD83D}};
    const std::u16string with_a_zero{u'a', u'\0', u'b'};
    std::thread described([&] {
        for (const std::u16string& text : {std::u16string(), std::u16string(u"Request processing dispatcher."), half_of_a_pair,
                                           with_a_zero, std::u16string(70'000, u'\u20AC')}) {
            EXPECT_TRUE(this->under_test_.threads.describe_current_thread(text));
        }
    });
    described.join();
}

}  // namespace
