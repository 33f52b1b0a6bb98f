#pragma once

/* The longer form of CMSG_SIGNER_ENCODE_INFO, which names the signer and the signature algorithm (the CryptoAPI has it
 * when CMSG_SIGNER_ENCODE_INFO_HAS_CMS_FIELDS is defined). cbSize says which form it is; all signers of one message
 * have the same form. */

#include "capi/types.h"

typedef struct _CMSG_SIGNER_ENCODE_INFO_CMS_FIELDS {
    CMSG_SIGNER_ENCODE_INFO Signer;                     /* cbSize is that of the whole */
    CERT_ID SignerId;                                   /* dwIdChoice 0: issuer and serial number of pCertInfo */
    CRYPT_ALGORITHM_IDENTIFIER HashEncryptionAlgorithm; /* no pszObjId: the algorithm of the key */
    void* pvHashEncryptionAuxInfo;
} CMSG_SIGNER_ENCODE_INFO_CMS_FIELDS;
