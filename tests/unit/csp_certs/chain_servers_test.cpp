// Chains whose servers misbehave in every way that the test servers know.

#include "online_chain_fixture.hpp"
#include "support/servers/authority.hpp"

#include <array>
#include <chrono>
#include <set>

namespace {

using test_servers::Authority;

class ChainServers : public OnlineChainTest {
protected:
    static constexpr std::array everywhere{"html", "404",     "500",     "empty",    "slow",
                                           "drip", "cut",     "loop",    "to-file",  "to-private",
                                           "huge", "endless", "garbage", "trailing", "wrong-type"};

    ChainServers() {
        network_ = 0;
        setenv("XDG_CACHE_HOME", (home_ / "cache").c_str(), 1);
        setenv("KLUNORTREDI_PRIVATE_ADDRESSES", "127.0.0.1", 1);
        add(systemStore("root").get(), octets(test_servers::toDer(authority().root().certificate)));
        long_.emplace();
        long_->dwUrlRetrievalTimeout = 250;
    }
    ~ChainServers() override {
        unsetenv("XDG_CACHE_HOME");
        unsetenv("KLUNORTREDI_PRIVATE_ADDRESSES");
    }

    /// One for all tests: its servers keep no state that matters here.
    static Authority& authority() {
        static auto* const made = new Authority;
        return *made;
    }
    static csp::Bytes octets(const std::string& text) { return {text.begin(), text.end()}; }
    void knowIssuer() { add(systemStore("ca").get(), octets(test_servers::toDer(authority().issuer().certificate))); }
    static csp::Bytes issue(const std::string& crl, const std::string& ocsp, const std::string& issuer) {
        Authority::Draft draft;
        draft.crlWords = crl;
        draft.ocspWords = ocsp;
        draft.issuerWords = issuer;
        return octets(test_servers::toDer(authority().issue(draft).certificate));
    }
    /// The status of a certificate whose server has each of the words, with a checking flag and without.
    template <class Issue>
    void expectUnknown(std::set<std::string> words, Issue&& issue) {
        words.insert(everywhere.begin(), everywhere.end());
        words.erase("wrong-type"); // what the octets are decides
        for (const std::string& word : words) {
            const csp::Bytes leaf = issue("?" + word);
            const auto start = std::chrono::steady_clock::now();
            EXPECT_EQ(status(leaf, end), unknown) << word;
            EXPECT_EQ(status(leaf, soft), 0U) << word;
            EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5)) << word;
        }
    }
};

TEST_F(ChainServers, OfListsMakeTheStatusUnknown) {
    knowIssuer();
    const auto issued = [](const std::string& words) { return issue(words, "-", "-"); };
    expectUnknown({"expired", "future", "other-issuer", "damaged"}, issued);
    EXPECT_EQ(status(issued("?revoked"), soft), revoked);
    EXPECT_EQ(status(issued("?revoked&expired"), soft), revoked) << "old, and still true";
    for (const char* const words : {"", "?pem", "?wrong-type"}) {
        EXPECT_EQ(status(issued(words), end), 0U) << words;
    }
}

TEST_F(ChainServers, OfAnswersMakeTheStatusUnknown) {
    knowIssuer();
    const auto issued = [](const std::string& words) { return issue("-", words, "-"); };
    expectUnknown({"unknown", "expired", "future", "other-certificate", "unauthorised", "no-responder", "damaged",
                   "try-later", "malformed", "internal-error"},
                  issued);
    EXPECT_EQ(status(issued("?revoked"), soft), revoked);
    for (const char* const words : {"", "?no-next-update", "?wrong-type"}) {
        EXPECT_EQ(status(issued(words), end), 0U) << words;
    }
}

TEST_F(ChainServers, OfIssuersLeaveTheChainPartial) {
    std::set<std::string> words(everywhere.begin(), everywhere.end());
    words.erase("wrong-type");
    words.insert("other");
    for (const std::string& word : words) {
        EXPECT_EQ(status(issue("-", "-", "?" + word)), capi::CERT_TRUST_IS_PARTIAL_CHAIN) << word;
    }
    for (const char* const right : {"", "?pem", "?wrong-type"}) {
        EXPECT_EQ(status(issue("-", "-", right)), 0U) << right;
    }
}

TEST_F(ChainServers, BringAWholeChainAndItsStatus) {
    long_.reset();
    const csp::Bytes leaf = issue("", "", "");
    EXPECT_EQ(status(leaf, capi::CERT_CHAIN_REVOCATION_CHECK_CHAIN_EXCLUDE_ROOT), 0U);
    const csp::Bytes bad = issue("?revoked", "?500", "");
    EXPECT_EQ(status(bad, capi::CERT_CHAIN_REVOCATION_CHECK_CHAIN_EXCLUDE_ROOT), revoked);
}

} // namespace
