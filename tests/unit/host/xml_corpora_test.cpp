// Signed documents that the xmlsec project publishes, with their verdicts: the signature alone, with the keys that the
// document carries.

#include "corpora/tally.hpp"
#include "orvik/plugin/crypto/i_provider.hpp"
#include "orvik/plugin/xml/xml_document.hpp"
#include "support/temp_folder.hpp"

#include <gmock/gmock.h>

#include <algorithm>
#include <string>

namespace {

using corpora::Case;
using testing::IsEmpty;

/// VALID when the document has signatures and each is valid; else INVALID, with the reason where VALID is expected.
std::string verdict(const Case& row) {
    const std::string text = test_support::readFile(row.inputPath());
    std::string reason = "no signature";
    try {
        orvik::plugin::xml::XmlDocument document(text.data(), text.size());
        orvik::plugin::xml::XmlVerifyOptions options; // most rows are over parts, many carry a bare key
        options.allowPartial = true;
        options.allowBareKey = true;
        const auto results = orvik::plugin::xml::verifyXmlSignatures(document, {}, options);
        const auto bad = std::ranges::find_if(results, [](const auto& result) { return !result.valid; });
        if (!results.empty() && bad == results.end()) {
            return "VALID";
        }
        reason = bad == results.end() ? reason : bad->reason;
    } catch (const std::exception& error) {
        reason = error.what();
    }
    return row.expected == "INVALID" ? "INVALID" : "INVALID, " + reason + ",";
}

TEST(PublishedXml, SignaturesGetThePublishedVerdict) {
    const auto root = corpora::root();
    if (!root) {
        GTEST_SKIP() << "the folder of published cases is not here (KLUNORTREDI_CORPORA)";
    }
    corpora::Tally tally("xmldsig-xmlsec");
    for (const Case& row : corpora::cases(*root, "xmldsig-xmlsec")) {
        if (!corpora::judgedByChain(row) && tally.offered(row)) {
            tally.note(row, verdict(row));
        }
    }
    tally.print();
    EXPECT_GT(tally.right(), 0);
    EXPECT_THAT(tally.surprises(), IsEmpty());
}

} // namespace
