#include "exports/export.hpp"
#include "messages/any_decoder.hpp"
#include "messages/enveloped_encoder.hpp"
#include "messages/signed_encoder.hpp"

#include <algorithm>
#include <array>

namespace klunortredi::csp::exports {

namespace {

/// What is common to opening in both directions.
void checkOpening(DWORD encodingType, DWORD flags) {
    if ((encodingType & capi::PKCS_7_ASN_ENCODING) == 0) {
        fail(capi::ERROR_INVALID_PARAMETER);
    }
    if ((flags & ~capi::CMSG_DETACHED_FLAG) != 0) {
        fail(capi::NTE_BAD_FLAGS);
    }
}

bool isDetached(DWORD flags) {
    return (flags & capi::CMSG_DETACHED_FLAG) != 0;
}

std::optional<StreamOutput> streamOutput(const CMSG_STREAM_INFO* info) {
    if (info == nullptr) {
        return std::nullopt;
    }
    if (info->pfnStreamOutput == nullptr) {
        fail(capi::ERROR_INVALID_PARAMETER);
    }
    return StreamOutput(*info);
}

/// What a message to be made is opened with.
struct EncodeRequest {
    const void* info;
    std::string_view contentType;
    bool detached;
    std::optional<StreamOutput> stream;
};

std::shared_ptr<Message> makeSigned(const EncodeRequest& request) {
    return std::make_shared<SignedEncoder>(*static_cast<const CMSG_SIGNED_ENCODE_INFO*>(request.info),
                                           request.contentType, request.detached, request.stream);
}

std::shared_ptr<Message> makeEnveloped(const EncodeRequest& request) {
    if (request.detached) {
        fail(capi::NTE_BAD_FLAGS);
    }
    return std::make_shared<EnvelopedEncoder>(*static_cast<const CMSG_ENVELOPED_ENCODE_INFO*>(request.info),
                                              request.contentType, request.stream);
}

/// The kinds of messages that are made.
struct Encoder {
    DWORD type;
    std::shared_ptr<Message> (*make)(const EncodeRequest& request);
};
constexpr std::array encoders{Encoder{capi::CMSG_SIGNED, makeSigned}, Encoder{capi::CMSG_ENVELOPED, makeEnveloped}};

} // namespace

void* CryptMsgOpenToEncode(DWORD dwMsgEncodingType, DWORD dwFlags, DWORD dwMsgType, const void* pvMsgEncodeInfo,
                           char* pszInnerContentObjID, CMSG_STREAM_INFO* pStreamInfo) {
    return guard<void*>(nullptr, [&] {
        checkOpening(dwMsgEncodingType, dwFlags);
        const auto* const row = std::ranges::find(encoders, dwMsgType, &Encoder::type);
        if (row == encoders.end()) {
            fail(capi::CRYPT_E_INVALID_MSG_TYPE);
        }
        if (pvMsgEncodeInfo == nullptr) {
            fail(capi::ERROR_INVALID_PARAMETER);
        }
        return addMessage(
            row->make({pvMsgEncodeInfo, pszInnerContentObjID == nullptr ? oid::data : pszInnerContentObjID,
                       isDetached(dwFlags), streamOutput(pStreamInfo)}));
    });
}

void* CryptMsgOpenToDecode(DWORD dwMsgEncodingType, DWORD dwFlags, DWORD dwMsgType, unsigned long /*hCryptProv*/,
                           CERT_INFO* /*pRecipientInfo*/, CMSG_STREAM_INFO* pStreamInfo) {
    return guard<void*>(nullptr, [&] {
        checkOpening(dwMsgEncodingType, dwFlags);
        return addMessage(makeDecoder(dwMsgType, isDetached(dwFlags), streamOutput(pStreamInfo)));
    });
}

BOOL CryptMsgUpdate(void* hCryptMsg, const BYTE* pbData, DWORD cbData, BOOL fFinal) {
    return guarded([&] {
        const auto message = findMessage(hCryptMsg);
        if (pbData == nullptr && cbData != 0) {
            fail(capi::ERROR_INVALID_PARAMETER);
        }
        message->update({pbData, cbData}, fFinal != 0);
    });
}

BOOL CryptMsgGetParam(void* hCryptMsg, DWORD dwParamType, DWORD dwIndex, void* pvData, DWORD* pcbData) {
    return guarded([&] { findMessage(hCryptMsg)->param(dwParamType, dwIndex, pvData, pcbData); });
}

BOOL CryptMsgControl(void* hCryptMsg, DWORD /*dwFlags*/, DWORD dwCtrlType, const void* pvCtrlPara) {
    return guarded([&] { findMessage(hCryptMsg)->control(dwCtrlType, pvCtrlPara); });
}

BOOL CryptMsgClose(void* hCryptMsg) {
    return guarded([&] { closeMessage(hCryptMsg); });
}

} // namespace klunortredi::csp::exports
