#include "chain_files.hpp"

#include "capi/constants.hpp"
#include "certificates.hpp"
#include "crypto/wincrypt/exceptions.hpp"
#include "crypto/wincrypt/handles.hpp"
#include "crypto/wincrypt/tools.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "current_failure.hpp"
#include "der_head.hpp"
#include "failure.hpp"
#include "input.hpp"
#include "orvik/plugin/base64.hpp"

#include <algorithm>
#include <cstdint>
#include <string_view>

namespace klunortredi::cli {

namespace {

namespace wincrypt = orvik::plugin::wincrypt;
using orvik::plugin::crypto::exception::SystemException;

constexpr std::size_t largestFile = std::size_t{64} << 20U; // the largest national CRLs have some ten million octets
constexpr std::size_t mostObjects = 4096; // of all files together; a national trust list has some hundred certificates
constexpr std::size_t sniffed = 256 * 1024; // octets in which the first PEM block begins
constexpr std::string_view blockBegin = "-----BEGIN ";
constexpr std::string_view blockEnd = "-----END ";
constexpr std::string_view dashes = "-----";
constexpr unsigned char tagUtcTime = 0x17;
constexpr unsigned char tagGeneralizedTime = 0x18;

enum class Kind : std::uint8_t { certificate, crl, bundle, keys, other };

/// A CRL has a time where a certificate has its validity (RFC 5280, 4.1 and 5.1); a bundle begins with its type; a
/// PKCS#12 file with its version, and a bundle after it (RFC 7292, 4).
Kind kindOf(std::string_view der) {
    DerHead head(der);
    if (!head.enter(tagSequence)) {
        return Kind::other;
    }
    if (head.tag() == tagOid) {
        return Kind::bundle;
    }
    if (head.tag() == tagInteger) {
        return head.skip() && head.enter(tagSequence) && head.tag() == tagOid ? Kind::keys : Kind::other;
    }
    if (!head.enter(tagSequence)) {
        return Kind::other;
    }
    if (head.tag() == tagExplicit0) {
        return Kind::certificate;
    }
    if (head.tag() == tagInteger && !head.skip()) {
        return Kind::other;
    }
    for (int skipped = 0; skipped < 2; ++skipped) { // algorithm and issuer
        if (head.tag() != tagSequence || !head.skip()) {
            return Kind::other;
        }
    }
    const auto next = head.tag();
    if (next == tagUtcTime || next == tagGeneralizedTime) {
        return Kind::crl;
    }
    return next == tagSequence ? Kind::certificate : Kind::other;
}

/// The first value of `octets` with its tag and length. Blocks of trusted certificates have more after it.
std::string firstValue(std::string_view octets) {
    DerHead head(octets);
    const auto contents = head.take(tagSequence);
    return contents ? std::string(octets.substr(0, octets.size() - head.rest().size())) : std::string{};
}

std::string kindOfLabel(std::string_view label) {
    return label.ends_with("CERTIFICATE") ? "a certificate" : label.ends_with("CRL") ? "a CRL" : "a bundle";
}

class Reader {
public:
    Reader(const std::string& path, ChainFiles& files) : input_(path), files_(files) {}

    void read() {
        const std::string head = input_.peek(sniffed);
        // DER of anything larger than 127 octets: the length's first octet is not a character of a text.
        const bool der = head.size() > 1 && head[0] == '\x30' && static_cast<unsigned char>(head[1]) >= 0x80;
        const bool pem = !der && (head.starts_with(blockBegin) || head.find("\n-----BEGIN ") != std::string::npos);
        const std::string octets = all(pem ? input_.raw() : input_.decoded());
        if (pem) {
            readBlocks(octets);
        } else {
            const std::string value = firstValue(octets);
            if (value.size() != octets.size()) { // BER, or more than one value
                const Kind kind = kindOf(octets);
                add(octets, kind == Kind::bundle || kind == Kind::keys ? kind : Kind::other, "");
            } else {
                add(value, kindOf(value), "");
            }
        }
    }

private:
    [[noreturn]] void refuse(const std::string& why) const {
        throw Failure(ExitCode::input, "cannot read " + input_.name(), why);
    }

    std::string all(std::istream& stream) const {
        std::string octets(largestFile + 1, '\0');
        stream.read(octets.data(), static_cast<std::streamsize>(octets.size()));
        input_.check();
        octets.resize(static_cast<std::size_t>(stream.gcount()));
        if (octets.size() > largestFile) {
            refuse("it is too large for certificates and CRLs");
        }
        if (octets.empty()) {
            refuse("it is empty");
        }
        return octets;
    }

    void readBlocks(std::string_view text) {
        bool found = false;
        for (auto begin = text.find(blockBegin); begin != std::string_view::npos; begin = text.find(blockBegin)) {
            text.remove_prefix(begin + blockBegin.size());
            const auto labelEnd = text.find(dashes);
            const std::string label(text.substr(0, labelEnd));
            const auto end = labelEnd == std::string_view::npos ? labelEnd : text.find(blockEnd, labelEnd);
            if (end == std::string_view::npos) {
                refuse("a PEM block has no end");
            }
            if (!text.substr(end + blockEnd.size()).starts_with(label + std::string(dashes))) {
                refuse("a PEM block does not end with the line of its label");
            }
            const bool wanted =
                label.ends_with("CERTIFICATE") || label.ends_with("CRL") || label == "PKCS7" || label == "CMS";
            if (wanted) {
                const auto bodyAt = labelEnd + dashes.size();
                const std::string_view body = text.substr(bodyAt, end - bodyAt);
                addBlock(orvik::plugin::base64::decode({body.data(), body.size()}), label);
                found = true;
            }
            text.remove_prefix(end);
        }
        if (!found) {
            refuse("none of its PEM blocks is a certificate, a CRL or a PKCS#7 bundle");
        }
    }

    void addBlock(const std::string& octets, const std::string& label) {
        const bool bundle = label == "PKCS7" || label == "CMS";
        const std::string value = bundle ? octets : firstValue(octets);
        add(value, kindOf(value), label);
    }

    /// `label` of the PEM block, empty outside one.
    void add(const std::string& der, Kind kind, const std::string& label) {
        const bool fits = label.empty() || (label.ends_with("CERTIFICATE") && kind == Kind::certificate) ||
                          (label.ends_with("CRL") && kind == Kind::crl) ||
                          ((label == "PKCS7" || label == "CMS") && kind == Kind::bundle);
        if (!fits) {
            refuse("a PEM block is not " + kindOfLabel(label));
        }
        switch (kind) {
        case Kind::certificate:
            addCertificate(der);
            break;
        case Kind::crl:
            count();
            files_.crls.push_back(der);
            break;
        case Kind::bundle:
            addBundle(der);
            break;
        case Kind::keys:
            throw KeyFileFailure(input_.name());
        case Kind::other:
            refuse("this is not a certificate, a CRL or a PKCS#7 bundle");
        }
    }

    void count() const {
        if (files_.certificates.size() + files_.crls.size() >= mostObjects) {
            refuse("there are more than " + std::to_string(mostObjects) + " certificates and CRLs");
        }
    }

    void addCertificate(const std::string& der) {
        count();
        try {
            files_.certificates.push_back(certificateFromDer(der)->raw());
        } catch (const SystemException& e) {
            throw Failure(ExitCode::input, "cannot read " + input_.name(), "a certificate in it is malformed", {},
                          static_cast<std::uint32_t>(e.code().value()));
        }
    }

    void addBundle(const std::string& octets) {
        wincrypt::HCRYPTMSG message;
        *message.put() = wincrypt::CryptMsgOpenToDecode(capi::X509_AND_PKCS_7, 0, 0, 0, nullptr, nullptr);
        if (!message || wincrypt::CryptMsgUpdate(message.get(), reinterpret_cast<const BYTE*>(octets.data()),
                                                 static_cast<DWORD>(octets.size()), 1) == 0) {
            throw Failure(ExitCode::input, "cannot read " + input_.name(), "this is not a PKCS#7 bundle", {},
                          wincrypt::GetLastErrorEx());
        }
        const auto each = [&](DWORD countParam, DWORD param, const auto& take) {
            const unsigned held = wincrypt::tools::param(message.get(), countParam);
            for (unsigned i = 0; i < held; ++i) {
                take(wincrypt::CryptMsgGetParamEx(message.get(), param, i));
            }
        };
        const std::size_t before = files_.certificates.size() + files_.crls.size();
        each(capi::CMSG_CERT_COUNT_PARAM, capi::CMSG_CERT_PARAM,
             [this](const std::string& der) { addCertificate(der); });
        each(capi::CMSG_CRL_COUNT_PARAM, capi::CMSG_CRL_PARAM, [this](const std::string& der) {
            count();
            files_.crls.push_back(der);
        });
        if (files_.certificates.size() + files_.crls.size() == before) {
            refuse("the PKCS#7 bundle is empty");
        }
    }

    Input input_;
    ChainFiles& files_;
};

} // namespace

KeyFileFailure::KeyFileFailure(const std::string& name)
    : Failure(ExitCode::input, "cannot read " + name, "it is a PKCS#12 file with a private key",
              "'klunortredi-csp container import' takes the key, 'klunortredi certs add' the certificates") {}

void readChainFile(const std::string& path, ChainFiles& files) {
    Reader(path, files).read();
}

} // namespace klunortredi::cli
