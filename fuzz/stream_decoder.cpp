// The decoder of signed messages: how a message is cut into pieces, and whether it comes as a stream or in one piece,
// never changes what comes of it. Built with libFuzzer, and replayed by a test.

#include "capi/constants.hpp"
#include "exports/export.hpp"
#include "messages/message.hpp"
#include "require.hpp"
#include "x509/cert_info.hpp"

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <span>
#include <vector>

namespace {

using klunortredi::csp::Bytes;
using klunortredi::csp::ByteView;
namespace api = klunortredi::csp::exports;

/// What came of a message.
struct Result {
    DWORD readError = 0;
    Bytes content;
    std::vector<Bytes> certificates;
    std::vector<DWORD> numbers;  ///< of signers, CRLs
    std::vector<Bytes> values;   ///< hash and signature value of each signer
    std::vector<DWORD> verdicts; ///< of each certificate's key; of each signer by each certificate
    friend bool operator==(const Result&, const Result&) = default;
};

/// Sizes of pieces, drawn from a seed: mostly small, sometimes large.
class Cuts {
public:
    explicit Cuts(std::uint32_t seed) : state_(seed) {}
    std::size_t next() {
        state_ = state_ * 1664525U + 1013904223U;
        const std::uint32_t drawn = state_ >> 16U;
        return (drawn & 3U) == 0 ? 1 + drawn % 1024 : 1 + drawn % 9;
    }

private:
    std::uint32_t state_;
};

BOOL collect(const void* argument, BYTE* data, DWORD size, BOOL /*final*/) {
    auto& content = *static_cast<Bytes*>(const_cast<void*>(argument));
    content.insert(content.end(), data, data + size);
    return 1;
}

/// Feeds `octets`, cut as drawn or whole; the code of the first failure.
DWORD feed(void* message, ByteView octets, std::optional<Cuts> cuts) {
    do {
        const ByteView piece = octets.first(cuts ? std::min(cuts->next(), octets.size()) : octets.size());
        octets = octets.subspan(piece.size());
        if (api::CryptMsgUpdate(message, piece.data(), static_cast<DWORD>(piece.size()), octets.empty() ? 1 : 0) == 0) {
            return api::GetLastError();
        }
    } while (!octets.empty());
    return 0;
}

Bytes param(void* message, DWORD type, DWORD index = 0) {
    DWORD size = 0;
    if (api::CryptMsgGetParam(message, type, index, nullptr, &size) == 0) {
        const DWORD error = api::GetLastError();
        const auto* first = reinterpret_cast<const std::uint8_t*>(&error);
        return {first, first + sizeof error};
    }
    Bytes value(size);
    if (api::CryptMsgGetParam(message, type, index, value.data(), &size) == 0) {
        std::abort(); // what is there once is there twice
    }
    return value;
}

DWORD number(void* message, DWORD type) {
    DWORD value = 0;
    DWORD size = sizeof value;
    return api::CryptMsgGetParam(message, type, 0, &value, &size) != 0 ? value : ~DWORD{0};
}

DWORD verdict(void* message, ByteView certificate) {
    try {
        const klunortredi::csp::CertInfo info(certificate);
        const BOOL ok = api::CryptMsgControl(message, 0, capi::CMSG_CTRL_VERIFY_SIGNATURE, &info.get());
        return ok != 0 ? 0 : api::GetLastError();
    } catch (const klunortredi::csp::ApiError& error) {
        return error.code();
    }
}

/// Judges the signer of that index by a certificate.
DWORD signerVerdict(void* message, DWORD index, ByteView certificate) {
    const PCCERT_CONTEXT context = api::CertCreateCertificateContext(capi::X509_AND_PKCS_7, certificate.data(),
                                                                     static_cast<DWORD>(certificate.size()));
    if (context == nullptr) {
        return api::GetLastError();
    }
    CMSG_CTRL_VERIFY_SIGNATURE_EX_PARA parameters{sizeof parameters, 0, index, capi::CMSG_VERIFY_SIGNER_CERT,
                                                  const_cast<CERT_CONTEXT*>(context)};
    const BOOL ok = api::CryptMsgControl(message, 0, capi::CMSG_CTRL_VERIFY_SIGNATURE_EX, &parameters);
    const DWORD error = ok != 0 ? 0 : api::GetLastError();
    api::CertFreeCertificateContext(context);
    return error;
}

/// Errors of the counter-signatures of a signer; the code of the refusal when they cannot be had.
void counterVerdicts(void* message, DWORD index, std::vector<DWORD>& verdicts) {
    const Bytes list = param(message, capi::CMSG_COUNTER_SIGNATURES_PARAM, index);
    if (list.size() < sizeof(CMSG_COUNTER_SIGNATURES)) {
        verdicts.push_back(api::GetLastError());
        return;
    }
    const auto* head = reinterpret_cast<const CMSG_COUNTER_SIGNATURES*>(list.data());
    for (const CMSG_COUNTER_SIGNATURE& one : std::span(head->rgCounterSignature, head->cCounterSignature)) {
        verdicts.insert(verdicts.end(), {one.dwParent, one.dwError});
    }
}

struct Way {
    bool streamed;
    bool detached;
    std::optional<Cuts> cuts;
};

Result decode(ByteView octets, const Way& way) {
    Result result;
    CMSG_STREAM_INFO stream{capi::CMSG_INDEFINITE_LENGTH, collect, &result.content};
    void* const message = api::CryptMsgOpenToDecode(capi::X509_AND_PKCS_7, way.detached ? capi::CMSG_DETACHED_FLAG : 0,
                                                    0, 0, nullptr, way.streamed ? &stream : nullptr);
    result.readError = feed(message, octets, way.cuts);
    if (result.readError == 0) {
        if (way.detached) {
            result.readError = feed(message, octets.first(octets.size() / 2), way.cuts);
        } else if (!way.streamed && number(message, capi::CMSG_TYPE_PARAM) != capi::CMSG_ENVELOPED) {
            // The content of an encrypted message waits for its key; the target of those compares it.
            result.content = param(message, capi::CMSG_CONTENT_PARAM);
        }
        result.certificates = klunortredi::csp::certificateCarrier(message)->certificates();
        result.numbers = {number(message, capi::CMSG_SIGNER_COUNT_PARAM), number(message, capi::CMSG_CRL_COUNT_PARAM)};
        for (DWORD signer = 0; signer < std::min(result.numbers.front(), DWORD{4}); ++signer) {
            result.values.push_back(param(message, capi::CMSG_COMPUTED_HASH_PARAM, signer));
            result.values.push_back(param(message, capi::CMSG_ENCRYPTED_DIGEST, signer));
            param(message, capi::CMSG_SIGNER_INFO_PARAM, signer); // holds addresses: only that it can be had
            param(message, capi::CMSG_SIGNER_CERT_INFO_PARAM, signer);
        }
        const DWORD signers = std::min(result.numbers.front(), DWORD{4});
        for (std::size_t i = 0; i < std::min<std::size_t>(result.certificates.size(), 4); ++i) {
            result.verdicts.push_back(verdict(message, result.certificates[i]));
            for (DWORD signer = 0; signer < signers; ++signer) {
                result.verdicts.push_back(signerVerdict(message, signer, result.certificates[i]));
            }
        }
        for (DWORD signer = 0; signer < signers; ++signer) {
            counterVerdicts(message, signer, result.verdicts);
        }
    }
    api::CryptMsgClose(message);
    return result;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const ByteView octets(data, size);
    std::uint32_t seed = 2166136261U;
    for (const std::uint8_t octet : octets) {
        seed = (seed ^ octet) * 16777619U;
    }
    const Result whole = decode(octets, {true, false, std::nullopt});
    require(decode(octets, {true, false, Cuts(seed)}) == whole, "pieces give what the whole gives");
    Result onePiece = decode(octets, {false, false, Cuts(seed + 1)});
    if (whole.readError != 0) {
        onePiece.content = whole.content; // a failed message has none to give
    }
    require(onePiece == whole, "one piece gives what the stream gives");
    const Result detached = decode(octets, {true, true, std::nullopt});
    require(decode(octets, {true, true, Cuts(seed + 2)}) == detached, "pieces of detached content do not matter");
    return 0;
}
