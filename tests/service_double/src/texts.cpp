// Text conversions and digests.

#include "model.hpp"

#include "capi/constants.hpp"

#include <iconv.h>
#include <openssl/evp.h>

#include <array>
#include <stdexcept>

namespace service_double {

namespace {

std::string convert(const char* to, const char* from, const std::string& text) {
    constexpr std::size_t widest = 4; // octets of a character in any of the encodings used
    const iconv_t converter = iconv_open(to, from);
    std::string input = text;
    std::string output(text.size() * widest + widest, '\0');
    char* in = input.data();
    char* out = output.data();
    std::size_t inLeft = input.size();
    std::size_t outLeft = output.size();
    const std::size_t result = iconv(converter, &in, &inLeft, &out, &outLeft);
    iconv_close(converter);
    if (result == static_cast<std::size_t>(-1)) {
        throw std::invalid_argument("text cannot be converted");
    }
    output.resize(output.size() - outLeft);
    return output;
}

std::string octets(const std::wstring& text) {
    return {reinterpret_cast<const char*>(text.data()), text.size() * sizeof(wchar_t)};
}

} // namespace

std::string toUtf8(const std::wstring& text) {
    return convert("UTF-8", "WCHAR_T", octets(text));
}

std::string toCp1251(const std::wstring& text) {
    return convert("CP1251", "WCHAR_T", octets(text));
}

std::wstring fromUtf8(const std::string& text) {
    const auto wide = convert("WCHAR_T", "UTF-8", text);
    return {reinterpret_cast<const wchar_t*>(wide.data()), wide.size() / sizeof(wchar_t)};
}

std::string digestOf(ALG_ID algorithm, const std::string& data) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned size = 0;
    EVP_Digest(data.data(), data.size(), digest.data(), &size, algorithm == capi::CALG_SHA1 ? EVP_sha1() : EVP_sha256(),
               nullptr);
    return {reinterpret_cast<const char*>(digest.data()), size};
}

} // namespace service_double
