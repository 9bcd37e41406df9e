#include "platform/linux/threads.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <array>
#include <string>
#include <thread>

namespace {

/// What the kernel has for a thread that described itself so.
std::string kernel_name(const std::u16string& description) {
    std::array<char, 16> name{};
    std::thread([&] {
        EXPECT_TRUE(platform::linux_os::linux_threads{}.describe_current_thread(description));
        pthread_getname_np(pthread_self(), name.data(), name.size());
    }).join();
    return name.data();
}

TEST(LinuxThreads, KeepsTheBeginningOfADescriptionAsTheThreadsName) {
    EXPECT_EQ(kernel_name(u"Eraser."), "Eraser.");
    EXPECT_EQ(kernel_name(u"fifteen letters"), "fifteen letters");
    EXPECT_EQ(kernel_name(u"Request processing dispatcher."), "Request process");
    EXPECT_EQ(kernel_name(u""), "");
}

TEST(LinuxThreads, CutsBetweenCharacters) {
    EXPECT_EQ(kernel_name(u"fourteen  \u00E4\u00F6\u00FC\u00DF"), "fourteen  \u00E4\u00F6");
    EXPECT_EQ(kernel_name(u"thirteen blue\u20AC"), "thirteen blue");
    EXPECT_EQ(kernel_name(u"fourteen eyes \U0001F600"), "fourteen eyes ");
    EXPECT_EQ(kernel_name(u"eleven  eye\U0001F600"), "eleven  eye\U0001F600");
}

}  // namespace
