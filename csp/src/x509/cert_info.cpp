#include "x509/cert_info.hpp"

#include "asn1/der.hpp"
#include "x509/blob.hpp"
#include "x509/certificate_fields.hpp"
#include "x509/file_time.hpp"
#include "x509/x509_der.hpp"

#include <algorithm>
#include <array>
#include <deque>
#include <string>

namespace klunortredi::csp {

namespace {

/// No certificate is larger: a length field alone must not make us allocate.
constexpr std::size_t largestCertificate = 16U << 20U;

CertificateFieldsPtr decodeCertificate(ByteView der) {
    if (der.size() > largestCertificate) {
        fail(capi::CRYPT_E_ASN1_LARGE);
    }
    // DER outside and nothing behind it: BER hashes differently from the certificate that was signed.
    der::readOnly(der, der::tag::Sequence);
    auto certificate = decodeCertificateFields(der);
    if (!certificate) {
        fail(capi::CRYPT_E_ASN1_CORRUPT);
    }
    return certificate;
}

FILETIME fileTime(const ASN1_TIME* time) {
    std::tm parts{};
    if (time == nullptr || ASN1_TIME_to_tm(time, &parts) == 0) {
        fail(capi::CRYPT_E_ASN1_CORRUPT);
    }
    return toFileTime(timegm(&parts));
}

} // namespace

/// What the pointers of the CERT_INFO lead to. Deques, because growing one moves nothing.
struct CertInfo::Storage {
    std::deque<Bytes> blobs;
    std::deque<std::string> texts;
    std::vector<CERT_EXTENSION> extensions;

    CRYPTOAPI_BLOB blob(Bytes bytes) {
        if (bytes.empty()) {
            return {};
        }
        Bytes& kept = blobs.emplace_back(std::move(bytes));
        return {static_cast<DWORD>(kept.size()), kept.data()};
    }

    CRYPTOAPI_BLOB copy(ByteView bytes) { return blob(Bytes(bytes.begin(), bytes.end())); }

    CRYPT_BIT_BLOB bits(const ASN1_BIT_STRING* string) {
        if (string == nullptr) {
            return {};
        }
        const CRYPTOAPI_BLOB octets = copy(ossl::octets(string));
        const auto flags = static_cast<unsigned long>(string->flags);
        const DWORD unused = (flags & ASN1_STRING_FLAG_BITS_LEFT) != 0 ? static_cast<DWORD>(flags & 7U) : 0;
        return {octets.cbData, octets.pbData, unused};
    }

    char* oid(const ASN1_OBJECT* object) { return texts.emplace_back(ossl::oidText(object)).data(); }

    CRYPT_ALGORITHM_IDENTIFIER algorithm(const X509_ALGOR* algorithm) {
        const ASN1_OBJECT* object = nullptr;
        X509_ALGOR_get0(&object, nullptr, nullptr, algorithm);
        CRYPT_ALGORITHM_IDENTIFIER identifier{oid(object), {}};
        if (algorithm->parameter != nullptr) {
            identifier.Parameters = blob(ossl::toDer(i2d_ASN1_TYPE, algorithm->parameter));
        }
        return identifier;
    }

    CERT_NAME_BLOB name(const X509_NAME* name) {
        const unsigned char* data = nullptr;
        std::size_t size = 0;
        if (X509_NAME_get0_der(name, &data, &size) == 0) {
            fail(capi::CRYPT_E_ASN1_CORRUPT);
        }
        return copy({data, size});
    }

    /// Content octets of the INTEGER, least significant first.
    CRYPT_INTEGER_BLOB serial(const ASN1_INTEGER* number) {
        Bytes octets = ossl::toDer(i2d_ASN1_INTEGER, number);
        const unsigned char* content = octets.data();
        long length = 0;
        int tag = 0;
        int tagClass = 0;
        ASN1_get_object(&content, &length, &tag, &tagClass, static_cast<long>(octets.size()));
        octets.erase(octets.begin(), octets.begin() + (content - octets.data()));
        std::reverse(octets.begin(), octets.end());
        return blob(std::move(octets));
    }

    void addExtensions(const STACK_OF(X509_EXTENSION) * decoded) {
        const int count = std::max(sk_X509_EXTENSION_num(decoded), 0); // -1 when there are none
        extensions.reserve(static_cast<std::size_t>(count));
        for (int i = 0; i < count; ++i) {
            X509_EXTENSION* extension = sk_X509_EXTENSION_value(decoded, i);
            extensions.push_back({oid(X509_EXTENSION_get_object(extension)),
                                  X509_EXTENSION_get_critical(extension) != 0 ? 1 : 0,
                                  copy(ossl::octets(X509_EXTENSION_get_data(extension)))});
        }
    }
};

CertInfo::CertInfo(ByteView der) : encoded_(der.begin(), der.end()), storage_(std::make_unique<Storage>()) {
    const CertificateFieldsPtr certificate = decodeCertificate(encoded_);
    const SignedFields& fields = *certificate->toBeSigned;
    const KeyFields& key = *fields.subjectPublicKeyInfo;

    info_.dwVersion = static_cast<DWORD>(fields.version == nullptr ? 0 : ASN1_INTEGER_get(fields.version));
    info_.SerialNumber = storage_->serial(fields.serialNumber);
    info_.SignatureAlgorithm = storage_->algorithm(fields.signatureAlgorithm);
    info_.Issuer = storage_->name(fields.issuer);
    info_.NotBefore = fileTime(fields.validity->notBefore);
    info_.NotAfter = fileTime(fields.validity->notAfter);
    info_.Subject = storage_->name(fields.subject);
    info_.SubjectPublicKeyInfo = {storage_->algorithm(key.algorithm), storage_->bits(key.key)};
    info_.IssuerUniqueId = storage_->bits(fields.issuerUniqueId);
    info_.SubjectUniqueId = storage_->bits(fields.subjectUniqueId);
    storage_->addExtensions(fields.extensions);
    info_.cExtension = static_cast<DWORD>(storage_->extensions.size());
    info_.rgExtension = storage_->extensions.empty() ? nullptr : storage_->extensions.data();
    subjectPublicKeyInfo_ = encodeKeyFields(&key);
}

CertInfo::~CertInfo() = default;

unsigned long CertInfo::subjectHash() const {
    constexpr std::uint64_t known = std::uint64_t{1} << 32U;
    std::uint64_t hash = subjectHash_.load(std::memory_order_relaxed);
    if (hash == 0) { // two threads come to the same
        const auto subject = ossl::fromDer<ossl::X509NamePtr>(d2i_X509_NAME, blobView(info_.Subject));
        int done = 0;
        hash = subject ? X509_NAME_hash_ex(subject.get(), nullptr, nullptr, &done) : 0;
        if (done == 0) {
            fail(capi::NTE_FAIL);
        }
        hash |= known;
        subjectHash_.store(hash, std::memory_order_relaxed);
    }
    return static_cast<unsigned long>(hash & (known - 1));
}

Bytes encodeAlgorithm(const CRYPT_ALGORITHM_IDENTIFIER& algorithm) {
    const ByteView parameters = blobView(algorithm.Parameters);
    if (!parameters.empty() && !der::isOneBerValue(parameters)) {
        fail(capi::CRYPT_E_BAD_ENCODE);
    }
    if (algorithm.pszObjId == nullptr) {
        fail(capi::CRYPT_E_OID_FORMAT);
    }
    return der::sequence({der::objectIdentifier(algorithm.pszObjId), parameters});
}

Bytes encodePublicKeyInfo(const CERT_PUBLIC_KEY_INFO& info) {
    return der::sequence(
        {encodeAlgorithm(info.Algorithm), der::bitString(blobView(info.PublicKey), info.PublicKey.cUnusedBits)});
}

} // namespace klunortredi::csp
