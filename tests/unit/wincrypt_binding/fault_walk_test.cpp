// Every call of each operation made to fail in turn.

#include "service_double/fault_walk.hpp"

#include "binding.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/certificate.hpp"
#include "crypto/wincrypt/handles.hpp"
#include "crypto/wincrypt/tools.hpp"
#include "orvik/plugin/base64.hpp"
#include "unit/wincrypt_keys/test_certificates.hpp"

#include <boost/optional/optional_io.hpp>

#include <sstream>

namespace wincrypt_binding {
namespace {

using orvik::plugin::crypto::IProvider;
using service_double::FaultOutcome;
using service_double::FaultWalk;
using service_double::walkFaults;
namespace tools = wincrypt::tools;

constexpr auto gost256 = IProvider::gost2012_256;

void arrangeService() {
    auto provider = cryptoProProvider();
    provider.containers = {containerNamed(L"box")};
    provider.containers.front().keySpecs = {capi::AT_SIGNATURE};
    service().providers[""] = {provider, scripted("Second", 75)};
    service().systemStores["my"] = {orvik::plugin::base64::decode(wincrypt_keys::gostCertificate),
                                    orvik::plugin::base64::decode(wincrypt_keys::rsaCertificate)};
    service().message.certificates = service().systemStores["my"];
    service().message.signers = service().systemStores["my"];
}

void expectNothingThrown(const FaultOutcome& outcome) {
    EXPECT_FALSE(outcome.thrown);
}

/// Whatever failed, what comes out carries the service's error and a location.
void expectSystemFailure(const FaultOutcome& outcome, const std::string& file, const std::string& function) {
    EXPECT_EQ(describe<SystemException>(outcome.thrown), (Thrown{code(outcome.code), file, function, 0}));
}

bool isRelease(const FaultOutcome& outcome) {
    return outcome.function == "CryptMsgClose" || outcome.function == "CertCloseStore" ||
           outcome.function == "CryptReleaseContext" || outcome.function == "CertFreeCertificateContext";
}

class Faults : public DoubleFixture {};

TEST_F(Faults, InAnAcquisitionEndUpInTheErrorNumber) {
    unsigned error = 0;
    const FaultWalk walk{.name = "acquire a container",
                         .arrange = arrangeService,
                         .scenario =
                             [&] {
                                 error = 0;
                                 const wincrypt::HCRYPTPROV context(L"box", cryptoProName, gost256, 0, &error);
                             },
                         .expect =
                             [&](const FaultOutcome& outcome) {
                                 expectNothingThrown(outcome);
                                 // The first attempt is followed by one under the file reader's prefix.
                                 EXPECT_EQ(error, isRelease(outcome) ? 0U : capi::NTE_BAD_KEYSET);
                             }};
    EXPECT_EQ(walkFaults(walk), 2U);
}

/// What there is to read of a context.
struct Values {
    std::wstring provider = cryptoProName;
    std::wstring path = L"box";
    boost::optional<unsigned> version = 0x0500U;
    unsigned keySpec = capi::AT_SIGNATURE;
};

TEST_F(Faults, InReadingAContextGiveEmptyValues) {
    const Values all;
    const Values nothing{.provider = L"", .path = L"", .version = boost::none, .keySpec = capi::AT_KEYEXCHANGE};
    const Values noProvider{.provider = L""};
    const Values noPath{.path = L""};
    const Values noVersion{.version = boost::none};
    const Values otherKey{.keySpec = capi::AT_KEYEXCHANGE};
    // The unique name and the exchange key are not there anyway; a type that is not told leaves the container's name.
    const std::vector<Values> left{nothing, noProvider, noProvider, all, noPath,   noPath, all,
                                   all,     noVersion,  noVersion,  all, otherKey, all,    all};
    Values values;
    const FaultWalk walk{.name = "read a context",
                         .arrange = arrangeService,
                         .scenario =
                             [&] {
                                 unsigned error = 0;
                                 const wincrypt::HCRYPTPROV context(L"box", cryptoProName, gost256, 0, &error);
                                 values.provider = tools::exportProviderName(context.get());
                                 values.path = tools::exportContainerPath(context.get());
                                 values.version = tools::param(context.get(), capi::PP_VERSION);
                                 values.keySpec = tools::keySpec(context.get());
                             },
                         .expect =
                             [&](const FaultOutcome& outcome) {
                                 expectNothingThrown(outcome);
                                 const auto& expected = left.at(outcome.index - 1);
                                 EXPECT_EQ(values.provider, expected.provider);
                                 EXPECT_EQ(values.path, expected.path);
                                 EXPECT_EQ(values.version, expected.version);
                                 EXPECT_EQ(values.keySpec, expected.keySpec);
                             }};
    EXPECT_EQ(walkFaults(walk), left.size());
}

TEST_F(Faults, InListingProvidersLeaveProvidersOut) {
    std::size_t found = 0;
    const FaultWalk walk{.name = "list providers",
                         .arrange = arrangeService,
                         .scenario = [&] { found = wincrypt::EnumProvidersEx().size(); },
                         .expect =
                             [&](const FaultOutcome& outcome) {
                                 expectNothingThrown(outcome);
                                 // Two calls per provider, one that finds the end; a size that fails ends the list.
                                 const std::vector<std::size_t> left{0, 1, 1, 1, 2};
                                 EXPECT_EQ(found, left.at(outcome.index - 1));
                             }};
    EXPECT_EQ(walkFaults(walk), 5U);
}

TEST_F(Faults, InListingAStoreLeaveCertificatesOut) {
    std::size_t found = 0;
    const FaultWalk walk{.name = "list a store",
                         .arrange = arrangeService,
                         .scenario = [&] { found = wincrypt::CertEnumCertificatesInStoreEx("my").size(); },
                         .expect =
                             [&](const FaultOutcome& outcome) {
                                 expectNothingThrown(outcome);
                                 const std::vector<std::size_t> left{0, 0, 1, 1, 1, 2, 2, 2, 2};
                                 EXPECT_EQ(found, left.at(outcome.index - 1));
                             }};
    EXPECT_EQ(walkFaults(walk), 9U);
}

TEST_F(Faults, InReadingAMessageAreThrown) {
    const FaultWalk walk{.name = "read a message",
                         .arrange = arrangeService,
                         .scenario =
                             [] {
                                 wincrypt::HCRYPTMSG message;
                                 *message.put() =
                                     wincrypt::CryptMsgOpenToDecode(capi::X509_AND_PKCS_7, 0, 0, 0, nullptr, nullptr);
                                 std::istringstream in(std::string(5000, 'x'));
                                 tools::read(message.get(), in);
                                 tools::param(message.get(), capi::CMSG_SIGNER_COUNT_PARAM);
                                 tools::certInfo(message.get(), 0);
                                 wincrypt::CryptMsgGetParamEx(message.get(), capi::CMSG_CERT_PARAM, 1);
                                 const wincrypt::HCERTSTORE store(message.get());
                             },
                         .expect =
                             [](const FaultOutcome& outcome) {
                                 if (outcome.function == "CryptMsgOpenToDecode") {
                                     // No message to feed: the next call meets a null handle.
                                     EXPECT_EQ(describe<SystemException>(outcome.thrown).function, "read");
                                 } else if (outcome.function == "CryptMsgUpdate") {
                                     expectSystemFailure(outcome, "tools", "read");
                                 } else if (outcome.call.find("(message1, 5,") != std::string::npos) {
                                     expectSystemFailure(outcome, "tools", "param");
                                 } else if (outcome.call.find("(message1, 7,") != std::string::npos) {
                                     expectSystemFailure(outcome, "tools", "certInfo");
                                 } else if (outcome.function == "CryptMsgGetParam") {
                                     expectSystemFailure(outcome, "wincrypt_handler", "CryptMsgGetParamEx");
                                 } else {
                                     expectNothingThrown(outcome);
                                 }
                             }};
    EXPECT_EQ(walkFaults(walk), 11U);
}

TEST_F(Faults, InExportingAKeyAreThrown) {
    const FaultWalk walk{
        .name = "export a public key",
        .arrange = arrangeService,
        .scenario =
            [] {
                const wincrypt::HCRYPTPROV context(L"box", cryptoProName, gost256, 0, nullptr);
                wincrypt::CryptExportPublicKeyInfoEx(context.get(), capi::AT_SIGNATURE, capi::X509_AND_PKCS_7);
            },
        .expect =
            [](const FaultOutcome& outcome) {
                if (outcome.function == "CryptExportPublicKeyInfo") {
                    expectSystemFailure(outcome, "wincrypt_handler", "CryptExportPublicKeyInfoEx");
                } else if (outcome.function == "CryptAcquireContextW") {
                    EXPECT_EQ(describe<SystemException>(outcome.thrown).function, "CryptExportPublicKeyInfoEx");
                } else {
                    expectNothingThrown(outcome);
                }
            }};
    EXPECT_EQ(walkFaults(walk), 4U);
}

} // namespace
} // namespace wincrypt_binding
