#pragma once

/// Several signers on one CMS message.

#include "crypto/wincrypt/output_sink.hpp"
#include "orvik/plugin/export.hpp"

#include <boost/utility/string_view.hpp>

#include <iosfwd>

namespace orvik::plugin::wincrypt::tools {

/// Adds the signers of one SignedData message (RFC 5652, 5.1) to another of the same content.
///
/// `message`, attached or detached, DER or BER, is read from where the stream stands; the stream can seek. `added` is a
/// detached message over the same content, as binary::detached::Creator makes it. `output` gets the new message, whose
/// content is passed on and never kept.
///
/// The content, every SignerInfo with its unsigned attributes, every certificate and every CRL stay octet for octet
/// what they are. Digest algorithms and certificates of `added` that are not there yet join them. What is in the order
/// of DER stays in it, else the new elements come last; lengths stay definite or indefinite as they are, so that DER
/// stays DER. What follows the message in the stream is left out.
///
/// Nothing is verified: whoever calls this judges the signers of `message` before, and knows that `added` covers its
/// content.
///
/// Throws SystemException: CRYPT_E_ASN1_... for what is not BER, CRYPT_E_INVALID_MSG_TYPE for what is not SignedData,
/// CRYPT_E_UNEXPECTED_MSG_TYPE when the content types differ, CRYPT_E_ASN1_LARGE when certificates, CRLs and signers
/// take more than 16 MiB, CRYPT_E_MSG_ERROR when `output` returns false; what `output` throws; and std::ios_base errors
/// of a stream that has exceptions enabled.
ORVIK_EXPORT void addSigners(std::istream& message, boost::string_view added, const OutputSink& output);

} // namespace orvik::plugin::wincrypt::tools
