#include "support.hpp"

#include "core/error.hpp"
#include "core/ossl.hpp"
#include "corpora/manifest.hpp"
#include "exports/export.hpp"
#include "messages/handles.hpp"
#include "x509/cert_info.hpp"

#include <openssl/pem.h>

#include <algorithm>
#include <fstream>
#include <iterator>

namespace klunortredi::test {

namespace {

namespace api = csp::exports;

BOOL collect(const void* argument, BYTE* data, DWORD size, BOOL final) {
    auto& to = *static_cast<Collected*>(const_cast<void*>(argument));
    ++to.calls;
    to.finalCalls += final != 0 ? 1 : 0;
    to.octets.insert(to.octets.end(), data, data + size);
    return to.octets.size() <= to.failAfter ? 1 : 0;
}

DWORD outcome(BOOL ok) {
    return ok != 0 ? 0 : api::GetLastError();
}

bool names(const CERT_INFO& id, const CERT_INFO& certificate) {
    const auto same = [](const auto& a, const auto& b) {
        return std::equal(a.pbData, a.pbData + a.cbData, b.pbData, b.pbData + b.cbData);
    };
    if (same(id.SerialNumber, certificate.SerialNumber) && same(id.Issuer, certificate.Issuer)) {
        return true;
    }
    // Named by key identifier: the issuer ends with its octets, as the extension does.
    return std::any_of(certificate.rgExtension, certificate.rgExtension + certificate.cExtension, [&](const auto& e) {
        const DWORD size = e.Value.cbData;
        return std::string_view(e.pszObjId) == "2.5.29.14" && size <= id.Issuer.cbData &&
               std::equal(e.Value.pbData, e.Value.pbData + size, id.Issuer.pbData + id.Issuer.cbData - size);
    });
}

} // namespace

Bytes bytes(std::string_view text) {
    return {text.begin(), text.end()};
}

Bytes readFile(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        throw std::runtime_error("cannot read " + file.string());
    }
    return {std::istreambuf_iterator<char>(in), {}};
}

void writeFile(const std::filesystem::path& file, ByteView content) {
    std::ofstream out(file, std::ios::binary);
    std::copy(content.begin(), content.end(), std::ostreambuf_iterator<char>(out));
    if (!out.flush()) {
        throw std::runtime_error("cannot write " + file.string());
    }
}

Bytes fromPem(Bytes derOrPem) {
    constexpr std::string_view begin = "-----BEGIN";
    if (std::ranges::search(derOrPem, begin).empty()) {
        return derOrPem;
    }
    const csp::ossl::Bio in(BIO_new_mem_buf(derOrPem.data(), static_cast<int>(derOrPem.size())));
    char* name = nullptr;
    char* header = nullptr;
    unsigned char* data = nullptr;
    long size = 0;
    if (PEM_read_bio(in.get(), &name, &header, &data, &size) != 1) {
        throw std::runtime_error("malformed PEM");
    }
    Bytes der(data, data + size);
    OPENSSL_free(name);
    OPENSSL_free(header);
    OPENSSL_free(data);
    return der;
}

TempFolder::TempFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "csp_messages.XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
        throw std::runtime_error("no temporary folder");
    }
    path_ = name;
}

TempFolder::~TempFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

CMSG_STREAM_INFO Collected::info(DWORD size) {
    return {size, collect, this};
}

Msg::~Msg() {
    if (handle_ != nullptr) {
        api::CryptMsgClose(handle_);
    }
}

Msg Msg::decode(DWORD flags, CMSG_STREAM_INFO* stream, DWORD type) {
    return Msg(api::CryptMsgOpenToDecode(capi::X509_AND_PKCS_7, flags, type, 0, nullptr, stream));
}

DWORD Msg::feed(ByteView octets, std::size_t chunk, bool final) const {
    chunk = chunk == whole ? std::max<std::size_t>(octets.size(), 1) : chunk;
    do {
        const ByteView piece = octets.first(std::min(chunk, octets.size()));
        octets = octets.subspan(piece.size());
        const BOOL last = final && octets.empty() ? 1 : 0;
        if (api::CryptMsgUpdate(handle_, piece.data(), static_cast<DWORD>(piece.size()), last) == 0) {
            return api::GetLastError();
        }
    } while (!octets.empty());
    return 0;
}

Bytes Msg::param(DWORD type, DWORD index) const {
    DWORD size = 0;
    if (api::CryptMsgGetParam(handle_, type, index, nullptr, &size) == 0) {
        throw csp::ApiError(api::GetLastError());
    }
    Bytes value(size);
    if (api::CryptMsgGetParam(handle_, type, index, value.data(), &size) == 0) {
        throw csp::ApiError(api::GetLastError());
    }
    return value;
}

DWORD Msg::paramError(DWORD type, DWORD index) const {
    DWORD size = 0;
    return outcome(api::CryptMsgGetParam(handle_, type, index, nullptr, &size));
}

DWORD Msg::number(DWORD type) const {
    DWORD value = 0;
    DWORD size = sizeof value;
    if (api::CryptMsgGetParam(handle_, type, 0, &value, &size) == 0) {
        throw csp::ApiError(api::GetLastError());
    }
    return value;
}

DWORD Msg::verify(ByteView certificate) const {
    return verify(csp::CertInfo(certificate).get());
}

DWORD Msg::verify(const CERT_INFO& certificate) const {
    return outcome(api::CryptMsgControl(handle_, 0, capi::CMSG_CTRL_VERIFY_SIGNATURE, &certificate));
}

DWORD Msg::verifySigner(DWORD index, ByteView certificate) const {
    const PCCERT_CONTEXT context = api::CertCreateCertificateContext(capi::X509_AND_PKCS_7, certificate.data(),
                                                                     static_cast<DWORD>(certificate.size()));
    CMSG_CTRL_VERIFY_SIGNATURE_EX_PARA parameters{sizeof parameters, 0, index, capi::CMSG_VERIFY_SIGNER_CERT,
                                                  const_cast<CERT_CONTEXT*>(context)};
    const DWORD error = outcome(api::CryptMsgControl(handle_, 0, capi::CMSG_CTRL_VERIFY_SIGNATURE_EX, &parameters));
    api::CertFreeCertificateContext(context);
    return error;
}

DWORD Msg::addUnsignedAttribute(DWORD signer, Bytes attribute) const {
    const CMSG_CTRL_ADD_SIGNER_UNAUTH_ATTR_PARA parameters{
        sizeof parameters, signer, {static_cast<DWORD>(attribute.size()), attribute.data()}};
    return outcome(api::CryptMsgControl(handle_, 0, capi::CMSG_CTRL_ADD_SIGNER_UNAUTH_ATTR, &parameters));
}

Bytes Msg::signerCertificate(const std::vector<Bytes>& more) const {
    std::vector<Bytes> candidates = more;
    for (DWORD i = 0; i < number(capi::CMSG_CERT_COUNT_PARAM); ++i) {
        candidates.push_back(param(capi::CMSG_CERT_PARAM, i));
    }
    const Bytes id = param(capi::CMSG_SIGNER_CERT_INFO_PARAM);
    const auto found = std::ranges::find_if(candidates, [&](const Bytes& candidate) {
        return names(*reinterpret_cast<const CERT_INFO*>(id.data()), csp::CertInfo(candidate).get());
    });
    return found == candidates.end() ? Bytes{} : *found;
}

Verdict verifyStreamed(ByteView message, const VerifyOptions& options) {
    Verdict verdict;
    Collected collected;
    CMSG_STREAM_INFO stream = collected.info();
    const Msg msg = Msg::decode(options.detachedContent != nullptr ? capi::CMSG_DETACHED_FLAG : 0, &stream);
    verdict.error = msg.feed(message, options.chunk);
    verdict.content = collected.octets;
    if (verdict.error != 0) {
        return verdict;
    }
    verdict.certificates = csp::certificateCarrier(msg.handle())->certificates();
    if (options.detachedContent != nullptr) {
        verdict.error = msg.feed(*options.detachedContent, options.chunk);
    }
    if (verdict.error == 0) {
        try {
            const Bytes certificate = msg.signerCertificate(options.certificates);
            verdict.error = certificate.empty() ? capi::CRYPT_E_NO_SIGNER : msg.verify(certificate);
        } catch (const csp::ApiError& error) {
            verdict.error = error.code();
        }
    }
    return verdict;
}

std::filesystem::path corpora() {
    return ::corpora::root().value_or("");
}

} // namespace klunortredi::test
