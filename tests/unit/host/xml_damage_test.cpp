// One octet of a signed document changed: refused, or the octet lies in a part that the signature does not cover and
// that has a name here.

#include "orvik/plugin/crypto/i_provider.hpp"
#include "orvik/plugin/xml/xml_document.hpp"
#include "xml_signing.hpp"

#include <gmock/gmock.h>

#include <algorithm>
#include <map>
#include <string>

namespace {

using host_test::Signer;
using orvik::plugin::xml::XmlSignatureResult;

constexpr const char* document =
    "<?xml version=\"1.0\"?>\n<invoice number='7' xmlns:p=\"urn:p\"><sum currency='RUB'>100</sum><p:note/></invoice>";

std::vector<XmlSignatureResult> verify(const std::string& text) {
    try {
        orvik::plugin::xml::XmlDocument parsed(text.data(), text.size());
        return orvik::plugin::xml::verifyXmlSignatures(parsed, {});
    } catch (const std::exception&) {
        return {};
    }
}

bool valid(const std::vector<XmlSignatureResult>& results) {
    return !results.empty() && std::ranges::all_of(results, &XmlSignatureResult::valid);
}

bool valid(const std::string& text) {
    return valid(verify(text));
}

/// The name of the part of a signed document that the octet lies in; empty for one that the signature covers.
std::string uncovered(const std::string& text, std::size_t at) {
    const auto within = [&](const char* begin, const char* end) {
        const auto first = text.find(begin);
        const auto last = text.find(end, first);
        return first != std::string::npos && at >= first && at < last + std::string(end).size();
    };
    if (within("<?xml", "?>")) {
        return "the XML declaration";
    }
    return within("<KeyInfo>", "</KeyInfo>") ? "KeyInfo" : "";
}

class XmlDamage : public testing::TestWithParam<host_test::SignerAlgorithm> {};

TEST_P(XmlDamage, OfOneOctetIsRefusedOrNamed) {
    const Signer signer(GetParam());
    const std::string text = host_test::signXml(signer, document);
    ASSERT_TRUE(valid(text)) << text;
    std::map<std::string, int> passed;
    for (std::size_t i = 0; i < text.size(); ++i) {
        for (const int change : {0x01, 0x20, 0xFF}) {
            std::string changed = text;
            changed[i] = static_cast<char>(changed[i] ^ change);
            const auto results = verify(changed);
            if (valid(results)) {
                // What the signature does not cover, the result names as such.
                EXPECT_TRUE(uncovered(text, i) != "KeyInfo" || !results[0].certificateProtected) << i;
                ++passed[uncovered(text, i)];
                EXPECT_NE(uncovered(text, i), "")
                    << "octet " << i << " in " << text.substr(i < 20 ? 0 : i - 20, 40) << " changed by " << change;
            }
        }
    }
    for (const auto& [part, count] : passed) {
        std::cout << part << ": " << count << " changes change nothing\n";
    }
}

// Whatever is cut off or added makes another document.
TEST_P(XmlDamage, ByTruncationOrRepetitionIsRefused) {
    const Signer signer(GetParam());
    const std::string text = host_test::signXml(signer, document);
    const auto end = text.find_last_of('>');
    for (std::size_t size = 0; size <= end; ++size) {
        EXPECT_FALSE(valid(text.substr(0, size))) << size;
    }
    EXPECT_FALSE(valid(text + text));
    EXPECT_FALSE(valid(text + "<more/>"));
    EXPECT_FALSE(valid(text + std::string(1, '\0')));
}

INSTANTIATE_TEST_SUITE_P(Algorithms, XmlDamage, testing::Values(host_test::rsaSigner(), host_test::gost256Signer()),
                         [](const auto& test) { return test.param.newKey == "rsa:2048" ? "Rsa" : test.param.newKey; });

} // namespace
