#include "verbs/verify_xml.hpp"

#include "crypto/wincrypt/signature_factory.hpp"
#include "failure.hpp"
#include "input.hpp"
#include "orvik/plugin/crypto/constant.hpp"

#include <algorithm>
#include <string>

namespace klunortredi::cli {

bool xmlSignatureIsValid(Input& document) {
    // An XML signature is checked over the whole parsed document; there is no streaming form of it.
    constexpr std::size_t largest = 256UL * 1024 * 1024;
    std::string octets(document.size() == 0 ? largest + 1 : std::min<std::uint64_t>(document.size(), largest) + 1,
                       '\0');
    document.raw().read(octets.data(), static_cast<std::streamsize>(octets.size()));
    document.check();
    octets.resize(static_cast<std::size_t>(document.raw().gcount()));
    if (octets.size() > largest) {
        throw Failure(ExitCode::input, "cannot verify " + document.name(), "the document is too large");
    }
    const orvik::plugin::wincrypt::SignatureFactory factory(orvik::plugin::crypto::constant::signature_xmldsig);
    const auto validator = factory.validator({});
    validator->initialize(*validator->params());
    validator->update(reinterpret_cast<const unsigned char*>(octets.data()), octets.size());
    std::vector<unsigned char> nothing;
    return validator->finalize(nothing);
}

} // namespace klunortredi::cli
