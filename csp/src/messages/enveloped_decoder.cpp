#include "messages/enveloped_decoder.hpp"

#include "asn1/der.hpp"
#include "core/error.hpp"
#include "keys/context.hpp"
#include "messages/controls.hpp"
#include "messages/enveloped_params.hpp"

#include <algorithm>
#include <utility>

namespace klunortredi::csp {

namespace {

/// Plaintext is made in pieces of this size at most, whatever the size of an update.
constexpr std::size_t step = 256U << 10U;

/// The content's algorithm, when it belongs into this kind of message: content under an authenticated algorithm whose
/// tag could be left out would be content that anybody can change.
const ContentAlgorithm& algorithmOf(const EnvelopedDataParts& parts) {
    const ContentAlgorithm* const algorithm = findContentAlgorithm(parts.algorithm.oid);
    if (algorithm == nullptr) {
        fail(capi::CRYPT_E_UNKNOWN_ALGO);
    }
    if ((algorithm->authentication == Authentication::AuthEnveloped) != parts.authEnveloped) {
        fail(capi::NTE_BAD_ALGID);
    }
    return *algorithm;
}

/// The value of the MAC attribute.
Bytes macOf(const std::vector<Attribute>& attributes) {
    const Attribute* found = nullptr;
    for (const Attribute& attribute : attributes) {
        if (attribute.oid != macAttributeOid) {
            continue;
        }
        if (found != nullptr || attribute.values.size() != 1) {
            fail(capi::NTE_BAD_DATA);
        }
        found = &attribute;
    }
    if (found == nullptr) {
        fail(capi::NTE_BAD_DATA);
    }
    const ByteView mac = der::readOnly(found->values.front(), der::tag::OctetString).content;
    return {mac.begin(), mac.end()};
}

} // namespace

EnvelopedDecoder::EnvelopedDecoder(std::optional<StreamOutput> stream) : output_(stream), reader_(*this) {}

const EnvelopedDataParts& EnvelopedDecoder::head() const {
    if (!reader_.headRead()) {
        fail(capi::CRYPT_E_STREAM_MSG_NOT_READY);
    }
    return reader_.parts();
}

const EnvelopedDataParts& EnvelopedDecoder::whole() const {
    if (!complete_) {
        fail(capi::CRYPT_E_STREAM_MSG_NOT_READY);
    }
    return reader_.parts();
}

DWORD EnvelopedDecoder::recipientIndex() const {
    if (stage_ == Stage::Locked) {
        fail(capi::CRYPT_E_NOT_DECRYPTED);
    }
    return recipientIndex_;
}

ByteView EnvelopedDecoder::content() const {
    const ByteView plaintext = output_.onePiece();
    if (stage_ != Stage::Decrypted) {
        fail(capi::CRYPT_E_NOT_DECRYPTED);
    }
    return plaintext;
}

void EnvelopedDecoder::doUpdate(ByteView piece, bool final) {
    if (complete_) {
        fail(capi::CRYPT_E_MSG_ERROR);
    }
    reader_.feed(piece);
    if (!final) {
        return;
    }
    reader_.finish();
    complete_ = true;
    if (stage_ == Stage::Unlocked) {
        finish();
    }
}

void EnvelopedDecoder::ciphertext(ByteView piece) {
    if (decryptor_) {
        decrypt(piece);
    } else {
        spool_.append(piece);
    }
}

void EnvelopedDecoder::doParam(DWORD type, DWORD index, void* data, DWORD* size) {
    giveEnvelopedParam(*this, type, index, data, size);
}

void EnvelopedDecoder::doControl(DWORD type, const void* parameters) {
    head();
    if (parameters == nullptr) {
        fail(capi::ERROR_INVALID_PARAMETER);
    }
    if (type != capi::CMSG_CTRL_DECRYPT) {
        refuseControl(type);
    }
    unlock(*static_cast<const CMSG_CTRL_DECRYPT_PARA*>(parameters));
}

/// A key that cannot be had, or that authenticated content refuses, leaves the message as it was: another recipient's
/// key may be tried.
void EnvelopedDecoder::unlock(const CMSG_CTRL_DECRYPT_PARA& parameters) {
    if (parameters.cbSize != sizeof parameters) {
        fail(capi::ERROR_INVALID_PARAMETER);
    }
    if (stage_ == Stage::Failed) {
        fail(capi::NTE_BAD_DATA);
    }
    if (stage_ != Stage::Locked) {
        fail(capi::CRYPT_E_ALREADY_DECRYPTED);
    }
    const auto& recipients = reader_.parts().recipients;
    if (parameters.dwRecipientIndex >= recipients.size()) {
        fail(capi::CRYPT_E_INVALID_INDEX);
    }
    const Recipient& recipient = recipients[parameters.dwRecipientIndex];
    algorithm_ = &algorithmOf(reader_.parts());
    if (!recipient.wrapped) {
        fail(capi::NTE_BAD_ALGID);
    }
    key_ = signingContext(parameters.hCryptProv)->unwrap(parameters.dwKeySpec, *recipient.wrapped, algorithm_->keySize);
    recipientIndex_ = parameters.dwRecipientIndex;
    decryptSpooled();
}

void EnvelopedDecoder::decryptSpooled() {
    if (algorithm_->authentication != Authentication::None) {
        stage_ = Stage::Unlocked;
    } else {
        decryptor_ = newDecryptor(key_);
        key_ = SecretBytes{};
        stage_ = Stage::Failed; // until all is well
        spool_.replay([this](ByteView piece) { decrypt(piece); });
        spool_.clear();
        stage_ = Stage::Unlocked;
    }
    if (complete_) {
        finish();
    }
}

/// The message is complete and the key is there.
void EnvelopedDecoder::finish() {
    if (algorithm_->authentication != Authentication::None) {
        const SecretBytes key = std::exchange(key_, SecretBytes{});
        stage_ = Stage::Locked;
        checkSpooled(key);
        stage_ = Stage::Failed; // until all is out
        decryptor_ = newDecryptor(key);
        decryptor_->skipAuthentication();
        spool_.replay([this](ByteView piece) { decrypt(piece); });
        spool_.clear();
    }
    stage_ = Stage::Failed;
    plaintext_.clear();
    decryptor_->finish(tag(), plaintext_);
    output_.add(plaintext_, true);
    decryptor_.reset();
    stage_ = Stage::Decrypted;
}

/// Decrypts everything, gives nothing, and throws ApiError(NTE_BAD_DATA) when it is not what was sent.
void EnvelopedDecoder::checkSpooled(ByteView key) const {
    const auto decryptor = newDecryptor(key);
    Bytes plaintext;
    spool_.replay([&](ByteView piece) {
        plaintext.clear();
        decryptor->update(piece, plaintext);
    });
    plaintext.clear();
    decryptor->finish(tag(), plaintext);
}

std::unique_ptr<ContentDecryptor> EnvelopedDecoder::newDecryptor(ByteView key) const {
    const EnvelopedDataParts& parts = reader_.parts();
    return contentDecryptor(*algorithm_, parts.algorithm.parameters, key, parts.authenticatedAttributes);
}

Bytes EnvelopedDecoder::tag() const {
    const EnvelopedDataParts& parts = reader_.parts();
    switch (algorithm_->authentication) {
    case Authentication::None:
        return {};
    case Authentication::MacAttribute:
        return macOf(parts.unprotectedAttributes);
    case Authentication::AuthEnveloped:
        return parts.mac;
    }
    fail(capi::NTE_FAIL);
}

void EnvelopedDecoder::decrypt(ByteView piece) {
    while (!piece.empty()) {
        const ByteView part = piece.first(std::min(piece.size(), step));
        piece = piece.subspan(part.size());
        plaintext_.clear();
        decryptor_->update(part, plaintext_);
        if (!plaintext_.empty()) {
            output_.add(plaintext_);
        }
    }
}

} // namespace klunortredi::csp
