#include "unfinished_request.hpp"

#include "capi/constants.hpp"
#include "certificates.hpp"
#include "crypto/wincrypt/provider.hpp"
#include "failure.hpp"
#include "leftover.hpp"
#include "orvik/plugin/base64.hpp"
#include "orvik/plugin/crypto/i_provider.hpp"
#include "orvik/plugin/crypto/i_public_key.hpp"
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

/// Far above any request.
constexpr std::size_t largestRequest = 1024UL * 1024;

/// Octets of a request as it stands in a file, DER or PEM; empty when they cannot be read.
std::string requestIn(const std::string& content) {
    if (!content.starts_with("-----")) {
        return content;
    }
    const auto begin = content.find('\n');
    const auto end = content.find("-----", begin);
    return end == std::string::npos ? std::string{} : orvik::plugin::base64::decode(content.substr(begin, end - begin));
}

boost::shared_ptr<orvik::plugin::crypto::IPublicKey> keyOf(const Container& container) {
    return orvik::plugin::wincrypt::Provider(container.provider->type(), container.provider->name(),
                                             text::wide(container.path))
        .publicKey();
}

/// Whether the request is for the key in the container: a public key does not occur in other octets by chance.
bool isFor(std::string_view request, const Container& container) {
    const auto key = keyOf(container);
    return key && !key->key().empty() && request.find(key->key()) != std::string_view::npos;
}

/// Whether the container, or store my, has a certificate for its key. In doubt it has.
bool hasCertificate(const Container& container) {
    const auto key = keyOf(container);
    if (!key || container.provider->certificate(text::wide(container.path))) {
        return true;
    }
    const auto installed = storeCertificates("my");
    return std::any_of(installed.begin(), installed.end(), [&](const CertificatePtr& certificate) {
        const auto own = certificate->publicKey();
        return own && own->key() == key->key();
    });
}

Failure alreadyThere(const std::string& container, const std::string& next) {
    const Meaning& exists = *serviceMeaning(capi::NTE_EXISTS);
    return {exists.exit, "cannot make a key pair in container " + container, exists.why,
            next.empty() ? exists.next : next, exists.code};
}

} // namespace

UnfinishedRequest::UnfinishedRequest(OutputFile& out, ProviderPtr provider, std::string container)
    : out_(out), provider_(std::move(provider)), container_(std::move(container)),
      name_(out_.path() + ".unfinished-" + mark(provider_, container_)) {
    clear();
    if (existing(provider_, container_)) {
        throw alreadyThere(container_, {});
    }
}

void UnfinishedRequest::begin() {
    out_.nameMeanwhile(name_);
}

void UnfinishedRequest::abandon(std::string_view request) const noexcept {
    try {
        const auto container = existing(provider_, container_);
        if (container && isFor(request, *container)) {
            provider_->deleteContainer(text::wide(container->path), "its request cannot be written");
        }
    } catch (...) { // what went wrong before is what the user is shown
    }
}

void UnfinishedRequest::clear() {
    const auto left = Leftover::find(name_);
    if (!left) {
        return;
    }
    const auto container = existing(provider_, container_);
    if (container && !left->published() && !hasCertificate(*container)) {
        if (!isFor(requestIn(left->content(largestRequest)), *container)) {
            throw alreadyThere(container_,
                               "a run that was killed may have left it: if its key is not in use, delete it "
                               "with 'klunortredi containers delete " +
                                   container_ + "'");
        }
        provider_->deleteContainer(text::wide(container->path), "its request was never finished");
        deletedContainer_ = true;
    }
    left->remove();
}

} // namespace klunortredi::cli
