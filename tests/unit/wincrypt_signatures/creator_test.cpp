#include "creator_fixture.hpp"

#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "orvik/plugin/crypto/i_private_key.hpp"
#include "service_double/fault_walk.hpp"

#include <boost/smart_ptr/make_shared.hpp>

namespace wincrypt_signatures {
namespace {

using orvik::plugin::crypto::AuthProvider;
using testing::ElementsAre;
using testing::IsEmpty;

class CreatorTest : public CreatorFixture {};

TEST_F(CreatorTest, StreamsTheContentIntoAnAttachedSignature) {
    binary::attached::Creator creator;
    EXPECT_TRUE(creator.initialize(params(linked())));
    EXPECT_TRUE(update(creator, "some "));
    EXPECT_TRUE(update(creator, "content"));
    EXPECT_EQ(finalize(creator), "HEADsome contentTAIL");
}

TEST_F(CreatorTest, LeavesTheContentOutOfADetachedSignature) {
    binary::detached::Creator creator;
    creator.initialize(params(linked()));
    update(creator, "content");
    EXPECT_EQ(finalize(creator), "HEADTAIL");
}

TEST_F(CreatorTest, ParametersAreNewAndEmpty) {
    const binary::attached::Creator creator;
    const auto made = creator.params();
    const auto* own = dynamic_cast<const Params*>(made.get());
    ASSERT_NE(own, nullptr);
    EXPECT_FALSE(own->certificate);
    EXPECT_THAT(own->attributes, IsEmpty());
    EXPECT_NE(creator.params().get(), made.get());
}

TEST_F(CreatorTest, OpensAMessageOfItsKind) {
    const auto opening = [](IDataHandler& creator) {
        const auto signer = linked();
        service().clearCalls();
        creator.initialize(params(signer));
        for (const auto& call : service().trace()) {
            if (call.starts_with("CryptMsgOpenToEncode")) {
                return call;
            }
        }
        return std::string();
    };
    binary::attached::Creator attached;
    EXPECT_EQ(opening(attached), "CryptMsgOpenToEncode(0x10001, 0, 2, pointer, null, pointer)");
    binary::detached::Creator detached;
    EXPECT_EQ(opening(detached), "CryptMsgOpenToEncode(0x10001, 4, 2, pointer, null, pointer)");
}

TEST_F(CreatorTest, ReportsAllThatCameAsConsumed) {
    binary::attached::Creator creator;
    const std::string data(5000, 'x');
    const auto* octets = reinterpret_cast<const unsigned char*>(data.data());
    std::size_t consumed = 7;
    EXPECT_FALSE(creator.update(octets, data.size(), &consumed));
    EXPECT_EQ(consumed, 7U) << "nothing was begun";
    creator.initialize(params(linked()));
    EXPECT_TRUE(creator.update(octets, data.size(), &consumed));
    EXPECT_EQ(consumed, data.size());
    EXPECT_TRUE(creator.update(octets, 2));
    EXPECT_THAT(updates(), ElementsAre("4999, 0)", "1, 0)", "1, 0)"));
}

TEST_F(CreatorTest, AnEmptyPieceFlushesTheOctetAndLeavesNothingToFinishWith) {
    const unsigned char octet = 'e';
    for (const unsigned char* const piece : {&octet, static_cast<const unsigned char*>(nullptr)}) {
        service().clearCalls();
        binary::attached::Creator creator;
        creator.initialize(params(linked()));
        update(creator, "a");
        EXPECT_THAT(updates(), IsEmpty());
        EXPECT_TRUE(creator.update(piece, 0));
        EXPECT_THAT(updates(), ElementsAre("1, 0)"));
        std::vector<unsigned char> out;
        EXPECT_EQ(thrownBy<SystemException>([&] { creator.finalize(out); }).function, "finalizeImpl");
        EXPECT_THAT(updates(), ElementsAre("1, 0)")) << "no final update without an octet";
    }
}

TEST_F(CreatorTest, HoldsTheLastOctetBack) {
    binary::attached::Creator creator;
    creator.initialize(params(linked()));
    update(creator, "abc");
    update(creator, "d");
    std::size_t consumed = 7;
    EXPECT_TRUE(creator.update(nullptr, 5, &consumed));
    EXPECT_EQ(consumed, 5U);
    const unsigned char octet = 'e';
    EXPECT_TRUE(creator.update(&octet, 0, &consumed));
    EXPECT_EQ(consumed, 0U);
    EXPECT_TRUE(creator.update(&octet, 1, &consumed));
    EXPECT_EQ(consumed, 1U);
    EXPECT_EQ(finalize(creator), "HEADabcdeTAIL");
    EXPECT_THAT(updates(), ElementsAre("2, 0)", "1, 0)", "1, 0)", "1, 1)"));
}

TEST_F(CreatorTest, OctetByOctetGivesTheSameAsOnePiece) {
    const std::string data = "the same content";
    binary::attached::Creator whole;
    whole.initialize(params(linked()));
    update(whole, data);
    binary::attached::Creator pieces;
    pieces.initialize(params(linked()));
    for (const char octet : data) {
        update(pieces, std::string(1, octet));
    }
    EXPECT_EQ(finalize(pieces), finalize(whole));
}

TEST_F(CreatorTest, EmptyDataIsAnError) {
    binary::attached::Creator creator;
    creator.initialize(params(linked()));
    std::vector<unsigned char> out;
    EXPECT_EQ(thrownBy<SystemException>([&] { creator.finalize(out); }).function, "finalizeImpl");
    EXPECT_FALSE(creator.finalize(out));
}

TEST_F(CreatorTest, DoesNothingBeforeItIsInitialized) {
    binary::attached::Creator creator;
    std::vector<unsigned char> out;
    EXPECT_FALSE(update(creator, "data"));
    EXPECT_FALSE(creator.finalize(out));
    EXPECT_THAT(service().trace(), IsEmpty());
}

TEST_F(CreatorTest, ForeignParametersAreRefused) {
    EXPECT_THROW(binary::attached::Creator().initialize(IDataHandler::Params()), std::bad_cast);
}

TEST_F(CreatorTest, CertificateMustBeFitToSign) {
    binary::attached::Creator creator;
    const auto refusal = [&](const boost::shared_ptr<Certificate>& signer) {
        return thrownBy<CryptoException>([&] { creator.initialize(params(signer)); });
    };
    EXPECT_EQ(refusal(nullptr), validation(30003));
    EXPECT_EQ(refusal(linked(plainCertificate)), validation(30029));
    EXPECT_EQ(refusal(linked(enciphermentCertificate)), validation(30029));
    EXPECT_EQ(refusal(certificate()), validation(30005));
    EXPECT_EQ(refusal(certificate(plainCertificate)), validation(30029)) << "its usage comes before its link";
    EXPECT_EQ(service().count("CryptMsgOpenToEncode"), 0U);
}

TEST_F(CreatorTest, SignsAttributesInTheOrderOfTheirTextsAndTheTimeLast) {
    std::vector<std::string> oids;
    service().on.CryptMsgOpenToEncode = [&](DWORD encoding, DWORD flags, DWORD type, const void* info, char* inner,
                                            CMSG_STREAM_INFO* stream) {
        const auto& signer = static_cast<const CMSG_SIGNED_ENCODE_INFO*>(info)->rgSigners[0];
        for (DWORD i = 0; i < signer.cAuthAttr; ++i) {
            oids.emplace_back(signer.rgAuthAttr[i].pszObjId);
            EXPECT_EQ(signer.rgAuthAttr[i].cValue, 1U);
        }
        return Defaults::CryptMsgOpenToEncode(encoding, flags, type, info, inner, stream);
    };
    auto request = params(linked());
    request.attributes = {
        {"UTF8String", "1.2.1", "a"}, {"INTEGER", "1.2.9", "1"}, {"INTEGER", "1.2.5", "1"}, {"INTEGER", "1.2.9", "1"}};
    binary::attached::Creator().initialize(request);
    EXPECT_THAT(oids, ElementsAre("1.2.5", "1.2.9", "1.2.1", "1.2.840.113549.1.9.5"));
    oids.clear();
    request.attributes.push_back({"UTCTime", "1.2.840.113549.1.9.5", "1700000000"});
    binary::attached::Creator().initialize(request);
    EXPECT_THAT(oids, ElementsAre("1.2.5", "1.2.9", "1.2.840.113549.1.9.5", "1.2.1")) << "the request's own time";
}

/// A key whose container has no PIN, and its certificate.
class OpenKey : public orvik::plugin::crypto::IPrivateKey {
public:
    explicit OpenKey(boost::shared_ptr<IPrivateKey> key) : key_(std::move(key)) {}
    [[nodiscard]] boost::shared_ptr<orvik::plugin::crypto::ICertificate> certificate() const override {
        return key_->certificate();
    }
    [[nodiscard]] boost::shared_ptr<IProvider> provider() const override { return key_->provider(); }
    void authenticate(const std::string& /*pin*/) override { ADD_FAILURE() << "it has no PIN"; }
    [[nodiscard]] void* context() const override { return key_->context(); }
    [[nodiscard]] bool authenticated() const override {
        ADD_FAILURE() << "the first question of an authorization";
        return false;
    }
    void resetAuthentication() override {}
    [[nodiscard]] bool supportsAuthentication() const override { return false; }
    [[nodiscard]] unsigned keySpec() const override { return key_->keySpec(); }

private:
    boost::shared_ptr<IPrivateKey> key_;
};

class OpenCertificate : public Certificate {
public:
    using Certificate::Certificate;
    [[nodiscard]] boost::shared_ptr<orvik::plugin::crypto::IPrivateKey> privateKey() const override {
        return boost::make_shared<OpenKey>(Certificate::privateKey());
    }
};

TEST_F(CreatorTest, KeyWithoutAPinIsNotAskedForOne) {
    AuthProvider::setDialog([](const auto&, unsigned) {
        ADD_FAILURE() << "nobody is asked";
        return boost::optional<std::string>();
    });
    const auto signer = boost::make_shared<OpenCertificate>(der(signerCertificate));
    ASSERT_TRUE(signer->link(provider(), L"box"));
    binary::attached::Creator creator;
    creator.initialize(params(signer));
    update(creator, "data");
    EXPECT_EQ(finalize(creator), "HEADdataTAIL");
}

TEST_F(CreatorTest, LinkMustNameProviderAndContainer) {
    const auto signer = certificate();
    const auto refusal = [&](const wchar_t* container, const wchar_t* provider) {
        CRYPT_KEY_PROV_INFO info{};
        info.pwszContainerName = const_cast<wchar_t*>(container);
        info.pwszProvName = const_cast<wchar_t*>(provider);
        orvik::plugin::wincrypt::CertSetCertificateContextProperty(static_cast<PCCERT_CONTEXT>(signer->context()), 2, 0,
                                                                   &info);
        return thrownBy<CryptoException>([&] { binary::attached::Creator().initialize(params(signer)); });
    };
    EXPECT_EQ(refusal(L"box", nullptr), validation(30004));
    EXPECT_EQ(refusal(nullptr, nullptr), validation(30004));
    EXPECT_EQ(refusal(nullptr, L"name"), validation(30005));
}

TEST_F(CreatorTest, DescribesOneSignerOneCertificateAndItsAttributes) {
    const auto signer = linked();
    service().on.CryptMsgOpenToEncode = [&](DWORD encoding, DWORD flags, DWORD type, const void* info, char* inner,
                                            CMSG_STREAM_INFO* stream) {
        const auto& message = *static_cast<const CMSG_SIGNED_ENCODE_INFO*>(info);
        const auto& one = message.rgSigners[0];
        const auto* context = static_cast<PCCERT_CONTEXT>(signer->context());
        EXPECT_EQ(encoding, 0x00010001U);
        EXPECT_EQ(flags, 4U);
        EXPECT_EQ(type, 2U);
        EXPECT_EQ(inner, nullptr);
        EXPECT_EQ(message.cbSize, 48U);
        EXPECT_EQ(message.cSigners, 1U);
        EXPECT_EQ(message.cCertEncoded, 1U);
        EXPECT_EQ(message.cCrlEncoded, 0U);
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(message.rgCertEncoded[0].pbData),
                              message.rgCertEncoded[0].cbData),
                  std::string(reinterpret_cast<const char*>(context->pbCertEncoded), context->cbCertEncoded));
        EXPECT_EQ(one.cbSize, 96U);
        EXPECT_EQ(one.pCertInfo, context->pCertInfo);
        EXPECT_NE(one.hCryptProv, 0U);
        EXPECT_EQ(one.dwKeySpec, 1U);
        EXPECT_STREQ(one.HashAlgorithm.pszObjId, "1.2.643.7.1.1.2.2");
        EXPECT_EQ(one.HashAlgorithm.Parameters.cbData, 0U);
        EXPECT_EQ(one.pvHashAuxInfo, nullptr);
        EXPECT_EQ(one.cUnauthAttr, 0U);
        EXPECT_EQ(one.cAuthAttr, 2U);
        EXPECT_STREQ(one.rgAuthAttr[0].pszObjId, "1.2.3");
        EXPECT_EQ(one.rgAuthAttr[0].cValue, 1U);
        EXPECT_EQ(one.rgAuthAttr[0].rgValue[0].cbData, 4U);
        EXPECT_STREQ(one.rgAuthAttr[1].pszObjId, "1.2.840.113549.1.9.5");
        EXPECT_EQ(stream->cbContent, 0xFFFFFFFFU);
        BYTE octet = 0;
        EXPECT_EQ(stream->pfnStreamOutput(nullptr, &octet, 1, 1), 0);
        EXPECT_EQ(stream->pfnStreamOutput(stream->pvArg, nullptr, 0, 1), 1);
        return Defaults::CryptMsgOpenToEncode(encoding, flags, type, info, inner, stream);
    };
    auto request = params(signer);
    request.attributes = {{"OCTET STRING", "1.2.3", "00ff"}, {"OCTET STRING", "1.2.3", "00ff"}};
    binary::detached::Creator creator;
    EXPECT_TRUE(creator.initialize(request));
}

TEST_F(CreatorTest, MessageThatDoesNotOpenLeavesTheCreatorAsItWas) {
    service().failFunction("CryptMsgOpenToEncode", capi::CRYPT_E_UNKNOWN_ALGO);
    binary::attached::Creator creator;
    EXPECT_EQ(thrownBy<SystemException>([&] { creator.initialize(params(linked())); }),
              (Thrown{code(capi::CRYPT_E_UNKNOWN_ALGO), "signature_creator", "initializeImpl", 0}));
    EXPECT_FALSE(update(creator, "data"));
}

TEST_F(CreatorTest, CancelledUpdateIsTheUsersChoice) {
    for (const DWORD cancelled : {1223U, 0x8010006EU}) {
        binary::attached::Creator creator;
        creator.initialize(params(linked()));
        service().failFunction("CryptMsgUpdate", cancelled);
        EXPECT_EQ(thrownBy<ApplicationException>([&] { update(creator, "data"); }),
                  (Thrown{20003, "signature_creator", "validateCryptMsgUpdate", 0}));
        service().failFunction("CryptMsgUpdate", 0);
    }
}

TEST_F(CreatorTest, OtherFailedUpdateIsTheServicesRefusal) {
    binary::attached::Creator creator;
    creator.initialize(params(linked()));
    service().failFunction("CryptMsgUpdate", 87);
    EXPECT_EQ(thrownBy<SystemException>([&] { update(creator, "data"); }),
              (Thrown{87, "signature_creator", "validateCryptMsgUpdate", 0}));
}

TEST_F(CreatorTest, FailedFinalUpdateIsTheServicesRefusalEvenWhenCancelled) {
    binary::attached::Creator creator;
    creator.initialize(params(linked()));
    update(creator, "data");
    service().failFunction("CryptMsgUpdate", 1223);
    std::vector<unsigned char> out;
    EXPECT_EQ(thrownBy<SystemException>([&] { creator.finalize(out); }), finalization(1223));
    EXPECT_FALSE(creator.finalize(out));
}

TEST_F(CreatorTest, RefusedPinLeavesTheCreatorOpen) {
    binary::attached::Creator creator;
    creator.initialize(params(linked()));
    update(creator, "data");
    std::vector<unsigned char> out;
    AuthProvider::setDialog([](const auto&, unsigned) { return boost::optional<std::string>(); });
    EXPECT_FALSE(creator.finalize(out));
    AuthProvider::setDialog([](const auto&, unsigned) { return boost::optional<std::string>("1234"); });
    EXPECT_EQ(finalize(creator), "HEADdataTAIL");
}

TEST_F(CreatorTest, SecondInitializeForgetsWhatCameBefore) {
    binary::attached::Creator creator;
    creator.initialize(params(linked()));
    update(creator, "old data");
    creator.initialize(params(linked()));
    update(creator, "new");
    EXPECT_EQ(finalize(creator), "HEADnewTAIL");
    EXPECT_EQ(service().count("CryptMsgClose"), 2U);
}

TEST_F(CreatorTest, SurvivesEveryFailure) {
    const auto octets = der(signerCertificate);
    service_double::FaultWalk walk;
    walk.name = "sign";
    walk.arrange = [this] {
        arrangeService();
        arrangeEncoder();
    };
    walk.scenario = [&] {
        const auto signer = boost::make_shared<Certificate>(octets);
        if (!signer->link(CertificatesFixture::provider(), L"box")) {
            throw SystemException();
        }
        binary::attached::Creator creator;
        creator.initialize(params(signer));
        update(creator, "some data");
        std::vector<unsigned char> out;
        if (creator.finalize(out)) {
            EXPECT_EQ(std::string(out.begin(), out.end()), "HEADsome dataTAIL");
        }
    };
    EXPECT_GT(service_double::walkFaults(walk), 12U);
}

} // namespace
} // namespace wincrypt_signatures
