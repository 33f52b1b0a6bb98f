#pragma once

/// What the framework knows of providers and algorithms, and small helpers around certificates and attributes.

#include "orvik/plugin/crypto/format/signature_request.hpp"
#include "orvik/plugin/crypto/i_provider.hpp"
#include "orvik/plugin/export.hpp"

#include <boost/optional.hpp>
#include <boost/utility/string_view.hpp>

#include <set>
#include <string>
#include <vector>

namespace orvik::plugin::crypto::tools {

/// A provider that the framework knows.
struct ProviderInfo {
    IProvider::Type type;
    std::string name; ///< canonical, UTF-8
    IProvider::Family family;
    IProvider::Kind kind;
    std::string containerPrefix;         ///< reader prefix of its container names; may be empty
    std::string subjectSignTool;         ///< text for the certificate extension 1.2.643.100.111
    std::vector<std::string> algorithms; ///< public-key algorithm OIDs
    std::vector<std::string> paramSets;  ///< key parameter-set OIDs, the usual one first
    std::string signToolPattern; ///< what a certificate's sign-tool text contains when this provider made its key
};

/// A parameter set of a key algorithm. RSA's only one goes by the key algorithm's own OID.
struct ParamSetInfo {
    std::string oid;
    std::string algorithm;          ///< public-key algorithm OID
    std::string secondAlgorithm;    ///< another OID that goes with the set: the older algorithm on the same curve, else
                                    ///< the agreement OID of the same key; empty when there is none
    std::string hashAlgorithm;      ///< OID of the hash that signs with it
    std::string signatureAlgorithm; ///< OID of signature-with-hash
    std::string name;               ///< for people
};

ORVIK_EXPORT const std::vector<ProviderInfo>& providerInfos();
/// The record whose name is `name` (UTF-8, exact).
ORVIK_EXPORT boost::optional<ProviderInfo> providerInfo(boost::string_view name);
/// Whether the provider of that name is a CNG provider; none is on this platform.
ORVIK_EXPORT bool isCNG(boost::wstring_view providerName);
ORVIK_EXPORT bool isCNG(const IProvider& provider);
/// Algorithm OIDs of the provider's record; empty when it has none.
ORVIK_EXPORT std::vector<std::string> algorithms(const IProvider& provider);
ORVIK_EXPORT boost::optional<ParamSetInfo> algorithmParamSet(boost::string_view oid);
/// The parameter set as a provider with these key `algorithms` (OIDs) uses it: one that has only the set's older
/// algorithm (GOST R 34.10-2001 on a CryptoPro curve) signs with that one's hash and signature algorithm.
ORVIK_EXPORT boost::optional<ParamSetInfo> algorithmParamSet(boost::string_view oid,
                                                             const std::vector<std::string>& algorithms);
/// The hash that is paired with a public-key algorithm (agreement OIDs too); empty when unknown.
ORVIK_EXPORT std::string hashOidFromPublicKeyAlgOid(boost::string_view oid);
/// The text without armour lines and white space.
ORVIK_EXPORT std::string normalizePEM(const std::string& text);
/// Type by name ("OCTET STRING", "UTF8String", "INTEGER", "UTCTime"; short names octets, utf8, int, time; any case) to
/// its universal tag number, the value staying the text it is. Two kinds come out as DER: "der" (type 0), whose text is
/// the hexadecimal of one whole value, and a time other than the signing time (Unix seconds or YYYY-MM-DDThh:mm:ssZ).
/// The signing time always has type 23. Throws CryptoException badAttribute for another name or such a value.
ORVIK_EXPORT std::vector<format::SignedAttribute>
signedAttributes(const std::set<format::SignatureRequest::Attribute>& attributes);
/// Whether the text is a decimal number, perhaps signed.
ORVIK_EXPORT bool likelyUnixTimestamp(boost::string_view text);

} // namespace orvik::plugin::crypto::tools
