// What chains retrieve from the network, what they ask for, and what hostile servers change.

#include "carried_store.hpp"
#include "distribution_points.hpp"
#include "ocsp_maker.hpp"
#include "online_chain_fixture.hpp"
#include "support/servers/http_server.hpp"

#include <openssl/ocsp.h>
#include <openssl/pem.h>

#include <chrono>
#include <mutex>

namespace {

using test_servers::HttpServer;
using test_servers::Reply;
using test_servers::Request;
using namespace std::chrono_literals;

std::string text(const csp::Bytes& octets) {
    return {octets.begin(), octets.end()};
}

csp::Bytes octets(const std::string& text) {
    return {text.begin(), text.end()};
}

class ChainRetrieval : public OnlineChainTest {
protected:
    ChainRetrieval() {
        network_ = 0;
        setenv("XDG_CACHE_HOME", (home_ / "cache").c_str(), 1);
        setenv("KLUNORTREDI_PRIVATE_ADDRESSES", "127.0.0.1", 1);
        trust(root_);
    }
    ~ChainRetrieval() override {
        unsetenv("XDG_CACHE_HOME");
        unsetenv("KLUNORTREDI_PRIVATE_ADDRESSES");
    }

    /// A certificate of serial number 77 whose issuer, status and CRL lie on the server.
    Entity online(const std::string& access, const std::string& points, const Entity* issuer = nullptr) const {
        std::vector<std::pair<int, std::string>> extensions;
        if (!access.empty()) {
            extensions.emplace_back(NID_info_access, access);
        }
        if (!points.empty()) {
            extensions.emplace_back(NID_crl_distribution_points, points);
        }
        return pki::make(
            {.subject = "Online", .issuer = issuer == nullptr ? &ca_ : issuer, .serial = 77, .extensions = extensions});
    }
    std::string crlPoint() const { return "URI:" + server_.url("/crl"); }
    std::string ocspAccess() const { return "OCSP;URI:" + server_.url("/ocsp"); }
    std::string issuerAccess() const { return "caIssuers;URI:" + server_.url("/ca"); }

    void serve(const std::string& path, Reply reply) {
        const std::lock_guard lock(mutex_);
        replies_[path] = std::move(reply);
    }
    void serve(const std::string& path, const csp::Bytes& body) { serve(path, Reply{.body = text(body)}); }
    void answer(const pki::WantedAnswer& wanted) {
        const std::lock_guard lock(mutex_);
        answer_ = wanted;
        answer_->issuer = &ca_;
    }
    std::size_t requests(const std::string& path) const {
        std::size_t count = 0;
        for (const Request& request : server_.requests()) {
            count += request.target == path ? 1U : 0U;
        }
        return count;
    }
    const CERT_REVOCATION_INFO* revocation(const Chain& chain) const {
        return chain->rgpChain[0]->rgpElement[0]->pRevocationInfo;
    }

    Reply reply(const Request& request) {
        const std::lock_guard lock(mutex_);
        if (request.target == "/ocsp" && answer_) {
            return {.type = "application/ocsp-response", .body = text(pki::answerTo(octets(request.body), *answer_))};
        }
        const auto found = replies_.find(request.target);
        return found == replies_.end() ? Reply{.status = "404 Not Found"} : found->second;
    }

    const std::time_t now_ = std::time(nullptr);
    std::mutex mutex_;
    std::map<std::string, Reply> replies_;
    std::optional<pki::WantedAnswer> answer_;
    HttpServer server_{[this](const Request& request) { return reply(request); }};
};

TEST_F(ChainRetrieval, BringsIssuersThatAreMissing) {
    const Entity leaf = online(issuerAccess(), "");
    serve("/ca", ca_.der);
    const Chain chain = chainOf(leaf.der);
    EXPECT_EQ(chain->TrustStatus.dwErrorStatus, 0U);
    EXPECT_EQ(chain->rgpChain[0]->cElement, 3U);
    EXPECT_EQ(requests("/ca"), 1U);
    EXPECT_EQ(status(leaf.der), 0U);
    EXPECT_EQ(requests("/ca"), 1U) << "kept";
    EXPECT_EQ(status(leaf.der, capi::CERT_CHAIN_CACHE_ONLY_URL_RETRIEVAL), capi::CERT_TRUST_IS_PARTIAL_CHAIN);
}

TEST_F(ChainRetrieval, BringsIssuersOneAfterTheOther) {
    const Entity sub = pki::make({.subject = "Sub",
                                  .issuer = &ca_,
                                  .serial = 3,
                                  .extensions = {{NID_basic_constraints, "critical,CA:TRUE"},
                                                 {NID_key_usage, "critical,keyCertSign,cRLSign"},
                                                 {NID_info_access, issuerAccess()}}});
    const Entity leaf = online("caIssuers;URI:" + server_.url("/sub"), "", &sub);
    serve("/sub", sub.der);
    const csp::Bytes pem = [&] {
        const csp::ossl::Bio out(BIO_new(BIO_s_mem()));
        PEM_write_bio_X509(out.get(), ca_.certificate.get());
        char* data = nullptr;
        const long size = BIO_get_mem_data(out.get(), &data);
        return csp::Bytes(data, data + size);
    }();
    serve("/ca", pem);
    EXPECT_EQ(status(leaf.der), 0U);
}

TEST_F(ChainRetrieval, TakesNoCertificateForAnAnchorOrAnIssuerThatIsNone) {
    const Entity stranger = pki::root("Intermediate");
    const Entity leaf = online(issuerAccess(), "");
    serve("/ca", stranger.der);
    EXPECT_NE(status(leaf.der), 0U) << "of the issuer's name, of another key";
    const Entity own = pki::root("Own");
    const Entity below = online("caIssuers;URI:" + server_.url("/own"), "", &own);
    serve("/own", own.der);
    EXPECT_EQ(status(below.der), capi::CERT_TRUST_IS_UNTRUSTED_ROOT);
}

TEST_F(ChainRetrieval, BringsAtMostFourIssuers) {
    const auto chainUnder = [&](int missing, const std::string& prefix) {
        Entity last = pki::intermediate("Last", root_);
        serve(prefix + "0", last.der);
        for (int i = 1; i < missing; ++i) {
            Entity next = pki::make(
                {.subject = "Sub " + std::to_string(i),
                 .issuer = &last,
                 .serial = i,
                 .extensions = {{NID_basic_constraints, "critical,CA:TRUE"},
                                {NID_info_access, "caIssuers;URI:" + server_.url(prefix + std::to_string(i - 1))}}});
            serve(prefix + std::to_string(i), next.der);
            last = std::move(next);
        }
        return online("caIssuers;URI:" + server_.url(prefix + std::to_string(missing - 1)), "", &last).der;
    };
    EXPECT_EQ(status(chainUnder(4, "/four")), 0U);
    const std::size_t before = server_.requests().size();
    EXPECT_EQ(status(chainUnder(5, "/five")), capi::CERT_TRUST_IS_PARTIAL_CHAIN);
    EXPECT_EQ(server_.requests().size() - before, 4U);
}

TEST_F(ChainRetrieval, BringsNoIssuersOfAChainThatIsWrongInAnotherWay) {
    serve("/ca", ca_.der);
    const Entity leaf = online(issuerAccess(), "");
    add(systemStore("disallowed").get(), leaf.der);
    EXPECT_EQ(status(leaf.der), capi::CERT_TRUST_IS_PARTIAL_CHAIN | capi::CERT_TRUST_IS_EXPLICIT_DISTRUST);
    const Entity odd = pki::make({.subject = "Version 4",
                                  .issuer = &ca_,
                                  .serial = 78,
                                  .extensions = {{NID_info_access, issuerAccess()}},
                                  .change = [](X509* certificate) { X509_set_version(certificate, 3); }});
    EXPECT_NE(status(odd.der), 0U);
    EXPECT_EQ(server_.requests().size(), 0U);
    const Entity expired = pki::make({.subject = "Expired",
                                      .issuer = &ca_,
                                      .serial = 79,
                                      .notAfter = now_ - 60,
                                      .extensions = {{NID_info_access, issuerAccess()}}});
    EXPECT_EQ(status(expired.der), capi::CERT_TRUST_IS_NOT_TIME_VALID) << "its issuer shows what else there is";
    EXPECT_EQ(requests("/ca"), 1U);
}

TEST_F(ChainRetrieval, AsksServersForAStatusThatIsNotKnown) {
    know(ca_);
    const Entity leaf = online(ocspAccess(), "");
    answer({});
    const Chain good = chainOf(leaf.der, end);
    EXPECT_EQ(good->TrustStatus.dwErrorStatus, 0U);
    ASSERT_NE(revocation(good), nullptr);
    EXPECT_EQ(revocation(good)->dwRevocationResult, 0U);
    EXPECT_STREQ(revocation(good)->pszRevocationOid, "1.3.6.1.5.5.7.48.1");
    EXPECT_EQ(requests("/ocsp"), 1U);
    EXPECT_EQ(status(leaf.der, end), 0U);
    EXPECT_EQ(requests("/ocsp"), 1U) << "kept, with the nonce of the first request";
    answer({.status = V_OCSP_CERTSTATUS_REVOKED, .revoked = now_ - 500, .reason = 1});
    long_.emplace();
    FILETIME any{};
    long_->pftCacheResync = &any;
    const Chain bad = chainOf(leaf.der, end);
    EXPECT_EQ(bad->TrustStatus.dwErrorStatus, revoked) << "asked anew";
    ASSERT_NE(revocation(bad)->pCrlInfo->pCrlEntry, nullptr);
    EXPECT_EQ(csp::fromFileTime(revocation(bad)->pCrlInfo->pCrlEntry->RevocationDate), now_ - 500);
    EXPECT_EQ(revocation(bad)->pCrlInfo->pCrlEntry->cExtension, 1U);
    EXPECT_EQ(status(leaf.der, soft), revoked) << "also where a missing status is not an error";
    time_ = now_ - 600;
    EXPECT_EQ(status(leaf.der, soft), 0U) << "revoked after the time asked about";
    EXPECT_EQ(status(leaf.der, end), unknown) << "which is not a proof that it was good";
    time_ = now_ - 400;
    EXPECT_EQ(status(leaf.der, soft), revoked);
}

TEST_F(ChainRetrieval, BringsTheListsOfDistributionPoints) {
    know(ca_);
    const Entity leaf = online("", crlPoint());
    serve("/crl", pki::crl(ca_, {5}));
    EXPECT_EQ(status(leaf.der, end), 0U);
    EXPECT_EQ(status(leaf.der, end), 0U);
    EXPECT_EQ(requests("/crl"), 1U) << "kept until its nextUpdate";
    serve("/crl", pki::crl(ca_, {77}));
    long_.emplace();
    FILETIME any{};
    long_->pftCacheResync = &any;
    EXPECT_EQ(status(leaf.der, end), revoked);
    EXPECT_EQ(status(leaf.der, soft), revoked);
}

TEST_F(ChainRetrieval, BringsTheListsOfChanges) {
    know(ca_);
    addCrl(pki::makeCrl(ca_, {.thisUpdate = now_ - 1000,
                              .nextUpdate = now_ - 100, // no longer says that the certificate is good
                              .extensions = {{NID_crl_number, "DER:02:01:0A"}}}));
    serve("/delta", pki::makeCrl(ca_, {.serials = {77},
                                       .extensions = {{NID_crl_number, "DER:02:01:0B"},
                                                      {NID_delta_crl, "critical,DER:02:01:0A"}}}));
    const Entity fresh = pki::make({.subject = "Fresh",
                                    .issuer = &ca_,
                                    .serial = 77,
                                    .extensions = {{NID_freshest_crl, "URI:" + server_.url("/delta")}}});
    EXPECT_EQ(status(fresh.der, end), revoked);
    EXPECT_EQ(requests("/delta"), 1U);
}

TEST_F(ChainRetrieval, TakesTheFirstAddressOfAPointThatAnswers) {
    know(ca_);
    const auto point =
        pki::onePoint({"ldap://127.0.0.1/x", server_.url("/none"), server_.url("/second"), server_.url("/third")});
    const Entity leaf = pki::make({.subject = "Pointed", .issuer = &ca_, .serial = 77, .change = point});
    serve("/second", pki::crl(ca_, {77}));
    serve("/third", pki::crl(ca_, {5}));
    EXPECT_EQ(status(leaf.der, end), revoked);
    EXPECT_EQ(requests("/none"), 1U);
    EXPECT_EQ(requests("/second"), 1U);
    EXPECT_EQ(requests("/third"), 0U);
}

TEST_F(ChainRetrieval, AnswersAreTooOldWhereTheCallerSaysSo) {
    know(ca_);
    const Entity leaf = online(ocspAccess(), "");
    FILETIME any{};
    long_.emplace();
    long_->pftCacheResync = &any;
    long_->fCheckRevocationFreshnessTime = 1;
    long_->dwRevocationFreshnessTime = 400;
    answer({.thisUpdate = now_ - 500});
    EXPECT_EQ(status(leaf.der, end), unknown);
    answer({.thisUpdate = now_ - 100});
    EXPECT_EQ(status(leaf.der, end), 0U);
    answer({.status = V_OCSP_CERTSTATUS_REVOKED, .revoked = now_ - 600, .thisUpdate = now_ - 500});
    EXPECT_EQ(status(leaf.der, end), revoked) << "however old";
}

TEST_F(ChainRetrieval, TakesCertificatesOfUpTo256KiB) {
    const auto padded = [&](std::size_t size) { // what stands before the armour is passed over
        const csp::ossl::Bio out(BIO_new(BIO_s_mem()));
        PEM_write_bio_X509(out.get(), ca_.certificate.get());
        char* data = nullptr;
        const long length = BIO_get_mem_data(out.get(), &data);
        const std::string armour(data, static_cast<std::size_t>(length));
        return std::string(size - armour.size() - 1, ' ') + "\n" + armour;
    };
    constexpr std::size_t most = std::size_t{256} << 10U;
    serve("/fits", Reply{.body = padded(most)});
    serve("/over", Reply{.body = padded(most + 1)});
    EXPECT_EQ(status(online("caIssuers;URI:" + server_.url("/fits"), "").der), 0U);
    EXPECT_EQ(status(online("caIssuers;URI:" + server_.url("/over"), "").der), capi::CERT_TRUST_IS_PARTIAL_CHAIN);
}

/// A list in PEM of so many octets: what stands before the armour is passed over.
std::string paddedList(const csp::Bytes& der, std::size_t size) {
    const csp::ossl::Bio out(BIO_new(BIO_s_mem()));
    PEM_write_bio(out.get(), PEM_STRING_X509_CRL, "", der.data(), static_cast<long>(der.size()));
    char* data = nullptr;
    const auto length = static_cast<std::size_t>(BIO_get_mem_data(out.get(), &data));
    const std::string armour(data, length);
    return std::string(size - armour.size() - 1, ' ') + "\n" + armour;
}

TEST_F(ChainRetrieval, TakesListsOfUpTo16MiB) {
    know(ca_);
    constexpr std::size_t most = std::size_t{16} << 20U;
    for (const bool fits : {true, false}) {
        const std::string path = fits ? "/fits" : "/over";
        serve(path, Reply{.body = paddedList(pki::crl(ca_, {77}), fits ? most : most + 1)});
        EXPECT_EQ(status(online("", "URI:" + server_.url(path)).der, end), fits ? revoked : unknown);
        EXPECT_EQ(requests(path), 1U);
    }
}

TEST_F(ChainRetrieval, TakesNoMoreThan32MiBForOneChain) {
    constexpr std::size_t mebibyte = std::size_t{1} << 20U;
    const auto under = [&](const Entity& issuer, const char* name, const char* list, EVP_PKEY* key = nullptr) {
        return pki::make({.subject = name,
                          .issuer = &issuer,
                          .serial = 70,
                          .extensions = {{NID_crl_distribution_points, "URI:" + server_.url(list)},
                                         {NID_basic_constraints, "critical,CA:TRUE"},
                                         {NID_key_usage, "critical,keyCertSign,cRLSign"}},
                          .reuseKey = key});
    };
    const Entity first = under(root_, "First", "/root");
    const Entity second = under(first, "Second", "/first");
    const Entity leaf = under(second, "Leaf", "/second");
    // From the leaf upwards: the root's list is the last.
    serve("/second", Reply{.body = paddedList(pki::crl(second, {}), 16 * mebibyte)});
    serve("/first", Reply{.body = paddedList(pki::crl(first, {}), 15 * mebibyte)});
    const auto with = [&](const Entity& authority, const char* list, std::size_t size) {
        serve(list, Reply{.body = paddedList(pki::crl(root_, {}), size)});
        additional_ = memoryStore();
        add(additional_.get(), authority.der);
        add(additional_.get(), second.der);
        const DWORD errors = status(leaf.der, capi::CERT_CHAIN_REVOCATION_CHECK_CHAIN_EXCLUDE_ROOT);
        EXPECT_EQ(requests(list), 1U);
        return errors;
    };
    EXPECT_EQ(with(first, "/root", mebibyte + 1), unknown) << "one octet more";
    EXPECT_EQ(with(under(root_, "First", "/other", first.key.get()), "/other", mebibyte + 1), 0U)
        << "what is kept does not count again";
}

TEST_F(ChainRetrieval, TakesAnswersOfUpTo64KiB) {
    know(ca_);
    const Entity leaf = online(ocspAccess(), "");
    FILETIME any{};
    long_.emplace();
    long_->pftCacheResync = &any;
    const auto by = [&](std::size_t octets) {
        const Entity responder = pki::make(
            {.subject = "Responder",
             .issuer = &ca_,
             .serial = 9,
             .extensions = {{NID_ext_key_usage, "OCSPSigning"}, {NID_netscape_comment, std::string(octets, 'x')}}});
        answer({.signer = &responder, .withCertificate = true});
        return status(leaf.der, end);
    };
    EXPECT_EQ(by(64000), 0U);
    EXPECT_EQ(by(65536), unknown);
}

TEST_F(ChainRetrieval, AsksForListsWhereServersDoNotAnswer) {
    know(ca_);
    const Entity leaf = online(ocspAccess(), crlPoint());
    serve("/crl", pki::crl(ca_, {77}));
    EXPECT_EQ(status(leaf.der, end), revoked);
    EXPECT_EQ(requests("/ocsp"), 1U);
    EXPECT_EQ(requests("/crl"), 1U);
    answer({});
    long_.emplace();
    FILETIME any{};
    long_->pftCacheResync = &any;
    EXPECT_EQ(status(leaf.der, end), 0U) << "the server comes first";
    EXPECT_EQ(requests("/crl"), 1U);
}

TEST_F(ChainRetrieval, KeepsNoListThatTheIssuerInThePathDidNotSign) {
    know(ca_);
    const Entity signer = pki::make(
        {.subject = "CRL signer", .issuer = &root_, .serial = 60, .extensions = {{NID_key_usage, "critical,cRLSign"}}});
    know(signer);
    const auto point = pki::onePoint({server_.url("/indirect")}, &signer);
    const Entity leaf = pki::make({.subject = "Pointed", .issuer = &ca_, .serial = 77, .change = point});
    serve("/indirect",
          pki::makeCrl(signer, {.serials = {77},
                                .extensions = {{NID_issuing_distribution_point, "critical,DER:30:03:84:01:FF"}},
                                .certificateIssuer = &ca_}));
    EXPECT_EQ(status(leaf.der, end), revoked);
    EXPECT_EQ(requests("/indirect"), 1U);
    EXPECT_EQ(status(leaf.der, end), revoked);
    EXPECT_EQ(requests("/indirect"), 2U) << "used once";
}

TEST_F(ChainRetrieval, HappensOnlyWhereItIsAllowedAndNeeded) {
    know(ca_);
    const Entity leaf = online(ocspAccess(), crlPoint());
    answer({});
    EXPECT_EQ(status(leaf.der), 0U) << "nobody asks about revocation";
    EXPECT_EQ(status(leaf.der, end | capi::CERT_CHAIN_REVOCATION_CHECK_CACHE_ONLY), unknown);
    EXPECT_EQ(status(leaf.der, end | capi::CERT_CHAIN_CACHE_ONLY_URL_RETRIEVAL), unknown);
    EXPECT_EQ(status(leaf.der, capi::CERT_CHAIN_REVOCATION_CHECK_CACHE_ONLY), 0U);
    time_ = now_ + 10000000;
    EXPECT_NE(status(leaf.der, end), 0U) << "expired";
    time_ = 0;
    const Entity stranger = pki::root("Stranger");
    EXPECT_NE(status(online(ocspAccess(), crlPoint(), &stranger).der, end), 0U);
    Entity forged = online(ocspAccess(), crlPoint());
    forged.der.back() ^= 1U;
    EXPECT_NE(status(forged.der, end), 0U);
    addCrl(pki::crl(ca_, {5}));
    EXPECT_EQ(status(leaf.der, end), 0U) << "a list at hand says it";
    EXPECT_EQ(server_.requests().size(), 0U);
    unsetenv("KLUNORTREDI_PRIVATE_ADDRESSES");
    std::filesystem::remove(folder("ca") / "1.crl");
    EXPECT_EQ(status(leaf.der, end), unknown) << "this machine's own addresses are not asked unless allowed";
    EXPECT_EQ(server_.requests().size(), 0U);
}

TEST_F(ChainRetrieval, NeverHidesWhatAListAtHandRevokes) {
    know(ca_);
    const Entity leaf = online(ocspAccess(), crlPoint());
    answer({});
    serve("/crl", pki::crl(ca_, std::vector<long>{}));
    addCrl(pki::makeCrl(ca_, {.serials = {77}, .thisUpdate = now_ - 5000, .nextUpdate = now_ - 100}));
    EXPECT_EQ(status(leaf.der, soft), revoked) << "an expired list";
    EXPECT_EQ(server_.requests().size(), 0U);
    std::filesystem::remove(folder("ca") / "1.crl");
    std::vector<csp::Bytes> flood;
    const Entity forger = pki::root("Intermediate");
    for (int i = 0; i < 65; ++i) {
        flood.push_back(pki::makeCrl(forger, {.thisUpdate = now_ - i}));
    }
    additional_.reset(openCarriedStore({}, flood));
    EXPECT_EQ(status(leaf.der, soft), unknown) << "lists at hand that were not looked at may revoke";
    EXPECT_EQ(server_.requests().size(), 0U);
}

TEST_F(ChainRetrieval, IsNotKnownWhenServersMisbehave) {
    know(ca_);
    const csp::Bytes good = pki::crl(ca_, std::vector<long>{});
    const Entity forger = pki::root("Intermediate");
    csp::Bytes damaged = good;
    damaged.back() ^= 1U;
    const std::vector<Reply> replies{
        {.status = "404 Not Found"},
        {.status = "500 Internal Server Error"},
        {.type = "text/html", .body = "<html>no</html>"},
        {.body = ""},
        {.body = text(good), .cutAfter = 20},
        {.body = text(damaged)},
        {.body = text(pki::crl(forger, std::vector<long>{}))},
        {.body = text(pki::makeCrl(ca_, {.thisUpdate = now_ - 500, .nextUpdate = now_ - 100}))},
        {.body = text(pki::makeCrl(ca_, {.thisUpdate = now_ + 500}))},
        {.body = text(leaf_.der)},
        test_servers::redirect(server_.url("/crl")),
        test_servers::redirect("file:///etc/passwd"),
        {.raw = "HTTP/1.1 200 OK\r\nContent-Length: 99999999999\r\n\r\nx"},
        {.raw = "not HTTP\r\n\r\n"},
    };
    int number = 0;
    for (const Reply& reply : replies) {
        const std::string path = "/crl" + std::to_string(++number);
        const Entity leaf = online("OCSP;URI:" + server_.url(path), "URI:" + server_.url(path));
        serve(path, reply);
        EXPECT_EQ(status(leaf.der, end), unknown) << "reply " << number;
        EXPECT_EQ(status(leaf.der, soft), 0U) << "reply " << number;
    }
}

TEST_F(ChainRetrieval, IsNotKnownByAnswersThatProveNothing) {
    know(ca_);
    const Entity leaf = online(ocspAccess(), "");
    const Entity stranger = pki::root("Stranger");
    long_.emplace();
    FILETIME any{};
    long_->pftCacheResync = &any;
    for (const pki::WantedAnswer& wanted : {pki::WantedAnswer{.signer = &stranger, .withCertificate = true},
                                            {.status = V_OCSP_CERTSTATUS_UNKNOWN},
                                            {.thisUpdate = now_ - 500, .nextUpdate = now_ - 100},
                                            {.thisUpdate = now_ + 5000, .nextUpdate = now_ + 9000},
                                            {.otherNonce = true},
                                            {.otherSerial = true}}) {
        answer(wanted);
        EXPECT_EQ(status(leaf.der, end), unknown);
    }
    answer({});
    EXPECT_EQ(status(leaf.der, end), 0U);
}

TEST_F(ChainRetrieval, EndsInTime) {
    know(ca_);
    const Entity leaf = online(ocspAccess(), crlPoint());
    serve("/ocsp", Reply{.body = "x", .delay = 60s});
    serve("/crl", Reply{.body = std::string(1000, 'x'), .pause = 1s});
    long_.emplace();
    long_->dwUrlRetrievalTimeout = 300;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(status(leaf.der, end), unknown);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 2s);
}

TEST_F(ChainRetrieval, EndsAfterSoManyRequests) {
    know(ca_);
    // Eight servers and eight points for each of three certificates, of which four each are asked.
    const auto addresses = [&](const std::string& kind, const std::string& name) {
        std::string list;
        for (int i = 0; i < 8; ++i) {
            list += (i == 0 ? "" : ",") + kind + server_.url("/" + name + std::to_string(i));
        }
        return list;
    };
    const auto under = [&](const Entity& issuer, const std::string& name) {
        return pki::make({.subject = name,
                          .issuer = &issuer,
                          .serial = 3,
                          .extensions = {{NID_basic_constraints, "critical,CA:TRUE"},
                                         {NID_info_access, addresses("OCSP;URI:", "server-" + name)},
                                         {NID_crl_distribution_points, addresses("URI:", "point-" + name)}}});
    };
    const Entity upper = under(ca_, "upper");
    const Entity lower = under(upper, "lower");
    know(upper);
    know(lower);
    EXPECT_EQ(status(under(lower, "alone").der, end), unknown);
    EXPECT_EQ(server_.requests().size(), 8U);
    EXPECT_EQ(status(under(lower, "last").der, capi::CERT_CHAIN_REVOCATION_CHECK_CHAIN_EXCLUDE_ROOT), unknown);
    EXPECT_EQ(server_.requests().size(), 8U + 16U) << "of 24 that three certificates would take";
}

} // namespace
