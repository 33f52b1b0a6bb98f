// What the service signs, openssl and certtool accept; what openssl signs, the service accepts.

#include "openssl_tool.hpp"
#include "signing.hpp"

#include <gtest/gtest.h>

#include <algorithm>

namespace klunortredi::test {
namespace {

struct Row {
    const char* name;
    KeyKind key;
    const char* certtool; ///< further options
};

constexpr Row rows[] = {
    {"Gost256", KeyKind::Gost256, ""},
    {"Gost512", KeyKind::Gost512, ""},
    {"Gost2001", KeyKind::Gost2001, "--verify-allow-broken"},
    {"Rsa", KeyKind::Rsa, ""},
};

Bytes someContent(std::size_t size) {
    Bytes content(size);
    std::uint32_t state = 1;
    for (std::uint8_t& octet : content) {
        state = state * 1664525 + 1013904223;
        octet = static_cast<std::uint8_t>(state >> 24U);
    }
    return content;
}

class Signing : public testing::TestWithParam<Row> {
protected:
    Signing() : signer(makeSigner(GetParam().key)) { writeFile(folder.path() / "content", content); }

    /// The verdicts of all judges about a message over `content`.
    void expectValid(const Bytes& message, bool detached) {
        writeFile(folder.path() / "message", message);
        writeFile(folder.path() / "signer.der", signer.certificate);
        const std::string contentOption = detached ? " -content content" : "";
        EXPECT_EQ(
            run(folder, "openssl cms -verify -binary -noverify -inform DER -in message -out verified" + contentOption),
            0)
            << output(folder);
        EXPECT_EQ(readFile(folder.path() / "verified"), content);
        EXPECT_EQ(
            run(folder, std::string("openssl x509 -inform DER -in signer.der -out signer.pem && "
                                    "certtool --p7-verify --inder --infile message --load-certificate signer.pem ") +
                            GetParam().certtool + (detached ? " --load-data content" : "")),
            0)
            << output(folder);
        VerifyOptions options;
        options.detachedContent = detached ? &content : nullptr;
        const Verdict ours = verifyStreamed(message, options);
        EXPECT_EQ(ours.error, 0U) << std::hex << ours.error;
        EXPECT_EQ(ours.content, detached ? Bytes{} : content);
        EXPECT_EQ(ours.certificates, std::vector<Bytes>{signer.certificate});
    }

    TempFolder folder;
    Signer signer;
    Bytes content = someContent(200000);
};

TEST_P(Signing, AttachedWithAttributesIsAcceptedByAllJudges) {
    SignOptions options;
    options.attributes = someAttributes();
    expectValid(sign({signer}, content, options), false);
}

TEST_P(Signing, AttachedWithoutAttributesIsAcceptedByAllJudges) {
    expectValid(sign({signer}, content), false);
}

TEST_P(Signing, DetachedWithAttributesIsAcceptedByAllJudges) {
    SignOptions options;
    options.detached = true;
    options.attributes = someAttributes();
    expectValid(sign({signer}, content, options), true);
}

TEST_P(Signing, DetachedWithoutAttributesIsAcceptedByAllJudges) {
    SignOptions options;
    options.detached = true;
    expectValid(sign({signer}, content, options), true);
}

TEST_P(Signing, InOnePieceIsAcceptedByAllJudges) {
    SignOptions options;
    options.streamed = false;
    options.attributes = someAttributes();
    expectValid(sign({signer}, content, options), false);
}

TEST_P(Signing, OfAKnownSizeIsAcceptedByAllJudges) {
    SignOptions options;
    options.contentSize = static_cast<DWORD>(content.size());
    options.attributes = someAttributes();
    expectValid(sign({signer}, content, options), false);
}

INSTANTIATE_TEST_SUITE_P(Keys, Signing, testing::ValuesIn(rows), [](const auto& row) { return row.param.name; });

struct OpensslRow {
    const char* name;
    const char* key; ///< options of openssl genpkey
    const char* digest;
    const char* sign = ""; ///< further options of openssl cms
};

constexpr OpensslRow opensslRows[] = {
    {"Gost256", "-algorithm gost2012_256 -pkeyopt paramset:A", "md_gost12_256"},
    {"Gost512", "-algorithm gost2012_512 -pkeyopt paramset:A", "md_gost12_512"},
    {"Gost2001", "-algorithm gost2001 -pkeyopt paramset:A", "md_gost94"},
    {"RsaSha256", "-algorithm RSA -pkeyopt rsa_keygen_bits:2048", "sha256"},
    {"RsaSha1", "-algorithm RSA -pkeyopt rsa_keygen_bits:2048", "sha1"},
    {"RsaSha512", "-algorithm RSA -pkeyopt rsa_keygen_bits:2048", "sha512"},
    {"Ecdsa", "-algorithm EC -pkeyopt ec_paramgen_curve:P-256", "sha256"},
};

/// openssl cannot stream these.
constexpr OpensslRow pssRows[] = {
    {"RsaPss", "-algorithm RSA -pkeyopt rsa_keygen_bits:2048", "sha256", "-keyopt rsa_padding_mode:pss "},
    {"RsaPssKey", "-algorithm RSA-PSS -pkeyopt rsa_keygen_bits:2048", "sha512", "-keyopt rsa_padding_mode:pss "},
};

class Verifying : public testing::TestWithParam<OpensslRow> {
protected:
    Verifying() {
        writeFile(folder.path() / "content", content);
        require(std::string("openssl genpkey -out key.pem ") + GetParam().key);
        require(std::string("openssl req -new -x509 -config openssl.cnf -days 30 -key key.pem -out signer.pem -") +
                (std::string_view(GetParam().digest) == "sha1" ? "sha256" : GetParam().digest));
    }

    void require(const std::string& command) {
        ASSERT_EQ(run(folder, command), 0) << command << "\n" << output(folder);
    }

    Bytes signedBy(const std::string& options) {
        require(std::string("openssl cms -sign -binary -in content -signer signer.pem -inkey key.pem -outform DER "
                            "-out message -md ") +
                GetParam().digest + " " + GetParam().sign + options);
        return readFile(folder.path() / "message");
    }

    void expectValid(const Bytes& message, const Bytes* detached = nullptr) {
        for (const std::size_t chunk : {whole, std::size_t{4096}, std::size_t{7}, std::size_t{1}}) {
            VerifyOptions options;
            options.chunk = chunk;
            options.detachedContent = detached;
            const Verdict verdict = verifyStreamed(message, options);
            EXPECT_EQ(verdict.error, 0U) << "chunk " << chunk << std::hex << ", error " << verdict.error;
            EXPECT_EQ(verdict.content, detached == nullptr ? content : Bytes{});
        }
        // The same in one piece.
        const Msg msg = Msg::decode(detached == nullptr ? 0 : capi::CMSG_DETACHED_FLAG);
        EXPECT_EQ(msg.feed(message), 0U);
        EXPECT_EQ(msg.param(capi::CMSG_ENCODED_MESSAGE), message);
        EXPECT_EQ(msg.param(capi::CMSG_CONTENT_PARAM), detached == nullptr ? content : Bytes{});
        if (detached != nullptr) {
            EXPECT_EQ(msg.feed(*detached), 0U);
        }
        EXPECT_EQ(msg.verify(msg.signerCertificate()), 0U);
    }

    TempFolder folder;
    Bytes content = someContent(70000);
};

TEST_P(Verifying, AttachedIsAccepted) {
    expectValid(signedBy("-nodetach"));
}

class VerifyingStreams : public Verifying {};

TEST_P(VerifyingStreams, AttachedAsAStreamIsAccepted) {
    expectValid(signedBy("-nodetach -stream"));
}

TEST_P(Verifying, AttachedWithoutAttributesIsAccepted) {
    expectValid(signedBy("-nodetach -noattr"));
}

TEST_P(Verifying, DetachedIsAccepted) {
    expectValid(signedBy(""), &content);
}

TEST_P(Verifying, DetachedWithoutAttributesIsAccepted) {
    expectValid(signedBy("-noattr"), &content);
}

TEST_P(Verifying, SignerNamedByKeyIdentifierIsFound) {
    expectValid(signedBy("-nodetach -keyid"));
}

TEST_P(Verifying, OtherContentTypesAreAccepted) {
    expectValid(signedBy("-nodetach -econtent_type 1.2.840.113549.1.9.16.1.4"));
}

TEST_P(Verifying, ChangedContentIsRefused) {
    const Bytes message = signedBy("");
    Bytes changed = content;
    changed[1000] ^= 1;
    VerifyOptions options;
    options.detachedContent = &changed;
    EXPECT_EQ(verifyStreamed(message, options).error, capi::CRYPT_E_HASH_VALUE);
    const Bytes plain = signedBy("-noattr");
    EXPECT_EQ(verifyStreamed(plain, options).error, capi::NTE_BAD_SIGNATURE);
}

INSTANTIATE_TEST_SUITE_P(OpensslPss, Verifying, testing::ValuesIn(pssRows),
                         [](const auto& row) { return row.param.name; });
INSTANTIATE_TEST_SUITE_P(Openssl, VerifyingStreams, testing::ValuesIn(opensslRows),
                         [](const auto& row) { return row.param.name; });
INSTANTIATE_TEST_SUITE_P(Openssl, Verifying, testing::ValuesIn(opensslRows),
                         [](const auto& row) { return row.param.name; });

} // namespace
} // namespace klunortredi::test
