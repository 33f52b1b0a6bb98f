#pragma once

#include "verify_fixture.hpp"

#include "capi/types.h"
#include "crypto/wincrypt/handles.hpp"
#include "crypto/wincrypt/tools_timestamp.hpp"
#include "service_double/flatten.hpp"

#include <optional>
#include <string>
#include <vector>

namespace wincrypt_signatures {

/// A service whose every message is a signature of "value" under Streebog, and a token of the authority for its hash.
class TimestampFixture : public VerifyFixture {
protected:
    static constexpr const char* streebog = "1.2.643.7.1.1.2.2";
    /// PKIStatus of the scripted response, what it carries, and what the token is for.
    struct Script {
        unsigned status = 0;
        std::string token = "token";
        std::string imprint;
    };
    /// What the encoder was given.
    struct Request {
        unsigned version;
        std::string algorithm;
        unsigned long parameters;
        std::string imprint;
        bool policy;
        std::string nonce;
        int certificate;
        unsigned extensions;
    };

    TimestampFixture() { arrangeTimestamps(); }

    /// Scripts the service from nothing.
    void arrangeTimestamps() {
        arrangeService();
        service().oids[streebog] = {capi::CALG_GR3411_2012_256, L""};
        arrangeMessage();
        service().message.certificates = {der(signerCertificate), der(plainCertificate)};
        service().message.content = "TSTInfo";
        service().message.parameters[{capi::CMSG_ENCRYPTED_DIGEST, 0}] = "value";
        service().message.parameters[{capi::CMSG_ENCRYPTED_DIGEST, 1}] = "another value";
        service().message.parameters[{capi::CMSG_ENCODED_MESSAGE, 0}] = "stamped";
        arrangeAlgorithm();
        arrangeCodecs();
        service().clearCalls();
    }

    /// CMSG_SIGNER_HASH_ALGORITHM_PARAM points into itself, which the script's plain values cannot.
    static void arrangeAlgorithm() {
        service().on.CryptMsgGetParam = [](void* message, DWORD type, DWORD index, void* buffer, DWORD* size) -> BOOL {
            if (type != capi::CMSG_SIGNER_HASH_ALGORITHM_PARAM) {
                return Defaults::CryptMsgGetParam(message, type, index, buffer, size);
            }
            service_double::Flat flat(sizeof(CRYPT_ALGORITHM_IDENTIFIER));
            flat.text(0, std::string(index == 0 ? streebog : "1.2.643.7.1.1.2.3"));
            return giveFlat(flat, buffer, size);
        };
    }

    void arrangeCodecs() {
        service().on.CryptEncodeObject = [this](DWORD encoding, const char* type, const void* value, BYTE* buffer,
                                                DWORD* size) -> BOOL {
            if (buffer == nullptr) {
                encodings_.push_back({encoding, structureName(type)});
            }
            return service_double::give(take(structureName(type), value), buffer, size);
        };
        service().on.CryptDecodeObject = [this](DWORD, const char* type, const BYTE* encoded, DWORD encodedSize, DWORD,
                                                void* buffer, DWORD* size) -> BOOL {
            const std::string octets(reinterpret_cast<const char*>(encoded), encodedSize);
            if (structureName(type) == "79") {
                EXPECT_EQ(octets, "response");
                return giveFlat(response(), buffer, size);
            }
            if (structureName(type) == "80") {
                EXPECT_EQ(octets, "TSTInfo");
                return giveFlat(info(), buffer, size);
            }
            return service_double::fail(capi::ERROR_FILE_NOT_FOUND);
        };
    }

    std::string take(const std::string& type, const void* value) {
        const auto text = [](const CRYPTOAPI_BLOB& blob) {
            return std::string(reinterpret_cast<const char*>(blob.pbData), blob.cbData);
        };
        if (type == "78") {
            const auto& from = *static_cast<const CRYPT_TIMESTAMP_REQUEST*>(value);
            request_ = Request{from.dwVersion,
                               from.HashAlgorithm.pszObjId,
                               from.HashAlgorithm.Parameters.cbData,
                               text(from.HashedMessage),
                               from.pszTSAPolicyId != nullptr,
                               text(from.Nonce),
                               from.fCertReq,
                               from.cExtension};
            return "request";
        }
        EXPECT_EQ(type, "22");
        const auto& attribute = *static_cast<const CRYPT_ATTRIBUTE*>(value);
        EXPECT_STREQ(attribute.pszObjId, "1.2.840.113549.1.9.16.2.14");
        EXPECT_EQ(attribute.cValue, 1U);
        return "attribute of " + text(*attribute.rgValue);
    }

    [[nodiscard]] service_double::Flat response() const {
        service_double::Flat flat(sizeof(CRYPT_TIMESTAMP_RESPONSE));
        flat.set(offsetof(CRYPT_TIMESTAMP_RESPONSE, dwStatus), script_.status);
        if (!script_.token.empty()) {
            flat.blob(offsetof(CRYPT_TIMESTAMP_RESPONSE, ContentInfo), script_.token);
        }
        return flat;
    }
    [[nodiscard]] service_double::Flat info() const {
        service_double::Flat flat(sizeof(CRYPT_TIMESTAMP_INFO));
        flat.set(offsetof(CRYPT_TIMESTAMP_INFO, ftTime), FILETIME{0xD53E8000, 0x019DB1DE}); // 1970-01-01
        flat.blob(offsetof(CRYPT_TIMESTAMP_INFO, HashedMessage), script_.imprint);
        return flat;
    }

    Script script_;
    std::optional<Request> request_;
};

} // namespace wincrypt_signatures
