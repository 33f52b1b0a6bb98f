#include "enveloped_support.hpp"

#include "core/error.hpp"
#include "core/ossl.hpp"
#include "crypto/engine.hpp"
#include "crypto/signature.hpp"
#include "exports/export.hpp"
#include "keys/container.hpp"
#include "keys/context.hpp"
#include "keys/providers.hpp"
#include "x509/cert_info.hpp"

#include <algorithm>
#include <stdexcept>

namespace klunortredi::test {

namespace {

namespace api = csp::exports;

DWORD providerTypeOf(const csp::KeyAlgorithm& algorithm) {
    switch (algorithm.signId) {
    case capi::CALG_GR3410_12_256:
        return capi::PROV_GOST_2012_256;
    case capi::CALG_GR3410_12_512:
        return capi::PROV_GOST_2012_512;
    case capi::CALG_GR3410EL:
        return capi::PROV_GOST_2001_DH;
    default:
        return capi::PROV_RSA_AES;
    }
}

/// The recipient that the certificate names; nothing when there is none.
std::optional<DWORD> findRecipient(const Msg& msg, ByteView certificate) {
    const csp::CertInfo own(certificate);
    const auto same = [](const auto& a, const auto& b) {
        return std::equal(a.pbData, a.pbData + a.cbData, b.pbData, b.pbData + b.cbData);
    };
    const DWORD count = msg.number(capi::CMSG_RECIPIENT_COUNT_PARAM);
    for (DWORD i = 0; i < count; ++i) {
        const Bytes param = msg.param(capi::CMSG_RECIPIENT_INFO_PARAM, i);
        const auto& info = *reinterpret_cast<const CERT_INFO*>(param.data());
        if (same(info.SerialNumber, own.get().SerialNumber) && same(info.Issuer, own.get().Issuer)) {
            return i;
        }
    }
    return std::nullopt;
}

} // namespace

Signer makeRecipient(const Bytes& privateKey, const Bytes& certificate) {
    useOwnHome();
    csp::gostEngine();
    const Bytes der = fromPem(privateKey);
    const unsigned char* next = der.data();
    const csp::ossl::Pkey key(d2i_AutoPrivateKey(nullptr, &next, static_cast<long>(der.size())));
    if (!key) {
        throw std::runtime_error("the private key cannot be read");
    }
    static int made = 0;
    const csp::ContainerId id{"recipient" + std::to_string(++made), providerTypeOf(csp::keyAlgorithm(key.get()))};
    csp::NewContainer draft(id);
    draft.container().addKey(capi::AT_KEYEXCHANGE, key.get(), true, "");
    draft.commit();
    Signer recipient;
    recipient.certificate = fromPem(certificate);
    const std::wstring name(id.name.begin(), id.name.end());
    recipient.provider = csp::acquireContext(name, L"", id.providerType, 0);
    return recipient;
}

DWORD decrypt(const Msg& msg, const Signer& recipient, DWORD index) {
    const CMSG_CTRL_DECRYPT_PARA parameters{sizeof parameters, recipient.provider, recipient.keySpec, index};
    return api::CryptMsgControl(msg.handle(), 0, capi::CMSG_CTRL_DECRYPT, &parameters) != 0 ? 0 : api::GetLastError();
}

Opened open(const Signer& recipient, ByteView message, const OpenOptions& options) {
    Collected collected;
    CMSG_STREAM_INFO stream = collected.info();
    const Msg msg = Msg::decode(0, options.streamed ? &stream : nullptr);
    Opened opened;
    bool unlocked = false;
    const auto unlock = [&] {
        const std::optional<DWORD> index =
            options.recipient ? options.recipient : findRecipient(msg, recipient.certificate);
        unlocked = true;
        opened.error = index ? decrypt(msg, recipient, *index) : capi::CRYPT_E_RECIPIENT_NOT_FOUND;
    };
    const std::size_t chunk = options.chunk == whole ? std::max<std::size_t>(message.size(), 1) : options.chunk;
    for (std::size_t at = 0; opened.error == 0 && at < message.size(); at += chunk) {
        const ByteView piece = message.subspan(at, std::min(chunk, message.size() - at));
        opened.error = msg.feed(piece, whole, at + piece.size() == message.size());
        if (opened.error == 0 && options.keyFirst && !unlocked &&
            msg.paramError(capi::CMSG_RECIPIENT_COUNT_PARAM) == 0) {
            unlock();
        }
    }
    if (opened.error == 0 && !unlocked) {
        unlock();
    }
    opened.plaintext = collected.octets;
    opened.finalCalls = collected.finalCalls;
    if (!options.streamed && opened.error == 0) {
        opened.plaintext = msg.param(capi::CMSG_CONTENT_PARAM);
    }
    return opened;
}

Bytes opensslEncrypt(const TempFolder& folder, const std::vector<Bytes>& certificates, ByteView content,
                     const std::string& words) {
    std::string files;
    for (std::size_t i = 0; i < certificates.size(); ++i) {
        const std::string name = "r" + std::to_string(i);
        writeFile(folder.path() / (name + ".der"), certificates[i]);
        if (run(folder, "openssl x509 -inform DER -in " + name + ".der -out " + name + ".pem") != 0) {
            throw std::runtime_error(output(folder));
        }
        files += " " + name + ".pem";
    }
    writeFile(folder.path() / "plain.bin", content);
    if (run(folder, "openssl cms -encrypt -binary -in plain.bin -outform DER -out sealed.der " + words + files) != 0) {
        throw std::runtime_error(output(folder));
    }
    return readFile(folder.path() / "sealed.der");
}

Bytes patternOf(std::size_t size) {
    Bytes octets(size);
    for (std::size_t i = 0; i < size; ++i) {
        octets[i] = static_cast<std::uint8_t>(i * 7 + i / 251);
    }
    return octets;
}

} // namespace klunortredi::test
