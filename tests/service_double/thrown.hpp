#pragma once

/// What an exception of the framework tells: its number and its source location.

#include "orvik/plugin/exception/exception.hpp"

#include <gtest/gtest.h>

#include <boost/exception/get_error_info.hpp>

#include <exception>
#include <ostream>
#include <string>

namespace service_double {

/// A line of 0 stands for whichever it is; describe() sees to it that there is one.
struct Thrown {
    int code = 0;
    std::string file;
    std::string function;
    int line = 0;
    friend bool operator==(const Thrown& a, const Thrown& b) {
        return a.code == b.code && a.file == b.file && a.function == b.function &&
               (a.line == b.line || a.line == 0 || b.line == 0);
    }
    friend std::ostream& operator<<(std::ostream& out, const Thrown& thrown) {
        return out << thrown.code << " at " << thrown.file << ", " << thrown.function << ", " << thrown.line;
    }
};

inline Thrown describe(const orvik::plugin::exception::Exception& e) {
    const auto* const* file = boost::get_error_info<boost::throw_file>(e);
    const auto* const* function = boost::get_error_info<boost::throw_function>(e);
    const int* line = boost::get_error_info<boost::throw_line>(e);
    EXPECT_TRUE(line != nullptr && *line > 0) << "no line";
    return {e.code().value(), file != nullptr ? *file : "", function != nullptr ? *function : "",
            line != nullptr ? *line : 0};
}

/// Runs `action`, which must throw an E, and tells what it threw.
template <class E, class Action>
Thrown thrownBy(Action&& action) {
    try {
        action();
    } catch (const E& e) {
        return describe(e);
    }
    ADD_FAILURE() << "nothing was thrown";
    return {};
}

/// The same for an exception kept by a fault walk; a default Thrown when it is no E.
template <class E>
Thrown describe(const std::exception_ptr& thrown) {
    if (thrown) {
        try {
            std::rethrow_exception(thrown);
        } catch (const E& e) {
            return describe(e);
        } catch (...) { // of another kind: the caller sees no code
        }
    }
    return {};
}

} // namespace service_double
