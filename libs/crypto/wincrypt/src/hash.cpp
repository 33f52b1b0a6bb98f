#include "crypto/wincrypt/hash.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/exceptions.hpp"
#include "crypto/wincrypt/tools.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "orvik/plugin/crypto/auth_provider.hpp"
#include "orvik/plugin/crypto/exception/crypto_exception.hpp"
#include "orvik/plugin/crypto/i_certificate.hpp"
#include "orvik/plugin/crypto/i_private_key.hpp"
#include "orvik/plugin/crypto/i_provider.hpp"
#include "orvik/plugin/log.hpp"

#include <boost/smart_ptr/make_shared.hpp>

#include <algorithm>
#include <exception>
#include <istream>
#include <limits>
#include <vector>

namespace orvik::plugin::wincrypt {

using crypto::exception::CryptoException;
using crypto::exception::SystemException;

namespace internal {
namespace {

/// The piece in which create() reads a stream.
constexpr std::size_t chunkSize = 0x80000;

BYTE* bytes(std::string& text) {
    return reinterpret_cast<BYTE*>(text.data());
}

boost::shared_ptr<crypto::IPrivateKey> keyOf(const boost::shared_ptr<crypto::ICertificate>& certificate) {
    if (!certificate) {
        exception::raise(CryptoException(CryptoException::Code::noCertificate), {"hash", "CryptHash"});
    }
    return certificate->privateKey();
}

/// Whether the person refused, or failed, to give the PIN: no other key is worth a try then.
bool isRefusal(const std::exception_ptr& failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const CryptoException& e) {
        return e.code().value() == static_cast<int>(CryptoException::Code::authorizationRefused);
    } catch (...) {
        return false;
    }
}

/// A reference of the hash's own to a context: its owner may close it while the hash lives.
unsigned long shareContext(unsigned long context) {
    if (context != 0 && CryptContextAddRef(context, nullptr, 0) == 0) {
        exception::raise(SystemException(), {"hash", "CryptHash"});
    }
    return context;
}

unsigned long shareContext(const boost::shared_ptr<crypto::IPrivateKey>& key) {
    return shareContext(key ? tools::toHCRYPTPROV(key->context()) : 0);
}

} // namespace
} // namespace internal

CryptHash::CryptHash(const crypto::IProvider& provider, unsigned int algId) : provider_(provider, nullptr) {
    createHash(algId, {});
}

CryptHash::CryptHash(const crypto::IProvider& provider, boost::string_view algorithm) : provider_(provider, nullptr) {
    createHash(tools::oid_to_alg_id(algorithm).value_or(0), algorithm);
}

CryptHash::CryptHash(const boost::shared_ptr<crypto::ICertificate>& certificate, boost::string_view algorithm)
    : certificate_(certificate), privateKey_(internal::keyOf(certificate)),
      provider_(internal::shareContext(privateKey_)) {
    createHash(tools::oid_to_alg_id(algorithm).value_or(0), algorithm);
}

CryptHash::CryptHash(const HCRYPTPROV& provider, boost::string_view algorithm)
    : provider_(internal::shareContext(provider.get())) {
    createHash(tools::oid_to_alg_id(algorithm).value_or(0), algorithm);
}

CryptHash::~CryptHash() = default;

void CryptHash::createHash(unsigned int algId, boost::string_view algorithm) {
    const exception::Location here{"hash", "CryptHash"};
    if (!provider_) {
        exception::raise(CryptoException(CryptoException::Code::noProvider), here);
    }
    if (CryptCreateHash(provider_.get(), algId, 0, 0, hash_.put()) == 0) {
        const SystemException failure;
        log::error("wincrypt: createHash error: algId: " + std::to_string(algId) +
                   ", algorithm: " + std::string(algorithm));
        exception::raise(failure, here);
    }
}

std::string CryptHash::create(std::istream& stream) {
    if (stream.peek() != std::istream::traits_type::eof()) {
        std::vector<unsigned char> buffer(internal::chunkSize);
        while (stream) {
            stream.read(reinterpret_cast<char*>(buffer.data()), static_cast<std::streamsize>(buffer.size()));
            if (const auto count = stream.gcount(); count > 0) {
                update(buffer.data(), static_cast<std::size_t>(count));
            }
        }
    }
    return finalize();
}

std::string CryptHash::sign() {
    std::exception_ptr failure;
    for (const unsigned keySpec : {capi::AT_KEYEXCHANGE, capi::AT_SIGNATURE}) {
        try {
            auto signature = signImpl(keySpec);
            if (!failure || !signature.empty()) {
                return signature;
            }
        } catch (...) {
            if (internal::isRefusal(std::current_exception())) {
                throw;
            }
            failure = failure ? failure : std::current_exception();
        }
    }
    std::rethrow_exception(failure);
}

std::string CryptHash::signImpl(unsigned int keySpec) {
    const exception::Location here{"hash", "signImpl"};
    if (privateKey_ && privateKey_->supportsAuthentication() && !privateKey_->authenticated() &&
        !crypto::AuthProvider::authorize(privateKey_, std::string())) {
        exception::raise(CryptoException(CryptoException::Code::authorizationRefused), here);
    }
    DWORD length = 0;
    if (CryptSignHashW(hash_.get(), keySpec, nullptr, 0, nullptr, &length) == 0) {
        exception::raise(SystemException(), here);
    }
    std::string signature(length, '\0');
    if (length == 0) {
        return signature;
    }
    if (CryptSignHashW(hash_.get(), keySpec, nullptr, 0, internal::bytes(signature), &length) == 0) {
        exception::raise(SystemException(), here);
    }
    signature.resize(std::min<std::size_t>(length, signature.size()));
    return signature;
}

void CryptHash::initialize() {}

void CryptHash::update(const unsigned char* data, std::size_t length) {
    do { // once, unless a DWORD cannot tell the length
        const auto piece = std::min<std::size_t>(length, std::numeric_limits<DWORD>::max());
        if (CryptHashData(hash_.get(), data, static_cast<DWORD>(piece), 0) == 0) {
            exception::raise(SystemException(), {"hash", "update"});
        }
        data += piece;
        length -= piece;
    } while (length != 0);
}

std::string CryptHash::finalize() {
    const exception::Location here{"hash", "finalize"};
    DWORD length = 0;
    if (CryptGetHashParam(hash_.get(), capi::HP_HASHVAL, nullptr, &length, 0) == 0) {
        exception::raise(SystemException(), here);
    }
    std::string digest(length, '\0');
    if (CryptGetHashParam(hash_.get(), capi::HP_HASHVAL, internal::bytes(digest), &length, 0) == 0) {
        exception::raise(SystemException(), here);
    }
    digest.resize(std::min<std::size_t>(length, digest.size()));
    return digest;
}

bool CryptHash::verify(boost::string_view signature) {
    const exception::Location here{"hash", "verify"};
    const auto* const certificate = certificate_ ? tools::toPCCERT_CONTEXT(certificate_->context()) : nullptr;
    if (certificate == nullptr || certificate->pCertInfo == nullptr) {
        exception::raise(CryptoException(CryptoException::Code::noCertificate), here);
    }
    HCRYPTKEY key;
    if (CryptImportPublicKeyInfo(provider_.get(), capi::X509_AND_PKCS_7, &certificate->pCertInfo->SubjectPublicKeyInfo,
                                 key.put()) == 0) {
        exception::raise(SystemException(), here);
    }
    return CryptVerifySignatureW(hash_.get(), reinterpret_cast<const BYTE*>(signature.data()),
                                 static_cast<DWORD>(signature.size()), key.get(), nullptr, 0) != 0;
}

Hash::Hash(const crypto::IProvider& provider, unsigned int algId)
    : hash_(boost::make_shared<CryptHash>(provider, algId)) {}

Hash::Hash(const crypto::IProvider& provider, boost::string_view algorithm)
    : hash_(boost::make_shared<CryptHash>(provider, algorithm)) {}

Hash::Hash(const boost::shared_ptr<crypto::ICertificate>& certificate, boost::string_view algorithm)
    : hash_(boost::make_shared<CryptHash>(certificate, algorithm)) {}

Hash::~Hash() = default;

std::string Hash::create(std::istream& stream) {
    return hash_->create(stream);
}

std::string Hash::sign() {
    return hash_->sign();
}

void Hash::initialize() {
    hash_->initialize();
}

void Hash::update(const unsigned char* data, std::size_t length) {
    hash_->update(data, length);
}

std::string Hash::finalize() {
    return hash_->finalize();
}

bool Hash::verify(boost::string_view signature) {
    return hash_->verify(signature);
}

} // namespace orvik::plugin::wincrypt
