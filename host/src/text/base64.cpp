#include "orvik/plugin/base64.hpp"

#include <openssl/evp.h>

#include <algorithm>
#include <vector>

namespace orvik::plugin::base64 {

namespace {

constexpr std::size_t groupChars = 4;
constexpr std::size_t groupBytes = 3;

// The C locale's classes, whatever locale the application has set.
bool isSpace(char c) {
    return boost::string_view(" \t\r\n\v\f").find(c) != boost::string_view::npos;
}

bool isAlphabet(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' || c == '/';
}

/// Zero, one or two '=' end the text, and nothing else of it is outside the alphabet.
bool wellFormed(const std::string& text, std::size_t padding) {
    return !text.empty() && text.size() % groupChars == 0 && padding <= 2 &&
           std::all_of(text.begin(), text.end() - static_cast<std::ptrdiff_t>(padding), isAlphabet);
}

} // namespace

std::string encode(boost::string_view bytes) {
    std::string out((bytes.size() + groupBytes - 1) / groupBytes * groupChars, '\0');
    // EVP_EncodeBlock takes an int: whole groups per call keep the pieces joinable.
    constexpr std::size_t piece = groupBytes << 20;
    for (std::size_t done = 0; done < bytes.size(); done += piece) {
        const auto part = bytes.substr(done, piece);
        std::vector<unsigned char> buffer((part.size() + groupBytes - 1) / groupBytes * groupChars + 1);
        const int written = EVP_EncodeBlock(buffer.data(), reinterpret_cast<const unsigned char*>(part.data()),
                                            static_cast<int>(part.size()));
        std::copy_n(buffer.begin(), written, out.begin() + static_cast<std::ptrdiff_t>(done / groupBytes * groupChars));
    }
    return out;
}

std::string decode(boost::string_view text) {
    std::string packed;
    packed.reserve(text.size());
    std::copy_if(text.begin(), text.end(), std::back_inserter(packed), [](char c) { return !isSpace(c); });
    const auto padding = static_cast<std::size_t>(
        packed.rend() == packed.rbegin() ? 0 : std::find_if(packed.rbegin(), packed.rend(), [](char c) {
                                                   return c != '=';
                                               }) - packed.rbegin());
    if (!wellFormed(packed, padding)) {
        return {};
    }
    std::string out(packed.size() / groupChars * groupBytes, '\0');
    constexpr std::size_t piece = groupChars << 20;
    for (std::size_t done = 0; done < packed.size(); done += piece) {
        const std::size_t size = std::min(piece, packed.size() - done);
        EVP_DecodeBlock(reinterpret_cast<unsigned char*>(out.data() + done / groupChars * groupBytes),
                        reinterpret_cast<const unsigned char*>(packed.data() + done), static_cast<int>(size));
    }
    out.resize(out.size() - padding);
    return out;
}

bool likely(boost::string_view text, std::size_t count) {
    const auto head = text.substr(0, count);
    return !head.empty() &&
           std::all_of(head.begin(), head.end(), [](char c) { return isAlphabet(c) || isSpace(c) || c == '='; });
}

} // namespace orvik::plugin::base64
