#pragma once

/// Signers with keys of the service, and messages that they sign through the entry points.

#include "support.hpp"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace klunortredi::test {

enum class KeyKind : std::uint8_t { Gost256, Gost512, Gost2001, Rsa };

/// The service's data goes to a folder of this process from now on.
void useOwnHome();

/// A key pair in a provider context of its own, and its certificate (issued by a throw-away authority, with a subject
/// key identifier).
struct Signer {
    unsigned long provider = 0;
    DWORD keySpec = capi::AT_KEYEXCHANGE;
    Bytes certificate;
    std::string digest; ///< OID of the hash that its key signs by default
};
Signer makeSigner(KeyKind kind);
/// The same, in a container whose PIN was not presented.
Signer makeLockedSigner(KeyKind kind);

/// Another certificate of the signer's key, by the same authority, with that serial number.
Bytes certificateFor(const Signer& signer, long serial);
/// Serial number of a certificate.
long serialOf(const Bytes& certificate);

struct SignedAttributeValue {
    std::string oid;
    Bytes value;
};

/// A signing time and a private attribute.
std::vector<SignedAttributeValue> someAttributes();

struct SignOptions {
    bool detached = false;
    bool streamed = true;
    DWORD contentSize = capi::CMSG_INDEFINITE_LENGTH;
    std::size_t chunk = whole;
    std::vector<SignedAttributeValue> attributes;
    std::vector<SignedAttributeValue> unsignedAttributes;
    std::vector<Bytes> crls;
    const char* contentType = nullptr;
    bool withCertificates = true;
    /// Last changes to what the service is given.
    std::function<void(CMSG_SIGNED_ENCODE_INFO&, CMSG_SIGNER_ENCODE_INFO&)> spoil;
};

/// What signing came to.
struct Signed {
    DWORD error = 0;
    Bytes message;
    std::size_t finalCalls = 0;
};

Signed trySign(const std::vector<Signer>& signers, ByteView content, const SignOptions& options = {});
Signed trySign(const std::vector<Signer>& signers, ByteView content, const SignOptions& options, Collected& collected);
/// Opens a message that goes to `stream`, and lets `feed` give it its content.
bool signInto(const Signer& signer, CMSG_STREAM_INFO stream, bool detached,
              const std::function<bool(const Msg&)>& feed);
/// As `trySign`; throws when it fails.
Bytes sign(const std::vector<Signer>& signers, ByteView content, const SignOptions& options = {});

} // namespace klunortredi::test
