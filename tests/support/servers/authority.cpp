#include "support/servers/authority.hpp"

#include <openssl/x509v3.h>

#include <array>
#include <cstdio>
#include <utility>

namespace test_servers {

namespace {

using namespace std::chrono_literals;

constexpr const char* caUsage = "critical,keyCertSign,cRLSign";
constexpr std::size_t hugeChunk = 65536;

struct Misbehaviour {
    const char* word;
    void (*apply)(Reply&);
};
/// Of every path.
constexpr std::array misbehaviours{
    Misbehaviour{"html",
                 [](Reply& r) {
                     r = {"text/html", "<html><body>Please log in</body></html>"};
                 }},
    Misbehaviour{"404",
                 [](Reply& r) {
                     r = {"text/html", "<html>Not here</html>", "404 Not Found"};
                 }},
    Misbehaviour{"500",
                 [](Reply& r) {
                     r = {"text/plain", "out of order", "500 Internal Server Error"};
                 }},
    Misbehaviour{"empty", [](Reply& r) { r.body.clear(); }},
    Misbehaviour{"slow", [](Reply& r) { r.delay = 3600s; }},
    Misbehaviour{"drip", [](Reply& r) { r.pause = 200ms; }},
    Misbehaviour{"cut", [](Reply& r) { r.cutAfter = r.body.size() / 2; }},
    Misbehaviour{"to-file", [](Reply& r) { r = redirect("file:///etc/passwd"); }},
    Misbehaviour{"to-private", [](Reply& r) { r = redirect("http://10.255.255.1/latest/meta-data/"); }},
    Misbehaviour{"huge", [](Reply& r) { r.claimedLength = "1099511627776"; }},
    Misbehaviour{"endless",
                 [](Reply& r) {
                     r.body.append(hugeChunk, '\0');
                     r.endless = true;
                 }},
    Misbehaviour{"wrong-type", [](Reply& r) { r.type = "text/plain"; }},
    Misbehaviour{"garbage", [](Reply& r) { r.body.assign(r.body.size(), '\x5A'); }},
    Misbehaviour{"trailing", [](Reply& r) { r.body += "more"; }},
};

Words wordsOf(const std::string& target) {
    Words words;
    const auto query = target.find('?');
    for (auto begin = query; begin != std::string::npos;) {
        const auto end = target.find('&', begin + 1);
        words.insert(target.substr(begin + 1, end == std::string::npos ? end : end - begin - 1));
        begin = end;
    }
    return words;
}

/// The request of an OCSP GET: base64 in the path, with three characters escaped (RFC 6960, A.1).
std::string decodedPath(const std::string& path) {
    std::string text;
    for (std::size_t i = 0; i < path.size(); ++i) {
        unsigned value = 0;
        if (path[i] == '%' && i + 2 < path.size() && std::sscanf(path.substr(i + 1, 2).c_str(), "%2x", &value) == 1) {
            text += static_cast<char>(value);
            i += 2;
        } else {
            text += path[i];
        }
    }
    std::string octets(text.size(), '\0');
    const int size =
        EVP_DecodeBlock(reinterpret_cast<unsigned char*>(octets.data()),
                        reinterpret_cast<const unsigned char*>(text.data()), static_cast<int>(text.size()));
    octets.resize(size < 0 ? 0 : static_cast<std::size_t>(size)); // zero octets at the end do not matter
    return octets;
}

/// The certificate of the time-stamp authority that the words ask for.
CertificateDraft timestampDraft(const Words& words) {
    CertificateDraft draft{"Time-stamp authority", 10};
    std::string usage = "critical,timeStamping";
    if (words.contains("missing-usage")) {
        usage = "critical,emailProtection";
    } else if (words.contains("usage-not-critical")) {
        usage = "timeStamping";
    } else if (words.contains("more-usages")) {
        usage = "critical,timeStamping,emailProtection";
    }
    draft.extensions = {{NID_key_usage, "critical,digitalSignature"}, {NID_ext_key_usage, usage}};
    if (words.contains("expired")) {
        draft.firstDay = -100;
        draft.lastDay = -10;
    }
    return draft;
}

} // namespace

Authority::Authority(KeyKind kind) : kind_(kind), server_([this](const Request& request) { return answer(request); }) {}

const Identity& Authority::made(const std::string& name, const std::function<Identity()>& make) {
    const std::lock_guard lock(mutex_);
    const auto found = identities_.find(name);
    return found != identities_.end() ? found->second : identities_.emplace(name, make()).first->second;
}

const Identity& Authority::root() {
    return made("root", [&] {
        const Key key = makeKey(kind_);
        const CertificateDraft draft{
            "Test root", 1, -4000, 4000, {{NID_basic_constraints, "critical,CA:TRUE"}, {NID_key_usage, caUsage}}};
        return Identity{makeCertificate(draft, key, nullptr, kind_), key};
    });
}

const Identity& Authority::issuer() {
    return made("issuer", [&] {
        const Key key = makeKey(kind_);
        const CertificateDraft draft{"Test issuer",
                                     2,
                                     -4000,
                                     4000,
                                     {{NID_basic_constraints, "critical,CA:TRUE"},
                                      {NID_key_usage, caUsage},
                                      {NID_crl_distribution_points, "URI:" + url("/root.crl")}}};
        return Identity{makeCertificate(draft, key, &root(), kind_), key};
    });
}

const Identity& Authority::stranger() {
    return made("stranger", [&] {
        const Key key = makeKey(kind_);
        const CertificateDraft draft{
            "Stranger", 1, -4000, 4000, {{NID_basic_constraints, "critical,CA:TRUE"}, {NID_key_usage, caUsage}}};
        return Identity{makeCertificate(draft, key, nullptr, kind_), key};
    });
}

const Identity& Authority::responder(const Words& words) {
    const bool unauthorised = words.contains("unauthorised");
    return made(unauthorised ? "unauthorised" : "responder", [&] {
        const Key key = makeKey(kind_);
        const CertificateDraft draft{"OCSP responder",
                                     11,
                                     -1,
                                     365,
                                     {{NID_key_usage, "critical,digitalSignature"},
                                      {NID_ext_key_usage, unauthorised ? "emailProtection" : "OCSPSigning"},
                                      {NID_id_pkix_OCSP_noCheck, "NULL"}}};
        return Identity{makeCertificate(draft, key, &issuer(), kind_), key};
    });
}

const Identity& Authority::timestamping(const Words& words) {
    std::string name = "timestamping";
    for (const char* word : {"missing-usage", "usage-not-critical", "more-usages", "expired", "untrusted"}) {
        name += words.contains(word) ? std::string(" ") + word : "";
    }
    return made(name, [&] {
        const Key key = makeKey(kind_);
        CertificateDraft draft = timestampDraft(words);
        draft.extensions.emplace_back(NID_crl_distribution_points, "URI:" + url("/root.crl"));
        const Identity* const by = words.contains("untrusted") ? &stranger() : &root();
        return Identity{makeCertificate(draft, key, by, kind_), key};
    });
}

Identity Authority::issue(const Draft& wanted) {
    const std::lock_guard lock(mutex_);
    const Key key = wanted.key ? wanted.key : makeKey(kind_);
    CertificateDraft draft{wanted.name, nextSerial()};
    draft.extensions = {{NID_basic_constraints, "critical,CA:FALSE"},
                        {NID_key_usage, "critical,digitalSignature,nonRepudiation"},
                        {NID_ext_key_usage, "emailProtection"}};
    if (wanted.crlWords != "-") {
        draft.extensions.emplace_back(NID_crl_distribution_points, "URI:" + url("/crl" + wanted.crlWords));
    }
    std::string access;
    if (wanted.ocspWords != "-") {
        access = "OCSP;URI:" + url("/ocsp" + wanted.ocspWords);
    }
    if (wanted.issuerWords != "-") {
        access += (access.empty() ? "" : ",") + ("caIssuers;URI:" + url("/ca.cer" + wanted.issuerWords));
    }
    if (!access.empty()) {
        draft.extensions.emplace_back(NID_info_access, access);
    }
    return {makeCertificate(draft, key, &issuer(), kind_), key};
}

void Authority::revoke(const Certificate& certificate) {
    const std::lock_guard lock(mutex_);
    revoked_.insert(ASN1_INTEGER_get(X509_get_serialNumber(certificate.get())));
}

std::set<long> Authority::revoked() const {
    const std::lock_guard lock(mutex_);
    return revoked_;
}

long Authority::nextSerial() {
    const std::lock_guard lock(mutex_);
    return serial_++;
}

std::string Authority::crl(const Words& words) {
    return crlAnswer(*this, issuer(), words);
}

std::string Authority::rootCrl() {
    return crlAnswer(*this, root(), {});
}

Reply Authority::answer(const Request& request) {
    const std::lock_guard lock(mutex_); // OpenSSL's GOST engine has a state of its own
    const std::string path = request.target.substr(0, request.target.find('?'));
    const Words words = wordsOf(request.target);
    Reply reply;
    if (path == "/tsa") {
        reply = {"application/timestamp-reply", timestampAnswer(*this, request.body, words)};
    } else if (path == "/crl" || path == "/root.crl") {
        reply = {"application/pkix-crl", crlAnswer(*this, path == "/crl" ? issuer() : root(), words)};
    } else if (path == "/ocsp" || path.starts_with("/ocsp/")) {
        const std::string question =
            request.method == "GET" && path.size() > 6 ? decodedPath(path.substr(6)) : request.body;
        reply = {"application/ocsp-response", ocspAnswer(*this, question, words)};
    } else if (path == "/ca.cer") {
        const auto& served = words.contains("other") ? stranger() : issuer();
        reply = {"application/pkix-cert",
                 words.contains("pem") ? toPem(served.certificate) : toDer(served.certificate)};
    } else if (path == "/ca.p7c") {
        reply = {"application/pkcs7-mime",
                 certificatesOnly(words.contains("other") ? std::vector{stranger().certificate}
                                                          : std::vector{issuer().certificate, root().certificate})};
    } else {
        reply = {"text/plain", "no such path", "404 Not Found"};
    }
    for (const auto& row : misbehaviours) {
        if (words.contains(row.word)) {
            row.apply(reply);
        }
    }
    return words.contains("loop") ? redirect(request.target) : reply;
}

} // namespace test_servers
