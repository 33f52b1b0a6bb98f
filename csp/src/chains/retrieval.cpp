#include "chains/retrieval.hpp"

#include "chains/element_signature.hpp"
#include "core/error.hpp"
#include "core/hex.hpp"
#include "core/warning.hpp"
#include "net/cache.hpp"
#include "net/fetch.hpp"
#include "x509/crl.hpp"
#include "x509/x509_der.hpp"

#include <openssl/pem.h>

#include <algorithm>

namespace klunortredi::csp {

namespace {

using net::ErrorKind;
using net::HttpRequest;
using net::NetworkError;

/// Largest answers, by what they are.
constexpr std::size_t largestList = std::size_t{16} << 20U;
constexpr std::size_t largestCertificates = std::size_t{256} << 10U;
constexpr std::size_t largestAnswer = std::size_t{64} << 10U;
/// One server does not use up the time of all.
constexpr std::chrono::milliseconds longestRequest{10'000};
constexpr std::chrono::milliseconds longestConnect{5'000};
/// Certificates of one location that are used.
constexpr std::size_t mostCertificates = 16;
/// How long certificates are kept. They have no time of their own by which they are to be retrieved again.
constexpr std::time_t certificatesValidity = 86400;
/// How long an answer about a status is kept that says that newer information is always available.
constexpr std::time_t shortValidity = 60;

ByteView view(const std::string& octets) {
    return {reinterpret_cast<const std::uint8_t*>(octets.data()), octets.size()}; // NOLINT: octets as characters
}

std::string text(const Bytes& octets) {
    return {octets.begin(), octets.end()};
}

/// Seconds since 1970; 0 for a time that is absent or malformed.
std::time_t secondsOf(const ASN1_TIME* time) {
    std::tm parts{};
    return time == nullptr || ASN1_TIME_to_tm(time, &parts) == 0 ? 0 : timegm(&parts);
}

/// The certificates of a certificates-only message; none when it is not one.
std::vector<Bytes> certificatesOfMessage(ByteView der) {
    using Message = std::unique_ptr<PKCS7, ossl::Deleter<PKCS7_free>>;
    const auto message = ossl::fromDer<Message>(d2i_PKCS7, der);
    const bool isSigned = message && PKCS7_type_is_signed(message.get()) && message->d.sign != nullptr;
    const STACK_OF(X509)* const held = isSigned ? message->d.sign->cert : nullptr;
    std::vector<Bytes> list;
    for (int i = 0; i < sk_X509_num(held) && list.size() < mostCertificates; ++i) {
        list.push_back(ossl::toDer(i2d_X509, sk_X509_value(held, i)));
    }
    return list;
}

Bytes withoutPem(const std::string& octets) {
    const ossl::Bio in(BIO_new_mem_buf(octets.data(), static_cast<int>(octets.size())));
    unsigned char* data = nullptr;
    long size = 0;
    if (!in || PEM_bytes_read_bio(&data, &size, nullptr, PEM_STRING_X509, in.get(), nullptr, nullptr) != 1) {
        return {view(octets).begin(), view(octets).end()};
    }
    Bytes der(data, data + size);
    OPENSSL_free(data);
    return der;
}

std::vector<Bytes> certificatesIn(const std::string& octets) {
    const ossl::ErrorMark mark;
    Bytes der = withoutPem(octets);
    if (ossl::fromDer<ossl::X509Ptr>(d2i_X509, der)) {
        return {std::move(der)};
    }
    return certificatesOfMessage(der);
}

/// What identifies a request in the cache: no address and no name of a file leads out of it.
std::string keyOf(const std::string& kind, const std::string& location, const Bytes& subject = {}) {
    return kind + " " + location + (subject.empty() ? "" : " " + toHex(subject));
}

} // namespace

Retrieval::Retrieval(const RetrievalBudget& budget, bool anew)
    : left_(budget), end_(std::chrono::steady_clock::now() + budget.time), anew_(anew) {}

std::chrono::milliseconds Retrieval::timeLeft() const {
    return std::chrono::duration_cast<std::chrono::milliseconds>(end_ - std::chrono::steady_clock::now());
}

std::string Retrieval::download(HttpRequest& request) {
    const std::chrono::milliseconds time = std::min(timeLeft(), longestRequest);
    if (left_.requests == 0 || left_.octets == 0 || time <= std::chrono::milliseconds::zero()) {
        throw NetworkError(ErrorKind::timeout, request.url, "the limits on what is retrieved for a chain are reached");
    }
    --left_.requests;
    request.limits.totalTimeout = time;
    request.limits.connectTimeout = std::min(time, longestConnect);
    request.limits.maxOctets = std::min(request.limits.maxOctets, left_.octets);
    std::string octets = net::fetch(request).body;
    left_.octets -= std::min(left_.octets, octets.size());
    return octets;
}

std::optional<std::string> Retrieval::obtain(const std::string& key, HttpRequest request, const Judge& validUntil) {
    try {
        net::CacheLimits limits;
        limits.lockTimeout = std::max(timeLeft(), std::chrono::milliseconds(1));
        const net::Cache cache = anew_ ? net::Cache({}) : net::Cache::ofUser(limits);
        return cache.obtain(key, [&] {
            std::string octets = download(request);
            const std::time_t until = validUntil(octets);
            return net::Cache::Download{std::move(octets), until};
        });
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& error) {
        warn(std::string("not retrieved: ") + error.what());
        return std::nullopt;
    }
}

std::optional<Bytes> Retrieval::crl(const std::string& location, X509* issuer) {
    HttpRequest request;
    request.url = location;
    request.limits.maxOctets = largestList;
    const auto octets = obtain(keyOf("crl", location), request, [&](const std::string& answer) {
        const auto der = crlDer(view(answer));
        const auto crl = der ? ossl::fromDer<ossl::X509CrlPtr>(d2i_X509_CRL, *der) : nullptr;
        if (!crl) {
            throw NetworkError(ErrorKind::protocol, location, "the answer is not a CRL");
        }
        // A list whose signer is not known yet is used once: whoever changed it on its way does not stay for days.
        return verifiesSignature(crl.get(), issuer) ? secondsOf(X509_CRL_get0_nextUpdate(crl.get())) : 0;
    });
    return octets ? crlDer(view(*octets)) : std::nullopt;
}

std::vector<Bytes> Retrieval::certificates(const std::string& location) {
    HttpRequest request;
    request.url = location;
    request.limits.maxOctets = largestCertificates;
    const auto octets = obtain(keyOf("certificates", location), request, [&](const std::string& answer) {
        if (certificatesIn(answer).empty()) {
            throw NetworkError(ErrorKind::protocol, location, "the answer has no certificate");
        }
        return std::time(nullptr) + certificatesValidity;
    });
    return octets ? certificatesIn(*octets) : std::vector<Bytes>{};
}

std::optional<OcspAnswer> Retrieval::status(const std::string& location, const OcspRequest& request,
                                            const std::vector<std::shared_ptr<X509_CRL>>& lists) {
    HttpRequest sent;
    sent.url = location;
    sent.method = "POST";
    sent.body = text(request.der());
    sent.contentType = "application/ocsp-request";
    sent.acceptTypes = {"application/ocsp-response"};
    sent.limits.maxOctets = largestAnswer;
    const auto octets = obtain(keyOf("ocsp", location, request.subject()), sent, [&](const std::string& answer) {
        const auto read = request.read(view(answer), OcspRequest::Nonce::OfThisRequest, lists);
        if (!read || statusAt(*read, std::time(nullptr)) == OcspAnswer::Status::Unknown) {
            throw NetworkError(ErrorKind::protocol, location, "the answer does not say the certificate's status now");
        }
        return read->nextUpdate.value_or(std::time(nullptr) + shortValidity);
    });
    return octets ? request.read(view(*octets), OcspRequest::Nonce::Any, lists) : std::nullopt;
}

} // namespace klunortredi::csp
