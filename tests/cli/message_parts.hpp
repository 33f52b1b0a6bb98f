#pragma once

/// Messages taken apart and put together again, octet by octet.

#include <string>
#include <vector>

namespace cli_test {

/// A DER element.
inline std::string element(unsigned char identifier, const std::string& content) {
    std::string head(1, static_cast<char>(identifier));
    if (content.size() < 0x80) {
        head += static_cast<char>(content.size());
    } else {
        head += '\x84';
        for (const unsigned shift : {24U, 16U, 8U, 0U}) {
            head += static_cast<char>(content.size() >> shift & 0xFFU);
        }
    }
    return head + content;
}

/// A message of one signer, taken apart, in DER.
class Parts {
public:
    explicit Parts(const std::string& message) {
        const std::string signedData = content(content(children(content(message))[1]));
        for (const std::string& part : children(signedData)) {
            if (part[0] == '\xA0') {
                certificates = content(part);
            } else if (part == children(signedData).back()) {
                signer = content(part);
            } else {
                head += part;
            }
        }
    }

    /// The message with these certificates and signers.
    [[nodiscard]] std::string message(const std::string& newCertificates, const std::string& signers) const {
        const std::string signedData = element(0x30, head + element(0xA0, newCertificates) + element(0x31, signers));
        return element(0x30,
                       std::string("\x06\x09\x2A\x86\x48\x86\xF7\x0D\x01\x07\x02", 11) + element(0xA0, signedData));
    }

    static std::string content(const std::string& der) { return der.substr(headSize(der, 0)); }
    static std::vector<std::string> children(const std::string& content) {
        std::vector<std::string> list;
        for (std::size_t at = 0; at < content.size(); at += list.back().size()) {
            list.push_back(content.substr(at, headSize(content, at) + contentSize(content, at)));
        }
        return list;
    }

    std::string head; ///< version, digest algorithms, content
    std::string certificates;
    std::string signer; ///< the only SignerInfo

private:
    static unsigned char octet(const std::string& der, std::size_t at) {
        return static_cast<unsigned char>(der.at(at));
    }
    static std::size_t headSize(const std::string& der, std::size_t at) {
        const unsigned first = octet(der, at + 1);
        return first < 0x80 ? 2 : 2 + first - 0x80;
    }
    static std::size_t contentSize(const std::string& der, std::size_t at) {
        const unsigned first = octet(der, at + 1);
        std::size_t size = first < 0x80 ? first : 0;
        for (std::size_t i = 0; first >= 0x80 && i < first - 0x80; ++i) {
            size = size * 256 + octet(der, at + 2 + i);
        }
        return size;
    }
};

} // namespace cli_test
