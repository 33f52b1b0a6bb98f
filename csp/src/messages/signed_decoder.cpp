#include "messages/signed_decoder.hpp"

#include "asn1/definite.hpp"
#include "asn1/der.hpp"
#include "asn1/limit_error.hpp"
#include "core/error.hpp"
#include "messages/controls.hpp"
#include "messages/limits.hpp"
#include "messages/signed_controls.hpp"
#include "messages/signed_params.hpp"
#include "x509/certificate_fields.hpp"

#include <algorithm>

namespace klunortredi::csp {

namespace {

bool isSequence(ByteView element) {
    return element.front() == der::tag::Sequence;
}

/// The elements that `belongs` picks. Other kinds of certificates and revocation information (RFC 5652, 10.2) are left
/// out.
std::vector<ByteView> proper(const std::vector<Bytes>& choices, bool (*belongs)(ByteView)) {
    std::vector<ByteView> found;
    std::ranges::copy_if(choices, std::back_inserter(found), belongs);
    return found;
}

std::vector<Bytes> copies(const std::vector<ByteView>& views) {
    std::vector<Bytes> copied;
    for (const ByteView view : views) {
        copied.emplace_back(view.begin(), view.end());
    }
    return copied;
}

/// Refuses a message that carries something else in the place of a certificate.
void requireCertificates(const std::vector<Bytes>& choices) {
    for (const Bytes& choice : choices) {
        if (!isSequence(choice)) {
            continue;
        }
        const auto certificate = decodeCertificateFields(choice);
        if (!certificate) {
            fail(capi::CRYPT_E_ASN1_CORRUPT);
        }
        if (sk_X509_EXTENSION_num(certificate->toBeSigned->extensions) > limits::extensions) {
            failAtLimit(limits::extensions, "extensions of a certificate");
        }
    }
}

/// A CRL by its outer form: the entries of a long list take thirty times their size when decoded, and nothing here
/// needs them. CRLs are not signed, so one that is none must not hide the signatures.
bool isCrl(ByteView choice) {
    try {
        der::Reader members(der::readOnly(choice, der::tag::Sequence).content);
        members.read(der::tag::Sequence); // tbsCertList
        members.read(der::tag::Sequence); // signatureAlgorithm
        members.read(der::tag::BitString);
        return members.empty();
    } catch (const ApiError&) {
        return false;
    }
}

Bytes joined(const std::vector<Bytes>& elements) {
    Bytes all;
    for (const Bytes& element : elements) {
        der::append(all, element);
    }
    return all;
}

/// [number] IMPLICIT SET OF, left out when it has no members.
Bytes optionalSet(unsigned number, const std::vector<Bytes>& members) {
    return members.empty() ? Bytes{} : der::element(der::tag::contextConstructed(number), joined(members));
}

} // namespace

SignedDecoder::SignedDecoder(bool detached, std::optional<StreamOutput> stream)
    : streamed_(stream.has_value()), reader_(*this), content_(detached, stream) {}

std::vector<Bytes> SignedDecoder::certificates() const {
    return copies(certificateViews());
}

std::vector<Bytes> SignedDecoder::crls() const {
    return copies(crlViews());
}

const std::vector<ByteView>& SignedDecoder::certificateViews() const {
    requireRead();
    return certificateViews_;
}

const std::vector<ByteView>& SignedDecoder::crlViews() const {
    requireRead();
    return crlViews_;
}

const CarriedCertificates& SignedDecoder::carriedCertificates() const {
    if (!carried_) {
        carried_ = std::make_unique<CarriedCertificates>(certificateViews());
    }
    return *carried_;
}

Bytes SignedDecoder::encoded() const {
    if (streamed_) {
        fail(capi::CRYPT_E_INVALID_MSG_TYPE);
    }
    if (!changed_) {
        return encoded_;
    }
    const SignedDataParts& parts = reader_.parts();
    const ByteView encapContentInfo = ByteView(encoded_).subspan(
        parts.encapContentInfoBegin, parts.encapContentInfoEnd - parts.encapContentInfoBegin);
    const Bytes signedData =
        der::sequence({parts.version, der::element(der::tag::Set, joined(parts.digestAlgorithms)),
                       toDefinite(encapContentInfo), optionalSet(0, parts.certificates), optionalSet(1, parts.crls),
                       der::element(der::tag::Set, joined(signerInfos_))});
    return der::sequence({parts.contentType, der::explicitTag(0, signedData)});
}

void SignedDecoder::requireRead() const {
    if (!read_) {
        fail(capi::CRYPT_E_STREAM_MSG_NOT_READY);
    }
}

void SignedDecoder::doUpdate(ByteView piece, bool final) {
    if (read_) {
        content_.beside(piece, final);
    } else {
        feedMessage(piece, final);
    }
}

void SignedDecoder::feedMessage(ByteView piece, bool final) {
    if (!streamed_) {
        keepWithinOnePiece(encoded_, piece);
    }
    reader_.feed(piece);
    if (!final) {
        return;
    }
    reader_.finish();
    const SignedDataParts& parts = reader_.parts();
    requireCertificates(parts.certificates);
    certificateViews_ = proper(parts.certificates, isSequence);
    crlViews_ = proper(parts.crls, isCrl);
    for (const Bytes& signerInfo : parts.signerInfos) {
        signers_.push_back(decodeSignerInfo(signerInfo));
    }
    signerInfos_ = parts.signerInfos;
    content_.messageEnds(parts.hasContent);
    read_ = true;
}

void SignedDecoder::contentBegins(const SignedDataParts& parts) {
    contentType_ = decodeOid(parts.eContentType);
    for (const Bytes& algorithm : parts.digestAlgorithms) {
        content_.hashWith(decodeAlgorithm(algorithm).oid);
    }
}

void SignedDecoder::content(ByteView piece) {
    content_.embedded(piece);
}

void SignedDecoder::doParam(DWORD type, DWORD index, void* data, DWORD* size) {
    requireRead();
    giveSignedParam(*this, type, index, data, size);
}

void SignedDecoder::doControl(DWORD type, const void* parameters) {
    requireRead();
    if (parameters == nullptr) {
        fail(capi::ERROR_INVALID_PARAMETER);
    }
    switch (type) {
    case capi::CMSG_CTRL_VERIFY_SIGNATURE:
        content_.endUnfed();
        verifyNamedSigner(*this, *static_cast<const CERT_INFO*>(parameters));
        return;
    case capi::CMSG_CTRL_VERIFY_SIGNATURE_EX:
        content_.endUnfed();
        verifySigner(*this, *static_cast<const CMSG_CTRL_VERIFY_SIGNATURE_EX_PARA*>(parameters));
        return;
    case capi::CMSG_CTRL_ADD_SIGNER_UNAUTH_ATTR:
        addUnsignedAttribute(static_cast<const CMSG_CTRL_ADD_SIGNER_UNAUTH_ATTR_PARA*>(parameters));
        return;
    default:
        refuseControl(type);
    }
}

const Bytes& SignedDecoder::contentHash(const SignerInfo& signer) const {
    return signedContent().value(signer.digest.oid);
}

void SignedDecoder::addUnsignedAttribute(const CMSG_CTRL_ADD_SIGNER_UNAUTH_ATTR_PARA* parameters) {
    if (parameters->cbSize != sizeof *parameters || parameters->blob.pbData == nullptr) {
        fail(capi::ERROR_INVALID_PARAMETER);
    }
    if (parameters->dwSignerIndex >= signers_.size()) {
        fail(capi::CRYPT_E_INVALID_INDEX);
    }
    const std::size_t index = parameters->dwSignerIndex;
    Bytes grown = withUnsignedAttribute(signerInfos_[index], {parameters->blob.pbData, parameters->blob.cbData});
    signers_[index] = decodeSignerInfo(grown);
    signerInfos_[index] = std::move(grown);
    changed_ = true;
}

} // namespace klunortredi::csp
