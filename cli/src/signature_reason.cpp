#include "signature_reason.hpp"

#include "capi/constants.hpp"
#include "current_failure.hpp"
#include "service_words.hpp"

#include <algorithm>
#include <iterator>

namespace klunortredi::cli {

namespace {

struct Reason {
    std::uint32_t code;
    const char* why;
};

constexpr Reason signatureReasons[] = {
    {capi::NTE_BAD_ALGID, "it depends on a broken digest algorithm (MD2, MD4 or MD5)"},
    {capi::NTE_BAD_KEY, "the signer's key is too short, or of a form with which anybody can sign"},
    {capi::CRYPT_E_NO_MATCH, "the signature names another signing certificate"},
    {capi::CRYPT_E_BAD_ENCODE, "the signature value or its signing-certificate attribute is malformed"},
};

} // namespace

std::string signatureReason(std::uint32_t code) {
    const auto* own = std::find_if(std::begin(signatureReasons), std::end(signatureReasons),
                                   [code](const Reason& row) { return row.code == code; });
    if (own != std::end(signatureReasons)) {
        return own->why;
    }
    std::string reason = refusalReason(code);
    const Meaning* meaning = serviceMeaning(code);
    return meaning == nullptr || *meaning->next == '\0' ? reason : reason + "; " + meaning->next;
}

} // namespace klunortredi::cli
