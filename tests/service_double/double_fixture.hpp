#pragma once

/// A test that runs the plug-in on the service double.
///
/// The plug-in picks its service once per process, so a fixture's constructor sets the scene and each test runs in a
/// process of its own (ctest does that). Tests end with balanced books, or fail.

#include "service_double/service_double.hpp"

#include "orvik/plugin/log.hpp"

#include <gtest/gtest.h>

#include <mutex>
#include <string>
#include <vector>

namespace service_double {

/// Which library stands in which slot of the framework's path registry; an empty name is an empty slot. A name that is
/// no library of the double (one with a "/") is taken as a path.
struct Slots {
    std::string vipNet{};
    std::string kernel32{};
    std::string cryptoPro{};
    std::string cryptoApi{};
    std::string cryptoApi2{};
};

struct LogRecord {
    orvik::plugin::log::Severity severity;
    std::string text;
    friend bool operator==(const LogRecord&, const LogRecord&) = default;
};

class DoubleFixture : public ::testing::Test {
protected:
    /// The full service in CryptoPro's slot.
    DoubleFixture();
    explicit DoubleFixture(const Slots& slots);
    ~DoubleFixture() override;
    void TearDown() override;

    /// Everything logged so far, in order.
    [[nodiscard]] std::vector<LogRecord> log() const;
    [[nodiscard]] bool logged(orvik::plugin::log::Severity severity, const std::string& text) const;
    void clearLog();

private:
    mutable std::mutex mutex_;
    std::vector<LogRecord> records_;
};

} // namespace service_double
