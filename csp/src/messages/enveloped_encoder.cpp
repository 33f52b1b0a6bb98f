#include "messages/enveloped_encoder.hpp"

#include "asn1/der.hpp"
#include "capi/constants.hpp"
#include "core/error.hpp"
#include "core/secret.hpp"
#include "crypto/random.hpp"
#include "messages/cms_types.hpp"
#include "messages/given_values.hpp"
#include "messages/limits.hpp"
#include "x509/blob.hpp"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace klunortredi::csp {

namespace {

/// Plaintext that is encrypted at once, so that memory does not grow with the pieces that the caller passes.
constexpr std::size_t step = 256U << 10U;

/// Checks what is the same for every cipher and recipient.
void checkInfo(const CMSG_ENVELOPED_ENCODE_INFO& info) {
    constexpr DWORD shortForm = offsetof(CMSG_ENVELOPED_ENCODE_INFO, rgCmsRecipients);
    if ((info.cbSize != sizeof info && info.cbSize != shortForm) ||
        info.ContentEncryptionAlgorithm.pszObjId == nullptr || info.pvEncryptionAuxInfo != nullptr) {
        fail(capi::ERROR_INVALID_PARAMETER);
    }
    if (info.cbSize == sizeof info && (info.cCertEncoded != 0 || info.cCrlEncoded != 0 || info.cAttrCertEncoded != 0)) {
        fail(capi::ERROR_NOT_SUPPORTED);
    }
}

std::vector<Bytes> unprotectedAttributes(const CMSG_ENVELOPED_ENCODE_INFO& info) {
    if (info.cbSize != sizeof info) {
        return {};
    }
    std::vector<Bytes> encoded;
    for (const Attribute& attribute : givenAttributes(info.rgUnprotectedAttr, info.cUnprotectedAttr)) {
        if (attribute.oid == macAttributeOid) { // the service's own
            fail(capi::ERROR_INVALID_PARAMETER);
        }
        encoded.push_back(encodeAttribute(attribute));
    }
    return encoded;
}

const ContentAlgorithm& contentAlgorithm(const CMSG_ENVELOPED_ENCODE_INFO& info) {
    const ContentAlgorithm* const found = findContentAlgorithm(info.ContentEncryptionAlgorithm.pszObjId);
    if (found == nullptr) {
        fail(capi::CRYPT_E_UNKNOWN_ALGO);
    }
    return *found;
}

/// New parameters: the caller may choose the S-boxes of GOST 28147-89 and nothing else.
Bytes contentParameters(const CMSG_ENVELOPED_ENCODE_INFO& info, const ContentAlgorithm& algorithm) {
    const ByteView given = blobView(info.ContentEncryptionAlgorithm.Parameters);
    if (given.empty()) {
        return newContentParameters(algorithm);
    }
    return newContentParameters(algorithm, decodeOid(given));
}

} // namespace

EnvelopedEncoder::EnvelopedEncoder(const CMSG_ENVELOPED_ENCODE_INFO& info, std::string_view contentType,
                                   std::optional<StreamOutput> stream)
    : MessageEncoder(capi::CMSG_ENVELOPED, stream) {
    checkInfo(info);
    const ContentAlgorithm& algorithm = contentAlgorithm(info);
    const Bytes parameters = contentParameters(info, algorithm);
    SecretBytes key(algorithm.keySize);
    fillRandom(key);
    writer_.emplace(contentType, algorithm, parameters, recipientInfos(info, algorithm, key),
                    unprotectedAttributes(info));
    encryptor_ = contentEncryptor(algorithm, parameters, key);
    Bytes padding; // of no plaintext: one whole block for a cipher that pads
    contentEncryptor(algorithm, parameters, key)->finish(padding);
    paddingBlock_ = padding.size();
}

EnvelopedEncoder::~EnvelopedEncoder() = default;

std::uint64_t EnvelopedEncoder::ciphertextSize(std::uint64_t plaintextSize) const noexcept {
    return paddingBlock_ == 0 ? plaintextSize : (plaintextSize / paddingBlock_ + 1) * paddingBlock_;
}

void EnvelopedEncoder::takeContent(ByteView piece) {
    if (!streams() && contentSize() > limits::onePiece) {
        fail(capi::CRYPT_E_BAD_LEN);
    }
    writeHead();
    Bytes ciphertext;
    for (; !piece.empty(); piece = piece.subspan(std::min(piece.size(), step))) {
        ciphertext.clear();
        encryptor_->update(piece.first(std::min(piece.size(), step)), ciphertext);
        takeCiphertext(ciphertext);
    }
}

void EnvelopedEncoder::writeHead() {
    if (streams() && !std::exchange(headWritten_, true)) {
        emit(sizeTold() ? writer_->definiteHead(ciphertextSize(toldSize())) : writer_->streamHead());
    }
}

void EnvelopedEncoder::takeCiphertext(ByteView ciphertext) {
    if (!streams()) {
        der::append(ciphertext_, ciphertext);
    } else if (!sizeTold()) {
        segments_.add(ciphertext, [this](ByteView octets) { emit(octets); });
    } else if (!ciphertext.empty()) {
        emit(ciphertext);
    }
}

void EnvelopedEncoder::finish() {
    Bytes rest;
    encryptor_->finish(rest);
    takeCiphertext(rest);
    const Bytes tag = encryptor_->tag();
    if (streams() && !sizeTold()) {
        segments_.finish([this](ByteView octets) { emit(octets); });
        emit(writer_->streamTail(tag), true);
    } else {
        if (!streams()) {
            emit(writer_->definiteHead(ciphertext_.size()));
            emit(std::exchange(ciphertext_, {}));
        }
        emit(writer_->definiteTail(tag), true);
    }
}

} // namespace klunortredi::csp
