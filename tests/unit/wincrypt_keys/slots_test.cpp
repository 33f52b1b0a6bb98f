// Where each operation stands in its class's table of virtual functions: code compiled against the interfaces calls by
// that number.
#include "slots.hpp"

#include "crypto/wincrypt/exceptions.hpp"
#include "crypto/wincrypt/hash.hpp"
#include "crypto/wincrypt/private_key.hpp"
#include "crypto/wincrypt/provider.hpp"
#include "crypto/wincrypt/public_key.hpp"
#include "crypto/wincrypt/wincrypt_auth.hpp"

namespace wincrypt_keys {
namespace {

using orvik::plugin::crypto::ICertificate;
using orvik::plugin::crypto::IPublicKey;
using orvik::plugin::wincrypt::CryptHash;
using orvik::plugin::wincrypt::Hash;
using orvik::plugin::wincrypt::PrivateKey;
using orvik::plugin::wincrypt::Provider;
using orvik::plugin::wincrypt::PublicKey;
using orvik::plugin::wincrypt::WincryptAuth;

TEST(Slots, OfAProvider) {
    using Text = boost::optional<std::wstring>;
    using Found = boost::shared_ptr<ICertificate>;
    inOrder(&Provider::subjectSignTool, &Provider::containerPrefix, &Provider::providers,
            static_cast<std::vector<std::wstring> (Provider::*)() const>(&Provider::containers), &Provider::algorithms,
            &Provider::hasAlgorithm, &Provider::certificates,
            static_cast<boost::shared_ptr<IPublicKey> (Provider::*)() const>(&Provider::publicKey), &Provider::device,
            static_cast<Found (Provider::*)(const std::wstring&) const>(&Provider::certificate),
            static_cast<Found (Provider::*)(const Found&) const>(&Provider::certificate), &Provider::hash,
            &Provider::type, &Provider::name, static_cast<Text (Provider::*)() const>(&Provider::container),
            static_cast<Text (Provider::*)(const IPublicKey&) const>(&Provider::container), &Provider::deleteContainer,
            &Provider::version, &Provider::randomBytes);
}

TEST(Slots, OfAPublicKey) {
    inOrder(&PublicKey::algObjId, &PublicKey::algParams, &PublicKey::key, &PublicKey::operator==);
}

TEST(Slots, OfAPrivateKey) {
    inOrder(&PrivateKey::certificate, &PrivateKey::provider, &PrivateKey::authenticate, &PrivateKey::context,
            &PrivateKey::authenticated, &PrivateKey::resetAuthentication, &PrivateKey::supportsAuthentication,
            &PrivateKey::keySpec);
}

TEST(Slots, OfAnAuthenticationHandle) {
    inOrder(&WincryptAuth::login, &WincryptAuth::status, &WincryptAuth::states, &WincryptAuth::container,
            &WincryptAuth::maxAttempts, &WincryptAuth::isLocked, &WincryptAuth::isAuthRejected, &WincryptAuth::isToken);
}

TEST(Slots, OfAHash) {
    inOrder(&Hash::create, &Hash::sign, &Hash::initialize, &Hash::update, &Hash::finalize, &Hash::verify);
    inOrder(&CryptHash::create, &CryptHash::sign, &CryptHash::initialize, &CryptHash::update, &CryptHash::finalize,
            &CryptHash::verify);
}

TEST(Slots, OfASystemException) {
    using orvik::plugin::crypto::exception::SystemException;
    inOrder(&SystemException::what, &SystemException::error);
}

} // namespace
} // namespace wincrypt_keys
