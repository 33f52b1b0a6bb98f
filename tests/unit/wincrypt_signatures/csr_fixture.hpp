#pragma once

#include "signatures_fixture.hpp"

#include "crypto/wincrypt/csr_creator.hpp"

#include <boost/smart_ptr/make_shared.hpp>

#include <string>
#include <vector>

namespace wincrypt_signatures {

using orvik::plugin::crypto::CsrCreatorParams;
using orvik::plugin::wincrypt::CsrCreator;

/// A request for a new container "new" of the double's provider.
class CsrFixture : public SignaturesFixture {
protected:
    CsrFixture() {
        arrangeParameters();
        params_->provider =
            boost::make_shared<orvik::plugin::wincrypt::Provider>(IProvider::gost2012_256, wincrypt_keys::embeddedName);
        params_->container = L"new";
        params_->subject = "2.5.4.3=Иванов;2.5.4.6=RU;1.2.840.113549.1.9.1=i@example.org;1.2.643.100.3=12345678901;"
                           "1.2.643.3.131.1.1=123456789012;1.2.643.100.1=1234567890123;1.2.643.100.4=123456789012345";
    }
    void arrangeParameters() {
        // The double has no value to set here; what is set is kept for the test to look at.
        service().on.CryptSetProvParam = [this](unsigned long, DWORD parameter, const BYTE* data, DWORD flags) {
            set_.push_back(std::to_string(parameter) + "/" + std::to_string(flags) + "/" +
                           reinterpret_cast<const char*>(data));
            return 1;
        };
    }
    /// Every extension that a request can have.
    void askForEverything() {
        params_->keyUsage = 0x80C0;
        params_->certificatePolicies = {"1.2.643.100.113.1"};
        params_->enhancedKeyUsage = {"1.3.6.1.5.5.7.3.4"};
        params_->dnsNames = {"example.org"};
        params_->emailNames = {"i@example.org"};
        params_->userPrincipalName = "i@domain";
        params_->subjectSignTool = "tool";
        params_->identificationKind = 1;
        params_->privateKeyDays = 365;
    }
    boost::shared_ptr<CsrCreator::Result> create(const std::string& pin = "1234") {
        return CsrCreator().create(params_, pin);
    }
    void target(IProvider::Type type, const wchar_t* name) {
        install(wincrypt_keys::scripted(name, type));
        params_->provider = boost::make_shared<orvik::plugin::wincrypt::Provider>(type, name);
    }
    static Thrown at(const char* function, int number) { return {number, "csr_creator", function, 0}; }
    static std::vector<std::wstring> containers() {
        std::vector<std::wstring> names;
        for (const auto& container : installed().containers) {
            names.push_back(container.name);
        }
        return names;
    }

    /// The calls about named containers, in order: what is acquired with which flags, and the release of a context.
    static std::vector<std::string> contextCalls() {
        std::vector<std::string> calls;
        const std::string opening = "CryptAcquireContextW(&, \"";
        for (const std::string& text : service().trace()) {
            if (text.starts_with(opening)) {
                const auto name = text.substr(opening.size(), text.find('"', opening.size()) - opening.size());
                const auto flags = text.substr(text.rfind(' ') + 1);
                calls.push_back("acquire " + name + ' ' + flags.substr(0, flags.size() - 1));
            } else if (text == "CryptReleaseContext(context1, 0)") {
                calls.emplace_back("release");
            }
        }
        return calls;
    }

    boost::shared_ptr<CsrCreatorParams> params_ = boost::make_shared<CsrCreatorParams>();
    std::vector<std::string> set_;
};

} // namespace wincrypt_signatures
