#include "orvik/plugin/crypto/timestamp_tools.hpp"

#include <mutex>
#include <utility>

namespace orvik::plugin::crypto::cadest {

namespace {

std::mutex toolsMutex;
boost::shared_ptr<const TimestampTools> installedTools; // guarded by toolsMutex

} // namespace

TimestampTools::~TimestampTools() = default;

void TimestampTools::install(boost::shared_ptr<const TimestampTools> tools) {
    const std::lock_guard lock(toolsMutex);
    installedTools = std::move(tools);
}

boost::shared_ptr<const TimestampTools> TimestampTools::installed() {
    const std::lock_guard lock(toolsMutex);
    return installedTools;
}

} // namespace orvik::plugin::crypto::cadest
