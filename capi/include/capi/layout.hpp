#pragma once

/// Layouts that a loaded service and this code must agree on byte for byte. Including this header checks them.

#include "capi/types.h"

#include <cstddef>

namespace capi {

static_assert(sizeof(DWORD) == 4 && sizeof(BOOL) == 4 && sizeof(unsigned long) == 8 && sizeof(wchar_t) == 4);
static_assert(sizeof(FILETIME) == 8 && alignof(FILETIME) == 4);
static_assert(sizeof(SYSTEMTIME) == 16);
static_assert(sizeof(CRYPTOAPI_BLOB) == 16);
static_assert(sizeof(CRYPT_BIT_BLOB) == 24);
static_assert(sizeof(CRYPT_ALGORITHM_IDENTIFIER) == 24);
static_assert(sizeof(CRYPT_ATTRIBUTE) == 24);
static_assert(sizeof(CRYPT_SEQUENCE_OF_ANY) == 16);
static_assert(sizeof(CERT_NAME_VALUE) == 24);
static_assert(sizeof(CERT_PUBLIC_KEY_INFO) == 48);
static_assert(sizeof(CERT_EXTENSION) == 32);
static_assert(sizeof(CERT_INFO) == 208);
static_assert(offsetof(CERT_INFO, SubjectPublicKeyInfo) == 96);
static_assert(sizeof(CERT_CONTEXT) == 40);
static_assert(sizeof(CRYPT_KEY_PROV_INFO) == 48);
static_assert(sizeof(PROV_ENUMALGS) == 32);
static_assert(sizeof(CERT_REQUEST_INFO) == 88);
static_assert(sizeof(CERT_ALT_NAME_ENTRY) == 24);
static_assert(sizeof(CRYPT_OID_INFO) == 64);
static_assert(sizeof(CMSG_STREAM_INFO) == 24);
static_assert(sizeof(CMSG_SIGNER_ENCODE_INFO) == 96);
static_assert(sizeof(CMSG_SIGNED_ENCODE_INFO) == 48);
static_assert(sizeof(CMSG_SIGNER_INFO) == 136);
static_assert(sizeof(CERT_ISSUER_SERIAL_NUMBER) == 32);
static_assert(sizeof(CERT_ID) == 40 && offsetof(CERT_ID, u) == 8);
static_assert(sizeof(CMSG_KEY_TRANS_RECIPIENT_ENCODE_INFO) == 112);
static_assert(offsetof(CMSG_KEY_TRANS_RECIPIENT_ENCODE_INFO, RecipientPublicKey) == 48);
static_assert(sizeof(CMSG_RECIPIENT_ENCRYPTED_KEY_ENCODE_INFO) == 88);
static_assert(offsetof(CMSG_RECIPIENT_ENCRYPTED_KEY_ENCODE_INFO, RecipientId) == 32);
static_assert(sizeof(CMSG_KEY_AGREE_RECIPIENT_ENCODE_INFO) == 128);
static_assert(offsetof(CMSG_KEY_AGREE_RECIPIENT_ENCODE_INFO, dwKeyChoice) == 84);
static_assert(offsetof(CMSG_KEY_AGREE_RECIPIENT_ENCODE_INFO, rgpRecipientEncryptedKeys) == 120);
static_assert(sizeof(CMSG_RECIPIENT_ENCODE_INFO) == 16);
static_assert(sizeof(CMSG_ENVELOPED_ENCODE_INFO) == 136);
static_assert(offsetof(CMSG_ENVELOPED_ENCODE_INFO, rgpRecipients) == 56);
static_assert(offsetof(CMSG_ENVELOPED_ENCODE_INFO, rgCmsRecipients) == 64);
static_assert(offsetof(CMSG_ENVELOPED_ENCODE_INFO, cUnprotectedAttr) == 120);
static_assert(sizeof(CMSG_CTRL_DECRYPT_PARA) == 24);
static_assert(sizeof(CMSG_CTRL_ADD_SIGNER_UNAUTH_ATTR_PARA) == 24);
static_assert(sizeof(CMSG_CTRL_VERIFY_SIGNATURE_EX_PARA) == 32);
static_assert(sizeof(CMSG_COUNTER_SIGNATURE) == 120 && offsetof(CMSG_COUNTER_SIGNATURE, HashAlgorithm) == 72);
static_assert(sizeof(CERT_CHAIN_PARA) == 32);
static_assert(sizeof(CERT_CHAIN_PARA_LONG) == 96 && offsetof(CERT_CHAIN_PARA_LONG, RequestedIssuancePolicy) == 32 &&
              offsetof(CERT_CHAIN_PARA_LONG, dwUrlRetrievalTimeout) == 56 &&
              offsetof(CERT_CHAIN_PARA_LONG, pftCacheResync) == 72);
static_assert(sizeof(CRL_ENTRY) == 40 && offsetof(CRL_ENTRY, RevocationDate) == 16);
static_assert(sizeof(CRL_INFO) == 96);
static_assert(offsetof(CRL_INFO, Issuer) == 32 && offsetof(CRL_INFO, cCRLEntry) == 64);
static_assert(sizeof(CRL_CONTEXT) == 40 && offsetof(CRL_CONTEXT, pCrlInfo) == 24);
static_assert(sizeof(CERT_REVOCATION_CRL_INFO) == 40 && offsetof(CERT_REVOCATION_CRL_INFO, pCrlEntry) == 24);
static_assert(sizeof(CERT_REVOCATION_INFO) == 40 && offsetof(CERT_REVOCATION_INFO, pCrlInfo) == 32);
static_assert(sizeof(CERT_CHAIN_ELEMENT) == 56 && offsetof(CERT_CHAIN_ELEMENT, pRevocationInfo) == 24);
static_assert(sizeof(CERT_SIMPLE_CHAIN) == 40 && offsetof(CERT_SIMPLE_CHAIN, rgpElement) == 16);
static_assert(sizeof(CERT_CHAIN_CONTEXT) == 48);
static_assert(sizeof(CRYPT_TIMESTAMP_REQUEST) == 88 && offsetof(CRYPT_TIMESTAMP_REQUEST, Nonce) == 56);
static_assert(sizeof(CRYPT_TIMESTAMP_RESPONSE) == 56 && offsetof(CRYPT_TIMESTAMP_RESPONSE, ContentInfo) == 40);
static_assert(sizeof(CRYPT_TIMESTAMP_ACCURACY) == 12);
static_assert(sizeof(CRYPT_TIMESTAMP_INFO) == 144 && offsetof(CRYPT_TIMESTAMP_INFO, ftTime) == 72);

} // namespace capi
