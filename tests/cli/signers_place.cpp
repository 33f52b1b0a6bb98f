#include "cli/signers_place.hpp"

#include <algorithm>
#include <stdexcept>

namespace cli_test {

void SignersPlace::makeIdentity(const std::string& name, const std::string& algorithm,
                                const std::vector<std::string>& options) const {
    std::vector<std::string> words{"req",  "-x509",       "-newkey", algorithm,     "-noenc", "-keyout", name + ".key",
                                   "-out", name + ".pem", "-subj",   "/CN=" + name, "-days",  "2"};
    if (algorithm.starts_with("gost")) {
        words.insert(words.end(), {"-pkeyopt", "paramset:A"});
    }
    words.insert(words.end(), options.begin(), options.end());
    openssl().must(words);
}

void SignersPlace::sign(const std::string& out, const std::vector<std::string>& signers,
                        const std::vector<std::string>& options) const {
    std::vector<std::string> words{"cms", "-sign", "-binary", "-in", "report.txt", "-outform", "DER", "-out", out};
    for (const std::string& signer : signers) {
        words.insert(words.end(), {"-signer", signer + ".pem", "-inkey", signer + ".key"});
    }
    words.insert(words.end(), options.begin(), options.end());
    openssl().must(words);
}

void SignersPlace::breakSignature(const std::string& in, const std::string& out, std::size_t fromEnd) const {
    const std::string head("\x04\x40", 2); // OCTET STRING of 64 octets
    std::string octets = folder().read(in);
    std::size_t at = octets.rfind(head);
    for (std::size_t i = 0; i < fromEnd && at != std::string::npos; ++i) {
        at = octets.rfind(head, at - 1);
    }
    if (at == std::string::npos) {
        throw std::runtime_error(in + " has no such signature value");
    }
    octets[at + 10] = static_cast<char>(octets[at + 10] ^ 1);
    folder().write(out, octets);
}

std::string SignersPlace::thumbprint(const std::string& name) const {
    const Outcome printed = openssl().run({"x509", "-in", name + ".pem", "-noout", "-fingerprint", "-sha1"});
    std::string digits;
    for (const char c : printed.out.substr(printed.out.find('=') + 1)) {
        if (c != ':' && c != '\n') {
            digits.push_back(static_cast<char>(std::tolower(static_cast<unsigned char>(c))));
        }
    }
    return digits;
}

} // namespace cli_test
