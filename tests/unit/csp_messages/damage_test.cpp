// One octet changed or the end missing: refused, unless the octet is one that nobody signs.

#include "asn1/der.hpp"
#include "signing.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>

namespace klunortredi::test {
namespace {

namespace der = csp::der;

/// Names of the parts of a message, by where they begin. What is not named here is refused when it changes.
class Map {
public:
    /// Of a DER message.
    explicit Map(const Bytes& message) : start_(message.data()) {
        der::Reader contentInfo(der::readOnly(message, der::tag::Sequence).content);
        contentInfo.read();
        der::Reader signedData = contentInfo.enter(0xA0).enter(der::tag::Sequence);
        mark(signedData.read().content, "version of the SignedData");
        signedData.read();
        signedData.read();
        for (der::Reader certificates = signedData.enter(0xA0); !certificates.empty();) {
            certificate(certificates.read().content);
        }
        for (der::Reader signers = signedData.enter(der::tag::Set); !signers.empty();) {
            signer(signers.read().content);
        }
    }

    /// The name of the part that holds the octet; empty for one that must not change.
    [[nodiscard]] std::string at(std::size_t position) const {
        for (const auto& [begin, part] : parts_) {
            if (position >= begin && position < begin + part.first) {
                return part.second;
            }
        }
        return {};
    }

private:
    void mark(ByteView part, const char* name) {
        parts_[static_cast<std::size_t>(part.data() - start_)] = {part.size(), name};
    }

    /// Whether a certificate is genuine and in force is a matter of its chain; here only its names and key count.
    void certificate(ByteView content) {
        der::Reader parts(content);
        der::Reader toBeSigned = parts.enter(der::tag::Sequence);
        mark(toBeSigned.read().whole, "certificate: version");
        toBeSigned.read(); // serial number
        mark(toBeSigned.read().whole, "certificate: signature algorithm");
        toBeSigned.read(); // issuer
        mark(toBeSigned.read().whole, "certificate: validity");
        mark(toBeSigned.read().whole, "certificate: subject");
        toBeSigned.read(); // key
        mark(toBeSigned.rest(), "certificate: extensions");
        mark(parts.rest(), "certificate: its issuer's signature");
    }

    void signer(ByteView content) {
        der::Reader parts(content);
        mark(parts.read().content, "version of the SignerInfo");
        parts.read();
        parts.read();
        parts.readIf(0xA0);
        der::Reader algorithm = parts.enter(der::tag::Sequence);
        algorithm.read();
        mark(algorithm.rest(), "parameters of the signature algorithm");
        parts.read();
        mark(parts.rest(), "unsigned attributes");
    }

    const std::uint8_t* start_;
    std::map<std::size_t, std::pair<std::size_t, const char*>> parts_;
};

struct Row {
    const char* name;
    KeyKind key;
    bool attributes;
    bool detached;
};

constexpr Row rows[] = {
    {"Gost256AttachedWithAttributes", KeyKind::Gost256, true, false},
    {"Gost256Attached", KeyKind::Gost256, false, false},
    {"Gost512DetachedWithAttributes", KeyKind::Gost512, true, true},
    {"RsaAttachedWithAttributes", KeyKind::Rsa, true, false},
    {"RsaDetached", KeyKind::Rsa, false, true},
};

class Damage : public testing::TestWithParam<Row> {
protected:
    Damage() {
        SignOptions options;
        options.detached = GetParam().detached;
        options.streamed = false;
        if (GetParam().attributes) {
            options.attributes = someAttributes();
            options.unsignedAttributes = {{"1.2.643.2.1.2.3.5", der::utf8String("not signed")}};
        }
        message = sign({makeSigner(GetParam().key)}, content, options);
    }

    [[nodiscard]] DWORD errorOf(const Bytes& changed, const Bytes* otherContent = nullptr) const {
        VerifyOptions options;
        if (GetParam().detached) {
            options.detachedContent = otherContent != nullptr ? otherContent : &content;
        }
        return verifyStreamed(changed, options).error;
    }

    Bytes content = bytes("the content of the message");
    Bytes message;
};

TEST_P(Damage, OfOneOctetIsRefusedUnlessNobodySignsIt) {
    ASSERT_EQ(errorOf(message), 0U);
    const Map map(message);
    std::map<std::string, std::size_t> ignored;
    for (std::size_t i = 0; i < message.size(); ++i) {
        for (const unsigned change : {0x01U, 0xFFU}) {
            Bytes changed = message;
            changed[i] = static_cast<std::uint8_t>(changed[i] ^ change);
            if (errorOf(changed) == 0) {
                EXPECT_NE(map.at(i), "") << "octet " << i << " changed by " << change;
                ++ignored[map.at(i)];
            }
        }
    }
    // Were nothing of it ever ignored, the map would be wrong, not the message safe.
    EXPECT_GT(ignored["version of the SignedData"], 0U);
    EXPECT_GT(ignored["certificate: its issuer's signature"], 0U);
}

/// Codes of all signers, each judged by its index with the certificate that it names; empty for a message that cannot
/// be read.
std::vector<DWORD> judgeAll(const Bytes& message) {
    const Msg msg = Msg::decode();
    std::vector<DWORD> codes;
    if (msg.feed(message) != 0) {
        return codes;
    }
    const DWORD certificates = msg.number(capi::CMSG_CERT_COUNT_PARAM);
    for (DWORD signer = 0; signer < msg.number(capi::CMSG_SIGNER_COUNT_PARAM); ++signer) {
        codes.push_back(capi::CRYPT_E_SIGNER_NOT_FOUND);
        for (DWORD i = 0; i < certificates && codes.back() == capi::CRYPT_E_SIGNER_NOT_FOUND; ++i) {
            codes.back() = msg.verifySigner(signer, msg.param(capi::CMSG_CERT_PARAM, i));
        }
    }
    return codes;
}

TEST(DamageOfSeveralSigners, OfOneOctetIsFoundInOneOfThemUnlessNobodySignsIt) {
    SignOptions options;
    options.streamed = false;
    options.attributes = someAttributes();
    const Bytes message = sign({makeSigner(KeyKind::Gost256), makeSigner(KeyKind::Rsa), makeSigner(KeyKind::Gost256)},
                               bytes("the content of the message"), options);
    const std::vector<DWORD> all(3, 0);
    ASSERT_EQ(judgeAll(message), all);
    const Map map(message);
    for (std::size_t i = 0; i < message.size(); ++i) {
        Bytes changed = message;
        changed[i] ^= 0x01;
        if (judgeAll(changed) == all) {
            EXPECT_NE(map.at(i), "") << "octet " << i;
        }
    }
}

TEST_P(Damage, OfTheContentIsRefused) {
    if (!GetParam().detached) {
        return; // the content is part of the message
    }
    for (std::size_t i = 0; i < content.size(); ++i) {
        Bytes changed = content;
        changed[i] ^= 0x01;
        EXPECT_NE(errorOf(message, &changed), 0U) << i;
    }
    Bytes longer = content;
    longer.push_back(0);
    EXPECT_NE(errorOf(message, &longer), 0U);
    longer.resize(content.size() - 1);
    EXPECT_NE(errorOf(message, &longer), 0U);
}

TEST_P(Damage, ByTruncationAnywhereIsRefusedAsTruncation) {
    for (std::size_t size = 0; size < message.size(); ++size) {
        const Bytes part(message.begin(), message.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_EQ(errorOf(part), capi::CRYPT_E_ASN1_EOD) << size;
    }
}

INSTANTIATE_TEST_SUITE_P(Forms, Damage, testing::ValuesIn(rows), [](const auto& row) { return row.param.name; });

TEST(Truncation, OfAStreamedMessageIsRefusedAnywhere) {
    const Bytes message = sign({makeSigner(KeyKind::Gost256)}, Bytes(100000, 0x5A));
    for (std::size_t size = 0; size<message.size(); size += size> 1000 && size < 99000 ? 997 : 1) {
        const Bytes part(message.begin(), message.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_EQ(verifyStreamed(part).error, capi::CRYPT_E_ASN1_EOD) << size;
    }
}

} // namespace
} // namespace klunortredi::test
