#include "unfinished_request.hpp"

#include "capi/constants.hpp"
#include "failure.hpp"
#include "leftover.hpp"
#include "orvik/plugin/crypto/i_provider.hpp"
#include "service_words.hpp"
#include "text.hpp"

#include <boost/crc.hpp>

#include <algorithm>
#include <iomanip>
#include <optional>
#include <sstream>
#include <utility>

namespace klunortredi::cli {

namespace {

std::optional<Container> existing(const ProviderPtr& provider, const std::string& name) {
    const auto containers = containersOf({provider});
    const auto found =
        std::find_if(containers.begin(), containers.end(), [&](const Container& c) { return c.name == name; });
    return found == containers.end() ? std::nullopt : std::optional<Container>(*found);
}

/// Short whatever the container's name is, and the same in every run.
std::string mark(const ProviderPtr& provider, const std::string& container) {
    const std::string id = std::to_string(provider->type()) + "/" + container;
    boost::crc_32_type sum;
    sum.process_bytes(id.data(), id.size());
    std::ostringstream mark;
    mark << std::hex << std::setw(8) << std::setfill('0') << sum.checksum();
    return mark.str();
}

} // namespace

UnfinishedRequest::UnfinishedRequest(OutputFile& out, ProviderPtr provider, std::string container)
    : out_(out), provider_(std::move(provider)), container_(std::move(container)),
      name_(out_.path() + ".unfinished-" + mark(provider_, container_)) {
    clear();
    if (existing(provider_, container_)) {
        const Meaning& exists = *serviceMeaning(capi::NTE_EXISTS);
        throw Failure(exists.exit, "cannot make a key pair in container " + container_, exists.why, exists.next,
                      exists.code);
    }
}

void UnfinishedRequest::begin() {
    out_.nameMeanwhile(name_);
}

void UnfinishedRequest::abandon() const noexcept {
    try {
        if (const auto container = existing(provider_, container_)) {
            provider_->deleteContainer(text::wide(container->path), "its request cannot be written");
        }
    } catch (...) { // what went wrong before is what the person is told
    }
}

void UnfinishedRequest::clear() {
    const auto left = Leftover::find(name_);
    if (!left) {
        return;
    }
    const auto container = existing(provider_, container_);
    if (container && !left->published()) {
        provider_->deleteContainer(text::wide(container->path), "its request was never finished");
        deletedContainer_ = true;
    }
    left->remove();
}

} // namespace klunortredi::cli
