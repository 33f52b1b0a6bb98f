#pragma once

#include "crypto/wincrypt/handles.hpp"
#include "orvik/plugin/crypto/i_hash.hpp"
#include "orvik/plugin/export.hpp"

#include <boost/smart_ptr/shared_ptr.hpp>
#include <boost/utility/string_view.hpp>

#include <cstddef>
#include <iosfwd>
#include <string>

namespace orvik::plugin::crypto {
class ICertificate;
class IPrivateKey;
class IProvider;
} // namespace orvik::plugin::crypto

namespace orvik::plugin::wincrypt {

/// A hash object of the service. One thread uses an object at a time.
///
/// Failures of the service are SystemException. Digests and signatures are in the service's own byte order.
class ORVIK_EXPORT CryptHash : public crypto::IHash {
public:
    /// All constructors throw CryptoException noProvider when the provider cannot be opened, SystemException when it
    /// does not offer the algorithm.
    CryptHash(const crypto::IProvider& provider, unsigned int algId);
    CryptHash(const crypto::IProvider& provider, boost::string_view algorithm);
    /// On the context of the certificate's private key, so that sign() signs with that key; it stays with that context
    /// when the key's authentication is reset. Throws also as IPrivateKey::context() does.
    CryptHash(const boost::shared_ptr<crypto::ICertificate>& certificate, boost::string_view algorithm);
    /// On a reference of its own to `provider`. Throws CryptoException noProvider for an empty one.
    CryptHash(const HCRYPTPROV& provider, boost::string_view algorithm);
    ~CryptHash() override;

    /// Reads the stream in pieces of 512 KiB until its end, or until it reports a failure: whether it has been read
    /// whole is for the caller to ask the stream.
    std::string create(std::istream& stream) override;
    /// Signs with the exchange key, or else the signature key, asking for the PIN where it is needed. Throws
    /// CryptoException authorizationRefused when the PIN is refused, otherwise what went wrong with the exchange key.
    /// After a reset of the key's authentication, make a new hash: the PIN given then is for the key's new context.
    std::string sign() override;
    /// Does nothing: the constructors have prepared the hash.
    void initialize() override;
    void update(const unsigned char* data, std::size_t length) override;
    std::string finalize() override;
    /// Whether `signature` is the certificate's over this hash. Throws CryptoException noCertificate for a hash without
    /// certificate, SystemException when the service does not take the certificate's key.
    bool verify(boost::string_view signature) override;

private:
    void createHash(unsigned int algId, boost::string_view algorithm);
    std::string signImpl(unsigned int keySpec);

    boost::shared_ptr<crypto::ICertificate> certificate_;
    boost::shared_ptr<crypto::IPrivateKey> privateKey_;
    HCRYPTPROV provider_;
    HCRYPTHASH hash_;
};

/// The hash that providers hand out: forwards to a CryptHash.
class ORVIK_EXPORT Hash : public crypto::IHash {
public:
    Hash(const crypto::IProvider& provider, unsigned int algId);
    Hash(const crypto::IProvider& provider, boost::string_view algorithm);
    Hash(const boost::shared_ptr<crypto::ICertificate>& certificate, boost::string_view algorithm);
    ~Hash() override;

    std::string create(std::istream& stream) override;
    std::string sign() override;
    void initialize() override;
    void update(const unsigned char* data, std::size_t length) override;
    std::string finalize() override;
    bool verify(boost::string_view signature) override;

private:
    boost::shared_ptr<CryptHash> hash_;
};

} // namespace orvik::plugin::wincrypt
