#include "signature_algorithms.hpp"

#include "gost_engine.hpp"

#include <openssl/core_names.h>
#include <openssl/dsa.h>
#include <openssl/ec.h>
#include <openssl/obj_mac.h>
#include <openssl/rsa.h>

#include <algorithm>
#include <array>
#include <stdexcept>

namespace orvik::plugin::xml::internal {

namespace {

using ssl::internal::Owned;
using KeyContext = Owned<EVP_PKEY_CTX, EVP_PKEY_CTX_free>;

#define CPXMLSEC "urn:ietf:params:xml:ns:cpxmlsec:algorithms:"
#define DSIG "http://www.w3.org/2000/09/xmldsig#"
#define DSIG11 "http://www.w3.org/2009/xmldsig11#"
#define MORE "http://www.w3.org/2001/04/xmldsig-more#"
#define MORE07 "http://www.w3.org/2007/05/xmldsig-more#"
#define MORE21 "http://www.w3.org/2021/04/xmldsig-more#"
#define XMLENC "http://www.w3.org/2001/04/xmlenc#"

// XML-DSig 1.1 and RFC 9231; the GOST names are those of CryptoPro's and of other Russian products.
constexpr std::array digests = {
    DigestAlgorithm{DSIG "sha1", "1.3.14.3.2.26", NID_sha1, false},
    DigestAlgorithm{MORE "sha224", "2.16.840.1.101.3.4.2.4", NID_sha224, false},
    DigestAlgorithm{XMLENC "sha256", "2.16.840.1.101.3.4.2.1", NID_sha256, false},
    DigestAlgorithm{MORE "sha384", "2.16.840.1.101.3.4.2.2", NID_sha384, false},
    DigestAlgorithm{XMLENC "sha512", "2.16.840.1.101.3.4.2.3", NID_sha512, false},
    DigestAlgorithm{MORE07 "sha3-224", "2.16.840.1.101.3.4.2.7", NID_sha3_224, false},
    DigestAlgorithm{MORE07 "sha3-256", "2.16.840.1.101.3.4.2.8", NID_sha3_256, false},
    DigestAlgorithm{MORE07 "sha3-384", "2.16.840.1.101.3.4.2.9", NID_sha3_384, false},
    DigestAlgorithm{MORE07 "sha3-512", "2.16.840.1.101.3.4.2.10", NID_sha3_512, false},
    DigestAlgorithm{MORE "md5", "1.2.840.113549.2.5", NID_md5, false},
    DigestAlgorithm{CPXMLSEC "gostr3411", "1.2.643.2.2.9", NID_id_GostR3411_94, true},
    DigestAlgorithm{MORE "gostr3411", "1.2.643.2.2.9", NID_id_GostR3411_94, true},
    DigestAlgorithm{CPXMLSEC "gostr34112012-256", "1.2.643.7.1.1.2.2", NID_id_GostR3411_2012_256, true},
    DigestAlgorithm{MORE "gostr34112012-256", "1.2.643.7.1.1.2.2", NID_id_GostR3411_2012_256, true},
    DigestAlgorithm{CPXMLSEC "gostr34112012-512", "1.2.643.7.1.1.2.3", NID_id_GostR3411_2012_512, true},
    DigestAlgorithm{MORE "gostr34112012-512", "1.2.643.7.1.1.2.3", NID_id_GostR3411_2012_512, true},
};

constexpr std::array algorithms = {
    SignatureAlgorithm{DSIG "dsa-sha1", SignatureKind::dsa, NID_sha1, EVP_PKEY_DSA},
    SignatureAlgorithm{DSIG11 "dsa-sha256", SignatureKind::dsa, NID_sha256, EVP_PKEY_DSA},
    SignatureAlgorithm{MORE "rsa-md5", SignatureKind::rsa, NID_md5, EVP_PKEY_RSA},
    SignatureAlgorithm{DSIG "rsa-sha1", SignatureKind::rsa, NID_sha1, EVP_PKEY_RSA},
    SignatureAlgorithm{MORE "rsa-sha224", SignatureKind::rsa, NID_sha224, EVP_PKEY_RSA},
    SignatureAlgorithm{MORE "rsa-sha256", SignatureKind::rsa, NID_sha256, EVP_PKEY_RSA},
    SignatureAlgorithm{MORE "rsa-sha384", SignatureKind::rsa, NID_sha384, EVP_PKEY_RSA},
    SignatureAlgorithm{MORE "rsa-sha512", SignatureKind::rsa, NID_sha512, EVP_PKEY_RSA},
    SignatureAlgorithm{MORE07 "sha224-rsa-MGF1", SignatureKind::rsaPss, NID_sha224, EVP_PKEY_RSA},
    SignatureAlgorithm{MORE07 "sha256-rsa-MGF1", SignatureKind::rsaPss, NID_sha256, EVP_PKEY_RSA},
    SignatureAlgorithm{MORE07 "sha384-rsa-MGF1", SignatureKind::rsaPss, NID_sha384, EVP_PKEY_RSA},
    SignatureAlgorithm{MORE07 "sha512-rsa-MGF1", SignatureKind::rsaPss, NID_sha512, EVP_PKEY_RSA},
    SignatureAlgorithm{MORE07 "sha3-256-rsa-MGF1", SignatureKind::rsaPss, NID_sha3_256, EVP_PKEY_RSA},
    SignatureAlgorithm{MORE07 "sha3-384-rsa-MGF1", SignatureKind::rsaPss, NID_sha3_384, EVP_PKEY_RSA},
    SignatureAlgorithm{MORE07 "sha3-512-rsa-MGF1", SignatureKind::rsaPss, NID_sha3_512, EVP_PKEY_RSA},
    SignatureAlgorithm{MORE "ecdsa-sha1", SignatureKind::ecdsa, NID_sha1, EVP_PKEY_EC},
    SignatureAlgorithm{MORE "ecdsa-sha224", SignatureKind::ecdsa, NID_sha224, EVP_PKEY_EC},
    SignatureAlgorithm{MORE "ecdsa-sha256", SignatureKind::ecdsa, NID_sha256, EVP_PKEY_EC},
    SignatureAlgorithm{MORE "ecdsa-sha384", SignatureKind::ecdsa, NID_sha384, EVP_PKEY_EC},
    SignatureAlgorithm{MORE "ecdsa-sha512", SignatureKind::ecdsa, NID_sha512, EVP_PKEY_EC},
    SignatureAlgorithm{MORE21 "ecdsa-sha3-256", SignatureKind::ecdsa, NID_sha3_256, EVP_PKEY_EC},
    SignatureAlgorithm{MORE21 "ecdsa-sha3-384", SignatureKind::ecdsa, NID_sha3_384, EVP_PKEY_EC},
    SignatureAlgorithm{MORE21 "ecdsa-sha3-512", SignatureKind::ecdsa, NID_sha3_512, EVP_PKEY_EC},
    SignatureAlgorithm{CPXMLSEC "gostr34102001-gostr3411", SignatureKind::gost, NID_id_GostR3411_94,
                       NID_id_GostR3410_2001},
    SignatureAlgorithm{MORE "gostr34102001-gostr3411", SignatureKind::gost, NID_id_GostR3411_94, NID_id_GostR3410_2001},
    SignatureAlgorithm{CPXMLSEC "gostr34102012-gostr34112012-256", SignatureKind::gost, NID_id_GostR3411_2012_256,
                       NID_id_GostR3410_2012_256},
    SignatureAlgorithm{MORE "gostr34102012-gostr34112012-256", SignatureKind::gost, NID_id_GostR3411_2012_256,
                       NID_id_GostR3410_2012_256},
    SignatureAlgorithm{CPXMLSEC "gostr34102012-gostr34112012-512", SignatureKind::gost, NID_id_GostR3411_2012_512,
                       NID_id_GostR3410_2012_512},
    SignatureAlgorithm{MORE "gostr34102012-gostr34112012-512", SignatureKind::gost, NID_id_GostR3411_2012_512,
                       NID_id_GostR3410_2012_512},
};

#undef CPXMLSEC
#undef DSIG
#undef DSIG11
#undef MORE
#undef MORE07
#undef MORE21
#undef XMLENC

template <class Row, std::size_t N>
const Row* find(const std::array<Row, N>& table, std::string_view uri) noexcept {
    const auto* const found =
        std::find_if(table.begin(), table.end(), [uri](const Row& row) { return row.uri == uri; });
    return found == table.end() ? nullptr : &*found;
}

const EVP_MD* method(const DigestAlgorithm& algorithm) noexcept {
    return algorithm.gost ? gostDigest(algorithm.nid) : EVP_get_digestbynid(algorithm.nid);
}

/// Octets of r and of s in a signature of DSA or ECDSA; 0 when the key does not say.
std::size_t halfOf(const SignatureAlgorithm& algorithm, EVP_PKEY* key) {
    if (algorithm.kind == SignatureKind::ecdsa) {
        return (static_cast<std::size_t>(EVP_PKEY_get_bits(key)) + 7) / 8;
    }
    BIGNUM* q = nullptr;
    if (EVP_PKEY_get_bn_param(key, OSSL_PKEY_PARAM_FFC_Q, &q) != 1) {
        return 0;
    }
    const Owned<BIGNUM, BN_free> owned(q);
    return static_cast<std::size_t>(BN_num_bytes(q));
}

template <class Signature, auto New, auto Free, auto Set, auto Encode>
std::string encoded(const unsigned char* octets, int half) {
    const Owned<Signature, Free> signature(New());
    Owned<BIGNUM, BN_free> r(BN_bin2bn(octets, half, nullptr));
    Owned<BIGNUM, BN_free> s(BN_bin2bn(octets + half, half, nullptr));
    if (!signature || !r || !s || Set(signature.get(), r.get(), s.get()) != 1) {
        throw std::bad_alloc();
    }
    r.release(); // NOLINT(bugprone-unused-return-value): the signature owns them
    s.release(); // NOLINT(bugprone-unused-return-value)
    return ssl::internal::toDer(signature.get(), Encode);
}

/// The value as OpenSSL takes it; empty when its length is not the algorithm's.
std::string forOpenssl(const SignatureAlgorithm& algorithm, EVP_PKEY* key, const std::string& value) {
    switch (algorithm.kind) {
    case SignatureKind::gost: // the engine does not mind octets after the signature
        return value.size() == (algorithm.key == NID_id_GostR3410_2012_512 ? 128 : 64) ? value : std::string();
    case SignatureKind::rsa:
    case SignatureKind::rsaPss:
        return value.size() == static_cast<std::size_t>(EVP_PKEY_get_size(key)) ? value : std::string();
    default:
        break;
    }
    // Some products leave out leading zeros that r and s have in common; nothing may be longer than the standard says.
    const std::size_t half = value.size() / 2;
    if (value.size() % 2 != 0 || half > halfOf(algorithm, key)) {
        return {};
    }
    const auto* octets = reinterpret_cast<const unsigned char*>(value.data());
    return algorithm.kind == SignatureKind::ecdsa
               ? encoded<ECDSA_SIG, ECDSA_SIG_new, ECDSA_SIG_free, ECDSA_SIG_set0, i2d_ECDSA_SIG>(
                     octets, static_cast<int>(half))
               : encoded<DSA_SIG, DSA_SIG_new, DSA_SIG_free, DSA_SIG_set0, i2d_DSA_SIG>(octets, static_cast<int>(half));
}

bool configure(const SignatureAlgorithm& algorithm, EVP_PKEY_CTX* context) {
    if (EVP_PKEY_verify_init(context) != 1) {
        return false;
    }
    if (algorithm.kind != SignatureKind::rsa && algorithm.kind != SignatureKind::rsaPss) {
        return true;
    }
    const bool pss = algorithm.kind == SignatureKind::rsaPss;
    return EVP_PKEY_CTX_set_rsa_padding(context, pss ? RSA_PKCS1_PSS_PADDING : RSA_PKCS1_PADDING) == 1 &&
           EVP_PKEY_CTX_set_signature_md(context, method(digestAlgorithm(algorithm.digest))) == 1 &&
           (!pss || EVP_PKEY_CTX_set_rsa_pss_saltlen(context, RSA_PSS_SALTLEN_DIGEST) == 1);
}

} // namespace

const DigestAlgorithm* digestAlgorithm(std::string_view uri) noexcept {
    return find(digests, uri);
}

const DigestAlgorithm& digestAlgorithm(int nid) noexcept {
    return *std::find_if(digests.begin(), digests.end(), [nid](const auto& row) { return row.nid == nid; });
}

const SignatureAlgorithm* signatureAlgorithm(std::string_view uri) noexcept {
    return find(algorithms, uri);
}

bool needsGostEngine(std::string_view uri) noexcept {
    const auto* digest = digestAlgorithm(uri);
    const auto* signature = signatureAlgorithm(uri);
    return (digest != nullptr && digest->gost) || (signature != nullptr && signature->kind == SignatureKind::gost);
}

Digest::Digest(const DigestAlgorithm& algorithm) : context_(EVP_MD_CTX_new()) {
    const EVP_MD* const md = method(algorithm);
    if (!context_ || md == nullptr ||
        EVP_DigestInit_ex(context_.get(), md, algorithm.gost ? gostEngine() : nullptr) != 1) {
        throw std::runtime_error(std::string("OpenSSL does not offer the digest ") + algorithm.uri);
    }
}

void Digest::update(std::string_view octets) {
    if (EVP_DigestUpdate(context_.get(), octets.data(), octets.size()) != 1) {
        throw std::runtime_error("OpenSSL cannot compute a digest");
    }
}

std::string Digest::finish() {
    std::array<unsigned char, EVP_MAX_MD_SIZE> value{};
    unsigned size = 0;
    if (EVP_DigestFinal_ex(context_.get(), value.data(), &size) != 1) {
        throw std::runtime_error("OpenSSL cannot compute a digest");
    }
    return {reinterpret_cast<const char*>(value.data()), size};
}

bool isSignature(const SignatureAlgorithm& algorithm, EVP_PKEY* key, const std::string& digest,
                 const std::string& value) {
    if (EVP_PKEY_get_base_id(key) != algorithm.key) {
        return false;
    }
    const ssl::internal::ErrorMark mark;
    const std::string signature = forOpenssl(algorithm, key, value);
    const KeyContext context(EVP_PKEY_CTX_new(key, algorithm.kind == SignatureKind::gost ? gostEngine() : nullptr));
    return !signature.empty() && context && configure(algorithm, context.get()) &&
           EVP_PKEY_verify(context.get(), reinterpret_cast<const unsigned char*>(signature.data()), signature.size(),
                           reinterpret_cast<const unsigned char*>(digest.data()), digest.size()) == 1;
}

} // namespace orvik::plugin::xml::internal
