#include "fault_fixture.hpp"

#include "crypto/wincrypt/exceptions.hpp"
#include "orvik/plugin/crypto/auth_provider.hpp"
#include "orvik/plugin/crypto/exception/crypto_exception.hpp"
#include "orvik/plugin/exception/application_exception.hpp"
#include "orvik/plugin/session.hpp"

#include <sstream>

namespace wincrypt_keys {

using orvik::plugin::crypto::AuthProvider;
using orvik::plugin::crypto::exception::CryptoException;
using orvik::plugin::crypto::exception::SystemException;
using orvik::plugin::exception::ApplicationException;

namespace {

std::string place(const orvik::plugin::exception::Exception& e) {
    const Thrown thrown = describe(e);
    return std::to_string(thrown.code) + " at " + thrown.file + ", " + thrown.function;
}

} // namespace

std::string ending(const FaultOutcome& outcome) {
    if (!outcome.thrown) {
        return {};
    }
    std::ostringstream text;
    try {
        std::rethrow_exception(outcome.thrown);
    } catch (const SystemException& e) {
        text << "SystemException " << place(e);
    } catch (const CryptoException& e) {
        text << "CryptoException " << place(e);
    } catch (const ApplicationException& e) {
        text << "ApplicationException " << place(e);
    } catch (const std::exception& e) {
        text << "unexpected: " << e.what();
    }
    return text.str();
}

std::string system(DWORD code, const std::string& place) {
    return "SystemException " + std::to_string(static_cast<int>(code)) + " at " + place;
}

std::size_t stepsSince(const std::string& function, const FaultOutcome& outcome) {
    const auto calls = service().calls();
    for (std::size_t steps = 0; steps < outcome.index; ++steps) {
        if (calls.at(outcome.index - 1 - steps).function == function) {
            return steps;
        }
    }
    return std::string::npos;
}

FaultWalkTest::FaultWalkTest() {
    arrange();
    // Found once per process: a run in which that fails would take the providers from the runs after it.
    EXPECT_EQ(provider().providers(orvik::plugin::Session::instance()).size(), 1U);
    AuthProvider::setDialog([](const auto&, unsigned) { return std::string("1234"); });
}

FaultWalkTest::~FaultWalkTest() {
    AuthProvider::setDialog({});
}

void FaultWalkTest::arrange() {
    install(scripted(embeddedName));
    offerKeyAlgorithm();
    service().oids[streebog] = {0x8021, L""};
    for (const wchar_t* name : {L"/keys/box", L"/other/box"}) {
        auto container = containerNamed(name);
        container.certificate = der(gostCertificate);
        container.pin = "1234";
        installed().containers.push_back(container);
    }
}

void FaultWalkTest::arrangeSharedContexts() {
    arrange();
    service().callerFrees = false;
}

FaultWalkTest::Endings FaultWalkTest::keyEndings() {
    return {
        {"CertCreateCertificateContext", system(faultCode, "certificate, Certificate")},
        {"CertSetCertificateContextProperty", system(0x8009200B, "private_key, createContext")}, // not linked
        {"CryptContextAddRef", system(faultCode, "private_key, createContext")},
    };
}

std::string FaultWalkTest::endingIn(const Endings& endings, const FaultOutcome& outcome) {
    const auto found = endings.find(outcome.function);
    return found == endings.end() ? "" : found->second;
}

boost::shared_ptr<Certificate> FaultWalkTest::linkedCertificate() {
    auto certificate = boost::make_shared<Certificate>(der(gostCertificate));
    static_cast<void>(certificate->link(provider(), std::wstring(L"/keys/box")));
    return certificate;
}

std::size_t FaultWalkTest::walk(const char* name, const std::function<void()>& scenario, const Endings& endings,
                                const Arrangement& arrangement, DWORD code) {
    return walkFaults({name, arrangement, scenario,
                       [&](const FaultOutcome& outcome) { EXPECT_EQ(ending(outcome), endingIn(endings, outcome)); },
                       code});
}

} // namespace wincrypt_keys
