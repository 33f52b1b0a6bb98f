#include "orvik/plugin/constant.hpp"
#include "orvik/plugin/converter.hpp"
#include "orvik/plugin/crypto/constant.hpp"
#include "orvik/plugin/crypto/exception/crypto_exception.hpp"
#include "orvik/plugin/crypto/tools.hpp"
#include "orvik/plugin/hex.hpp"
#include "ossl/owners.hpp"

#include <boost/algorithm/hex.hpp>
#include <boost/algorithm/string/predicate.hpp>
#include <boost/lexical_cast/try_lexical_convert.hpp>
#include <openssl/asn1.h>

#include <algorithm>
#include <array>
#include <locale>

namespace orvik::plugin::crypto::tools {

namespace {

using Attribute = format::SignatureRequest::Attribute;
using format::SignedAttribute;

// Universal tag numbers (X.680, 8.4); der stands for a value of any type that comes encoded.
constexpr std::uint32_t integerTag = 2;
constexpr std::uint32_t octetStringTag = 4;
constexpr std::uint32_t utf8StringTag = 12;
constexpr std::uint32_t utcTimeTag = 23;
constexpr std::uint32_t encodedTag = 0;

struct TypeName {
    const char* name;
    std::uint32_t tag;
};

constexpr std::array typeNames = {
    TypeName{"OCTET STRING", octetStringTag},
    TypeName{"OCTETSTRING", octetStringTag},
    TypeName{"octets", octetStringTag},
    TypeName{"UTF8String", utf8StringTag},
    TypeName{"utf8", utf8StringTag},
    TypeName{"INTEGER", integerTag},
    TypeName{"int", integerTag},
    TypeName{"UTCTime", utcTimeTag},
    TypeName{"time", utcTimeTag},
    TypeName{"DER", encodedTag},
};

[[noreturn]] void refuse(const std::string& value) {
    plugin::exception::raise(
        plugin::exception::setValue(exception::CryptoException(exception::CryptoException::Code::badAttribute), value),
        {"signed_attributes", "signedAttributes"});
}

std::uint32_t tag(const std::string& type) {
    const auto* found = std::find_if(typeNames.begin(), typeNames.end(), [&](const TypeName& row) {
        return boost::algorithm::iequals(type, row.name, std::locale::classic());
    });
    if (found == typeNames.end()) {
        refuse(type);
    }
    return found->tag;
}

/// Octets of one whole DER value from their hexadecimal text.
std::string encodedValue(const std::string& text) {
    std::string der;
    try {
        der = hex::decode(text);
    } catch (const boost::algorithm::hex_decode_error&) {
        refuse(text);
    }
    if (!ssl::internal::fromDer<ssl::internal::Owned<ASN1_TYPE, ASN1_TYPE_free>>(der, d2i_ASN1_TYPE)) {
        refuse(text);
    }
    return der;
}

/// DER of the time that the text names: UTCTime until 2049, GeneralizedTime then (RFC 5652, 11.3).
std::string encodedTime(const std::string& text) {
    namespace convert = plugin::converter;
    std::time_t seconds = 0;
    if (!boost::conversion::try_lexical_convert(text, seconds)) {
        const auto time = convert::to_ptime(text, constant::timestampFormat);
        if (time.is_special()) {
            refuse(text);
        }
        seconds = convert::to_time_t_64(time);
    }
    const ssl::internal::Owned<ASN1_TIME, ASN1_TIME_free> time(ASN1_TIME_adj(nullptr, seconds, 0, 0));
    if (!time) {
        refuse(text);
    }
    return ssl::internal::toDer(time.get(), i2d_ASN1_TIME);
}

/// The value as the signature is to carry it, where that is not a text.
std::string value(const Attribute& attribute, std::uint32_t type) {
    switch (type) {
    case encodedTag:
        return encodedValue(attribute.value);
    case utcTimeTag:
        // The signing time stays a text: who makes the signature checks and encodes it.
        return attribute.oid == plugin::oid::signingTime ? attribute.value : encodedTime(attribute.value);
    default:
        return attribute.value;
    }
}

} // namespace

std::vector<SignedAttribute> signedAttributes(const std::set<Attribute>& attributes) {
    std::vector<SignedAttribute> out;
    for (const Attribute& attribute : attributes) {
        const std::uint32_t named = tag(attribute.type);
        const std::uint32_t type = attribute.oid == plugin::oid::signingTime ? utcTimeTag : named;
        out.push_back({type, attribute.oid, value(attribute, type)});
    }
    return out;
}

bool likelyUnixTimestamp(boost::string_view text) {
    if (!text.empty() && (text.front() == '+' || text.front() == '-')) {
        text.remove_prefix(1);
    }
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

} // namespace orvik::plugin::crypto::tools
