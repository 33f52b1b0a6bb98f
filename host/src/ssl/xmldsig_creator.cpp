#include "orvik/plugin/ssl/xmldsig_creator.hpp"

#include "orvik/plugin/constant.hpp"
#include "orvik/plugin/converter.hpp"
#include "orvik/plugin/crypto/constant.hpp"
#include "orvik/plugin/crypto/exception/crypto_exception.hpp"
#include "orvik/plugin/crypto/i_certificate.hpp"
#include "orvik/plugin/crypto/i_provider.hpp"
#include "orvik/plugin/crypto/i_public_key.hpp"
#include "orvik/plugin/crypto/tools.hpp"
#include "orvik/plugin/xml/xml_document.hpp"
#include "xml/canonical.hpp"
#include "xml_signing.hpp"

#include <boost/lexical_cast/try_lexical_convert.hpp>

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <optional>

namespace orvik::plugin::ssl::xmldsig {

namespace {

using boost::posix_time::ptime;
using crypto::exception::CryptoException;
using xml::internal::SigningMethod;

constexpr std::uint16_t digitalSignature = 0x80; // the first bit of the key usage (RFC 5280, section 4.2.1.3)

[[noreturn]] void refuse(CryptoException::Code code) {
    plugin::exception::raise(CryptoException(code), {"xmldsig_creator", "initializeImpl"});
}

const SigningMethod& signingMethod(const crypto::ICertificate& certificate) {
    const auto key = certificate.publicKey();
    const std::string hash = certificate.hashAlgorithm();
    const auto& methods = xml::internal::signingMethods;
    const auto* found = std::find_if(methods.begin(), methods.end(), [&](const SigningMethod& method) {
        return key && key->algObjId() == method.keyOid && hash == method.hashOid;
    });
    if (found == methods.end()) {
        refuse(CryptoException::Code::algorithmUnsupported);
    }
    return *found;
}

void requireSigningUsage(const crypto::ICertificate& certificate) {
    const auto usage = certificate.keyUsage();
    if (!usage || (*usage & digitalSignature) == 0) {
        refuse(CryptoException::Code::keyUsageForbids);
    }
}

[[noreturn]] void refuseAttribute(const char* why) {
    plugin::exception::raise(CryptoException(CryptoException::Code::badAttribute) << plugin::exception::Message_(why),
                             {"xmldsig_creator", "initializeImpl"});
}

/// Not set for a text that is neither Unix seconds nor of the framework's format.
ptime timeOf(const std::string& text) {
    std::time_t seconds = 0;
    if (!crypto::tools::likelyUnixTimestamp(text)) {
        return converter::to_ptime(text, crypto::constant::timestampFormat);
    }
    return boost::conversion::try_lexical_convert(text, seconds) ? converter::to_ptime(seconds) : ptime();
}

/// The signing time that the parameters ask for, or now; nullopt for a signature without properties. XAdES has no place
/// for other signed attributes.
std::optional<ptime> signingTime(const crypto::SignatureFactory::Creator::Params& params) {
    const auto* const own = dynamic_cast<const Creator::Params*>(&params);
    const bool properties = own == nullptr || own->properties;
    std::optional<ptime> time = properties ? std::optional(converter::to_ptime(std::time(nullptr))) : std::nullopt;
    for (const auto& attribute : params.attributes) {
        if (!properties || attribute.oid != oid::signingTime || params.attributes.size() > 1) {
            refuseAttribute("an XML signature has no signed attribute but the signing time of its XAdES properties");
        }
        time = timeOf(attribute.value);
        if (time->is_special()) {
            refuseAttribute("the signing time is not a time");
        }
    }
    return time;
}

} // namespace

struct Creator::Context {
    internal::XmlSigner signer;
    std::string text;
};

Creator::Params::~Params() = default;
Creator::Creator() = default;
Creator::~Creator() = default;

std::unique_ptr<IDataHandler::Params> Creator::paramsImpl() const {
    return std::make_unique<Params>();
}

bool Creator::initializeImpl(const IDataHandler::Params& params) {
    const auto& own = dynamic_cast<const crypto::SignatureFactory::Creator::Params&>(params);
    const auto& certificate = own.certificate;
    if (!certificate) {
        refuse(CryptoException::Code::noCertificate);
    }
    requireSigningUsage(*certificate);
    const auto time = signingTime(own);
    auto provider = certificate->provider(true);
    if (!provider) {
        refuse(CryptoException::Code::noProvider);
    }
    context_ =
        std::make_unique<Context>(Context{{certificate, std::move(provider), signingMethod(*certificate), time}, {}});
    return true;
}

bool Creator::updateImpl(const unsigned char* data, std::size_t size, std::size_t* consumed) {
    if (!context_) {
        return false;
    }
    if (data != nullptr) {
        context_->text.append(reinterpret_cast<const char*>(data), size);
    }
    if (consumed != nullptr) {
        *consumed = size;
    }
    return true;
}

bool Creator::finalizeImpl(std::vector<unsigned char>& out) {
    if (!context_) {
        return false;
    }
    const auto context = std::move(context_);
    const xml::XmlDocument document(context->text.data(), context->text.size());
    auto* const native = static_cast<xmlDocPtr>(document.native());
    internal::signXml(native, context->signer);
    const std::string text = xml::internal::serialized(native);
    out.assign(text.begin(), text.end());
    return true;
}

} // namespace orvik::plugin::ssl::xmldsig
