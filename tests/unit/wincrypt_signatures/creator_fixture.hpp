#pragma once

#include "signatures_fixture.hpp"

#include "crypto/wincrypt/signature_creator.hpp"

namespace wincrypt_signatures {

using orvik::plugin::IDataHandler;
namespace binary = orvik::plugin::wincrypt::binary;
using Params = orvik::plugin::crypto::SignatureFactory::Creator::Params;

/// A creator of the plug-in over the double, and what it is fed.
class CreatorFixture : public SignaturesFixture {
protected:
    static Params params(const boost::shared_ptr<Certificate>& signer) {
        Params made;
        made.certificate = signer;
        return made;
    }
    static bool update(IDataHandler& creator, const std::string& data) {
        return creator.update(reinterpret_cast<const unsigned char*>(data.data()), data.size());
    }
    static std::string finalize(IDataHandler& creator) {
        std::vector<unsigned char> out(3);
        EXPECT_TRUE(creator.finalize(out));
        return {out.begin(), out.end()};
    }
    /// Sizes and final flags of the updates that the service saw.
    static std::vector<std::string> updates() {
        std::vector<std::string> result;
        for (const auto& call : service().trace()) {
            if (call.starts_with("CryptMsgUpdate")) {
                result.push_back(call.substr(call.find("pointer") + 9));
            }
        }
        return result;
    }
    static constexpr Thrown validation(int number) { return {number, "signature_creator", "validateCertificate", 0}; }
    static constexpr Thrown finalization(int number) { return {number, "signature_creator", "finalizeImpl", 0}; }
};

} // namespace wincrypt_signatures
