#pragma once

/// Enveloped messages made through the entry points, for recipients whose keys the openssl command has.

#include "support.hpp"
#include "x509/cert_info.hpp"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace klunortredi::test {

/// A key pair (KEY.key) and a self-signed certificate (KEY.pem) in `folder`, made by the openssl command.
struct Recipient {
    std::string name;
    Bytes certificate;
    std::shared_ptr<csp::CertInfo> info;
};
/// `algorithm`: words of `openssl req -newkey`. Throws with the command's output.
Recipient makeRecipient(const TempFolder& folder, const std::string& name, const std::string& algorithm);

struct EnvelopOptions {
    std::string cipher = "2.16.840.1.101.3.4.1.42"; ///< AES-256-CBC
    Bytes parameters;
    bool streamed = true;
    DWORD contentSize = capi::CMSG_INDEFINITE_LENGTH;
    std::size_t chunk = whole;
    const char* contentType = nullptr;
    DWORD flags = 0;
    /// Last changes to what the service is given.
    std::function<void(CMSG_ENVELOPED_ENCODE_INFO&)> spoil;
};

struct Enveloped {
    DWORD error = 0;
    Bytes message;
    std::size_t finalCalls = 0;
};
Enveloped tryEnvelop(const std::vector<Recipient>& recipients, ByteView content, const EnvelopOptions& options = {});

/// The plaintext as the openssl command decrypts it with the recipient's key. Throws with the command's output.
Bytes opensslDecrypt(const TempFolder& folder, const Recipient& recipient, ByteView message);

} // namespace klunortredi::test
