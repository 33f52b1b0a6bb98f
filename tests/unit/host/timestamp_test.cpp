#include "http_authority.hpp"
#include "orvik/plugin/crypto/exception/crypto_exception.hpp"
#include "orvik/plugin/crypto/timestamp_tools.hpp"
#include "orvik/plugin/exception/application_exception.hpp"
#include "orvik/plugin/ssl/cadest_transformers.hpp"

#include <boost/smart_ptr/make_shared.hpp>
#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace {

using namespace std::string_literals;
using host_test::HttpAuthority;
using host_test::response;
using orvik::plugin::crypto::cadest::TimestampTools;
using orvik::plugin::crypto::exception::CryptoException;
using orvik::plugin::exception::ApplicationException;
using orvik::plugin::ssl::cadest::binary::Transformer;
using testing::EndsWith;
using testing::HasSubstr;
using testing::SizeIs;
using testing::StartsWith;

/// Puts the pieces side by side where the back-end would encode them, and keeps the nonces.
class Tools : public TimestampTools {
public:
    [[nodiscard]] std::string makeRequest(boost::string_view signature, boost::string_view nonce) const override {
        nonces.push_back(nonce.to_string());
        return "request\0for "s + signature.to_string();
    }
    [[nodiscard]] std::string embed(boost::string_view signature, boost::string_view token,
                                    boost::string_view nonce) const override {
        EXPECT_EQ(nonce, nonces.back());
        if (refusals != 0) {
            --refusals;
            throw ApplicationException(ApplicationException::Code::timestampInvalid)
                << orvik::plugin::exception::Message_("not for this");
        }
        return signature.to_string() + "+" + token.to_string();
    }
    [[nodiscard]] std::string makeRequestFor(boost::string_view octets, const std::string& digestOid,
                                             boost::string_view nonce) const override {
        nonces.push_back(nonce.to_string());
        return digestOid + " of " + octets.to_string();
    }
    [[nodiscard]] std::string tokenFor(boost::string_view /*octets*/, const std::string& /*digestOid*/,
                                       boost::string_view response, boost::string_view nonce) const override {
        EXPECT_EQ(nonce, nonces.back());
        return response.to_string();
    }
    [[nodiscard]] orvik::plugin::crypto::cadest::TimestampVerdict judge(boost::string_view /*token*/,
                                                                        boost::string_view /*octets*/) const override {
        return {};
    }
    mutable std::vector<std::string> nonces;
    mutable int refusals = 0; ///< responses yet to be refused
};

class Timestamp : public testing::Test {
protected:
    Timestamp() { TimestampTools::install(tools_); }
    ~Timestamp() override { TimestampTools::install({}); }

    /// What becomes of "signature", fed in two pieces.
    static std::string stamp(const std::string& authority) {
        Transformer transformer;
        Transformer::Params params;
        params.authority = authority;
        EXPECT_TRUE(transformer.initialize(params));
        std::size_t consumed = 0;
        EXPECT_TRUE(transformer.update(reinterpret_cast<const unsigned char*>("sig"), 3, &consumed));
        EXPECT_EQ(consumed, 3U);
        EXPECT_TRUE(transformer.update(reinterpret_cast<const unsigned char*>("nature"), 6));
        std::vector<unsigned char> out;
        EXPECT_TRUE(transformer.finalize(out));
        return {out.begin(), out.end()};
    }

    static void expectRefused(const std::string& authority, const std::string& why) {
        try {
            stamp(authority);
            FAIL() << "the answer was taken";
        } catch (const ApplicationException& e) {
            EXPECT_EQ(e.code().value(), 20016);
            EXPECT_THAT(e.what(), HasSubstr(authority));
            EXPECT_THAT(e.what(), HasSubstr(why));
        }
    }

    boost::shared_ptr<Tools> tools_ = boost::make_shared<Tools>(); // NOLINT: the tests' own
};

TEST_F(Timestamp, CarriesRequestAndAnswerBetweenBackEndAndAuthority) {
    HttpAuthority authority({response("token\0!"s)});
    EXPECT_EQ(stamp(authority.url()), "signature+token\0!"s);
    ASSERT_THAT(authority.requests(), SizeIs(1));
    const auto& request = authority.requests().front();
    EXPECT_THAT(request, StartsWith("POST /tsa HTTP/1.1\r\n"));
    EXPECT_THAT(request, HasSubstr("Content-Type: application/timestamp-query\r\n"));
    EXPECT_THAT(request, EndsWith("\r\n\r\nrequest\0for signature"s));
}

TEST_F(Timestamp, MakesAFreshPositiveNonceEachTime) {
    HttpAuthority authority({response("a"), response("b")});
    stamp(authority.url());
    stamp(authority.url());
    ASSERT_THAT(tools_->nonces, SizeIs(2));
    EXPECT_NE(tools_->nonces[0], tools_->nonces[1]);
    for (const auto& nonce : tools_->nonces) {
        EXPECT_THAT(nonce, SizeIs(8));
        for (const char end : {nonce.front(), nonce.back()}) {
            EXPECT_GT(static_cast<signed char>(end), 0);
        }
    }
}

TEST_F(Timestamp, FollowsARedirectWithItsRequest) {
    HttpAuthority target({response("token")});
    HttpAuthority first(
        {"HTTP/1.1 302 Found\r\nLocation: " + target.url() + "\r\nContent-Length: 0\r\nConnection: close\r\n\r\n"});
    EXPECT_EQ(stamp(first.url()), "signature+token");
    EXPECT_THAT(target.requests().front(), EndsWith("request\0for signature"s));
}

TEST_F(Timestamp, RefusesWhatIsNoTimestampReply) {
    HttpAuthority page({response("<html>", "text/html")});
    expectRefused(page.url(), "media type text/html, not application/timestamp-reply");
    HttpAuthority failing({response("", "application/timestamp-reply", "503 Service Unavailable")});
    expectRefused(failing.url(), "HTTP status 503");
}

TEST_F(Timestamp, RefusesAnAnswerWithoutBound) {
    HttpAuthority authority({response(std::string((std::size_t{1} << 20) + 1, 'x'))});
    expectRefused(authority.url(), "");
}

TEST_F(Timestamp, RefusesOtherProtocols) {
    expectRefused("file:///etc/passwd", "");
    HttpAuthority authority(
        {"HTTP/1.1 302 Found\r\nLocation: file:///etc/passwd\r\nContent-Length: 0\r\nConnection: close\r\n\r\n"});
    expectRefused(authority.url(), "");
}

TEST_F(Timestamp, TellsThatNobodyAnswers) {
    std::string url;
    { url = HttpAuthority({}).url(); }
    expectRefused(url, "onnect");
}

TEST_F(Timestamp, TriesTheNextAuthorityWithAFreshNonce) {
    std::string nobody;
    { nobody = HttpAuthority({}).url(); }
    HttpAuthority page({response("<html>", "text/html")});
    HttpAuthority good({response("token")});
    HttpAuthority never({response("unasked")});
    EXPECT_EQ(stamp(nobody + "  " + page.url() + " " + good.url() + "\t" + never.url()), "signature+token");
    ASSERT_THAT(tools_->nonces, SizeIs(3));
    EXPECT_NE(tools_->nonces[0], tools_->nonces[1]);
    EXPECT_NE(tools_->nonces[1], tools_->nonces[2]);
}

TEST_F(Timestamp, TriesTheNextAuthorityWhenAResponseIsNotAcceptable) {
    tools_->refusals = 1;
    HttpAuthority first({response("bad")});
    HttpAuthority second({response("token")});
    EXPECT_EQ(stamp(first.url() + " " + second.url()), "signature+token");
}

TEST_F(Timestamp, SaysWhatEachAuthorityDidWhenAllFail) {
    tools_->refusals = 1;
    HttpAuthority page({response("<html>", "text/html")});
    HttpAuthority refused({response("bad")});
    try {
        stamp(page.url() + " " + refused.url());
        FAIL() << "no authority gave a time-stamp";
    } catch (const ApplicationException& e) {
        EXPECT_EQ(e.code().value(), 20017) << "the last one's";
        EXPECT_THAT(e.what(), HasSubstr(page.url()));
        EXPECT_THAT(e.what(), HasSubstr("time-stamp authority " + refused.url() + ": not for this"));
    }
}

TEST_F(Timestamp, NeedsAnAuthorityAndASignature) {
    EXPECT_THROW(stamp(" \t"), ApplicationException);
    EXPECT_THROW(stamp(""), ApplicationException);
    Transformer transformer;
    Transformer::Params params;
    params.authority = "http://127.0.0.1:1/";
    transformer.initialize(params);
    std::vector<unsigned char> out;
    EXPECT_THROW(transformer.finalize(out), ApplicationException);
}

TEST_F(Timestamp, NeedsTheBackEndsTools) {
    TimestampTools::install({});
    try {
        stamp("http://127.0.0.1:1/");
        FAIL() << "nothing was thrown";
    } catch (const CryptoException& e) {
        EXPECT_EQ(e.code().value(), 30007);
        EXPECT_STREQ(e.what(), "the cryptographic back-end offers no time-stamps");
    }
}

} // namespace
