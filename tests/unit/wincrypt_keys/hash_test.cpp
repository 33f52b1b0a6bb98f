#include "keys_fixture.hpp"

#include "crypto/wincrypt/exceptions.hpp"
#include "crypto/wincrypt/hash.hpp"
#include "orvik/plugin/crypto/auth_provider.hpp"
#include "orvik/plugin/crypto/exception/crypto_exception.hpp"
#include "orvik/plugin/crypto/i_private_key.hpp"
#include "orvik/plugin/exception/application_exception.hpp"

#include <sstream>

namespace wincrypt_keys {
namespace {

using orvik::plugin::crypto::AuthProvider;
using orvik::plugin::crypto::exception::CryptoException;
using orvik::plugin::crypto::exception::SystemException;
using orvik::plugin::exception::ApplicationException;
using orvik::plugin::wincrypt::CryptHash;
using orvik::plugin::wincrypt::Hash;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* streebog = "1.2.643.7.1.1.2.2";
constexpr unsigned streebogId = 0x8021;
constexpr DWORD noKey = 0x8009000D;

/// One call of CryptSignHashW.
struct SignCall {
    DWORD keySpec;
    bool buffer;
    DWORD size;
    friend bool operator==(const SignCall&, const SignCall&) = default;
};

class HashTest : public KeysFixture {
protected:
    HashTest() {
        service().oids[streebog] = {streebogId, L""};
        installed().containers = {containerNamed(L"box")};
        installed().containers.front().pin = "1234";
        certificate_ = certificateIn(L"box");
        service().on.CryptSignHashW = [this](unsigned long, DWORD keySpec, const char* description, DWORD flags,
                                             BYTE* buffer, DWORD* size) -> BOOL {
            EXPECT_EQ(description, nullptr);
            EXPECT_EQ(flags, 0U);
            signCalls_.push_back({keySpec, buffer != nullptr, *size});
            if (const auto failure = signFailures_.find({keySpec, buffer != nullptr}); failure != signFailures_.end()) {
                return service_double::fail(failure->second);
            }
            return service_double::give(signature_, buffer, size);
        };
        AuthProvider::setDialog([this](const auto&, unsigned) {
            ++dialogues_;
            return pin_;
        });
    }

    void TearDown() override {
        AuthProvider::setDialog({});
        certificate_.reset();
        KeysFixture::TearDown();
    }

    CryptHash certificateHash() { return CryptHash(certificate_, streebog); }
    static CryptHash providerHash() { return CryptHash(provider(), streebog); }

    boost::shared_ptr<Certificate> certificate_;
    std::string signature_ = "signature";
    std::map<std::pair<DWORD, bool>, DWORD> signFailures_; ///< by key spec and whether a buffer is given
    std::vector<SignCall> signCalls_;
    unsigned dialogues_ = 0;
    boost::optional<std::string> pin_ = std::string("1234");
};

// ---- construction

TEST_F(HashTest, OfAProviderUsesAVerificationContext) {
    std::vector<DWORD> flags;
    service().on.CryptAcquireContextW = [&](unsigned long* handle, const wchar_t* container, const wchar_t* name,
                                            DWORD type, DWORD asked) {
        flags.push_back(asked);
        return Defaults::CryptAcquireContextW(handle, container, name, type, asked);
    };
    std::vector<std::vector<unsigned long>> created;
    service().on.CryptCreateHash = [&](unsigned long context, ALG_ID id, unsigned long key, DWORD asked,
                                       unsigned long* hash) {
        created.push_back({id, key, asked});
        return Defaults::CryptCreateHash(context, id, key, asked, hash);
    };
    const CryptHash byOid(provider(), streebog);
    const CryptHash byNumber(provider(), streebogId);
    const CryptHash inContainer(provider(std::wstring(L"box")), streebogId);
    EXPECT_THAT(flags, ElementsAre(0xF0000040U, 0xF0000040U, 0U));
    EXPECT_THAT(created, testing::Each(ElementsAre(streebogId, 0U, 0U)));
}

TEST_F(HashTest, ReleasesTheHashBeforeTheContext) {
    { const auto hash = providerHash(); }
    const auto trace = service().trace();
    ASSERT_GE(trace.size(), 2U);
    EXPECT_THAT(trace[trace.size() - 2], testing::StartsWith("CryptDestroyHash("));
    EXPECT_THAT(trace.back(), testing::StartsWith("CryptReleaseContext("));
}

TEST_F(HashTest, OfACertificateSharesTheContextOfItsKey) {
    std::vector<unsigned long> contexts;
    service().on.CryptCreateHash = [&](unsigned long handle, ALG_ID id, unsigned long key, DWORD flags,
                                       unsigned long* hash) {
        contexts.push_back(handle);
        return Defaults::CryptCreateHash(handle, id, key, flags, hash);
    };
    auto hash = boost::make_shared<CryptHash>(certificate_, streebog);
    EXPECT_THAT(contexts, ElementsAre(reinterpret_cast<unsigned long>(certificate_->privateKey()->context())));
    EXPECT_EQ(service().count("CryptContextAddRef"), 1U);
    certificate_->privateKey()->resetAuthentication();
    EXPECT_EQ(hash->finalize(), providerHash().finalize()) << "the hash outlives the key's context";
}

TEST_F(HashTest, WithoutProviderContextThereIsNoHash) {
    service().failFunction("CryptAcquireContextW", 0x80090016);
    EXPECT_EQ(thrownBy<CryptoException>([] { providerHash(); }), (Thrown{30004, "hash", "CryptHash", 0}));
    EXPECT_EQ(thrownBy<CryptoException>([] { CryptHash(provider(), streebogId); }),
              (Thrown{30004, "hash", "CryptHash", 0}));
}

TEST_F(HashTest, WithoutCertificateThereIsNoCertificateBoundHash) {
    EXPECT_EQ(thrownBy<CryptoException>(
                  [] { CryptHash(boost::shared_ptr<orvik::plugin::crypto::ICertificate>(), streebog); }),
              (Thrown{30003, "hash", "CryptHash", 0}));
}

TEST_F(HashTest, OfACertificateWithoutKeyHasNoProvider) {
    class Keyless : public Certificate {
    public:
        Keyless() : Certificate(der(gostCertificate)) {}
        [[nodiscard]] boost::shared_ptr<orvik::plugin::crypto::IPrivateKey> privateKey() const override { return {}; }
    };
    EXPECT_EQ(thrownBy<CryptoException>([] { CryptHash(boost::make_shared<Keyless>(), streebog); }),
              (Thrown{30004, "hash", "CryptHash", 0}));
}

TEST_F(HashTest, OfACertificateWhoseKeyCannotBeHadTellsWhy) {
    service().failFunction("CryptAcquireCertificatePrivateKey", 0x80090016);
    EXPECT_EQ(thrownBy<SystemException>([&] { certificateHash(); }),
              (Thrown{static_cast<int>(0x80090016), "private_key", "createContext", 0}));
}

TEST_F(HashTest, RefusedAlgorithmIsLoggedAndThrown) {
    service().failFunction("CryptCreateHash", 0x80090008);
    EXPECT_EQ(thrownBy<SystemException>([] { providerHash(); }),
              (Thrown{static_cast<int>(0x80090008), "hash", "CryptHash", 0}));
    EXPECT_THAT(logTexts(Severity::error),
                ElementsAre("wincrypt: createHash error: algId: 32801, algorithm: 1.2.643.7.1.1.2.2"));
    clearLog();
    EXPECT_THROW(CryptHash(provider(), streebogId), SystemException);
    EXPECT_THAT(logTexts(Severity::error), ElementsAre("wincrypt: createHash error: algId: 32801, algorithm: "));
}

TEST_F(HashTest, AnAlgorithmThatTheServiceDoesNotKnowIsLeftToItToRefuse) {
    service().on.CryptCreateHash = [](unsigned long, ALG_ID id, unsigned long, DWORD, unsigned long*) -> BOOL {
        EXPECT_EQ(id, 0U);
        return service_double::fail(0x80090008);
    };
    EXPECT_THROW(CryptHash(provider(), "1.2.3"), SystemException);
    EXPECT_TRUE(logged(Severity::error, "wincrypt: createHash error: algId: 0, algorithm: 1.2.3"));
}

// ---- hashing

TEST_F(HashTest, InitializeDoesNothing) {
    auto hash = providerHash();
    service().clearCalls();
    hash.initialize();
    EXPECT_THAT(service().trace(), IsEmpty());
}

TEST_F(HashTest, UpdatePassesTheOctetsOn) {
    std::vector<std::string> pieces;
    service().on.CryptHashData = [&](unsigned long, const BYTE* data, DWORD size, DWORD flags) {
        EXPECT_EQ(flags, 0U);
        pieces.emplace_back(reinterpret_cast<const char*>(data), size);
        return 1;
    };
    auto hash = providerHash();
    const std::string text("a\0b", 3);
    hash.update(reinterpret_cast<const unsigned char*>(text.data()), text.size());
    EXPECT_THAT(pieces, ElementsAre(text));
}

TEST_F(HashTest, UpdateOfMoreThanALengthCanTellIsHashedInPieces) {
    std::vector<std::pair<const BYTE*, DWORD>> pieces;
    service().on.CryptHashData = [&](unsigned long, const BYTE* data, DWORD size, DWORD) {
        pieces.emplace_back(data, size);
        return 1;
    };
    const unsigned char* const start = reinterpret_cast<const unsigned char*>("never read");
    constexpr std::size_t most = 0xFFFFFFFF;
    auto hash = providerHash();
    hash.update(start, most + 5);
    EXPECT_THAT(pieces, ElementsAre(std::pair(start, DWORD{0xFFFFFFFF}), std::pair(start + most, DWORD{5})));
}

TEST_F(HashTest, RefusedUpdateIsThrown) {
    service().failFunction("CryptHashData", 0x8009000C);
    auto hash = providerHash();
    EXPECT_EQ(thrownBy<SystemException>([&] { hash.update(nullptr, 0); }),
              (Thrown{static_cast<int>(0x8009000C), "hash", "update", 0}));
}

TEST_F(HashTest, FinalizeAsksTheSizeThenTheValueAsItIs) {
    std::vector<std::pair<bool, DWORD>> asked;
    const std::string digest("\x01\0\xFF", 3);
    service().on.CryptGetHashParam = [&](unsigned long, DWORD parameter, BYTE* data, DWORD* size, DWORD flags) {
        EXPECT_EQ(parameter, 2U);
        EXPECT_EQ(flags, 0U);
        asked.emplace_back(data != nullptr, *size);
        return service_double::give(digest, data, size);
    };
    auto hash = providerHash();
    EXPECT_EQ(hash.finalize(), digest);
    EXPECT_THAT(asked, ElementsAre(std::pair{false, 0U}, std::pair{true, 3U}));
}

TEST_F(HashTest, EitherFailureOfFinalizeIsThrown) {
    for (const bool withBuffer : {false, true}) {
        service().on.CryptGetHashParam = [&](unsigned long, DWORD, BYTE* data, DWORD* size, DWORD) -> BOOL {
            return (data != nullptr) == withBuffer ? BOOL(service_double::fail(0x80090002))
                                                   : service_double::give("digest", data, size);
        };
        auto hash = providerHash();
        EXPECT_EQ(thrownBy<SystemException>([&] { hash.finalize(); }),
                  (Thrown{static_cast<int>(0x80090002), "hash", "finalize", 0}));
    }
}

TEST_F(HashTest, ASecondSizeShortensAValueAndNeverLengthensIt) {
    for (const auto& [second, expected] : {std::pair{2U, "di"}, std::pair{6U, "digest"}, std::pair{7U, "digest"}}) {
        const DWORD told = second;
        const auto answer = [told](BYTE* data, DWORD* size) -> BOOL {
            if (data != nullptr) {
                std::memcpy(data, "digest", 6);
            }
            *size = data != nullptr ? told : 6;
            return 1;
        };
        service().on.CryptGetHashParam = [&](unsigned long, DWORD, BYTE* data, DWORD* size, DWORD) {
            return answer(data, size);
        };
        service().on.CryptSignHashW = [&](unsigned long, DWORD, const char*, DWORD, BYTE* data, DWORD* size) {
            return answer(data, size);
        };
        auto hash = certificateHash();
        EXPECT_EQ(hash.finalize(), expected);
        EXPECT_EQ(hash.sign(), expected);
    }
}

/// Sizes of the pieces in which create() hands a stream over, all from one buffer.
std::vector<DWORD> piecesOf(CryptHash& hash, std::istream& stream) {
    std::vector<DWORD> pieces;
    std::set<const BYTE*> buffers;
    service().on.CryptHashData = [&](unsigned long, const BYTE* data, DWORD piece, DWORD) {
        pieces.push_back(piece);
        buffers.insert(data);
        return 1;
    };
    EXPECT_FALSE(hash.create(stream).empty());
    EXPECT_LE(buffers.size(), 1U);
    return pieces;
}

std::vector<DWORD> piecesOf(CryptHash& hash, std::size_t size) {
    std::istringstream stream(std::string(size, 'x'));
    return piecesOf(hash, stream);
}

constexpr DWORD chunk = 0x80000;

TEST_F(HashTest, StreamsAreHashedInPiecesOf512KiB) {
    auto hash = providerHash();
    EXPECT_THAT(piecesOf(hash, 1), ElementsAre(1U));
    EXPECT_THAT(piecesOf(hash, chunk), ElementsAre(chunk));
    EXPECT_THAT(piecesOf(hash, chunk + 1), ElementsAre(chunk, 1U));
    EXPECT_THAT(piecesOf(hash, 2 * chunk), ElementsAre(chunk, chunk));
}

TEST_F(HashTest, AStreamThatFailsIsHashedUpToThere) {
    class Failing : public std::stringbuf {
    public:
        Failing() : std::stringbuf(std::string(chunk, 'x')) {}

    protected:
        int_type underflow() override {
            const auto next = std::stringbuf::underflow();
            if (next == traits_type::eof()) {
                throw std::runtime_error("the device is gone");
            }
            return next;
        }
    };
    Failing device;
    std::istream stream(&device);
    auto hash = providerHash();
    EXPECT_THAT(piecesOf(hash, stream), ElementsAre(chunk));
    EXPECT_TRUE(stream.bad()) << "which is for the caller to see";
}

TEST_F(HashTest, AnEmptyStreamIsNotHashedAtAll) {
    auto hash = providerHash();
    EXPECT_THAT(piecesOf(hash, 0), IsEmpty());
}

// ---- signing

TEST_F(HashTest, SignsWithTheExchangeKey) {
    auto hash = certificateHash();
    signature_ = std::string("\x02\0\x01", 3);
    EXPECT_EQ(hash.sign(), signature_) << "in the service's byte order";
    EXPECT_THAT(signCalls_, ElementsAre(SignCall{1, false, 0}, SignCall{1, true, 3}));
}

TEST_F(HashTest, AsksForThePinBeforeTheFirstSignatureOnly) {
    auto hash = certificateHash();
    EXPECT_EQ(hash.sign(), "signature");
    EXPECT_EQ(hash.sign(), "signature");
    EXPECT_EQ(dialogues_, 1U);
    using service_double::ParameterSet;
    EXPECT_THAT(service().parametersSet, ElementsAre(ParameterSet{32, "1234", 0}, ParameterSet{32, "1234", 1}))
        << "no PIN is tried but the one that the dialogue gave";
    EXPECT_TRUE(certificate_->privateKey()->authenticated());
}

TEST_F(HashTest, AnAuthenticatedKeySignsWithoutPinRequest) {
    certificate_->privateKey()->authenticate("1234");
    EXPECT_EQ(certificateHash().sign(), "signature");
    EXPECT_EQ(dialogues_, 0U);
}

TEST_F(HashTest, AfterResetTheNextSigningAsksForThePinAgain) {
    auto hash = certificateHash();
    hash.sign();
    certificate_->privateKey()->resetAuthentication();
    hash.sign();
    EXPECT_EQ(dialogues_, 2U);
}

TEST_F(HashTest, AKeyThatTakesNoPinIsNotAuthorized) {
    install(scripted(signalComName));
    installed().containers = {containerNamed(L"box")};
    certificate_ = boost::make_shared<Certificate>(der(gostCertificate));
    certificate_->link(Provider(80UL, signalComName), L"box");
    EXPECT_EQ(certificateHash().sign(), "signature");
    EXPECT_EQ(dialogues_, 0U);
    EXPECT_EQ(service().count("CryptSetProvParam"), 0U);
}

TEST_F(HashTest, RefusedPinGoesToTheCallerAtOnce) {
    pin_ = boost::none;
    auto hash = certificateHash();
    EXPECT_EQ(thrownBy<CryptoException>([&] { hash.sign(); }), (Thrown{30053, "hash", "signImpl", 0}));
    EXPECT_EQ(dialogues_, 1U) << "no second attempt";
    EXPECT_THAT(signCalls_, IsEmpty());
}

TEST_F(HashTest, AKeyWithASignaturePairOnlySignsInTheSecondAttempt) {
    signFailures_[{1, false}] = noKey;
    EXPECT_EQ(certificateHash().sign(), "signature");
    EXPECT_THAT(signCalls_, ElementsAre(SignCall{1, false, 0}, SignCall{2, false, 0}, SignCall{2, true, 9}));
}

TEST_F(HashTest, AFailureOfTheSecondCallLeadsToTheSecondAttemptToo) {
    signFailures_[{1, true}] = noKey;
    EXPECT_EQ(certificateHash().sign(), "signature");
    EXPECT_EQ(signCalls_.back().keySpec, 2U);
}

TEST_F(HashTest, OnlyARefusedPinKeepsTheSecondAttemptFromBeingMade) {
    service().on.CryptSignHashW = [](unsigned long, DWORD keySpec, const char*, DWORD, BYTE* buffer,
                                     DWORD* size) -> BOOL {
        if (keySpec == 1) {
            throw CryptoException(CryptoException::Code::wrongProviderType);
        }
        return service_double::give("second", buffer, size);
    };
    EXPECT_EQ(certificateHash().sign(), "second");
}

TEST_F(HashTest, WhatWentWrongWithTheExchangeKeyIsThrownWhenBothFail) {
    signFailures_[{1, false}] = noKey;
    signFailures_[{2, false}] = 0x80090020;
    auto hash = certificateHash();
    EXPECT_EQ(thrownBy<SystemException>([&] { hash.sign(); }),
              (Thrown{static_cast<int>(noKey), "hash", "signImpl", 0}));
}

TEST_F(HashTest, AnEmptySignatureIsReturnedWithoutASecondAttempt) {
    signature_.clear();
    EXPECT_EQ(certificateHash().sign(), "");
    EXPECT_THAT(signCalls_, ElementsAre(SignCall{1, false, 0}));
}

TEST_F(HashTest, AnEmptySignatureOfTheSecondKeyDoesNotHideTheFirstFailure) {
    signFailures_[{1, false}] = noKey;
    signature_.clear();
    auto hash = certificateHash();
    EXPECT_EQ(thrownBy<SystemException>([&] { hash.sign(); }).code, static_cast<int>(noKey));
    EXPECT_THAT(signCalls_, ElementsAre(SignCall{1, false, 0}, SignCall{2, false, 0}));
}

TEST_F(HashTest, RefusedPinInTheSecondAttemptGoesToTheCaller) {
    signFailures_[{1, false}] = noKey;
    auto key = certificate_->privateKey();
    auto hash = certificateHash();
    service().on.CryptSignHashW = [&](unsigned long, DWORD, const char*, DWORD, BYTE*, DWORD*) -> BOOL {
        key->resetAuthentication();
        pin_ = boost::none;
        return service_double::fail(noKey);
    };
    EXPECT_EQ(thrownBy<CryptoException>([&] { hash.sign(); }).code, 30053);
}

TEST_F(HashTest, ACancelledKeyDialogueIsKeptForAfterTheSecondAttempt) {
    auto hash = certificateHash();
    certificate_->privateKey()->resetAuthentication();
    service().failFunction("CryptAcquireCertificatePrivateKey", 1223);
    EXPECT_EQ(thrownBy<ApplicationException>([&] { hash.sign(); }).code, 20003);
    EXPECT_EQ(service().count("CryptAcquireCertificatePrivateKey"), 5U) << "one for the hash, two for each attempt";
}

TEST_F(HashTest, ADialogueOfTheServiceCancelledWhileSigningIsKeptForAfterTheSecondAttempt) {
    signFailures_ = {{{1, true}, 1223}, {{2, false}, noKey}};
    auto hash = certificateHash();
    EXPECT_EQ(thrownBy<SystemException>([&] { hash.sign(); }), (Thrown{1223, "hash", "signImpl", 0}));
    EXPECT_EQ(signCalls_.size(), 3U);
}

TEST_F(HashTest, ProviderBoundHashSignsWithTheProvidersContainerWithoutPinRequest) {
    CryptHash hash(provider(std::wstring(L"box")), streebog);
    EXPECT_EQ(hash.sign(), "signature");
    EXPECT_EQ(dialogues_, 0U);
}

// ---- verification

class HashVerification : public HashTest {
protected:
    HashVerification() {
        service().on.CryptImportPublicKeyInfo = [this](unsigned long context, DWORD encoding,
                                                       CERT_PUBLIC_KEY_INFO* info, unsigned long* key) {
            EXPECT_EQ(encoding, 0x10001U);
            const auto* const own = static_cast<PCCERT_CONTEXT>(certificate_->context());
            EXPECT_EQ(info, &own->pCertInfo->SubjectPublicKeyInfo);
            return Defaults::CryptImportPublicKeyInfo(context, encoding, info, key);
        };
        service().on.CryptVerifySignatureW = [this](unsigned long, const BYTE* signature, DWORD size, unsigned long key,
                                                    const char* description, DWORD flags) {
            EXPECT_EQ(std::string(reinterpret_cast<const char*>(signature), size), "signature");
            EXPECT_NE(key, 0U);
            EXPECT_EQ(description, nullptr);
            EXPECT_EQ(flags, 0U);
            return verdict_;
        };
    }

    BOOL verdict_ = 1;
};

TEST_F(HashVerification, AnswersAsTheServiceDoes) {
    auto hash = certificateHash();
    EXPECT_TRUE(hash.verify("signature"));
    verdict_ = 0;
    EXPECT_FALSE(hash.verify("signature"));
    EXPECT_EQ(service().count("CryptDestroyKey"), 2U);
}

TEST_F(HashVerification, AKeyThatTheServiceDoesNotTakeIsThrown) {
    service().failFunction("CryptImportPublicKeyInfo", 0x80090015);
    auto hash = certificateHash();
    EXPECT_EQ(thrownBy<SystemException>([&] { static_cast<void>(hash.verify("signature")); }),
              (Thrown{static_cast<int>(0x80090015), "hash", "verify", 0}));
}

TEST_F(HashVerification, AHashWithoutCertificateVerifiesNothing) {
    auto hash = providerHash();
    EXPECT_EQ(thrownBy<CryptoException>([&] { static_cast<void>(hash.verify("signature")); }),
              (Thrown{30003, "hash", "verify", 0}));
}

// ---- the object that providers hand out

TEST_F(HashTest, HashForwardsEveryOperation) {
    service().on.CryptVerifySignatureW = [](unsigned long, const BYTE*, DWORD, unsigned long, const char*, DWORD) {
        return 1;
    };
    const boost::shared_ptr<Hash> hashes[] = {boost::make_shared<Hash>(provider(std::wstring(L"box")), streebogId),
                                              boost::make_shared<Hash>(provider(std::wstring(L"box")), streebog),
                                              boost::make_shared<Hash>(certificate_, streebog)};
    for (const auto& hash : hashes) {
        service().clearCalls();
        hash->initialize();
        hash->update(reinterpret_cast<const unsigned char*>("ab"), 2);
        std::istringstream stream("cd");
        const auto digest = hash->create(stream);
        EXPECT_EQ(hash->finalize(), digest);
        EXPECT_EQ(service().count("CryptHashData"), 2U);
        EXPECT_EQ(hash->sign(), "signature");
    }
    EXPECT_TRUE(hashes[2]->verify("signature"));
    EXPECT_THROW(static_cast<void>(hashes[0]->verify("signature")), CryptoException);
}

} // namespace
} // namespace wincrypt_keys
