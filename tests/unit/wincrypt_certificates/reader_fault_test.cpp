// Each reader of a certificate with each call of the service failing: code, place, answer and records.
#include "fault_steps.hpp"

#include <boost/date_time/posix_time/time_formatters.hpp>

namespace wincrypt_certificates {
namespace {

constexpr const char* freed = "CertFreeCertificateContext";
constexpr const char* nothing = "nothing";

std::string shown(const boost::optional<std::wstring>& text) {
    return text ? wincrypt_keys::narrow(*text) : nothing;
}

class ReaderFault : public FaultSteps {
protected:
    /// Walks one reader. The certificate is made before the calls are counted and released within them.
    void read(const std::string& name, Steps steps, const std::function<std::string(const Certificate&)>& reader,
              const std::string& undisturbed) {
        boost::shared_ptr<Certificate> signer;
        steps.push_back({freed, same});
        walk(
            name, steps,
            [&] {
                signer = certificate();
                EXPECT_TRUE(signer->setFriendlyName("Name"));
            },
            [&] {
                const auto used = std::move(signer);
                return reader(*used);
            },
            undisturbed);
    }
};

TEST_F(ReaderFault, OfTheConstructorsHasItsCodeAndPlace) {
    const auto octets = der(signerCertificate);
    const Steps steps{{"CertCreateCertificateContext", system(faultCode, "certificate, Certificate")}, {freed, same}};
    using Format = orvik::plugin::crypto::ICertificate::Format;
    walk(
        "Certificate(data)", steps, [] {}, [&] { return Certificate(boost::string_view(octets)).raw(); }, octets);
    walk(
        "Certificate(data, format)", steps, [] {}, [&] { return Certificate(octets, Format::der).raw(); }, octets);
}

TEST_F(ReaderFault, OfWhatTheContextHoldsCallsNothing) {
    read(
        "raw and the like", {},
        [](const Certificate& signer) {
            EXPECT_EQ(signer.raw(), der(signerCertificate));
            EXPECT_NE(signer.publicKey(), nullptr);
            return std::to_string(signer.version()) + " " + signer.serialNumber() + " " + signer.signatureAlgorithm() +
                   " " + signer.hashAlgorithm() + " " + to_iso_string(signer.notAfter()) + " " +
                   signer.subjectNameInfo().value("2.5.4.6") + " " + signer.issuerNameInfo().value("2.5.4.6") + " " +
                   signer.enhancedKeyUsage().at(0);
        },
        "2 \x45\x23\x01 1.2.643.7.1.1.3.2 1.2.643.7.1.1.2.2 21261027T233445 RU RU 1.3.6.1.5.5.7.3.4");
}

TEST_F(ReaderFault, OfANameIsAnEmptyName) {
    const std::string name = "2.5.4.6=RU;2.5.4.3=Держатель;1.2.643.3.131.1.1=123456789012";
    read(
        "issuer", {{"CertNameToStrW", "", 2}}, [](const Certificate& signer) { return signer.issuer(); }, name);
    read(
        "subject", {{"CertNameToStrW", "", 2}}, [](const Certificate& signer) { return signer.subject(); }, name);
}

TEST_F(ReaderFault, OfTheKeyUsageIsNone) {
    read(
        "keyUsage", {{"CertFindExtension", nothing}, {"CryptDecodeObject", nothing, 2}},
        [](const Certificate& signer) {
            const auto usage = signer.keyUsage();
            return usage ? std::to_string(*usage) : nothing;
        },
        std::to_string(0x80C8));
}

TEST_F(ReaderFault, OfASignToolIsNone) {
    const Steps steps{{"CertFindExtension", nothing}, {"CryptDecodeObject", nothing, 2}};
    read(
        "issuerSignTool", steps, [](const Certificate& signer) { return shown(signer.issuerSignTool()); },
        "\f\x06ViPNet");
    read(
        "subjectSignTool", steps,
        [](const Certificate& signer) { return signer.subjectSignTool() ? std::string("found") : nothing; }, "found");
}

TEST_F(ReaderFault, OfTheKeyPeriodIsNoDateAndRecordedWhenItIsNotDecoded) {
    const std::string undecoded = "not-a-date-time | wincrypt: extension 2.5.29.16 can't decode object";
    const Steps steps{{"CertFindExtension", "not-a-date-time"}, {"CryptDecodeObject", undecoded, 2}};
    read(
        "privateKeyNotBefore", steps,
        [](const Certificate& signer) { return to_iso_string(signer.privateKeyNotBefore()); }, "20260102T030405");
    read(
        "privateKeyNotAfter", steps,
        [](const Certificate& signer) { return to_iso_string(signer.privateKeyNotAfter()); }, "20270102T030405");
}

TEST_F(ReaderFault, OfTheThumbprintIsNoneAndRecorded) {
    read(
        "thumbprint", {{"CryptHashCertificate", nothing + (" | wincrypt: thumbprint: " + faultNumber), 2}},
        [](const Certificate& signer) {
            const auto digest = signer.thumbprint();
            return digest ? std::to_string(digest->size()) : nothing;
        },
        "20");
}

TEST_F(ReaderFault, OfTheFriendlyNameIsAnEmptyName) {
    read(
        "friendlyName", {{"CertGetCertificateContextProperty", "", 2}},
        [](const Certificate& signer) { return signer.friendlyName(); }, "Name");
}

TEST_F(ReaderFault, OfSettingTheFriendlyNameIsFalseAndRecorded) {
    read(
        "setFriendlyName",
        {{"CertSetCertificateContextProperty",
          "false, Name | wincrypt: can't set 'friendlyname' to certificate: " + faultNumber},
         {"CertGetCertificateContextProperty", "true, ", 2}},
        [](const Certificate& signer) {
            const bool set = signer.setFriendlyName("Other");
            return (set ? "true, " : "false, ") + signer.friendlyName();
        },
        "true, Other");
}

} // namespace
} // namespace wincrypt_certificates
