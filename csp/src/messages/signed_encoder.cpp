#include "messages/signed_encoder.hpp"

#include "asn1/der.hpp"
#include "core/error.hpp"
#include "messages/cms_types.hpp"
#include "messages/limits.hpp"
#include "x509/blob.hpp"
#include "x509/certificate_fields.hpp"
#include "x509/x509_der.hpp"

#include <algorithm>
#include <span>

namespace klunortredi::csp {

namespace {

bool isCertificate(ByteView der) {
    return decodeCertificateFields(der) != nullptr;
}

bool isCrl(ByteView der) {
    return ossl::fromDer<ossl::X509CrlPtr>(d2i_X509_CRL, der) != nullptr;
}

std::vector<Bytes> encodedItems(const CRYPTOAPI_BLOB* first, DWORD count, bool (*belongs)(ByteView)) {
    if (first == nullptr && count != 0) {
        fail(capi::ERROR_INVALID_PARAMETER);
    }
    std::vector<Bytes> items;
    for (const CRYPTOAPI_BLOB& blob : std::span(first, count)) {
        const ByteView der = blobView(blob);
        if (!belongs(der)) {
            fail(capi::CRYPT_E_ASN1_CORRUPT);
        }
        items.emplace_back(der.begin(), der.end());
    }
    return items;
}

/// One message's signers have one form: a structure of another size stands elsewhere than it seems.
const CMSG_SIGNER_ENCODE_INFO& checkedSize(const CMSG_SIGNER_ENCODE_INFO& signer, std::size_t size) {
    if (signer.cbSize != size) {
        fail(capi::ERROR_INVALID_PARAMETER);
    }
    return signer;
}

std::vector<SignerBuilder> signers(const CMSG_SIGNED_ENCODE_INFO& info, std::string_view contentType) {
    if (info.cbSize != sizeof info || (info.rgSigners == nullptr && info.cSigners != 0)) {
        fail(capi::ERROR_INVALID_PARAMETER);
    }
    std::vector<SignerBuilder> made;
    if (info.cSigners == 0) {
        return made;
    }
    if (info.rgSigners->cbSize == sizeof(CMSG_SIGNER_ENCODE_INFO_CMS_FIELDS)) {
        // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): the size states which structures they are
        const auto* const longer = reinterpret_cast<const CMSG_SIGNER_ENCODE_INFO_CMS_FIELDS*>(info.rgSigners);
        for (const auto& signer : std::span(longer, info.cSigners)) {
            made.emplace_back(checkedSize(signer.Signer, sizeof signer), contentType);
        }
        return made;
    }
    for (const CMSG_SIGNER_ENCODE_INFO& signer : std::span(info.rgSigners, info.cSigners)) {
        made.emplace_back(checkedSize(signer, sizeof signer), contentType);
    }
    return made;
}

std::vector<Bytes> digestAlgorithms(const std::vector<SignerBuilder>& signers) {
    std::vector<Bytes> all;
    for (const SignerBuilder& signer : signers) {
        Bytes algorithm = signer.digestAlgorithm();
        if (std::ranges::find(all, algorithm) == all.end()) {
            all.push_back(std::move(algorithm));
        }
    }
    return all;
}

} // namespace

SignedEncoder::SignedEncoder(const CMSG_SIGNED_ENCODE_INFO& info, std::string_view contentType, bool detached,
                             std::optional<StreamOutput> stream)
    : MessageEncoder(capi::CMSG_SIGNED, stream), detached_(detached), signers_(signers(info, contentType)),
      writer_(contentType, std::ranges::any_of(signers_, &SignerBuilder::byKeyIdentifier), digestAlgorithms(signers_),
              encodedItems(info.rgCertEncoded, info.cCertEncoded, isCertificate),
              encodedItems(info.rgCrlEncoded, info.cCrlEncoded, isCrl)) {
    for (const SignerBuilder& signer : signers_) {
        hasher_.add(signer.digest().oid);
    }
}

std::vector<Bytes> SignedEncoder::certificates() const {
    return writer_.certificates();
}

std::vector<Bytes> SignedEncoder::crls() const {
    return writer_.crls();
}

void SignedEncoder::takeContent(ByteView piece) {
    hasher_.update(piece);
    if (detached_) {
        return;
    }
    if (!streams()) {
        if (contentSize() > limits::onePiece) {
            fail(capi::CRYPT_E_BAD_LEN);
        }
        der::append(content_, piece);
        return;
    }
    if (!std::exchange(headWritten_, true)) {
        std::uint64_t signersSize = 0;
        for (const SignerBuilder& signer : signers_) {
            signersSize += signer.encodedSize();
        }
        emit(sizeTold() ? writer_.definiteHead(toldSize(), signersSize) : writer_.streamHead());
    }
    if (!sizeTold()) {
        segments_.add(piece, [this](ByteView octets) { emit(octets); });
    } else if (!piece.empty()) {
        emit(piece);
    }
}

void SignedEncoder::finish() {
    hasher_.finish();
    // All signatures before any of the rest: when one fails, nothing that looks finished has been given out.
    std::vector<Bytes> signerInfos;
    std::uint64_t signersSize = 0;
    for (const SignerBuilder& signer : signers_) {
        signerInfos.push_back(signer.sign(hasher_.value(signer.digest().oid)));
        if (signerInfos.back().size() != signer.encodedSize()) {
            fail(capi::CRYPT_E_MSG_ERROR);
        }
        signersSize += signerInfos.back().size();
    }
    if (!streamsContent()) {
        emit(writer_.definiteHead(detached_ ? std::nullopt : std::optional<std::uint64_t>(content_.size()),
                                  signersSize));
        emit(std::exchange(content_, {}));
        emit(writer_.definiteTail(signerInfos), true);
    } else if (sizeTold()) {
        emit(writer_.definiteTail(signerInfos), true);
    } else {
        segments_.finish([this](ByteView octets) { emit(octets); });
        emit(writer_.streamTail(signerInfos), true);
    }
}

} // namespace klunortredi::csp
