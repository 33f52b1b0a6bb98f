#include "crypto/wincrypt/signature_validator.hpp"

#include "crypto/wincrypt/tools_verify.hpp"
#include "orvik/plugin/crypto/i_certificate.hpp"
#include "orvik/plugin/crypto/i_provider.hpp"
#include "orvik/plugin/xml/xml_document.hpp"

#include <boost/smart_ptr/make_shared.hpp>

#include <algorithm>
#include <sstream>
#include <string>

namespace orvik::plugin::wincrypt {

namespace internal {
namespace {

/// What `judge` says; no where it throws. The context keeps the verdict.
template <class Context, class Judge>
bool decide(Context& context, Judge judge) {
    try {
        context.result = judge();
    } catch (...) {
        context.result = false;
    }
    return context.result;
}

template <class Context>
bool finish(boost::shared_ptr<Context>& context, std::vector<unsigned char>& out) {
    out.clear();
    const auto last = std::exchange(context, nullptr);
    return last && last->result;
}

} // namespace
} // namespace internal

namespace binary {

struct ValidatorContext {
    boost::shared_ptr<std::istream> content;
    bool result = false;
};

Validator::Validator() = default;

Validator::~Validator() = default;

bool Validator::initializeImpl(const IDataHandler::Params& params) {
    const auto& own = dynamic_cast<const Params&>(params);
    context_ = boost::make_shared<ValidatorContext>();
    context_->content = own.content;
    return true;
}

bool Validator::updateImpl(const unsigned char* data, std::size_t size, std::size_t* /*consumed*/) {
    if (data == nullptr) {
        return context_->result;
    }
    return wincrypt::internal::decide(*context_, [&] {
        std::stringstream signature(std::string(reinterpret_cast<const char*>(data), size));
        boost::optional<std::istream&> content;
        if (context_->content) {
            content = *context_->content;
        }
        return tools::verify(signature, content);
    });
}

bool Validator::finalizeImpl(std::vector<unsigned char>& out) {
    return wincrypt::internal::finish(context_, out);
}

} // namespace binary

namespace xmldsig {

struct ValidatorContext {
    boost::shared_ptr<crypto::ICertificate> certificate;
    bool result = false;
};

Validator::Validator() = default;

Validator::~Validator() = default;

bool Validator::initializeImpl(const IDataHandler::Params& params) {
    const auto& own = dynamic_cast<const Params&>(params);
    context_ = boost::make_shared<ValidatorContext>();
    context_->certificate = own.certificate;
    return true;
}

bool Validator::updateImpl(const unsigned char* data, std::size_t size, std::size_t* /*consumed*/) {
    if (data == nullptr) {
        return context_->result;
    }
    return wincrypt::internal::decide(*context_, [&] {
        // Without a certificate the framework takes the keys from the signatures alone.
        const auto& certificate = context_->certificate;
        const auto provider = certificate ? certificate->provider(true) : boost::shared_ptr<crypto::IProvider>();
        xml::XmlDocument document(reinterpret_cast<const char*>(data), size);
        const auto results = xml::verifyXmlSignatures(document, provider);
        return !results.empty() &&
               std::all_of(results.begin(), results.end(), [](const auto& signature) { return signature.valid; });
    });
}

bool Validator::finalizeImpl(std::vector<unsigned char>& out) {
    return wincrypt::internal::finish(context_, out);
}

} // namespace xmldsig

} // namespace orvik::plugin::wincrypt
