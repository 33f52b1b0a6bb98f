#pragma once

#include "unit/wincrypt_certificates/certificates_fixture.hpp"

#include "orvik/plugin/crypto/auth_provider.hpp"

#include <string>

namespace wincrypt_signatures {

using namespace wincrypt_certificates;

/// What the encoder was asked for.
struct Encoding {
    DWORD encodingType;
    std::string structure; ///< number or OID
    friend bool operator==(const Encoding&, const Encoding&) = default;
    friend std::ostream& operator<<(std::ostream& out, const Encoding& encoding) {
        return out << encoding.encodingType << " " << encoding.structure;
    }
};

inline std::string structureName(const char* type) {
    constexpr std::uintptr_t widestNumber = 0xFFFF;
    const auto number = reinterpret_cast<std::uintptr_t>(type);
    return number <= widestNumber ? std::to_string(number) : std::string(type);
}

class SignaturesFixture : public CertificatesFixture {
protected:
    SignaturesFixture() {
        arrangeEncoder();
        orvik::plugin::crypto::AuthProvider::setDialog(
            [](const auto&, unsigned) { return boost::optional<std::string>("1234"); });
    }
    ~SignaturesFixture() override { orvik::plugin::crypto::AuthProvider::setDialog({}); }

    void arrangeEncoder() {
        service().oids["1.2.643.7.1.1.2.2"] = {capi::CALG_GR3411_2012_256, L""};
        service().on.CryptEncodeObject = [this](DWORD encoding, const char* type, const void* value, BYTE* buffer,
                                                DWORD* size) { return encode(encoding, type, value, buffer, size); };
    }

    /// Structures that the double's own encoder does not know come out as an empty SEQUENCE.
    BOOL encode(DWORD encoding, const char* type, const void* value, BYTE* buffer, DWORD* size) {
        if (buffer == nullptr) {
            encodings_.push_back({encoding, structureName(type)});
        }
        const auto name = structureName(type);
        return name == "6" || name == "27" || name == "34"
                   ? Defaults::CryptEncodeObject(encoding, type, value, buffer, size)
                   : service_double::give(std::string("\x30\x00", 2), buffer, size);
    }

    std::vector<Encoding> encodings_;
};

} // namespace wincrypt_signatures
