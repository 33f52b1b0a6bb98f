#include "cache_entry.hpp"

#include <openssl/evp.h>

#include <array>
#include <sstream>
#include <stdexcept>

namespace klunortredi::net {

namespace {

constexpr const char* version = "klunortredi-cache-1";
constexpr std::size_t digestCharacters = 64;
const std::size_t headSize = std::string(version).size() + 1 + digestCharacters + 1;

/// Length and text, so that texts need no separators.
std::string counted(const std::string& text) {
    return std::to_string(text.size()) + ":" + text;
}

bool readCounted(std::istringstream& in, std::string& text) {
    std::size_t size = 0;
    if (!(in >> size) || in.get() != ':' || size > in.str().size()) {
        return false;
    }
    text.resize(size);
    in.read(text.data(), static_cast<std::streamsize>(size));
    return static_cast<bool>(in);
}

std::string encodeFailure(const NetworkError& error) {
    return std::to_string(static_cast<int>(error.kind())) + " " + std::to_string(error.httpStatus()) + " " +
           counted(error.url()) + counted(error.reason()) + counted(error.mediaType());
}

std::optional<NetworkError> decodeFailure(const std::string& text) {
    std::istringstream in(text);
    int kind = -1;
    long status = 0;
    std::string url;
    std::string reason;
    std::string mediaType;
    if (!(in >> kind >> status) || kind < 0 || kind > static_cast<int>(ErrorKind::protocol) || !readCounted(in, url) ||
        !readCounted(in, reason) || !readCounted(in, mediaType)) {
        return std::nullopt;
    }
    return NetworkError(static_cast<ErrorKind>(kind), url, reason, status, mediaType);
}

} // namespace

std::string digestText(const std::string& octets) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned int size = 0;
    if (EVP_Digest(octets.data(), octets.size(), digest.data(), &size, EVP_sha256(), nullptr) != 1) {
        throw std::runtime_error("no SHA-256");
    }
    std::string text;
    for (unsigned int i = 0; i < size; ++i) {
        text += "0123456789abcdef"[digest[i] >> 4U];
        text += "0123456789abcdef"[digest[i] & 15U];
    }
    return text;
}

std::string encodeEntry(const CacheEntry& entry) {
    const std::string content =
        std::to_string(entry.storedAt) + " " + std::to_string(entry.validUntil) + " " +
        (entry.failure ? "failure\n" + encodeFailure(*entry.failure) : "download\n" + entry.octets);
    return std::string(version) + " " + digestText(content) + "\n" + content;
}

std::optional<CacheEntry> decodeEntry(const std::string& file) {
    if (file.size() < headSize || file[headSize - 1] != '\n') {
        return std::nullopt;
    }
    const std::string content = file.substr(headSize);
    if (file.substr(0, headSize - 1) != std::string(version) + " " + digestText(content)) {
        return std::nullopt;
    }
    const auto lineEnd = content.find('\n');
    std::istringstream line(content.substr(0, lineEnd));
    CacheEntry entry;
    std::string word;
    if (lineEnd == std::string::npos || !(line >> entry.storedAt >> entry.validUntil >> word)) {
        return std::nullopt;
    }
    entry.octets = content.substr(lineEnd + 1);
    if (word == "failure") {
        entry.failure = decodeFailure(entry.octets);
        entry.octets.clear();
        return entry.failure ? std::optional(entry) : std::nullopt;
    }
    return word == "download" ? std::optional(entry) : std::nullopt;
}

} // namespace klunortredi::net
