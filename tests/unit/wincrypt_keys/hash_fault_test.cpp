// Hashes and signatures, with each call of the service failing in turn.
#include "fault_fixture.hpp"

#include "crypto/wincrypt/hash.hpp"
#include "orvik/plugin/crypto/i_hash.hpp"

#include <sstream>

namespace wincrypt_keys {
namespace {

using orvik::plugin::wincrypt::CryptHash;

class HashFault : public FaultWalkTest {
protected:
    /// The first container's key is the certificates', so that what it signs is verified with them.
    static void arrangeKeyPair() {
        arrange();
        auto* context = service().makeCertificate(der(gostCertificate));
        const auto& octets = context->pCertInfo->SubjectPublicKeyInfo.PublicKey;
        installed().containers.front().publicKey.key.assign(reinterpret_cast<const char*>(octets.pbData),
                                                            octets.cbData);
        Defaults::CertFreeCertificateContext(context);
    }

    /// Hashes, signs and verifies with a certificate's key. `end` tells how a run ends.
    static void walkKey(const char* name, const Arrangement& arrangement,
                        const std::function<std::string(const FaultOutcome&)>& end) {
        bool verified = false;
        const auto scenario = [&] {
            verified = false;
            CryptHash hash(linkedCertificate(), streebog);
            hash.update(reinterpret_cast<const unsigned char*>("abc"), 3);
            const auto signature = hash.sign();
            EXPECT_FALSE(signature.empty());
            verified = hash.verify(signature);
        };
        EXPECT_GT(walkFaults({name, arrangement, scenario,
                              [&](const FaultOutcome& outcome) {
                                  EXPECT_EQ(ending(outcome), end(outcome));
                                  EXPECT_EQ(verified, !outcome.thrown && outcome.function != "CryptVerifySignatureW");
                              }}),
                  20U);
        EXPECT_TRUE(verified);
    }

    static std::string endOfKey(const FaultOutcome& outcome) {
        auto endings = keyEndings();
        endings["CertDuplicateCertificateContext"] = system(faultCode, "certificate, privateKey");
        endings["CryptContextAddRef"] = system(faultCode, "hash, CryptHash");
        endings["CryptCreateHash"] = system(faultCode, "hash, CryptHash");
        endings["CryptHashData"] = system(faultCode, "hash, update");
        endings["CryptSignHashW"] = system(faultCode, "hash, signImpl"); // and the container has no signature key
        endings["CryptImportPublicKeyInfo"] = system(faultCode, "hash, verify");
        return endingIn(endings, outcome);
    }
};

TEST_F(HashFault, OfAProvider) {
    EXPECT_EQ(walk("Hash of a provider",
                   [] {
                       std::istringstream stream(std::string(0x80001, 'x'));
                       EXPECT_EQ(provider().hash(nullptr, streebog)->create(stream).size(), 32U);
                   },
                   {{"CryptAcquireContextW", "CryptoException 30004 at hash, CryptHash"},
                    {"CryptCreateHash", system(faultCode, "hash, CryptHash")},
                    {"CryptHashData", system(faultCode, "hash, update")},
                    {"CryptGetHashParam", system(faultCode, "hash, finalize")}}),
              9U)
        << "acquire, OID, create, two pieces, size, value, two releases";
}

TEST_F(HashFault, OfACertificatesKey) {
    walkKey("Hash of a certificate: update, sign, verify", arrangeKeyPair, endOfKey);
}

TEST_F(HashFault, OfAKeyWhoseContextIsTheCertificates) {
    walkKey(
        "Hash of a certificate, context shared",
        [] {
            arrangeKeyPair();
            service().callerFrees = false;
        },
        [](const FaultOutcome& outcome) {
            const bool keysOwn = outcome.function == "CryptContextAddRef" && service().count("CryptContextAddRef") == 1;
            return keysOwn ? system(faultCode, "private_key, createContext") : endOfKey(outcome);
        });
    EXPECT_EQ(service().count("CryptContextAddRef"), 2U) << "the key's and the hash's";
    EXPECT_EQ(service().count("CryptReleaseContext"), 2U);
}

TEST_F(HashFault, OfAKeyForSignaturesOnly) {
    walkKey(
        "Hash of a certificate, signature key",
        [] {
            arrangeKeyPair();
            installed().containers.front().keySpecs = {2};
        },
        [](const FaultOutcome& outcome) {
            if (outcome.function != "CryptSignHashW") {
                return endOfKey(outcome);
            }
            // The exchange key, which is not there, is asked first: its error is the one that comes out.
            const bool exchange = outcome.call.starts_with("CryptSignHashW(hash1, 1,");
            return exchange ? std::string() : system(0x8009000D, "hash, signImpl");
        });
}

} // namespace
} // namespace wincrypt_keys
