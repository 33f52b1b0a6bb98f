#include "message_stream.hpp"

#include "cancellation.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/exceptions.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "orvik/plugin/exception/application_exception.hpp"

#include <boost/numeric/conversion/cast.hpp>

namespace orvik::plugin::wincrypt {

namespace internal {
namespace {

using crypto::exception::SystemException;
using exception::ApplicationException;

BOOL appendOutput(const void* output, BYTE* data, DWORD size, BOOL /*final*/) {
    if (output == nullptr) {
        return 0;
    }
    if (size == 0) {
        return 1;
    }
    try {
        auto& octets = *static_cast<std::vector<unsigned char>*>(const_cast<void*>(output));
        octets.insert(octets.end(), data, data + size);
        return 1;
    } catch (...) { // the service's frames lie in between: memory exhaustion goes back as a refusal
        return 0;
    }
}

void validateCryptMsgUpdate(BOOL result, const char* file) {
    if (result != 0) {
        return;
    }
    const SystemException failure;
    const exception::Location here{file, "validateCryptMsgUpdate"};
    // ERROR_INVALID_PARAMETER is no cancellation here: an update gets it for reasons of its own.
    if (acquisitionCancelled(static_cast<DWORD>(failure.code().value()))) {
        raise(ApplicationException(ApplicationException::Code::cancelled), here);
    }
    raise(failure, here);
}

} // namespace
} // namespace internal

CMSG_STREAM_INFO streamInto(std::vector<unsigned char>& output) {
    return {capi::CMSG_INDEFINITE_LENGTH, internal::appendOutput, &output};
}

void updateMessage(void* hMsg, const unsigned char* data, std::size_t size, const char* file) {
    internal::validateCryptMsgUpdate(CryptMsgUpdate(hMsg, data, boost::numeric_cast<DWORD>(size), 0), file);
}

void feedMessage(void* hMsg, HeldBackOctet heldBack, const unsigned char* data, std::size_t size, std::size_t* consumed,
                 const char* file) {
    if (heldBack.pending) {
        updateMessage(hMsg, &heldBack.octet, 1, file);
        heldBack.pending = false;
    }
    if (data != nullptr && size != 0) {
        heldBack.octet = data[size - 1];
        heldBack.pending = true;
        if (size > 1) {
            updateMessage(hMsg, data, size - 1, file);
        }
    }
    if (consumed != nullptr) {
        *consumed = size;
    }
}

} // namespace orvik::plugin::wincrypt
