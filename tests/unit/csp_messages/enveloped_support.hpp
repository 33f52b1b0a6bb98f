#pragma once

/// Recipients of enveloped messages, and opening what was sent to them.

#include "openssl_tool.hpp"
#include "signing.hpp"

#include "crypto/content_cipher.hpp"
#include "crypto/key_wrapping.hpp"

#include <optional>

namespace klunortredi::test {

/// A recipient whose private key (PKCS#8, DER or PEM) was made elsewhere: put into a container of its own. The
/// certificate may be empty.
Signer makeRecipient(const Bytes& privateKey, const Bytes& certificate = {});

struct OpenOptions {
    std::size_t chunk = whole;
    bool keyFirst = false; ///< the key comes as soon as the recipients are known
    bool streamed = true;
    std::optional<DWORD> recipient =
        std::nullopt; ///< index; else the one whose issuer and serial number are the certificate's
};

/// What opening came to.
struct Opened {
    DWORD error = 0; ///< of the first call that failed
    Bytes plaintext; ///< what the callback got, also when a call failed
    std::size_t finalCalls = 0;
    friend bool operator==(const Opened&, const Opened&) = default;
};

Opened open(const Signer& recipient, ByteView message, const OpenOptions& options = {});

/// The decrypt control.
DWORD decrypt(const Msg& msg, const Signer& recipient, DWORD index);

/// `openssl cms -encrypt WORDS` of `content` to the certificates; DER.
Bytes opensslEncrypt(const TempFolder& folder, const std::vector<Bytes>& certificates, ByteView content,
                     const std::string& words);

/// A RecipientInfo made here: key transport, or agreement with an ephemeral key.
Bytes transportInfo(const Signer& recipient, csp::TransportForm form, ByteView contentKey, bool byKeyId = false);
Bytes agreementInfo(const std::vector<Signer>& recipients, csp::AgreementForm form, ByteView contentKey);
/// A PasswordRecipientInfo that nobody can use.
Bytes passwordInfo();

/// A message made here, with definite lengths. `attributes`: DER of authenticated attributes as a SET OF.
Bytes craftEnveloped(std::string_view algorithm, ByteView contentKey, ByteView content,
                     const std::vector<Bytes>& recipientInfos, ByteView attributes = {});
/// A content-encryption key for the algorithm.
Bytes contentKeyFor(std::string_view algorithm);

/// Octets that do not repeat soon.
Bytes patternOf(std::size_t size);

} // namespace klunortredi::test
