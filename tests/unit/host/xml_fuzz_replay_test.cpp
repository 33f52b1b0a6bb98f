// The fuzz target's properties over signed documents made here, damaged in every octet, and over the published ones,
// within bounds on time and memory.

#include "corpora/manifest.hpp"
#include "xml_signing.hpp"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

using host_test::referenceTemplate;
using host_test::transformElement;

constexpr std::size_t mostMemory = 200UL * 1024; // KiB more than before the first document

#ifdef KLUNORTREDI_SANITIZED
constexpr bool measuresMemory = false; // the sanitizers' own memory is part of it
#else
constexpr bool measuresMemory = true;
#endif

std::size_t peakMemory() {
    rusage used{};
    getrusage(RUSAGE_SELF, &used);
    return static_cast<std::size_t>(used.ru_maxrss);
}

/// Asserts the bound on memory over what a test replays; the target itself asserts the one on time.
class XmlFuzzReplay : public testing::Test {
protected:
    ~XmlFuzzReplay() override {
        if (measuresMemory) {
            EXPECT_LT(peakMemory() - before_, mostMemory);
        }
    }

    static void replay(const std::string& text) {
        ASSERT_EQ(LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()), 0);
    }

    /// `text`, and `text` with every `step`-th octet changed, missing from there on, or written twice.
    static void replayDamaged(const std::string& text, std::size_t step) {
        replay(text);
        for (std::size_t i = 0; i < text.size(); i += step) {
            std::string damaged = text;
            damaged[i] = static_cast<char>(damaged[i] ^ 1 << i % 8);
            replay(damaged);
            replay(text.substr(0, i));
            replay(text.substr(0, i) + text.substr(i / 2));
        }
    }

private:
    std::size_t before_ = peakMemory();
};

TEST_F(XmlFuzzReplay, HoldsForDamagedDocumentsOfEveryForm) {
    const host_test::Signer signer(host_test::rsaSigner());
    const std::string itself = transformElement(host_test::enveloped);
    const std::string canonical = transformElement(host_test::exclusive);
    const auto sign = [&](const std::string& references, const std::string& after = {}) {
        return host_test::signTemplate(signer, "<doc xmlns:x=\"urn:x\" Id=\"d1\"><part Id=\"p1\" x:k=\"1\">100</part>" +
                                                   host_test::signatureTemplate(references, "<X509Data/>", after) +
                                                   "</doc>");
    };
    replayDamaged(sign(referenceTemplate("", itself + canonical)), 3);
    replayDamaged(sign(referenceTemplate("#d1", itself + transformElement("http://www.w3.org/2006/12/xml-c14n11"))), 7);
    replayDamaged(sign(referenceTemplate("#p1", canonical)), 7);
    replayDamaged(sign(referenceTemplate("", itself) + referenceTemplate("#o1"), "<Object Id=\"o1\">x</Object>"), 7);
    const std::string withProperties = host_test::signXml(signer, "<?xml version=\"1.0\"?>\n<invoice/>");
    replayDamaged(withProperties, 7);
    replayDamaged(host_test::replaced(
                      withProperties, "</xades:QualifyingProperties>",
                      "<xades:UnsignedProperties><xades:UnsignedSignatureProperties><xades:SignatureTimeStamp>"
                      "<CanonicalizationMethod Algorithm=\"http://www.w3.org/2001/10/xml-exc-c14n#\"/>"
                      "<xades:EncapsulatedTimeStamp>MAMCAQE=</xades:EncapsulatedTimeStamp></xades:SignatureTimeStamp>"
                      "</xades:UnsignedSignatureProperties></xades:UnsignedProperties></xades:QualifyingProperties>"),
                  7);
}

TEST_F(XmlFuzzReplay, HoldsForPublishedDocuments) {
    const auto root = corpora::root();
    if (!root) {
        GTEST_SKIP() << "the folder of published cases is not here (KLUNORTREDI_CORPORA)";
    }
    const auto folder = std::filesystem::path(*root) / "xmldsig-xmlsec";
    std::size_t replayed = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        if (entry.path().extension() == ".xml") {
            std::ifstream file(entry.path(), std::ios::binary);
            const std::string text{std::istreambuf_iterator<char>(file), {}};
            replay(text);
            replayDamaged(text, text.size() / 8 + 1);
            ++replayed;
        }
    }
    EXPECT_GT(replayed, 100U);
}

} // namespace
