#pragma once

/// One CMS message being signed: its content goes in, the message comes out.

#include "certificates.hpp"
#include "orvik/plugin/crypto/format/signature_request.hpp"
#include "orvik/plugin/data_handler.hpp"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace klunortredi::cli {

class Input;
struct Session;
struct SignerArguments;

/// Who signs, and what the signature says besides the content.
struct SignerChoice {
    CertificatePtr certificate; ///< linked to its key
    std::vector<orvik::plugin::crypto::format::SignatureRequest::Attribute> attributes;
    std::vector<std::string> issuers; ///< DER of certificates that the message also carries
    bool byKeyIdentifier = false;     ///< named by the certificate's subject key identifier
    bool pss = false;                 ///< RSASSA-PSS
};

/// The signer that the command line names, from store my. A certificate that has expired or is not valid yet is
/// remarked on standard error; with --strict it is refused. Throws Failure. A PIN that is refused later is reported
/// with the tries that its container has left.
SignerChoice chooseSigner(const Session& session, const SignerArguments& arguments);

/// Feeds all that `input` holds to a handler, with a progress bar that is gone when this returns. Throws Failure (exit
/// 3, `what` begins its text) when it cannot be read, and when a file has grown or shrunk since it was opened.
void feed(const Session& session, Input& input, orvik::plugin::IDataHandler& handler, const std::string& what);

/// Memory stays flat: content and message pass through in pieces.
class MessageSigning {
public:
    using Output = std::function<void(std::string_view octets)>;

    /// `creator` is a CMS creator of the library; `what` begins the text of a failure ("cannot sign x").
    MessageSigning(Session& session, const SignerChoice& signer, std::unique_ptr<orvik::plugin::IDataHandler> creator,
                   std::string what);

    /// Checks the signer and asks for the PIN, before anything is read: nobody waits for a large file and mistypes the
    /// PIN then. `output` gets the message. `contentSize`: octets of the content, 0 when they are not known. Throws
    /// Failure when the PIN is refused, and what the creator throws.
    void open(Output output, std::uint64_t contentSize);
    /// The next octets of the content.
    void take(std::string_view octets);
    /// All that `input` holds; throws as feed() does.
    void take(Input& input);
    /// Signs; the output has the whole message then.
    void finish();

private:
    void authorize() const;

    Session& session_;
    const SignerChoice& signer_;
    std::unique_ptr<orvik::plugin::IDataHandler> creator_;
    std::string what_;
    Output output_;
};

} // namespace klunortredi::cli
