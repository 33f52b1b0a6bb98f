#include "service_double/double_fixture.hpp"

#include <algorithm>
#include <cstdlib>

namespace service_double {

namespace {

void setVariable(const char* variable, const std::string& library) {
    const bool path = library.empty() || library.find('/') != std::string::npos;
    setenv(variable, (path ? library : libraryPath(library)).c_str(), 1);
}

} // namespace

DoubleFixture::DoubleFixture() : DoubleFixture(Slots{.cryptoPro = "full"}) {}

DoubleFixture::DoubleFixture(const Slots& slots) {
    setVariable("KLUNORTREDI_SERVICE", "");
    setVariable("KLUNORTREDI_VIPNET", slots.vipNet);
    setVariable("KLUNORTREDI_KERNEL32", slots.kernel32);
    setVariable("KLUNORTREDI_CRYPTOPRO", slots.cryptoPro);
    setVariable("KLUNORTREDI_CRYPTOAPI", slots.cryptoApi);
    setVariable("KLUNORTREDI_CRYPTOAPI2", slots.cryptoApi2);
    service().reset();
    namespace log = orvik::plugin::log;
    log::setLevel(log::Severity::trace);
    log::setSink([this](log::Severity severity, std::string_view text) {
        const std::lock_guard lock(mutex_);
        records_.push_back({severity, std::string(text)});
    });
}

DoubleFixture::~DoubleFixture() {
    orvik::plugin::log::setSink({});
}

void DoubleFixture::TearDown() {
    EXPECT_EQ(service().imbalance(), "");
}

std::vector<LogRecord> DoubleFixture::log() const {
    const std::lock_guard lock(mutex_);
    return records_;
}

bool DoubleFixture::logged(orvik::plugin::log::Severity severity, const std::string& text) const {
    const auto records = log();
    return std::find(records.begin(), records.end(), LogRecord{severity, text}) != records.end();
}

void DoubleFixture::clearLog() {
    const std::lock_guard lock(mutex_);
    records_.clear();
}

} // namespace service_double
