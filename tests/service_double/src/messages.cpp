// Messages. One opened to encode gives out "HEAD", its content unless detached, and "TAIL"; one opened to decode holds
// what the script says. With recipients it is an enveloped one: its content comes when it is asked to decrypt.

#include "model.hpp"

#include "capi/constants.hpp"

#include <optional>

namespace service_double {

namespace {

BOOL emit(const MessageObject& message, std::string octets, bool final) {
    const auto& stream = *message.stream;
    return stream.pfnStreamOutput(stream.pvArg, reinterpret_cast<BYTE*>(octets.data()),
                                  static_cast<DWORD>(octets.size()), final ? 1 : 0);
}

/// Feeds the caller's stream as a service does: from inside CryptMsgUpdate.
BOOL stream(MessageObject& message, const std::string& piece, bool final) {
    if (message.decodes && !service().message.recipients.empty()) {
        return 1;
    }
    const bool detached = (message.flags & capi::CMSG_DETACHED_FLAG) != 0;
    if (!message.decodes && !message.begun && !emit(message, "HEAD", false)) {
        return 0;
    }
    message.begun = true;
    if (!detached && !piece.empty() && !emit(message, piece, message.decodes && final)) {
        return 0;
    }
    return message.decodes || !final ? 1 : emit(message, "TAIL", true);
}

/// CERT_INFO with what names a signer or a recipient: issuer and serial number.
std::optional<Flat> namingCertInfo(const std::vector<std::string>& certificates, DWORD index) {
    const auto certificate = index < certificates.size() ? parseCertificate(certificates[index]) : nullptr;
    if (!certificate) {
        return std::nullopt;
    }
    const auto& info = *certificate->context.pCertInfo;
    const auto octets = [](const CRYPTOAPI_BLOB& blob) {
        return std::string(reinterpret_cast<const char*>(blob.pbData), blob.cbData);
    };
    Flat flat(sizeof(CERT_INFO));
    flat.blob(offsetof(CERT_INFO, Issuer), octets(info.Issuer));
    flat.blob(offsetof(CERT_INFO, SerialNumber), octets(info.SerialNumber));
    return flat;
}

std::string number(std::size_t value) {
    const auto small = static_cast<DWORD>(value);
    return {reinterpret_cast<const char*>(&small), sizeof small};
}

/// A parameter of a decoded message; nothing for one that it does not have.
std::optional<std::string> decodedParameter(DWORD type, DWORD index) {
    const auto& script = service().message;
    const auto scripted = script.parameters.find({type, index});
    if (scripted != script.parameters.end()) {
        return scripted->second;
    }
    switch (type) {
    case capi::CMSG_TYPE_PARAM:
        return number(capi::CMSG_SIGNED);
    case capi::CMSG_CONTENT_PARAM:
        return script.content;
    case capi::CMSG_SIGNER_COUNT_PARAM:
        return number(script.signers.size());
    case capi::CMSG_RECIPIENT_COUNT_PARAM:
        return number(script.recipients.size());
    case capi::CMSG_CERT_COUNT_PARAM:
        return number(script.certificates.size());
    case capi::CMSG_CERT_PARAM:
        return index < script.certificates.size() ? std::optional(script.certificates[index]) : std::nullopt;
    default:
        return std::nullopt;
    }
}

/// A parameter that is a structure; nothing for one that the message does not have.
std::optional<Flat> decodedStructure(DWORD type, DWORD index) {
    switch (type) {
    case capi::CMSG_SIGNER_CERT_INFO_PARAM:
        return namingCertInfo(service().message.signers, index);
    case capi::CMSG_RECIPIENT_INFO_PARAM:
        return namingCertInfo(service().message.recipients, index);
    default:
        return std::nullopt;
    }
}

void* open(bool decodes, DWORD flags, const CMSG_STREAM_INFO* info) {
    return toPointer(state().messages.add({decodes, flags, info == nullptr ? std::nullopt : std::optional(*info), {}}));
}

} // namespace

void* Defaults::CryptMsgOpenToEncode(DWORD /*encoding*/, DWORD flags, DWORD /*type*/, const void* /*info*/,
                                     char* /*innerType*/, CMSG_STREAM_INFO* streamInfo) {
    const Lock lock(stateMutex());
    return open(false, flags, streamInfo);
}

void* Defaults::CryptMsgOpenToDecode(DWORD /*encoding*/, DWORD flags, DWORD /*type*/, unsigned long /*context*/,
                                     CERT_INFO* /*recipient*/, CMSG_STREAM_INFO* streamInfo) {
    const Lock lock(stateMutex());
    return open(true, flags, streamInfo);
}

BOOL Defaults::CryptMsgUpdate(void* handle, const BYTE* data, DWORD size, BOOL final) {
    const Lock lock(stateMutex());
    auto* message = state().messages.find(toHandle(handle));
    if (message == nullptr) {
        return fail(capi::ERROR_INVALID_HANDLE);
    }
    const std::string piece(reinterpret_cast<const char*>(data), data == nullptr ? 0 : size);
    message->content += piece;
    return message->stream ? stream(*message, piece, final != 0) : 1;
}

BOOL Defaults::CryptMsgGetParam(void* handle, DWORD type, DWORD index, void* buffer, DWORD* size) {
    const Lock lock(stateMutex());
    const auto* message = state().messages.find(toHandle(handle));
    if (message == nullptr) {
        return fail(capi::ERROR_INVALID_HANDLE);
    }
    if (!message->decodes) {
        return type == capi::CMSG_CONTENT_PARAM ? give("HEAD" + message->content + "TAIL", buffer, size)
                                                : static_cast<BOOL>(fail(capi::CRYPT_E_INVALID_MSG_TYPE));
    }
    const auto value = decodedParameter(type, index);
    if (value) {
        return give(*value, buffer, size);
    }
    const auto structure = decodedStructure(type, index);
    return structure ? giveFlat(*structure, buffer, size) : static_cast<BOOL>(fail(capi::CRYPT_E_INVALID_INDEX));
}

BOOL Defaults::CryptMsgControl(void* handle, DWORD /*flags*/, DWORD type, const void* /*parameter*/) {
    const Lock lock(stateMutex());
    const auto* message = state().messages.find(toHandle(handle));
    if (message == nullptr) {
        return fail(capi::ERROR_INVALID_HANDLE);
    }
    if (type == capi::CMSG_CTRL_DECRYPT && message->stream) {
        return emit(*message, service().message.content, true);
    }
    const bool verifies = type == capi::CMSG_CTRL_VERIFY_SIGNATURE || type == capi::CMSG_CTRL_VERIFY_SIGNATURE_EX;
    const bool refused = verifies && !service().message.valid;
    return refused ? static_cast<BOOL>(fail(capi::NTE_BAD_SIGNATURE)) : 1;
}

BOOL Defaults::CryptMsgClose(void* handle) {
    const Lock lock(stateMutex());
    return handle == nullptr || state().messages.erase(toHandle(handle))
               ? 1
               : misuse("CryptMsgClose: a message that is not held", capi::ERROR_INVALID_HANDLE);
}

} // namespace service_double
