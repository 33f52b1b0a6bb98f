#include "xml_signing.hpp"

#include "orvik/plugin/ssl/xmldsig_creator.hpp"

#include <algorithm>
#include <stdexcept>
#include <vector>

namespace host_test {

std::string signXml(const Signer& signer, const std::string& document, std::size_t chunk) {
    orvik::plugin::ssl::xmldsig::Creator creator;
    orvik::plugin::ssl::xmldsig::Creator::Params params;
    params.certificate = signer.certificate();
    creator.initialize(params);
    const std::size_t step = chunk == 0 ? document.size() : chunk;
    for (std::size_t done = 0; done < document.size(); done += step) {
        std::size_t consumed = 0;
        const std::size_t size = std::min(step, document.size() - done);
        if (!creator.update(reinterpret_cast<const unsigned char*>(document.data()) + done, size, &consumed) ||
            consumed != size) {
            throw std::runtime_error("the creator did not take the document");
        }
    }
    std::vector<unsigned char> out;
    if (!creator.finalize(out)) {
        throw std::runtime_error("the creator made no signature");
    }
    return {out.begin(), out.end()};
}

} // namespace host_test
