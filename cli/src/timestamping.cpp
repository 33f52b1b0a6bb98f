#include "timestamping.hpp"

#include "crypto/wincrypt/signature_factory.hpp"
#include "failure.hpp"
#include "orvik/plugin/crypto/cadest_transformer.hpp"
#include "timestamp_glue.hpp"

#include <boost/algorithm/string/join.hpp>
#include <boost/algorithm/string/predicate.hpp>

#include <locale>

namespace klunortredi::cli {

void checkAuthorities(const std::string& option, const std::vector<std::string>& urls) {
    for (const std::string& url : urls) {
        const bool known = boost::algorithm::istarts_with(url, "http://", std::locale::classic()) ||
                           boost::algorithm::istarts_with(url, "https://", std::locale::classic());
        if (!known || url.find_first_of(" \t\r\n") != std::string::npos) {
            throw Failure(ExitCode::usage, "cannot use " + option + " " + url,
                          "it is not the http or https address of a time-stamp authority");
        }
    }
}

std::vector<unsigned char> withTimestamp(const std::string& format, std::string_view signature,
                                         const std::vector<std::string>& urls) {
    orvik::plugin::timestamp_glue::installTimestampTools();
    const orvik::plugin::wincrypt::SignatureFactory factory(format);
    orvik::plugin::crypto::format::SignatureRequest request;
    request.cadesT = "true";
    const auto transformer = factory.transformer(request);
    orvik::plugin::crypto::cadest::Transformer::Params params;
    params.authority = boost::algorithm::join(urls, " ");
    transformer->initialize(params);
    transformer->update(reinterpret_cast<const unsigned char*>(signature.data()), signature.size());
    std::vector<unsigned char> out;
    transformer->finalize(out);
    return out;
}

} // namespace klunortredi::cli
