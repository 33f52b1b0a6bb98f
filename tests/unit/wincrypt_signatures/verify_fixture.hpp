#pragma once

#include "signatures_fixture.hpp"

#include "crypto/wincrypt/tools_verify.hpp"
#include "orvik/plugin/data_handler.hpp"

#include <functional>
#include <sstream>
#include <string>
#include <vector>

namespace wincrypt_signatures {

/// A message that carries two certificates, the second one its signer's.
class VerifyFixture : public SignaturesFixture {
protected:
    VerifyFixture() { arrangeMessage(); }

    static void arrangeMessage() {
        service().message.certificates = {der(plainCertificate), der(signerCertificate)};
        service().message.signers = {der(signerCertificate)};
    }

    static bool verify(const std::string& signature = "signature",
                       const orvik::plugin::wincrypt::tools::VerifyHooks& hooks = {}) {
        std::istringstream in(signature);
        return orvik::plugin::wincrypt::tools::verify(in, boost::none, hooks);
    }
    static bool verifyDetached(const std::string& content, const std::string& signature = "signature",
                               const orvik::plugin::wincrypt::tools::VerifyHooks& hooks = {}) {
        std::istringstream in(signature);
        std::istringstream data(content);
        return orvik::plugin::wincrypt::tools::verify(in, boost::optional<std::istream&>(data), hooks);
    }

    static bool update(orvik::plugin::IDataHandler& validator, const std::string& data) {
        return validator.update(reinterpret_cast<const unsigned char*>(data.data()), data.size());
    }
    static bool finalize(orvik::plugin::IDataHandler& validator) {
        std::vector<unsigned char> out(3);
        const bool verdict = validator.finalize(out);
        EXPECT_TRUE(out.empty()) << "a validator gives no data";
        return verdict;
    }
};

} // namespace wincrypt_signatures
