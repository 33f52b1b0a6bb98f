#include "orvik/plugin/log.hpp"

#include <boost/log/attributes/value_extraction.hpp>
#include <boost/log/core.hpp>
#include <boost/log/expressions.hpp>
#include <boost/log/sinks/basic_sink_backend.hpp>
#include <boost/log/sinks/sync_frontend.hpp>
#include <boost/log/sources/record_ostream.hpp>
#include <boost/log/trivial.hpp>
#include <boost/smart_ptr/make_shared.hpp>

#include <algorithm>
#include <array>
#include <atomic>
#include <mutex>
#include <utility>

namespace orvik::plugin::log {

namespace {

namespace trivial = boost::log::trivial;
namespace sinks = boost::log::sinks;

constexpr std::array<trivial::severity_level, 5> levels = {trivial::trace, trivial::debug, trivial::info,
                                                           trivial::warning, trivial::error};

/// How an application asks for records. Without a sink Boost.Log puts them on standard output, which is the
/// application's.
std::atomic<bool> levelChosen = false;
std::atomic<bool> sinkInstalled = false;

trivial::severity_level toTrivial(Severity severity) {
    return levels.at(static_cast<std::size_t>(severity));
}

/// Fatal records, which the framework does not write but the application may, count as errors.
Severity fromTrivial(trivial::severity_level level) {
    const auto* found = std::find(levels.begin(), levels.end(), level);
    return found == levels.end() ? Severity::error : static_cast<Severity>(found - levels.begin());
}

/// Hands each record to a function.
class FunctionBackend : public sinks::basic_sink_backend<sinks::synchronized_feeding> {
public:
    explicit FunctionBackend(Sink sink) : sink_(std::move(sink)) {}

    void consume(const boost::log::record_view& record) {
        const auto level = record[trivial::severity];
        const auto message = record[boost::log::expressions::smessage];
        sink_(fromTrivial(level ? level.get() : trivial::info), message ? message.get() : std::string());
    }

private:
    Sink sink_;
};

} // namespace

void write(Severity severity, std::string_view text) noexcept {
    if (!levelChosen && !sinkInstalled) {
        return;
    }
    try {
        BOOST_LOG_STREAM_WITH_PARAMS(trivial::logger::get(), (boost::log::keywords::severity = toTrivial(severity)))
            << text;
    } catch (...) { // NOLINT(bugprone-empty-catch): a record that cannot be written must not fail the operation
    }
}

void setLevel(Severity least) {
    levelChosen = true;
    boost::log::core::get()->set_filter(trivial::severity >= toTrivial(least));
}

void setSink(Sink sink) {
    static std::mutex mutex;
    static boost::shared_ptr<sinks::sink> installed;
    const std::lock_guard lock(mutex);
    sinkInstalled = static_cast<bool>(sink);
    if (installed) {
        boost::log::core::get()->remove_sink(installed);
        installed.reset();
    }
    if (sink) {
        installed = boost::make_shared<sinks::synchronous_sink<FunctionBackend>>(
            boost::make_shared<FunctionBackend>(std::move(sink)));
        boost::log::core::get()->add_sink(installed);
    }
}

} // namespace orvik::plugin::log
