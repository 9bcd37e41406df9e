#pragma once

#include <gtest/gtest.h>

#include <exception>
#include <string>
#include <typeinfo>

namespace test_support {

/// The whole text of the exception of this very type that an action ends with.
template <typename Exception, typename Action>
std::string failure_text(Action action) {
    try {
        action();
    } catch (const Exception& e) {
        EXPECT_EQ(typeid(e), typeid(Exception));
        return e.what();
    }
    ADD_FAILURE() << "nothing of the kind was thrown";
    return {};
}

/// The whole text of the exception, of whatever type, that an action ends with.
template <typename Action>
std::string failure_of(Action action) {
    try {
        action();
    } catch (const std::exception& e) {
        return e.what();
    }
    ADD_FAILURE() << "nothing was thrown";
    return {};
}

}  // namespace test_support
