// Any octets as a signed XML document: they are judged or refused within bounds, and what is valid says over what.

#include "orvik/plugin/crypto/i_provider.hpp"
#include "orvik/plugin/exception/exception.hpp"
#include "orvik/plugin/xml/xml_document.hpp"
#include "require.hpp"

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace {

namespace xml = orvik::plugin::xml;

constexpr std::chrono::seconds longest{5};

void judge(const std::uint8_t* data, std::size_t size) {
    xml::XmlDocument document(reinterpret_cast<const char*>(data), size);
    const auto strict = xml::verifyXmlSignatures(document, {});
    xml::XmlVerifyOptions options;
    options.allowPartial = true;
    const auto lenient = xml::verifyXmlSignatures(document, {}, options);
    require(strict.size() == lenient.size(), "options do not change the number of signatures");
    for (std::size_t i = 0; i < strict.size(); ++i) {
        const auto& result = strict[i];
        require(result.valid == (result.verdict == xml::XmlSignatureVerdict::valid), "one verdict");
        require(result.valid == result.reason.empty(), "a reason exactly for what is not valid");
        require(!result.valid || result.wholeDocument, "valid means that the document is covered whole");
        require(!result.valid || !result.certificate.empty(), "valid means that the signer is known");
        require(!result.valid || lenient[i].valid, "what is valid stays so when parts are taken");
        for (const xml::XmlTimestamp& stamp : result.timestamps) {
            const bool readable = stamp.form == xml::XmlSignatureVerdict::valid;
            require(readable == stamp.problem.empty(), "a problem exactly for a time-stamp that cannot be judged");
            require(readable == !stamp.token.empty(), "a token exactly for a time-stamp that can be judged");
            require(readable == !stamp.octets.empty(), "a time-stamp that can be judged is for something");
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto start = std::chrono::steady_clock::now();
    try {
        judge(data, size);
    } catch (const orvik::plugin::exception::Exception&) { // NOLINT(bugprone-empty-catch): refused
    }
    require(std::chrono::steady_clock::now() - start < longest, "judged within the time");
    return 0;
}
