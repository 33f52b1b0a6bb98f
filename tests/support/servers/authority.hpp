#pragma once

/// A certification authority, a time-stamp authority and their servers, in three lines:
///
///     test_servers::Authority authority(test_servers::KeyKind::gost2012_256); // or ec, rsa, gost2012_512
///     folder.write("root.pem", authority.rootPem());
///     run({"klunortredi", "timestamp", ..., "--url", authority.url("/tsa?other-nonce")});
///
/// Certificates: a root, which is not served; an issuing authority under it; a time-stamp authority and an OCSP
/// responder; certificates that issue() makes under the issuing authority, with the URLs of its CRL, OCSP and
/// certificate in them.
///
/// Paths: /tsa (RFC 3161), /crl (of the issuing authority), /root.crl, /ocsp (POST and GET), /ca.cer (DER), /ca.p7c.
/// Words after the question mark, joined by &, make a server misbehave. The tables in tsa.cpp, revocation.cpp and
/// authority.cpp are the list of words:
///
///     every path  html 404 500 empty slow drip cut loop to-file to-private huge endless wrong-type garbage trailing
///     /tsa        other-nonce no-nonce other-imprint other-imprint-algorithm rejected rejected-with-token no-token
///                 no-certificate expired missing-usage usage-not-critical more-usages other-key other-certificate-id
///                 no-certificate-id untrusted past future hour-ahead hour-ago
///     /ocsp       revoked unknown expired future other-certificate unauthorised no-responder damaged try-later
///                 malformed internal-error no-next-update
///     /crl        revoked expired future other-issuer damaged pem
///     /ca.cer     other pem      /ca.p7c: other
///
/// Keys are made when they are first needed. RSA keys take some tenths of a second each; ec is the quickest kind.

#include "support/servers/http_server.hpp"
#include "support/servers/pki.hpp"

#include <map>
#include <mutex>
#include <set>
#include <string>

namespace test_servers {

/// The words of a request's query.
using Words = std::set<std::string>;

class Authority {
public:
    explicit Authority(KeyKind kind = KeyKind::ec);

    /// "http://127.0.0.1:PORT/tsa" and the like.
    [[nodiscard]] std::string url(const std::string& path) const { return server_.url(path); }
    [[nodiscard]] const HttpServer& server() const { return server_; }

    [[nodiscard]] std::string rootPem() { return toPem(root().certificate); }
    [[nodiscard]] std::string issuerPem() { return toPem(issuer().certificate); }
    /// The certificate that signs tokens without misbehaving.
    [[nodiscard]] std::string timestampPem() { return toPem(timestamping({}).certificate); }
    /// DER CRL as /crl serves it with these words.
    [[nodiscard]] std::string crl(const Words& words = {});
    /// DER CRL of the root.
    [[nodiscard]] std::string rootCrl();

    /// A new certificate under the issuing authority, for `key` or a new key, with the URLs /crl, /ocsp and /ca.cer
    /// followed by `?words` of each.
    struct Draft {
        std::string name = "Signer";
        Key key{};
        std::string crlWords{};    ///< "" or "?expired"; "-": no URL
        std::string ocspWords{};   ///< the same
        std::string issuerWords{}; ///< the same
    };
    Identity issue(const Draft& draft);
    Identity issue() { return issue(Draft{}); }
    /// The certificate is revoked from now on, in the CRL and by OCSP.
    void revoke(const Certificate& certificate);

    // What the handlers use.
    const Identity& root();
    const Identity& issuer();
    /// Signs OCSP answers: delegated by the issuing authority, or, with "unauthorised", by a stranger.
    const Identity& responder(const Words& words);
    /// Signs tokens; "expired", "missing-usage" and the like choose the certificate.
    const Identity& timestamping(const Words& words);
    /// Another authority of no importance.
    const Identity& stranger();
    [[nodiscard]] KeyKind kind() const { return kind_; }
    [[nodiscard]] std::set<long> revoked() const;
    long nextSerial();

private:
    Reply answer(const Request& request);
    const Identity& made(const std::string& name, const std::function<Identity()>& make);

    KeyKind kind_;
    mutable std::recursive_mutex mutex_;
    std::map<std::string, Identity> identities_;
    std::set<long> revoked_;
    long serial_ = 100;
    HttpServer server_; // last: its thread uses the rest
};

/// Handlers of the paths.
std::string timestampAnswer(Authority& authority, const std::string& request, const Words& words);
std::string ocspAnswer(Authority& authority, const std::string& request, const Words& words);
std::string crlAnswer(Authority& authority, const Identity& issuer, const Words& words);

/// The CMS token of a TSTInfo (DER or anything else), signed by the time-stamp authority of these words.
std::string signedToken(Authority& authority, const std::string& info, const Words& words);
/// TimeStampResp that grants a request with this token.
std::string grantedResponse(const std::string& token);

} // namespace test_servers
