#pragma once

#include "signatures_fixture.hpp"

#include "crypto/wincrypt/encrypt_data_handler.hpp"
#include "orvik/plugin/crypto/i_private_key.hpp"
#include "service_double/fault_walk.hpp"

#include <string>
#include <vector>

namespace wincrypt_signatures {

using orvik::plugin::IDataHandler;
using orvik::plugin::crypto::AuthProvider;
using orvik::plugin::wincrypt::DecryptDataHandler;
using service_double::FaultOutcome;

/// What an output holds before an operation that must leave it alone.
inline const std::string former = "former";

/// A service that takes every message for "the plaintext" to three recipients, of which the last two are the signer.
class DecryptHandlerTest : public SignaturesFixture {
protected:
    DecryptHandlerTest() { arrangeMessage(); }

    static void arrangeMessage() {
        service().message.content = "the plaintext";
        service().message.recipients = {der(enciphermentCertificate), der(signerCertificate), der(signerCertificate)};
        service().clearCalls();
    }
    static DecryptDataHandler::Params params(const boost::shared_ptr<Certificate>& recipient) {
        DecryptDataHandler::Params made;
        made.certificate = recipient;
        return made;
    }
    static bool update(IDataHandler& handler, const std::string& data) {
        return handler.update(reinterpret_cast<const unsigned char*>(data.data()), data.size());
    }
    static std::string finalize(IDataHandler& handler) {
        std::vector<unsigned char> out(former.begin(), former.end());
        EXPECT_TRUE(handler.finalize(out));
        return {out.begin(), out.end()};
    }
    /// A handler that has taken a message.
    static void open(DecryptDataHandler& handler, const boost::shared_ptr<Certificate>& recipient = linked()) {
        EXPECT_TRUE(handler.initialize(params(recipient)));
        EXPECT_TRUE(update(handler, "message"));
    }
    static void answerPinWith(const boost::optional<std::string>& pin) {
        AuthProvider::setDialog([=](const auto&, unsigned) { return pin; });
    }
    static std::vector<std::string> messageCalls() {
        std::vector<std::string> names;
        for (const auto& name : functions()) {
            if (name.starts_with("CryptMsg")) {
                names.push_back(name);
            }
        }
        return names;
    }
    static std::vector<std::string> updates() {
        std::vector<std::string> result;
        for (const auto& call : service().trace()) {
            if (call.starts_with("CryptMsgUpdate")) {
                result.push_back(call.substr(call.find("pointer") + 9));
            }
        }
        return result;
    }
    static constexpr Thrown validation(int number) {
        return {number, "encrypt_data_handler", "validateCertificate", 0};
    }
    static constexpr Thrown finalization(int number) { return {number, "encrypt_data_handler", "finalizeImpl", 0}; }
    static constexpr Thrown updating(int number) {
        return {number, "encrypt_data_handler", "validateCryptMsgUpdate", 0};
    }
    /// Texts of the warnings and errors logged, without what the key says of its PIN.
    [[nodiscard]] std::vector<std::string> warnings() const {
        std::vector<std::string> texts;
        for (const auto& record : log()) {
            const bool ofTheKey = record.text.starts_with("wincrypt: authorization error.");
            if (record.severity >= Severity::warning && !ofTheKey) {
                texts.push_back((record.severity == Severity::warning ? "warning " : "error ") + record.text);
            }
        }
        return texts;
    }
};

} // namespace wincrypt_signatures
