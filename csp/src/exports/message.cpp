#include "exports/export.hpp"
#include "messages/any_decoder.hpp"
#include "messages/signed_encoder.hpp"

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

} // namespace

void* CryptMsgOpenToEncode(DWORD dwMsgEncodingType, DWORD dwFlags, DWORD dwMsgType, const void* pvMsgEncodeInfo,
                           char* pszInnerContentObjID, CMSG_STREAM_INFO* pStreamInfo) {
    return guard<void*>(nullptr, [&] {
        checkOpening(dwMsgEncodingType, dwFlags);
        if (dwMsgType != capi::CMSG_SIGNED) {
            fail(capi::CRYPT_E_INVALID_MSG_TYPE);
        }
        if (pvMsgEncodeInfo == nullptr) {
            fail(capi::ERROR_INVALID_PARAMETER);
        }
        return addMessage(
            std::make_shared<SignedEncoder>(*static_cast<const CMSG_SIGNED_ENCODE_INFO*>(pvMsgEncodeInfo),
                                            pszInnerContentObjID == nullptr ? oid::data : pszInnerContentObjID,
                                            isDetached(dwFlags), streamOutput(pStreamInfo)));
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
