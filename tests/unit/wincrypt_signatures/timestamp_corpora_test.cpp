// Published time-stamp responses: the token alone, against its data or its request, without the authority's chain.

#include "corpora/tally.hpp"
#include "support/temp_folder.hpp"
#include "timestamp_glue.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/tools_timestamp.hpp"
#include "crypto/wincrypt/tools_verify.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "orvik/plugin/crypto/i_certificate.hpp"
#include "orvik/plugin/exception/application_exception.hpp"

#include <gmock/gmock.h>
#include <openssl/ts.h>

#include <memory>

namespace {

using corpora::Case;
using orvik::plugin::crypto::cadest::TimestampVerdict;
using test_support::readFile;
namespace wincrypt = orvik::plugin::wincrypt;

struct FreeResponse {
    void operator()(TS_RESP* response) const { TS_RESP_free(response); }
};
struct FreeRequest {
    void operator()(TS_REQ* request) const { TS_REQ_free(request); }
};

std::string text(const ASN1_STRING* string) {
    return {reinterpret_cast<const char*>(ASN1_STRING_get0_data(string)),
            static_cast<std::size_t>(ASN1_STRING_length(string))};
}

std::unique_ptr<TS_RESP, FreeResponse> response(const std::string& der) {
    const auto* at = reinterpret_cast<const unsigned char*>(der.data());
    return std::unique_ptr<TS_RESP, FreeResponse>(d2i_TS_RESP(nullptr, &at, static_cast<long>(der.size())));
}

/// DER of the token of a response.
std::string tokenOf(const std::string& der) {
    const auto read = response(der);
    unsigned char* out = nullptr;
    const int size = i2d_PKCS7(TS_RESP_get_token(read.get()), &out);
    std::string token(reinterpret_cast<const char*>(out), static_cast<std::size_t>(size));
    OPENSSL_free(out);
    return token;
}

/// The certificate that the token's signer names, from those that it carries.
std::string authorityOf(const std::string& token) {
    wincrypt::HCRYPTMSG message;
    *message.put() = wincrypt::CryptMsgOpenToDecode(capi::X509_AND_PKCS_7, 0, 0, 0, nullptr, nullptr);
    const auto* const octets = reinterpret_cast<const BYTE*>(token.data());
    EXPECT_NE(wincrypt::CryptMsgUpdate(message.get(), octets, static_cast<DWORD>(token.size()), 1), 0);
    const auto certificate = wincrypt::tools::certificate(message.get());
    return certificate ? certificate->raw() : std::string{};
}

/// By the plug-in's own functions: imprint and nonce of the request, and the token's signature.
std::string againstQuery(const std::string& responseDer, const std::string& requestDer) {
    const auto* at = reinterpret_cast<const unsigned char*>(requestDer.data());
    const std::unique_ptr<TS_REQ, FreeRequest> request(d2i_TS_REQ(nullptr, &at, static_cast<long>(requestDer.size())));
    const ASN1_INTEGER* const nonce = TS_REQ_get_nonce(request.get());
    const auto read = response(responseDer);
    if (nonce != nullptr && text(nonce) != text(TS_TST_INFO_get_nonce(TS_RESP_get_tst_info(read.get())))) {
        return "INVALID";
    }
    const wincrypt::HCRYPTPROV none;
    auto parsed = wincrypt::tools::parseTspResponse(none, responseDer);
    parsed.content->certificate = authorityOf(parsed.content->token);
    try {
        wincrypt::tools::validateTspResponse(parsed, none,
                                             text(TS_MSG_IMPRINT_get_msg(TS_REQ_get_msg_imprint(request.get()))));
    } catch (const orvik::plugin::exception::ApplicationException&) {
        return "INVALID";
    }
    return "VALID";
}

std::string outcome(const Case& row) {
    const std::string der = readFile(row.inputPath());
    if (row.has("query")) {
        return againstQuery(der, readFile(row.path("query")));
    }
    const orvik::plugin::timestamp_glue::WincryptTimestampTools tools;
    const TimestampVerdict verdict = tools.judge(tokenOf(der), readFile(row.path("data")));
    return verdict.result == TimestampVerdict::Result::valid     ? "VALID"
           : verdict.result == TimestampVerdict::Result::invalid ? "INVALID"
                                                                 : "not judged: " + verdict.reason;
}

class PublishedTimestamps : public testing::TestWithParam<const char*> {};

TEST_P(PublishedTimestamps, GetTheVerdictOfTheirPublishers) {
    const auto root = corpora::root();
    if (!root) {
        GTEST_SKIP() << "the folder of published cases is not here (KLUNORTREDI_CORPORA)";
    }
    corpora::Tally tally(GetParam() + std::string(" time-stamps"));
    for (const Case& row : corpora::cases(*root, GetParam())) {
        if ((row.op == "ts-verify" || row.op == "ts-imprint") && tally.offered(row)) {
            tally.note(row, outcome(row));
        }
    }
    tally.print();
    EXPECT_THAT(tally.surprises(), testing::IsEmpty());
    EXPECT_GT(tally.right(), 0);
}

INSTANTIATE_TEST_SUITE_P(Folder, PublishedTimestamps, testing::Values("gost-tsp-generated", "rfc3161"),
                         [](const auto& row) {
                             return std::string(row.param) == "rfc3161" ? "rfc3161" : "gost_tsp_generated";
                         });

} // namespace
