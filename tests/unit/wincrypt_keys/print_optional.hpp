#pragma once

#include <boost/optional.hpp>

#include <gtest/gtest.h>

#include <ostream>

namespace boost {

/// How gtest shows an optional.
template <class T>
void PrintTo(const optional<T>& value, std::ostream* out) {
    *out << (value ? testing::PrintToString(*value) : "nothing");
}

} // namespace boost
