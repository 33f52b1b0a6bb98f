// Forged signers beside good ones, and messages made to cost memory or time.

#include "cli/hostile.hpp"

namespace cli_test {
namespace {

using testing::AnyOf;

/// A DER element.
std::string element(unsigned char identifier, const std::string& content) {
    std::string head(1, static_cast<char>(identifier));
    if (content.size() < 0x80) {
        head += static_cast<char>(content.size());
    } else {
        head += '\x84';
        for (const unsigned shift : {24U, 16U, 8U, 0U}) {
            head += static_cast<char>(content.size() >> shift & 0xFFU);
        }
    }
    return head + content;
}

/// A message of one signer, taken apart, in DER.
class Parts {
public:
    explicit Parts(const std::string& message) {
        const std::string signedData = content(content(children(content(message))[1]));
        for (const std::string& part : children(signedData)) {
            if (part[0] == '\xA0') {
                certificates = content(part);
            } else if (part == children(signedData).back()) {
                signer = content(part);
            } else {
                head += part;
            }
        }
    }

    /// The message with these certificates and signers.
    [[nodiscard]] std::string message(const std::string& newCertificates, const std::string& signers) const {
        const std::string signedData = element(0x30, head + element(0xA0, newCertificates) + element(0x31, signers));
        return element(0x30,
                       std::string("\x06\x09\x2A\x86\x48\x86\xF7\x0D\x01\x07\x02", 11) + element(0xA0, signedData));
    }

    static std::string content(const std::string& der) { return der.substr(headSize(der, 0)); }
    static std::vector<std::string> children(const std::string& content) {
        std::vector<std::string> list;
        for (std::size_t at = 0; at < content.size(); at += list.back().size()) {
            list.push_back(content.substr(at, headSize(content, at) + contentSize(content, at)));
        }
        return list;
    }

    std::string head; ///< version, digest algorithms, content
    std::string certificates;
    std::string signer; ///< the only SignerInfo

private:
    static unsigned char octet(const std::string& der, std::size_t at) {
        return static_cast<unsigned char>(der.at(at));
    }
    static std::size_t headSize(const std::string& der, std::size_t at) {
        const unsigned first = octet(der, at + 1);
        return first < 0x80 ? 2 : 2 + first - 0x80;
    }
    static std::size_t contentSize(const std::string& der, std::size_t at) {
        const unsigned first = octet(der, at + 1);
        std::size_t size = first < 0x80 ? first : 0;
        for (std::size_t i = 0; first >= 0x80 && i < first - 0x80; ++i) {
            size = size * 256 + octet(der, at + 2 + i);
        }
        return size;
    }
};

class HostileMessage : public HostileSize {
protected:
    /// A message of one signer with an elliptic curve key, made by openssl.
    Parts genuine() {
        files_.write("content", "the content");
        openssl_.must({"req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-keyout",
                       "key.pem", "-out", "signer.pem", "-subj", "/CN=signer"});
        openssl_.must({"cms", "-sign", "-binary", "-nodetach", "-in", "content", "-signer", "signer.pem", "-inkey",
                       "key.pem", "-outform", "DER", "-out", "message"});
        return Parts(files_.read("message"));
    }

    test_support::Openssl openssl_{files_};
};

/// The SignerInfo with the last octet of its signature value changed.
std::string forged(std::string signer) {
    signer.back() = static_cast<char>(signer.back() ^ 1);
    return signer;
}

TEST_F(HostileMessage, TheGenuineOneIsValid) {
    const Parts parts = genuine();
    EXPECT_EQ(verify("m.p7s", parts.message(parts.certificates, parts.signer)).exit, 0);
}

TEST_F(HostileMessage, AForgedSignerAfterAGoodOneIsSeen) {
    const Parts parts = genuine();
    EXPECT_EQ(verify("m.p7s", parts.message(parts.certificates, parts.signer + forged(parts.signer))).exit, 1);
}

TEST_F(HostileMessage, ManyForgedSignersAfterAGoodOneAreSeen) {
    const Parts parts = genuine();
    const std::string signers = parts.signer + repeated(forged(parts.signer), 40);
    EXPECT_THAT(verify("m.p7s", parts.message(parts.certificates, signers)).exit, AnyOf(1, 3));
}

// All certificates have one name and one key: the service tries a few and says so (4).
TEST_F(HostileMessage, HundredsOfSignersWithThousandsOfCertificates) {
    const Parts parts = genuine();
    std::string certificates;
    for (int i = 0; i < 4096; ++i) {
        std::string other = parts.certificates;
        other[other.size() - 1] = static_cast<char>(i);
        other[other.size() - 2] = static_cast<char>(i >> 8);
        certificates += other;
    }
    const auto outcome = verify("m.p7s", parts.message(certificates, repeated(forged(parts.signer), 256)));
    EXPECT_THAT(outcome.exit, AnyOf(1, 3, 4));
}

TEST_F(HostileMessage, AnAttributeWithMillionsOfValues) {
    const Parts parts = genuine();
    const std::string type("\x06\x03\x2A\x03\x04", 5);
    const std::string attribute = element(0x30, type + element(0x31, repeated(std::string("\x05\x00", 2), 7900000)));
    const std::string signer = element(0x30, Parts::content(parts.signer) + element(0xA1, attribute));
    EXPECT_THAT(verify("m.p7s", parts.message(parts.certificates, signer)).exit, AnyOf(1, 3));
}

} // namespace
} // namespace cli_test
