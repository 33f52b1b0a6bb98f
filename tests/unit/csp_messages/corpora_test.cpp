// Cases that other projects and standards bodies published, with their verdicts. Only the signature counts here: a row
// that is invalid for its chain or its time is expected as its valid twin.

#include "corpora/manifest.hpp"
#include "support.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <set>

namespace klunortredi::test {
namespace {

using corpora::Case;

/// What tells whether two rows ask the same about the signature itself.
std::string signatureKey(const Case& c) {
    return c.input + "|" + c.text("content");
}

Verdict verdictOf(const Case& c, std::size_t chunk) {
    VerifyOptions options;
    options.chunk = chunk;
    for (const char* const key : {"cert", "inter"}) {
        for (const std::string& file : c.paths(key)) {
            options.certificates.push_back(fromPem(readFile(file)));
        }
    }
    Bytes content;
    if (c.has("content")) {
        content = readFile(c.path("content"));
        options.detachedContent = &content;
    }
    return verifyStreamed(fromPem(readFile(c.inputPath())), options);
}

class Corpora : public testing::TestWithParam<const char*> {
protected:
    void SetUp() override {
        root_ = corpora::root();
        if (!root_) {
            GTEST_SKIP() << "the folder of published cases is not here (KLUNORTREDI_CORPORA)";
        }
    }
    [[nodiscard]] std::vector<Case> cases() const { return corpora::cases(*root_, GetParam()); }

    std::optional<std::string> root_;
};

TEST_P(Corpora, SignatureVerdictsAreThePublishedOnes) {
    const std::vector<Case> all = cases();
    std::set<std::string> validSignatures;
    for (const Case& c : all) {
        if (c.op == "cms-verify" && c.expected != "INVALID") {
            validSignatures.insert(signatureKey(c));
        }
    }
    std::size_t checked = 0;
    for (const Case& c : all) {
        if (c.op != "cms-verify") {
            continue;
        }
        ++checked;
        const bool expected = validSignatures.contains(signatureKey(c));
        const Verdict verdict = verdictOf(c, whole);
        EXPECT_EQ(verdict.error == 0, expected) << c.id << ": " << c.why << ": " << std::hex << verdict.error;
        if (expected && c.has("out")) {
            EXPECT_EQ(verdict.content, readFile(c.path("out"))) << c.id;
        }
        for (const std::size_t chunk : {std::size_t{1}, std::size_t{7}, std::size_t{4096}}) {
            EXPECT_EQ(verdictOf(c, chunk), verdict) << c.id << " in chunks of " << chunk;
        }
    }
    EXPECT_GT(checked, 0U);
}

INSTANTIATE_TEST_SUITE_P(Folders, Corpora,
                         testing::Values("gost-tc26-cms", "gost-gnutls-generated", "gost-adversarial", "gnutls-cms",
                                         "cms-interop"),
                         [](const auto& row) {
                             std::string name = row.param;
                             std::replace(name.begin(), name.end(), '-', '_');
                             return name;
                         });

class MessageCorpora : public Corpora {};

TEST_P(MessageCorpora, MessagesThatOthersParseAreRead) {
    std::size_t checked = 0;
    for (const Case& c : cases()) {
        if (c.op != "parse" || c.expected != "OK") {
            continue;
        }
        ++checked;
        Collected collected;
        CMSG_STREAM_INFO stream = collected.info();
        const Msg msg = Msg::decode(0, &stream);
        const DWORD error = msg.feed(fromPem(readFile(c.inputPath())));
        if (c.id == "bc-cert7") { // six octets of text stand behind the message
            EXPECT_EQ(error, capi::CRYPT_E_ASN1_NOEOD);
            continue;
        }
        EXPECT_TRUE(error == 0 || error == capi::CRYPT_E_INVALID_MSG_TYPE) << c.id << ": " << std::hex << error;
    }
    EXPECT_GT(checked, 0U);
}

INSTANTIATE_TEST_SUITE_P(Folders, MessageCorpora, testing::Values("cms-interop", "gnutls-cms"),
                         [](const auto& row) { return row.index == 0 ? "cms_interop" : "gnutls_cms"; });

class MalformedCorpora : public Corpora {};

TEST_P(MalformedCorpora, GiveACleanVerdictThatDoesNotDependOnChunks) {
    std::size_t checked = 0;
    for (const Case& c : cases()) {
        if (c.op != "parse" || c.text("type") != "cms") {
            continue;
        }
        ++checked;
        const Bytes message = readFile(c.inputPath());
        const Verdict verdict = verifyStreamed(message);
        VerifyOptions chunked;
        chunked.chunk = 1;
        EXPECT_EQ(verifyStreamed(message, chunked), verdict) << c.id;
    }
    EXPECT_GT(checked, 0U);
}

INSTANTIATE_TEST_SUITE_P(Folders, MalformedCorpora, testing::Values("malformed"),
                         [](const auto&) { return "malformed"; });

} // namespace
} // namespace klunortredi::test
