// The validators' states, and XML documents.

#include "signed_invoice.hpp"
#include "verify_fixture.hpp"

#include "crypto/wincrypt/signature_factory.hpp"
#include "crypto/wincrypt/signature_validator.hpp"
#include "service_double/fault_walk.hpp"
#include "unit/wincrypt_certificates/certificates.hpp"

#include <boost/smart_ptr/make_shared.hpp>
#include <boost/smart_ptr/weak_ptr.hpp>

namespace wincrypt_signatures {
namespace {

using orvik::plugin::IDataHandler;
using orvik::plugin::crypto::ICertificate;
using service_double::FaultOutcome;
using testing::ElementsAre;
using testing::IsEmpty;
namespace binary = orvik::plugin::wincrypt::binary;
namespace xmldsig = orvik::plugin::wincrypt::xmldsig;
using Params = orvik::plugin::crypto::SignatureFactory::Validator::Params;

/// A document that carries those signatures.
std::string invoice(const std::vector<std::string>& signatures) {
    std::string document = invoiceStart;
    for (const auto& signature : signatures) {
        document += signature;
    }
    return document + invoiceEnd;
}

std::string forged() {
    auto signature = invoiceSignature;
    auto& digit = signature.at(signature.find(invoiceSignatureValue));
    digit = digit == 'A' ? 'B' : 'A';
    return signature;
}

/// What both validators have in common.
template <class Validator>
class ValidatorStates : public VerifyFixture {
protected:
    ValidatorStates() { refuse(false); }

    static void refuse(bool refused) { service().message.valid = !refused; }
    /// Data that is found valid, and data that is not.
    static std::string good() { return std::is_same_v<Validator, binary::Validator> ? "message" : signedInvoice(); }
    bool checkBad(Validator& validator) {
        refuse(true);
        const bool verdict = update(validator, std::is_same_v<Validator, binary::Validator> ? "message" : "<none/>");
        refuse(false);
        return verdict;
    }

    /// The validator with empty parameters.
    Validator& begun() {
        EXPECT_TRUE(validator_.initialize(Params()));
        return validator_;
    }

private:
    static std::string signedInvoice() { return invoice({invoiceSignature}); }

    Validator validator_;
};

using Validators = testing::Types<binary::Validator, xmldsig::Validator>;

struct ValidatorName {
    template <class T>
    static std::string GetName(int /*index*/) {
        return std::is_same_v<T, binary::Validator> ? "Binary" : "Xml";
    }
};
TYPED_TEST_SUITE(ValidatorStates, Validators, ValidatorName);

TYPED_TEST(ValidatorStates, GivesEmptyParametersOfItsOwn) {
    const TypeParam validator;
    const auto params = validator.params();
    const auto* own = dynamic_cast<const Params*>(params.get());
    ASSERT_NE(own, nullptr);
    EXPECT_FALSE(own->certificate);
    EXPECT_FALSE(own->content);
    EXPECT_NE(validator.params().get(), params.get()) << "each call a new one";
}

TYPED_TEST(ValidatorStates, RefusesForeignParametersAndKeepsWhatItHad) {
    TypeParam validator;
    EXPECT_THROW(validator.initialize(IDataHandler::Params()), std::bad_cast);
    EXPECT_FALSE(this->finalize(validator)) << "nothing was begun";
    EXPECT_TRUE(validator.initialize(Params()));
    EXPECT_TRUE(this->update(validator, this->good()));
    EXPECT_THROW(validator.initialize(IDataHandler::Params()), std::bad_cast);
    EXPECT_TRUE(this->finalize(validator));
}

TYPED_TEST(ValidatorStates, SaysNoBeforeInitialize) {
    TypeParam validator;
    EXPECT_FALSE(this->finalize(validator));
}

TYPED_TEST(ValidatorStates, SaysNoWithoutUpdate) {
    TypeParam validator;
    EXPECT_TRUE(validator.initialize(Params()));
    EXPECT_FALSE(validator.update(nullptr, 0)) << "the verdict so far";
    EXPECT_FALSE(validator.update(nullptr, 10));
    EXPECT_FALSE(this->finalize(validator));
}

TYPED_TEST(ValidatorStates, SaysNoWhenItIsAskedASecondTime) {
    auto& validator = this->begun();
    EXPECT_TRUE(this->update(validator, this->good()));
    EXPECT_TRUE(this->finalize(validator));
    EXPECT_FALSE(this->finalize(validator));
}

TYPED_TEST(ValidatorStates, RepeatsItsVerdictWithoutDataAndLooksNoMore) {
    auto& validator = this->begun();
    EXPECT_TRUE(this->update(validator, this->good()));
    service().clearCalls();
    EXPECT_TRUE(validator.update(nullptr, 0));
    EXPECT_TRUE(validator.update(nullptr, 5));
    EXPECT_THAT(service().trace(), IsEmpty());
    EXPECT_FALSE(this->checkBad(validator));
    EXPECT_FALSE(validator.update(nullptr, 0));
}

TYPED_TEST(ValidatorStates, LetsTheLastCheckDecide) {
    auto& validator = this->begun();
    EXPECT_FALSE(this->checkBad(validator));
    EXPECT_TRUE(this->update(validator, this->good()));
    EXPECT_FALSE(this->checkBad(validator));
    EXPECT_FALSE(this->finalize(validator));
}

TYPED_TEST(ValidatorStates, ForgetsItsVerdictWhenItIsInitializedAnew) {
    auto& validator = this->begun();
    EXPECT_TRUE(this->update(validator, this->good()));
    EXPECT_TRUE(validator.initialize(Params()));
    EXPECT_FALSE(validator.update(nullptr, 0));
    EXPECT_FALSE(this->finalize(validator));
}

TYPED_TEST(ValidatorStates, LeavesConsumedAlone) {
    auto& validator = this->begun();
    std::size_t consumed = 77;
    const auto data = this->good();
    EXPECT_TRUE(validator.update(reinterpret_cast<const unsigned char*>(data.data()), data.size(), &consumed));
    EXPECT_TRUE(validator.update(nullptr, 0, &consumed));
    this->refuse(true);
    EXPECT_FALSE(validator.update(reinterpret_cast<const unsigned char*>("<none/>"), 7, &consumed));
    EXPECT_EQ(consumed, 77U) << "nor by a check that fails";
}

TYPED_TEST(ValidatorStates, TakesEachDataForAWholeOne) {
    auto& validator = this->begun();
    const auto data = this->good();
    static_cast<void>(this->update(validator, data.substr(0, data.size() / 2)));
    const bool verdict = this->update(validator, data.substr(data.size() / 2));
    EXPECT_EQ(this->finalize(validator), verdict);
    const bool isBinary = std::is_same_v<TypeParam, binary::Validator>;
    EXPECT_EQ(service().count("CryptMsgOpenToDecode"), isBinary ? 2U : 0U) << "a message for each";
    EXPECT_EQ(verdict, isBinary) << "half a document is none; what half a message is worth the service says";
}

TYPED_TEST(ValidatorStates, NeverLetsAnExceptionOut) {
    service().on.CryptMsgOpenToDecode = [](DWORD, DWORD, DWORD, unsigned long, CERT_INFO*, CMSG_STREAM_INFO*) -> void* {
        throw 1;
    };
    auto& validator = this->begun();
    EXPECT_FALSE(this->update(validator, "no message and no document"));
    EXPECT_FALSE(this->update(validator, ""));
    EXPECT_FALSE(this->finalize(validator));
    EXPECT_THAT(this->log(), IsEmpty());
}

// ---- the binary one

class BinaryValidatorTest : public VerifyFixture {
protected:
    static Params withContent() {
        Params params;
        params.content = boost::make_shared<std::istringstream>("content");
        return params;
    }
};

TEST_F(BinaryValidatorTest, OpensADetachedMessageWhereThereIsContent) {
    binary::Validator validator;
    Params params = withContent();
    validator.initialize(params);
    EXPECT_TRUE(update(validator, "signature"));
    EXPECT_EQ(service().trace().front(), "CryptMsgOpenToDecode(0x10001, 4, 0, 0, null, pointer)");
    validator.initialize(Params());
    service().clearCalls();
    EXPECT_TRUE(update(validator, "signature"));
    EXPECT_EQ(service().trace().front(), "CryptMsgOpenToDecode(0x10001, 0, 0, 0, null, pointer)");
}

TEST_F(BinaryValidatorTest, ReadsTheContentOnceSoThatASecondCheckFindsItEmpty) {
    binary::Validator validator;
    Params params = withContent();
    validator.initialize(params);
    EXPECT_TRUE(update(validator, "signature"));
    EXPECT_EQ(service().count("CryptMsgUpdate"), 2U);
    service().clearCalls();
    static_cast<void>(update(validator, "signature"));
    EXPECT_EQ(service().count("CryptMsgUpdate"), 1U);
}

TEST_F(BinaryValidatorTest, HoldsTheContentUntilItIsFinalized) {
    binary::Validator validator;
    Params params = withContent();
    const boost::weak_ptr<std::istream> watched = params.content;
    validator.initialize(params);
    params.content.reset();
    EXPECT_FALSE(watched.expired());
    EXPECT_FALSE(finalize(validator));
    EXPECT_TRUE(watched.expired());
}

TEST_F(BinaryValidatorTest, DoesNotKeepTheCertificate) {
    binary::Validator validator;
    Params params;
    params.certificate = certificate();
    const boost::weak_ptr<ICertificate> watched = params.certificate;
    validator.initialize(params);
    params.certificate.reset();
    EXPECT_TRUE(watched.expired());
}

TEST_F(BinaryValidatorTest, DropsTheContentOfBeforeWhenItIsInitializedAnew) {
    binary::Validator validator;
    Params params = withContent();
    const boost::weak_ptr<std::istream> watched = params.content;
    validator.initialize(params);
    params.content.reset();
    validator.initialize(params);
    EXPECT_TRUE(watched.expired());
}

TEST_F(BinaryValidatorTest, DoesNotUseTheCertificateItIsGiven) {
    Params params;
    params.certificate = certificate();
    service().message.certificates.clear();
    binary::Validator validator;
    validator.initialize(params);
    EXPECT_FALSE(update(validator, "signature"));
    params.certificate.reset();
}

TEST_F(BinaryValidatorTest, HandsTheWholeSignatureOver) {
    std::string octets;
    service().on.CryptMsgUpdate = [&](void*, const BYTE* data, DWORD size, BOOL) {
        octets.append(reinterpret_cast<const char*>(data), size);
        return 1;
    };
    std::string signature;
    for (int i = 0; i < 10000; ++i) {
        signature += static_cast<char>(i);
    }
    binary::Validator validator;
    validator.initialize(Params());
    EXPECT_TRUE(update(validator, signature));
    EXPECT_EQ(octets, signature);
}

// ---- the XML one

class XmlValidatorTest : public VerifyFixture {
protected:
    static bool valid(const std::string& document, const boost::shared_ptr<ICertificate>& certificate = {}) {
        xmldsig::Validator validator;
        Params params;
        params.certificate = certificate;
        EXPECT_TRUE(validator.initialize(params));
        const bool verdict = update(validator, document);
        EXPECT_EQ(finalize(validator), verdict);
        return verdict;
    }
};

TEST_F(XmlValidatorTest, SaysNoToADocumentWithoutSignature) {
    EXPECT_FALSE(valid(invoice({})));
}

TEST_F(XmlValidatorTest, SaysYesToOneAndToTwoValidSignatures) {
    EXPECT_TRUE(valid(invoice({invoiceSignature})));
    EXPECT_TRUE(valid(invoice({invoiceSignature, invoiceSignature})));
}

TEST_F(XmlValidatorTest, SaysNoWhereOneOfTwoIsInvalid) {
    EXPECT_FALSE(valid(invoice({forged()})));
    EXPECT_FALSE(valid(invoice({invoiceSignature, forged()})));
    EXPECT_FALSE(valid(invoice({forged(), invoiceSignature})));
    EXPECT_FALSE(valid(invoice({invoiceSignature, forged(), invoiceSignature})));
}

TEST_F(XmlValidatorTest, SaysNoToAChangedDocument) {
    auto document = invoice({invoiceSignature});
    document.replace(document.find("100"), 3, "900");
    EXPECT_FALSE(valid(document));
}

TEST_F(XmlValidatorTest, SaysNoToWhatIsNotADocument) {
    const auto document = invoice({invoiceSignature});
    for (const auto& text : {std::string("text"), std::string("<open>"), document + "x", document.substr(1),
                             std::string(1, '\0') + document}) {
        EXPECT_FALSE(valid(text)) << text.substr(0, 20);
    }
    EXPECT_THAT(logTexts(Severity::error), IsEmpty());
}

TEST_F(XmlValidatorTest, ForgetsAYesWhenTheNextCheckThrows) {
    xmldsig::Validator validator;
    EXPECT_TRUE(validator.initialize(Params()));
    EXPECT_TRUE(update(validator, invoice({invoiceSignature})));
    EXPECT_FALSE(update(validator, "text"));
    EXPECT_FALSE(validator.update(nullptr, 0));
    EXPECT_FALSE(finalize(validator));
}

TEST_F(XmlValidatorTest, AsksTheServiceForNoMessage) {
    EXPECT_TRUE(valid(invoice({invoiceSignature})));
    EXPECT_THAT(functions(), IsEmpty());
}

TEST_F(XmlValidatorTest, LooksForTheProviderOfTheCertificateItIsGiven) {
    auto signer = linked();
    EXPECT_TRUE(valid(invoice({invoiceSignature}), signer));
    EXPECT_GT(service().calls().size(), 0U);
    signer.reset();
}

/// A certificate that writes down how it is asked for its provider.
class Watched : public Certificate {
public:
    explicit Watched(bool fails = false) : Certificate(nullptr), fails_(fails) {}
    [[nodiscard]] boost::shared_ptr<IProvider> provider(bool search) const override {
        searches.push_back(search);
        if (fails_) {
            throw CryptoException(CryptoException::Code::noProvider);
        }
        return {};
    }

    mutable std::vector<bool> searches;

private:
    bool fails_;
};

TEST_F(XmlValidatorTest, AsksItsCertificateForTheProviderByEverySearchOnceForEachCheck) {
    const auto watched = boost::make_shared<Watched>();
    xmldsig::Validator validator;
    Params params;
    params.certificate = watched;
    validator.initialize(params);
    EXPECT_THAT(watched->searches, IsEmpty()) << "not before there is a document";
    EXPECT_TRUE(update(validator, invoice({invoiceSignature})));
    EXPECT_THAT(watched->searches, ElementsAre(true));
    EXPECT_TRUE(validator.update(nullptr, 0));
    EXPECT_THAT(watched->searches, ElementsAre(true)) << "the verdict is only repeated";
    EXPECT_FALSE(update(validator, "not a document"));
    EXPECT_THAT(watched->searches, ElementsAre(true, true)) << "before the document is read";
}

TEST_F(XmlValidatorTest, SaysNoToAValidDocumentWhenTheCertificateThrows) {
    EXPECT_TRUE(valid(invoice({invoiceSignature}), boost::make_shared<Watched>()));
    EXPECT_FALSE(valid(invoice({invoiceSignature}), boost::make_shared<Watched>(true)));
}

TEST_F(XmlValidatorTest, HoldsTheCertificateUntilItIsFinalizedAndNoContent) {
    xmldsig::Validator validator;
    Params params;
    params.certificate = boost::make_shared<Watched>();
    params.content = boost::make_shared<std::istringstream>("content");
    const boost::weak_ptr<ICertificate> certificate = params.certificate;
    const boost::weak_ptr<std::istream> content = params.content;
    validator.initialize(params);
    params = Params();
    EXPECT_FALSE(certificate.expired());
    EXPECT_TRUE(content.expired());
    EXPECT_FALSE(finalize(validator));
    EXPECT_TRUE(certificate.expired());
}

TEST_F(XmlValidatorTest, SaysNoWhenTheSearchForTheProviderThrows) {
    const auto document = invoice({invoiceSignature});
    auto signer = certificate();
    EXPECT_TRUE(valid(document, signer));
    service().on.CertGetCertificateContextProperty = [](PCCERT_CONTEXT, DWORD, void*, DWORD*) -> BOOL { throw 1; };
    EXPECT_FALSE(valid(document, certificate()));
    signer.reset();
}

TEST_F(XmlValidatorTest, KeepsItsVerdictWhateverCallOfTheServiceFails) {
    // Found once per process: a run in which that fails would take the providers from the runs after it.
    EXPECT_TRUE(valid(invoice({invoiceSignature}), linked()));
    for (const auto& signatures : {std::vector{invoiceSignature}, std::vector{invoiceSignature, forged()}}) {
        const bool right = signatures.size() == 1;
        bool verdict = false;
        std::vector<std::string> failed;
        const auto count = service_double::walkFaults(
            {"xmldsig::Validator", [] { arrangeService(); },
             [&] {
                 verdict = !right;
                 const auto signer = boost::make_shared<Certificate>(der(signerCertificate));
                 verdict = valid(invoice(signatures), signer);
             },
             [&](const FaultOutcome& outcome) {
                 failed.push_back(outcome.function);
                 if (outcome.index == 1) { // the certificate, made by the test
                     EXPECT_EQ(service_double::describe<SystemException>(outcome.thrown),
                               (Thrown{code(outcome.code), "certificate", "Certificate", 0}));
                     return;
                 }
                 EXPECT_FALSE(outcome.thrown);
                 EXPECT_EQ(verdict, right) << "the keys come out of the document";
             }});
        EXPECT_THAT(failed,
                    ElementsAre("CertCreateCertificateContext", "CertGetCertificateContextProperty",
                                "CertFindExtension", "CryptDecodeObject", "CryptDecodeObject", "CertFindExtension",
                                "CryptDecodeObject", "CryptDecodeObject", "CertFreeCertificateContext"))
            << "the certificate, its property, its signing tools, its release";
        EXPECT_EQ(count, failed.size());
        EXPECT_EQ(verdict, right);
    }
    EXPECT_THAT(logTexts(Severity::error), IsEmpty());
}

} // namespace
} // namespace wincrypt_signatures
