// The link between a certificate and its key with each call of the service failing: code, place, answer and records.
#include "fault_steps.hpp"

#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "orvik/plugin/crypto/i_private_key.hpp"
#include "orvik/plugin/session.hpp"
#include "service_double/flatten.hpp"

namespace wincrypt_certificates {
namespace {

constexpr const char* freed = "CertFreeCertificateContext";

const std::string refusalText = "Refused.";

std::string nameOf(const boost::shared_ptr<IProvider>& provider) {
    return provider ? wincrypt_keys::narrow(provider->name()) : "null";
}

const std::string embedded = wincrypt_keys::narrow(wincrypt_keys::embeddedName);

/// What the process finds out once is found out before the calls are counted.
class BindingFault : public FaultSteps {
protected:
    BindingFault() { EXPECT_TRUE(linked()->provider(false)); }

    void walkSigner(const std::string& name, const Steps& steps,
                    const std::function<boost::shared_ptr<Certificate>()>& make,
                    const std::function<std::string(const Certificate&)>& scenario, const std::string& undisturbed) {
        boost::shared_ptr<Certificate> signer;
        walk(
            name, steps, [&] { signer = make(); },
            [&] {
                const auto used = std::move(signer);
                return scenario(*used);
            },
            undisturbed);
    }
};

TEST_F(BindingFault, OfTheContainerIsNone) {
    walkSigner(
        "container", {{"CertGetCertificateContextProperty", "nothing", 2}, {freed, same}}, [] { return linked(); },
        [](const Certificate& signer) {
            const auto name = signer.container();
            return name ? wincrypt_keys::narrow(*name) : "nothing";
        },
        "box");
}

TEST_F(BindingFault, OfTheLinkIsFalseAndLeavesNone) {
    walkSigner(
        "link",
        {{"CertSetCertificateContextProperty", "false, unlinked"},
         {"CertGetCertificateContextProperty", "true, unlinked", 2},
         {freed, same}},
        [] { return certificate(); },
        [](const Certificate& signer) {
            const bool done = signer.link(provider(), L"box");
            return std::string(done ? "true, " : "false, ") + (signer.container() ? "linked" : "unlinked");
        },
        "true, linked");
}

TEST_F(BindingFault, OfTheLinkedProviderIsNullWithoutARecord) {
    walkSigner(
        "provider(false)", {{"CertGetCertificateContextProperty", "null", 2}, {freed, same}}, [] { return linked(); },
        [](const Certificate& signer) { return nameOf(signer.provider(false)); }, embedded);
}

TEST_F(BindingFault, OfTheLinkedProviderIsNotKept) {
    walkSigner(
        "provider(false), twice", {{"CertGetCertificateContextProperty", embedded, 2}, {freed, same}},
        [] { return linked(); },
        [](const Certificate& signer) {
            static_cast<void>(signer.provider(false));
            return nameOf(signer.provider(false));
        },
        embedded);
}

/// The certificate names CryptoPro's tool; its provider is the one that is installed for the type.
void nameSignTool() {
    const std::wstring tool = L"\"КриптоПро CSP\"";
    service().on.CryptDecodeObject = [tool](DWORD, const char*, const BYTE*, DWORD, DWORD, void* buffer, DWORD* size) {
        service_double::Flat flat(sizeof(CERT_NAME_VALUE));
        flat.blob(offsetof(CERT_NAME_VALUE, Value),
                  {reinterpret_cast<const char*>(tool.data()), tool.size() * sizeof(wchar_t)});
        return giveFlat(flat, buffer, size);
    };
}

TEST_F(BindingFault, OfTheSearchByTheSubjectsToolIsNull) {
    const std::string found = wincrypt_keys::narrow(wincrypt_keys::cryptoProName);
    walkSigner(
        "provider(true)",
        {{"CertGetCertificateContextProperty", same}, // there is no link anyway
         {"CertFindExtension", "null"},
         {"CryptDecodeObject", "null", 2},
         {"CertFindExtension", same}, // the issuer's tool
         {"CryptDecodeObject", same, 2},
         {freed, same}},
        [] {
            nameSignTool();
            return certificate();
        },
        [](const Certificate& signer) { return nameOf(signer.provider(true)); }, found);
}

TEST_F(BindingFault, OfTheSearchByTheIssuersToolIsNull) {
    const std::string tool = "\"КриптоПро CSP\"";
    walkSigner(
        "provider(true), issuer's tool",
        {{"CertGetCertificateContextProperty", same},
         {"CertFindExtension", same},
         {"CryptDecodeObject", same, 2},
         {"CertFindExtension", "null"},
         {"CryptDecodeObject", "null", 2},
         {freed, same}},
        [&] {
            service().on.CryptDecodeObject = [tool](DWORD, const char*, const BYTE*, DWORD, DWORD, void* buffer,
                                                    DWORD* size) {
                service_double::Flat flat(sizeof(CERT_NAME_VALUE));
                flat.blob(offsetof(CERT_NAME_VALUE, Value), tool);
                return giveFlat(flat, buffer, size);
            };
            return certificate();
        },
        [](const Certificate& signer) { return nameOf(signer.provider(true)); },
        wincrypt_keys::narrow(wincrypt_keys::cryptoProName));
}

TEST_F(BindingFault, OfThePrivateKeyHasItsCodeAndPlace) {
    walkSigner(
        "privateKey",
        {{"CertDuplicateCertificateContext", system(faultCode, "certificate, privateKey")}, {freed, same, 2}},
        [] { return linked(); }, [](const Certificate& signer) { return signer.privateKey() ? "a key" : "null"; },
        "a key");
}

TEST_F(BindingFault, OfThePrivateKeyIsNotKept) {
    walkSigner(
        "privateKey, twice", {{"CertDuplicateCertificateContext", same}, {freed, same, 2}}, [] { return linked(); },
        [](const Certificate& signer) {
            try {
                static_cast<void>(signer.privateKey());
            } catch (const SystemException&) { // the walk above has its code and place
            }
            return signer.privateKey() ? "a key" : "null";
        },
        "a key");
}

// ---- installation

TEST_F(BindingFault, OfAnInstallationHasItsCodePlaceAndRecordAndLinksNothing) {
    const auto at = [](int number) { return "CryptoException " + std::to_string(number) + " at certificate, install"; };
    const std::string unwritten = ", empty";
    const std::string refused = system(faultCode, "certificate, install");
    const std::string number = " | wincrypt: authorization error. ";
    // The container is looked for under the file reader's prefix, too, and that it is not there either is the answer.
    const std::string closed = at(30005) + unwritten + " | wincrypt: acquire context failed, provider: \"" + embedded +
                               "\", reason: 2148073494";
    const std::string unread =
        at(30005) + unwritten + " | crypto: can't get public key for container: \"box\" error: " + faultNumber;
    const std::string nameless = at(30005) + unwritten + " | crypto: can't read the container's name";
    walkSigner(
        "install",
        {{"CryptAcquireContextW", closed},
         {"CryptGetUserKey", refused + unwritten},
         {"CryptGetProvParam", same, 6}, // the container's name and its encoding, for the dialogue; the provider's name
         {"CryptSetProvParam", at(30053) + unwritten + number + "set pin failed: " + refusalText},
         {"CryptSetProvParam", at(30053) + unwritten + number + "verify pin failed: " + refusalText},
         {"CryptExportPublicKeyInfo", unread, 2},
         {"CertComparePublicKeyInfo",
          at(30032) + unwritten + " | crypto: certificate doesn't match the container: \"box\""},
         {"CryptGetProvParam", nameless, 2},
         {"CryptGetProvParam", same, 2}, // its encoding
         {"CryptSetKeyParam", refused + unwritten},
         {"CertSetCertificateContextProperty", refused + ", written | crypto: link certificate failed: " + faultNumber},
         {"CryptDestroyKey", same},
         {"CryptReleaseContext", same},
         {"CertGetCertificateContextProperty", "installed, written", 2}, // the test's own look
         {freed, same}},
        [] {
            service().messages[faultCode] = "Refused.";
            return certificate();
        },
        [](const Certificate& signer) {
            std::string ending = "installed";
            try {
                signer.install(provider(), L"box", "1234");
            } catch (...) {
                ending = wincrypt_keys::ending({0, {}, {}, faultCode, std::current_exception()});
            }
            const bool written = !installed().containers.front().certificate.empty();
            return ending + (written ? ", written" : ", empty") + (signer.container() ? ", linked" : "");
        },
        "installed, written, linked");
}

// ---- the first use, in which the process finds out which providers there are and what they have

struct FirstUse {
    const char* function;
    bool found;
    std::vector<std::string> warnings;
};

const std::string acquisition =
    "wincrypt: acquire context failed, provider: \"" + embedded + "\", reason: " + faultNumber;
const std::string unsupported =
    "wincrypt: search provider metadata in certificate (452301) failed, reason: provider (" + embedded +
    ",80) found but not supports public key algorithm: 1.2.643.7.1.1.1.1";

const std::vector<FirstUse> firstUses{
    {"CertGetCertificateContextProperty", false, {}}, // the link's size
    {"CertGetCertificateContextProperty", false, {}}, // the link
    {"CryptEnumProviders", false, {}},                // the provider's size: its type counts as not installed
    {"CryptEnumProviders", false, {}},                // its name
    {"CryptEnumProviders", true, {}},                 // the end
    {"CryptAcquireContextW", false, {acquisition, unsupported}},
    {"CryptGetProvParam", false, {unsupported}}, // its only algorithm
    {"CryptGetProvParam", true, {}},             // the end
    {"CryptReleaseContext", true, {}},
};

class FirstProviderFault : public CertificatesFixture, public testing::WithParamInterface<std::size_t> {};

TEST_P(FirstProviderFault, HasItsAnswerAndItsRecords) {
    const FirstUse& expected = firstUses.at(GetParam() - 1);
    const auto signer = linked();
    service().failCall(GetParam(), faultCode);
    const auto found = signer->provider(false);
    EXPECT_EQ(service().failedFunction(), expected.function) << service().failedCall();
    service().failCall(0, 0);
    EXPECT_EQ(nameOf(found), expected.found ? embedded : "null");
    EXPECT_THAT(logTexts(Severity::warning), testing::ElementsAreArray(expected.warnings));
}

INSTANTIATE_TEST_SUITE_P(Call, FirstProviderFault, testing::Range(std::size_t{1}, std::size_t{10}));

} // namespace
} // namespace wincrypt_certificates
