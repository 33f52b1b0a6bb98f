// Responses of a time-stamp authority: as they are, and with what they state signed by an authority made here. Whatever
// is accepted is for the octets and the nonce that were asked for. Built with libFuzzer, and replayed by a test.

#include "orvik/plugin/exception/exception.hpp"
#include "require.hpp"
#include "support/servers/authority.hpp"
#include "timestamp_glue.hpp"

#include <openssl/pkcs7.h>
#include <openssl/ts.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>

namespace {

using orvik::plugin::crypto::cadest::TimestampVerdict;
using orvik::plugin::timestamp_glue::WincryptTimestampTools;
using test_servers::Authority;
using test_servers::Owned;

using Query = Owned<TS_REQ, TS_REQ_free>;
using Response = Owned<TS_RESP, TS_RESP_free>;
using Info = Owned<TS_TST_INFO, TS_TST_INFO_free>;

const std::string stamped = "octets that are stamped"; // NOLINT: constants of a test program
const std::string nonce = "\x01\x23\x45\x67\x76\x54\x32\x10";
constexpr const char* sha256 = "2.16.840.1.101.3.4.2.1";

/// Made at the first use, and kept: their keys belong to OpenSSL, which is gone before static objects.
Authority& authority() {
    static auto* const made = new Authority;
    return *made;
}

const WincryptTimestampTools& tools() {
    static const auto* const made = new WincryptTimestampTools;
    return *made;
}

const std::string& request() {
    static const auto* const made = new std::string(tools().makeRequestFor(stamped, sha256, nonce));
    return *made;
}

template <class Pointer, class D2i>
Pointer decoded(const std::string& octets, D2i d2i) {
    const auto* next = reinterpret_cast<const unsigned char*>(octets.data());
    return Pointer(d2i(nullptr, &next, static_cast<long>(octets.size())));
}

/// The content of the token, as OpenSSL finds it.
std::optional<std::string> infoOf(TS_RESP* response) {
    PKCS7* const token = response == nullptr ? nullptr : TS_RESP_get_token(response);
    if (token == nullptr || !PKCS7_type_is_signed(token) || token->d.sign->contents->d.other == nullptr ||
        token->d.sign->contents->d.other->type != V_ASN1_OCTET_STRING) {
        return std::nullopt;
    }
    const ASN1_OCTET_STRING* const octets = token->d.sign->contents->d.other->value.octet_string;
    return std::string(reinterpret_cast<const char*>(ASN1_STRING_get0_data(octets)),
                       static_cast<std::size_t>(ASN1_STRING_length(octets)));
}

/// Whether the TSTInfo answers the request, by OpenSSL's reading.
bool answers(const std::string& info) {
    const auto query = decoded<Query>(request(), d2i_TS_REQ);
    const auto content = decoded<Info>(info, d2i_TS_TST_INFO);
    if (!query || !content || TS_TST_INFO_get_version(content.get()) != 1) {
        return false;
    }
    TS_MSG_IMPRINT* const asked = TS_REQ_get_msg_imprint(query.get());
    TS_MSG_IMPRINT* const given = TS_TST_INFO_get_msg_imprint(content.get());
    const ASN1_INTEGER* const number = TS_TST_INFO_get_nonce(content.get());
    return OBJ_cmp(TS_MSG_IMPRINT_get_algo(asked)->algorithm, TS_MSG_IMPRINT_get_algo(given)->algorithm) == 0 &&
           ASN1_STRING_cmp(TS_MSG_IMPRINT_get_msg(asked), TS_MSG_IMPRINT_get_msg(given)) == 0 && number != nullptr &&
           ASN1_INTEGER_cmp(TS_REQ_get_nonce(query.get()), number) == 0;
}

/// Whether the response is accepted. What is accepted must answer the request.
bool accepts(const std::string& response) {
    std::string token;
    try {
        token = tools().tokenFor(stamped, sha256, response, nonce);
    } catch (const orvik::plugin::exception::Exception&) {
        return false;
    }
    const auto parsed = decoded<Response>(response, d2i_TS_RESP);
    const auto info = infoOf(parsed.get());
    require(info && answers(*info), "what is accepted answers the request");
    require(tools().judge(token, stamped).result == TimestampVerdict::Result::valid, "what is accepted is valid");
    require(tools().judge(token, "other octets").result != TimestampVerdict::Result::valid, "for its octets only");
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize,
                                               unsigned int seed);
extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maxSize);

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string octets(data, data + size);
    accepts(octets);
    static_cast<void>(tools().judge(octets, stamped)); // must not crash, whatever it answers
    const auto response = decoded<Response>(octets, d2i_TS_RESP);
    const auto info = infoOf(response.get());
    if (info) {
        accepts(test_servers::grantedResponse(test_servers::signedToken(authority(), *info, {})));
    }
    return 0;
}

#ifndef KLUNORTREDI_REPLAY // begins with genuine answers
std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize, unsigned int seed) {
    static constexpr std::array words{"",          "other-nonce",    "no-nonce", "other-imprint",
                                      "rejected",  "no-token",       "expired",  "missing-usage",
                                      "other-key", "no-certificate", "past",     "trailing"};
    constexpr std::size_t smallest = 32; // of anything that is worth changing
    if (size >= smallest) {
        return LLVMFuzzerMutate(data, size, maxSize);
    }
    const std::string genuine = test_servers::timestampAnswer(authority(), request(), {words[seed % words.size()]});
    const std::size_t taken = std::min<std::size_t>(genuine.size(), maxSize);
    std::memcpy(data, genuine.data(), taken);
    return taken;
}
#endif
