// Time-stamp responses (RFC 3161) written octet by octet, so that every part can be wrong.

#include "support/servers/authority.hpp"

#include <openssl/ts.h>

#include <algorithm>
#include <array>
#include <ctime>

namespace test_servers {

namespace {

constexpr const char* tokenContent = "1.2.840.113549.1.9.16.1.4"; // id-ct-TSTInfo
constexpr const char* policy = "1.2.643.7.1.99.1";
constexpr long daySeconds = 86400;
constexpr long hourSeconds = 3600;
constexpr long granted = 0;
constexpr long rejection = 2;

using Query = Owned<TS_REQ, TS_REQ_free>;

struct Algorithms {
    KeyKind kind;
    const char* digest;
    const char* signature;
    bool nullParameters;
};
constexpr std::array algorithms{
    Algorithms{KeyKind::ec, "2.16.840.1.101.3.4.2.1", "1.2.840.10045.4.3.2", false},
    Algorithms{KeyKind::rsa, "2.16.840.1.101.3.4.2.1", "1.2.840.113549.1.1.1", true},
    Algorithms{KeyKind::gost2012_256, "1.2.643.7.1.1.2.2", "1.2.643.7.1.1.1.1", false},
    Algorithms{KeyKind::gost2012_512, "1.2.643.7.1.1.2.3", "1.2.643.7.1.1.1.2", false},
};

std::string algorithm(const char* oid, bool nullParameters = false) {
    return der::sequence({der::oid(oid), nullParameters ? der::tlv(0x05, "") : ""});
}

std::string digest(const std::string& octets, const EVP_MD* method) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> out{};
    unsigned int size = 0;
    require(EVP_Digest(octets.data(), octets.size(), out.data(), &size, method, nullptr) == 1, "digest");
    return {out.begin(), out.begin() + size};
}

std::string signature(const std::string& octets, const Key& key, const EVP_MD* method) {
    const Owned<EVP_MD_CTX, EVP_MD_CTX_free> context(EVP_MD_CTX_new());
    std::size_t size = 0;
    const auto* const data = reinterpret_cast<const unsigned char*>(octets.data());
    require(EVP_DigestSignInit(context.get(), nullptr, method, nullptr, key.get()) == 1 &&
                EVP_DigestSignUpdate(context.get(), data, octets.size()) == 1 &&
                EVP_DigestSignFinal(context.get(), nullptr, &size) == 1,
            "sign");
    std::string out(size, '\0');
    require(EVP_DigestSignFinal(context.get(), reinterpret_cast<unsigned char*>(out.data()), &size) == 1, "sign");
    out.resize(size);
    return out;
}

std::string generalizedTime(std::time_t time) {
    std::tm parts{};
    ::gmtime_r(&time, &parts);
    std::array<char, 32> text{};
    const auto size = std::strftime(text.data(), text.size(), "%Y%m%d%H%M%SZ", &parts);
    return der::tlv(0x18, {text.data(), size});
}

std::string imprintOf(const TS_REQ* query, const Words& words) {
    TS_MSG_IMPRINT* const imprint = TS_REQ_get_msg_imprint(const_cast<TS_REQ*>(query));
    std::string encoded = toDer(imprint, i2d_TS_MSG_IMPRINT);
    if (words.contains("other-imprint")) {
        encoded.back() = static_cast<char>(encoded.back() ^ 1);
    }
    if (words.contains("other-imprint-algorithm")) { // SHA-512/256 and SHA3-256 are as long as the usual digests
        const ASN1_OCTET_STRING* const octets = TS_MSG_IMPRINT_get_msg(imprint);
        const std::string hash(reinterpret_cast<const char*>(ASN1_STRING_get0_data(octets)),
                               static_cast<std::size_t>(ASN1_STRING_length(octets)));
        encoded = der::sequence({algorithm("2.16.840.1.101.3.4.2.6"), der::octets(hash)});
    }
    return encoded;
}

std::string nonceOf(const TS_REQ* query, const Words& words) {
    const ASN1_INTEGER* const nonce = TS_REQ_get_nonce(query);
    if (nonce == nullptr || words.contains("no-nonce")) {
        return {};
    }
    return words.contains("other-nonce") ? der::integer(4711) : toDer(nonce, i2d_ASN1_INTEGER);
}

std::string tokenInfo(Authority& authority, const TS_REQ* query, const Words& words) {
    std::time_t now = std::time(nullptr);
    now += words.contains("past") ? -3650 * daySeconds : 0;
    now += words.contains("future") ? 3650 * daySeconds : 0;
    now += words.contains("hour-ahead") ? hourSeconds : 0;
    now -= words.contains("hour-ago") ? hourSeconds : 0;
    return der::sequence({der::integer(1), der::oid(policy), imprintOf(query, words),
                          der::integer(authority.nextSerial()), generalizedTime(now), nonceOf(query, words)});
}

std::string attribute(const char* oid, const std::string& value) {
    return der::sequence({der::oid(oid), der::setOf({value})});
}

/// The signed attributes, as a SET OF.
std::vector<std::string> attributes(const std::string& info, const Identity& signer, const EVP_MD* method,
                                    const Words& words, Authority& authority) {
    std::vector<std::string> made{attribute("1.2.840.113549.1.9.3", der::oid(tokenContent)),
                                  attribute("1.2.840.113549.1.9.4", der::octets(digest(info, method)))};
    if (!words.contains("no-certificate-id")) {
        const auto& named = words.contains("other-certificate-id") ? authority.root() : signer;
        const std::string hash = digest(toDer(named.certificate), EVP_sha256()); // ESSCertIDv2, RFC 5035
        const std::string id = der::sequence({der::octets(hash)});
        made.push_back(attribute("1.2.840.113549.1.9.16.2.47", der::sequence({der::sequence({id})})));
    }
    return made;
}

} // namespace

std::string signedToken(Authority& authority, const std::string& info, const Words& words) {
    const auto& signer = authority.timestamping(words);
    const auto& row = *std::ranges::find(algorithms, authority.kind(), &Algorithms::kind);
    const EVP_MD* const method = digestOf(row.kind);
    const auto signedAttributes = attributes(info, signer, method, words, authority);
    const Key& key = words.contains("other-key") ? authority.stranger().key : signer.key;
    const std::string value = signature(der::setOf(signedAttributes), key, method);
    X509* const certificate = signer.certificate.get();
    const std::string issuerAndSerial = der::sequence({toDer(X509_get_issuer_name(certificate), i2d_X509_NAME),
                                                       toDer(X509_get_serialNumber(certificate), i2d_ASN1_INTEGER)});
    const std::string signerInfo =
        der::sequence({der::integer(1), issuerAndSerial, algorithm(row.digest), der::setOf(signedAttributes, 0xA0),
                       algorithm(row.signature, row.nullParameters), der::octets(value)});
    const bool certificates = !words.contains("no-certificate");
    const std::string content = der::sequence({der::oid(tokenContent), der::tlv(0xA0, der::octets(info))});
    const std::string signedData =
        der::sequence({der::integer(3), der::setOf({algorithm(row.digest)}), content,
                       certificates ? der::setOf({toDer(signer.certificate)}, 0xA0) : "", der::setOf({signerInfo})});
    return der::sequence({der::oid("1.2.840.113549.1.7.2"), der::tlv(0xA0, signedData)});
}

namespace {

/// PKIStatusInfo; a rejection says badRequest, bit 2.
std::string statusInfo(long status) {
    if (status == granted) {
        return der::sequence({der::integer(granted)});
    }
    const std::string text = der::sequence({der::tlv(0x0C, "the test authority rejects this request")});
    return der::sequence({der::integer(status), text, der::tlv(0x03, std::string("\x05\x20", 2))});
}

} // namespace

std::string grantedResponse(const std::string& token) {
    return der::sequence({statusInfo(granted), token});
}

std::string timestampAnswer(Authority& authority, const std::string& request, const Words& asked) {
    Words words = asked;
    const auto* next = reinterpret_cast<const unsigned char*>(request.data());
    const Query query(d2i_TS_REQ(nullptr, &next, static_cast<long>(request.size())));
    if (!query || words.contains("rejected")) {
        return der::sequence({statusInfo(rejection)});
    }
    if (TS_REQ_get_cert_req(query.get()) == 0) {
        words.insert("no-certificate");
    }
    const std::string token =
        words.contains("no-token") ? "" : signedToken(authority, tokenInfo(authority, query.get(), words), words);
    return words.contains("rejected-with-token") ? der::sequence({statusInfo(rejection), token})
                                                 : grantedResponse(token);
}

} // namespace test_servers
