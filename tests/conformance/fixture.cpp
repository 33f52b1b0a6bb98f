#include "fixture.hpp"

#include "deviations.hpp"

#include <algorithm>
#include <iostream>
#include <sstream>

namespace conformance {

namespace {

std::string hexNumber(DWORD code) {
    std::ostringstream text;
    text << "0x" << std::hex << code;
    return text.str();
}

std::string currentTest() {
    const testing::TestInfo& info = *testing::UnitTest::GetInstance()->current_test_info();
    return std::string(info.test_suite_name()) + '.' + info.name();
}

} // namespace

std::string ConformanceTest::lastErrorText() {
    return "last error " + hexNumber(api().GetLastError());
}

ConformanceTest::ConformanceTest() : deviation_(knownDeviations().reason(currentTest())) {
    if (deviation_) {
        interceptor_ = std::make_unique<testing::ScopedFakeTestPartResultReporter>(
            testing::ScopedFakeTestPartResultReporter::INTERCEPT_ALL_THREADS, &takenDown_);
    }
}

void ConformanceTest::TearDown() {
    if (!deviation_) {
        return;
    }
    interceptor_.reset();
    int failures = 0;
    for (int i = 0; i < takenDown_.size(); ++i) {
        const testing::TestPartResult& part = takenDown_.GetTestPartResult(i);
        failures += part.failed() ? 1 : 0;
        std::cout << part.message() << '\n';
    }
    if (failures == 0) {
        ADD_FAILURE() << "unexpected success: take this test off the list of deviations (" << *deviation_ << ')';
        return;
    }
    RecordProperty("known_deviation", *deviation_);
    std::cout << "[KNOWN DEVIATION] " << currentTest() << ": " << *deviation_ << '\n';
}

testing::AssertionResult refuses(const std::function<bool()>& call, std::initializer_list<DWORD> codes) {
    api().SetLastError(0);
    if (call()) {
        return testing::AssertionFailure() << "accepted";
    }
    const DWORD code = api().GetLastError();
    if (std::find(codes.begin(), codes.end(), code) != codes.end()) {
        return testing::AssertionSuccess();
    }
    auto failure = testing::AssertionFailure() << "refused with " << hexNumber(code) << " instead of";
    for (const DWORD expected : codes) {
        failure << ' ' << hexNumber(expected);
    }
    return failure;
}

testing::AssertionResult accepts(const std::function<bool()>& call) {
    api().SetLastError(0);
    if (call()) {
        return testing::AssertionSuccess();
    }
    return testing::AssertionFailure() << "refused, " << ConformanceTest::lastErrorText();
}

void must(bool ok, const char* step) {
    if (!ok) {
        throw std::runtime_error(std::string(step) + ": " + ConformanceTest::lastErrorText());
    }
}

Bytes fetch(const Fetch& call) {
    DWORD size = 0;
    must(call(nullptr, &size), "asking for the size");
    Bytes value(size);
    must(call(value.data(), &size), "fetching the value");
    must(size <= value.size(), "a value within the size told");
    value.resize(size);
    return value;
}

Bytes walkSizes(const Fetch& call) {
    constexpr std::uint8_t untouched = 0xA5;
    constexpr std::size_t behind = 16;
    EXPECT_REFUSED(call(nullptr, nullptr), BAD_ARGUMENT);
    DWORD needed = 0;
    must(call(nullptr, &needed), "asking for the size");
    EXPECT_GT(needed, 0U);
    for (const DWORD offered : {DWORD{0}, needed - 1}) {
        Bytes buffer(needed + behind, untouched);
        DWORD size = offered;
        EXPECT_REFUSED(call(buffer.data(), &size), capi::ERROR_MORE_DATA);
        EXPECT_EQ(size, needed) << "after offering " << offered;
        EXPECT_EQ(buffer, Bytes(buffer.size(), untouched)) << "after offering " << offered;
    }
    Bytes value(needed);
    {
        Bytes buffer(needed + behind, untouched);
        DWORD size = needed;
        must(call(buffer.data(), &size), "fetching the value");
        EXPECT_LE(size, needed);
        EXPECT_TRUE(std::all_of(buffer.begin() + needed, buffer.end(), [](auto b) { return b == untouched; }));
    }
    // Once more, because structures point into the buffer that they were written to.
    DWORD size = needed;
    must(call(value.data(), &size), "fetching the value again");
    must(size <= needed, "a value within the size told");
    value.resize(size);
    return value;
}

Bytes fromHex(std::string_view digits) {
    Bytes bytes;
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
        bytes.push_back(static_cast<std::uint8_t>(std::stoul(std::string(digits.substr(i, 2)), nullptr, 16)));
    }
    return bytes;
}

std::string toHex(const Bytes& bytes) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (const std::uint8_t octet : bytes) {
        text += digits[octet >> 4U];
        text += digits[octet & 0xFU];
    }
    return text;
}

} // namespace conformance
