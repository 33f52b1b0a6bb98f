/* Structures of the CryptoAPI as a Linux service lays them out: LP64, natural alignment, 4-byte wchar_t.
 *
 * Plain C, no logic. Names and member names are those of the public CryptoAPI documentation. Provider, key and hash
 * handles are `unsigned long`, store and message handles `void*`; they have no typedefs here, because the C++ library
 * gives the usual names (HCRYPTPROV ...) to its owning wrappers.
 */
#ifndef CAPI_TYPES_H
#define CAPI_TYPES_H

#include <stdarg.h>
#include <stddef.h>
#include <wchar.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef unsigned int DWORD;
typedef int BOOL;
typedef unsigned char BYTE;
typedef unsigned short WORD;
typedef int LONG;
typedef unsigned int ALG_ID;

typedef struct _FILETIME {
    DWORD dwLowDateTime; /* 100-nanosecond intervals since 1601-01-01 UTC, low half */
    DWORD dwHighDateTime;
} FILETIME;

typedef struct _SYSTEMTIME {
    WORD wYear;
    WORD wMonth;
    WORD wDayOfWeek;
    WORD wDay;
    WORD wHour;
    WORD wMinute;
    WORD wSecond;
    WORD wMilliseconds;
} SYSTEMTIME;

typedef struct _CRYPTOAPI_BLOB {
    DWORD cbData;
    BYTE* pbData;
} CRYPTOAPI_BLOB, CRYPT_INTEGER_BLOB, CRYPT_UINT_BLOB, CRYPT_OBJID_BLOB, CERT_NAME_BLOB, CERT_RDN_VALUE_BLOB, CERT_BLOB,
    CRL_BLOB, DATA_BLOB, CRYPT_DATA_BLOB, CRYPT_HASH_BLOB, CRYPT_DIGEST_BLOB, CRYPT_DER_BLOB, CRYPT_ATTR_BLOB;

typedef struct _CRYPT_BIT_BLOB {
    DWORD cbData;
    BYTE* pbData;
    DWORD cUnusedBits;
} CRYPT_BIT_BLOB;

typedef struct _CRYPT_ALGORITHM_IDENTIFIER {
    char* pszObjId;
    CRYPT_OBJID_BLOB Parameters; /* DER of the parameters, empty when absent */
} CRYPT_ALGORITHM_IDENTIFIER;

typedef struct _CRYPT_ATTRIBUTE {
    char* pszObjId;
    DWORD cValue;
    CRYPT_ATTR_BLOB* rgValue; /* each value is DER */
} CRYPT_ATTRIBUTE;

typedef struct _CRYPT_ATTRIBUTES {
    DWORD cAttr;
    CRYPT_ATTRIBUTE* rgAttr;
} CRYPT_ATTRIBUTES;

typedef struct _CRYPT_ATTRIBUTE_TYPE_VALUE {
    char* pszObjId;
    CRYPT_OBJID_BLOB Value;
} CRYPT_ATTRIBUTE_TYPE_VALUE;

typedef struct _CRYPT_SEQUENCE_OF_ANY {
    DWORD cValue;
    CRYPT_DER_BLOB* rgValue;
} CRYPT_SEQUENCE_OF_ANY;

typedef struct _CERT_RDN_ATTR {
    char* pszObjId;
    DWORD dwValueType;
    CERT_RDN_VALUE_BLOB Value;
} CERT_RDN_ATTR;

typedef struct _CERT_RDN {
    DWORD cRDNAttr;
    CERT_RDN_ATTR* rgRDNAttr;
} CERT_RDN;

typedef struct _CERT_NAME_INFO {
    DWORD cRDN;
    CERT_RDN* rgRDN;
} CERT_NAME_INFO;

typedef struct _CERT_NAME_VALUE {
    DWORD dwValueType;
    CERT_RDN_VALUE_BLOB Value;
} CERT_NAME_VALUE;

typedef struct _CERT_PUBLIC_KEY_INFO {
    CRYPT_ALGORITHM_IDENTIFIER Algorithm;
    CRYPT_BIT_BLOB PublicKey;
} CERT_PUBLIC_KEY_INFO;

typedef struct _CERT_EXTENSION {
    char* pszObjId;
    BOOL fCritical;
    CRYPT_OBJID_BLOB Value;
} CERT_EXTENSION;

typedef struct _CERT_EXTENSIONS {
    DWORD cExtension;
    CERT_EXTENSION* rgExtension;
} CERT_EXTENSIONS;

typedef struct _CERT_INFO {
    DWORD dwVersion;
    CRYPT_INTEGER_BLOB SerialNumber; /* least significant byte first */
    CRYPT_ALGORITHM_IDENTIFIER SignatureAlgorithm;
    CERT_NAME_BLOB Issuer;
    FILETIME NotBefore;
    FILETIME NotAfter;
    CERT_NAME_BLOB Subject;
    CERT_PUBLIC_KEY_INFO SubjectPublicKeyInfo;
    CRYPT_BIT_BLOB IssuerUniqueId;
    CRYPT_BIT_BLOB SubjectUniqueId;
    DWORD cExtension;
    CERT_EXTENSION* rgExtension;
} CERT_INFO;

typedef struct _CERT_CONTEXT {
    DWORD dwCertEncodingType;
    BYTE* pbCertEncoded;
    DWORD cbCertEncoded;
    CERT_INFO* pCertInfo;
    void* hCertStore;
} CERT_CONTEXT;
typedef const CERT_CONTEXT* PCCERT_CONTEXT;

typedef struct _CRYPT_KEY_PROV_PARAM {
    DWORD dwParam;
    BYTE* pbData;
    DWORD cbData;
    DWORD dwFlags;
} CRYPT_KEY_PROV_PARAM;

typedef struct _CRYPT_KEY_PROV_INFO {
    wchar_t* pwszContainerName;
    wchar_t* pwszProvName;
    DWORD dwProvType;
    DWORD dwFlags;
    DWORD cProvParam;
    CRYPT_KEY_PROV_PARAM* rgProvParam;
    DWORD dwKeySpec;
} CRYPT_KEY_PROV_INFO;

typedef struct _CERT_KEY_CONTEXT {
    DWORD cbSize;
    unsigned long hCryptProv;
    DWORD dwKeySpec;
} CERT_KEY_CONTEXT;

typedef struct _PROV_ENUMALGS {
    ALG_ID aiAlgid;
    DWORD dwBitLen;
    DWORD dwNameLen; /* counts the terminating zero */
    char szName[20];
} PROV_ENUMALGS;

typedef struct _CERT_REQUEST_INFO {
    DWORD dwVersion;
    CERT_NAME_BLOB Subject;
    CERT_PUBLIC_KEY_INFO SubjectPublicKeyInfo;
    DWORD cAttribute;
    CRYPT_ATTRIBUTE* rgAttribute;
} CERT_REQUEST_INFO;

typedef struct _CERT_SIGNED_CONTENT_INFO {
    CRYPT_DER_BLOB ToBeSigned;
    CRYPT_ALGORITHM_IDENTIFIER SignatureAlgorithm;
    CRYPT_BIT_BLOB Signature;
} CERT_SIGNED_CONTENT_INFO;

typedef struct _CRYPT_ENROLLMENT_NAME_VALUE_PAIR {
    wchar_t* pwszName;
    wchar_t* pwszValue;
} CRYPT_ENROLLMENT_NAME_VALUE_PAIR;

typedef struct _CRYPT_CSP_PROVIDER {
    DWORD dwKeySpec;
    wchar_t* pwszProviderName;
    CRYPT_BIT_BLOB Signature;
} CRYPT_CSP_PROVIDER;

typedef struct _CERT_PRIVATE_KEY_VALIDITY {
    FILETIME NotBefore;
    FILETIME NotAfter;
} CERT_PRIVATE_KEY_VALIDITY;

typedef struct _CERT_KEY_ATTRIBUTES_INFO {
    CRYPT_DATA_BLOB KeyId;
    CRYPT_BIT_BLOB IntendedKeyUsage;
    CERT_PRIVATE_KEY_VALIDITY* pPrivateKeyUsagePeriod;
} CERT_KEY_ATTRIBUTES_INFO;

typedef struct _CTL_USAGE {
    DWORD cUsageIdentifier;
    char** rgpszUsageIdentifier;
} CTL_USAGE, CERT_ENHKEY_USAGE;

typedef struct _CERT_OTHER_NAME {
    char* pszObjId;
    CRYPT_OBJID_BLOB Value;
} CERT_OTHER_NAME;

typedef struct _CERT_ALT_NAME_ENTRY {
    DWORD dwAltNameChoice;
    union {
        CERT_OTHER_NAME* pOtherName;
        wchar_t* pwszRfc822Name;
        wchar_t* pwszDNSName;
        CERT_NAME_BLOB DirectoryName;
        wchar_t* pwszURL;
        CRYPT_DATA_BLOB IPAddress;
        char* pszRegisteredID;
    } u;
} CERT_ALT_NAME_ENTRY;

typedef struct _CERT_ALT_NAME_INFO {
    DWORD cAltEntry;
    CERT_ALT_NAME_ENTRY* rgAltEntry;
} CERT_ALT_NAME_INFO;

typedef struct _CERT_POLICY_QUALIFIER_INFO {
    char* pszPolicyQualifierId;
    CRYPT_OBJID_BLOB Qualifier;
} CERT_POLICY_QUALIFIER_INFO;

typedef struct _CERT_POLICY_INFO {
    char* pszPolicyIdentifier;
    DWORD cPolicyQualifier;
    CERT_POLICY_QUALIFIER_INFO* rgPolicyQualifier;
} CERT_POLICY_INFO;

typedef struct _CERT_POLICIES_INFO {
    DWORD cPolicyInfo;
    CERT_POLICY_INFO* rgPolicyInfo;
} CERT_POLICIES_INFO;

typedef struct _CERT_BASIC_CONSTRAINTS2_INFO {
    BOOL fCA;
    BOOL fPathLenConstraint;
    DWORD dwPathLenConstraint;
} CERT_BASIC_CONSTRAINTS2_INFO;

typedef struct _CRYPT_OID_INFO {
    DWORD cbSize;
    const char* pszOID;
    const wchar_t* pwszName;
    DWORD dwGroupId;
    union {
        DWORD dwValue;
        ALG_ID Algid;
        DWORD dwLength;
    } u;
    CRYPT_DATA_BLOB ExtraInfo;
    const wchar_t* pwszCNGAlgid;
    const wchar_t* pwszCNGExtraAlgid;
} CRYPT_OID_INFO;
typedef const CRYPT_OID_INFO* PCCRYPT_OID_INFO;

typedef BOOL (*PFN_CMSG_STREAM_OUTPUT)(const void* pvArg, BYTE* pbData, DWORD cbData, BOOL fFinal);

typedef struct _CMSG_STREAM_INFO {
    DWORD cbContent;
    PFN_CMSG_STREAM_OUTPUT pfnStreamOutput;
    void* pvArg;
} CMSG_STREAM_INFO;

typedef struct _CMSG_SIGNER_ENCODE_INFO {
    DWORD cbSize;
    CERT_INFO* pCertInfo;
    unsigned long hCryptProv;
    DWORD dwKeySpec;
    CRYPT_ALGORITHM_IDENTIFIER HashAlgorithm;
    void* pvHashAuxInfo;
    DWORD cAuthAttr;
    CRYPT_ATTRIBUTE* rgAuthAttr;
    DWORD cUnauthAttr;
    CRYPT_ATTRIBUTE* rgUnauthAttr;
} CMSG_SIGNER_ENCODE_INFO;

typedef struct _CMSG_SIGNED_ENCODE_INFO {
    DWORD cbSize;
    DWORD cSigners;
    CMSG_SIGNER_ENCODE_INFO* rgSigners;
    DWORD cCertEncoded;
    CERT_BLOB* rgCertEncoded;
    DWORD cCrlEncoded;
    CRL_BLOB* rgCrlEncoded;
} CMSG_SIGNED_ENCODE_INFO;

typedef struct _CMSG_SIGNER_INFO {
    DWORD dwVersion;
    CERT_NAME_BLOB Issuer;
    CRYPT_INTEGER_BLOB SerialNumber;
    CRYPT_ALGORITHM_IDENTIFIER HashAlgorithm;
    CRYPT_ALGORITHM_IDENTIFIER HashEncryptionAlgorithm;
    CRYPT_DATA_BLOB EncryptedHash;
    CRYPT_ATTRIBUTES AuthAttrs;
    CRYPT_ATTRIBUTES UnauthAttrs;
} CMSG_SIGNER_INFO;

typedef struct _CERT_ISSUER_SERIAL_NUMBER {
    CERT_NAME_BLOB Issuer;
    CRYPT_INTEGER_BLOB SerialNumber; /* least significant byte first */
} CERT_ISSUER_SERIAL_NUMBER;

typedef struct _CERT_ID {
    DWORD dwIdChoice;
    union {
        CERT_ISSUER_SERIAL_NUMBER IssuerSerialNumber;
        CRYPT_HASH_BLOB KeyId;
        CRYPT_HASH_BLOB HashId;
    } u;
} CERT_ID;

typedef struct _CMSG_KEY_TRANS_RECIPIENT_ENCODE_INFO {
    DWORD cbSize;
    CRYPT_ALGORITHM_IDENTIFIER KeyEncryptionAlgorithm; /* that of the recipient's public key */
    void* pvKeyEncryptionAuxInfo;
    unsigned long hCryptProv;
    CRYPT_BIT_BLOB RecipientPublicKey;
    CERT_ID RecipientId;
} CMSG_KEY_TRANS_RECIPIENT_ENCODE_INFO;

typedef struct _CMSG_RECIPIENT_ENCRYPTED_KEY_ENCODE_INFO {
    DWORD cbSize;
    CRYPT_BIT_BLOB RecipientPublicKey;
    CERT_ID RecipientId;
    FILETIME Date;
    CRYPT_ATTRIBUTE_TYPE_VALUE* pOtherAttr;
} CMSG_RECIPIENT_ENCRYPTED_KEY_ENCODE_INFO;

typedef struct _CMSG_KEY_AGREE_RECIPIENT_ENCODE_INFO {
    DWORD cbSize;
    CRYPT_ALGORITHM_IDENTIFIER KeyEncryptionAlgorithm;
    void* pvKeyEncryptionAuxInfo;
    CRYPT_ALGORITHM_IDENTIFIER KeyWrapAlgorithm;
    void* pvKeyWrapAuxInfo;
    unsigned long hCryptProv;
    DWORD dwKeySpec;
    DWORD dwKeyChoice;
    union {
        CRYPT_ALGORITHM_IDENTIFIER* pEphemeralAlgorithm; /* that of the recipients' public keys */
        CERT_ID* pSenderId;
    } u;
    CRYPT_DATA_BLOB UserKeyingMaterial;
    DWORD cRecipientEncryptedKeys;
    CMSG_RECIPIENT_ENCRYPTED_KEY_ENCODE_INFO** rgpRecipientEncryptedKeys;
} CMSG_KEY_AGREE_RECIPIENT_ENCODE_INFO;

typedef struct _CMSG_RECIPIENT_ENCODE_INFO {
    DWORD dwRecipientChoice;
    union {
        CMSG_KEY_TRANS_RECIPIENT_ENCODE_INFO* pKeyTrans;
        CMSG_KEY_AGREE_RECIPIENT_ENCODE_INFO* pKeyAgree;
        void* pMailList;
    } u;
} CMSG_RECIPIENT_ENCODE_INFO;

typedef struct _CMSG_ENVELOPED_ENCODE_INFO {
    DWORD cbSize; /* up to rgpRecipients, or all of it */
    unsigned long hCryptProv;
    CRYPT_ALGORITHM_IDENTIFIER ContentEncryptionAlgorithm;
    void* pvEncryptionAuxInfo;
    DWORD cRecipients;         /* of rgpRecipients, or of rgCmsRecipients when that is given */
    CERT_INFO** rgpRecipients; /* each a recipient by key transport, named by issuer and serial number */
    CMSG_RECIPIENT_ENCODE_INFO* rgCmsRecipients;
    DWORD cCertEncoded;
    CERT_BLOB* rgCertEncoded;
    DWORD cCrlEncoded;
    CRL_BLOB* rgCrlEncoded;
    DWORD cAttrCertEncoded;
    CERT_BLOB* rgAttrCertEncoded;
    DWORD cUnprotectedAttr;
    CRYPT_ATTRIBUTE* rgUnprotectedAttr;
} CMSG_ENVELOPED_ENCODE_INFO;

typedef struct _CMSG_CTRL_DECRYPT_PARA {
    DWORD cbSize;
    unsigned long hCryptProv;
    DWORD dwKeySpec;
    DWORD dwRecipientIndex;
} CMSG_CTRL_DECRYPT_PARA;

typedef struct _CMSG_CTRL_ADD_SIGNER_UNAUTH_ATTR_PARA {
    DWORD cbSize;
    DWORD dwSignerIndex;
    CRYPT_DATA_BLOB blob;
} CMSG_CTRL_ADD_SIGNER_UNAUTH_ATTR_PARA;

typedef struct _CMSG_CTRL_VERIFY_SIGNATURE_EX_PARA {
    DWORD cbSize;
    unsigned long hCryptProv;
    DWORD dwSignerIndex;
    DWORD dwSignerType;
    void* pvSigner;
} CMSG_CTRL_VERIFY_SIGNATURE_EX_PARA;

/* Of the embedded service alone. */
typedef struct _CMSG_COUNTER_SIGNATURE {
    DWORD dwParent;        /* index in the list of what it covers; CMSG_NO_PARENT: the signer itself */
    DWORD dwError;         /* 0 when it holds */
    CERT_BLOB Certificate; /* the one that was used; empty when the message does not carry it */
    CERT_NAME_BLOB Issuer;
    CRYPT_INTEGER_BLOB SerialNumber;
    CRYPT_DATA_BLOB SigningTime;                        /* value of the signed attribute, encoded; empty when absent */
    CRYPT_ALGORITHM_IDENTIFIER HashAlgorithm;           /* pszObjId is null when it cannot be read */
    CRYPT_ALGORITHM_IDENTIFIER HashEncryptionAlgorithm; /* likewise */
} CMSG_COUNTER_SIGNATURE;

typedef struct _CMSG_COUNTER_SIGNATURES {
    DWORD cCounterSignature;
    CMSG_COUNTER_SIGNATURE* rgCounterSignature;
} CMSG_COUNTER_SIGNATURES;

typedef struct _CERT_TRUST_STATUS {
    DWORD dwErrorStatus;
    DWORD dwInfoStatus;
} CERT_TRUST_STATUS;

typedef struct _CERT_USAGE_MATCH {
    DWORD dwType;
    CERT_ENHKEY_USAGE Usage;
} CERT_USAGE_MATCH;

typedef struct _CERT_CHAIN_PARA {
    DWORD cbSize;
    CERT_USAGE_MATCH RequestedUsage;
} CERT_CHAIN_PARA;

/// The longer form of CERT_CHAIN_PARA; which one a caller gives is said by cbSize.
typedef struct _CERT_CHAIN_PARA_LONG {
    DWORD cbSize;
    CERT_USAGE_MATCH RequestedUsage;
    CERT_USAGE_MATCH RequestedIssuancePolicy; ///< certificate policies that the chain must be valid for
    DWORD dwUrlRetrievalTimeout;              ///< milliseconds for all retrievals of the chain; 0: the default
    BOOL fCheckRevocationFreshnessTime;
    DWORD dwRevocationFreshnessTime; ///< seconds since thisUpdate that a CRL may have, where the field before says so
    FILETIME* pftCacheResync;        ///< not null: the embedded service uses nothing that it kept from before
    const void* pStrongSignPara;     ///< must be null for the embedded service
    DWORD dwStrongSignFlags;
} CERT_CHAIN_PARA_LONG;

typedef struct _CRL_ENTRY {
    CRYPT_INTEGER_BLOB SerialNumber; /* least significant byte first */
    FILETIME RevocationDate;
    DWORD cExtension;
    CERT_EXTENSION* rgExtension;
} CRL_ENTRY;

typedef struct _CRL_INFO {
    DWORD dwVersion;
    CRYPT_ALGORITHM_IDENTIFIER SignatureAlgorithm;
    CERT_NAME_BLOB Issuer;
    FILETIME ThisUpdate;
    FILETIME NextUpdate; /* 0 when absent */
    DWORD cCRLEntry;
    CRL_ENTRY* rgCRLEntry;
    DWORD cExtension;
    CERT_EXTENSION* rgExtension;
} CRL_INFO;

typedef struct _CRL_CONTEXT {
    DWORD dwCertEncodingType;
    BYTE* pbCrlEncoded;
    DWORD cbCrlEncoded;
    CRL_INFO* pCrlInfo;
    void* hCertStore;
} CRL_CONTEXT;
typedef const CRL_CONTEXT* PCCRL_CONTEXT;

typedef struct _CERT_REVOCATION_CRL_INFO {
    DWORD cbSize;
    PCCRL_CONTEXT pBaseCrlContext;
    PCCRL_CONTEXT pDeltaCrlContext; /* null when there is none */
    CRL_ENTRY* pCrlEntry;           /* the certificate's entry; null when it has none */
    BOOL fDeltaCrlEntry;            /* the entry is the delta CRL's */
} CERT_REVOCATION_CRL_INFO;

typedef struct _CERT_REVOCATION_INFO {
    DWORD cbSize;
    DWORD dwRevocationResult; /* 0 not revoked, CRYPT_E_REVOKED, CRYPT_E_REVOCATION_OFFLINE */
    const char* pszRevocationOid;
    void* pvOidSpecificInfo;
    BOOL fHasFreshnessTime;
    DWORD dwFreshnessTime; /* seconds from the CRL's ThisUpdate to the time of the question */
    CERT_REVOCATION_CRL_INFO* pCrlInfo;
} CERT_REVOCATION_INFO;

typedef struct _CERT_CHAIN_ELEMENT {
    DWORD cbSize;
    PCCERT_CONTEXT pCertContext;
    CERT_TRUST_STATUS TrustStatus;
    CERT_REVOCATION_INFO* pRevocationInfo; /* null when no CRL was used */
    CERT_ENHKEY_USAGE* pIssuanceUsage;
    CERT_ENHKEY_USAGE* pApplicationUsage;
    const wchar_t* pwszExtendedErrorInfo;
} CERT_CHAIN_ELEMENT;

typedef struct _CERT_SIMPLE_CHAIN {
    DWORD cbSize;
    CERT_TRUST_STATUS TrustStatus;
    DWORD cElement;
    CERT_CHAIN_ELEMENT** rgpElement;
    void* pTrustListInfo;
    BOOL fHasRevocationFreshnessTime;
    DWORD dwRevocationFreshnessTime;
} CERT_SIMPLE_CHAIN;

typedef struct _CERT_CHAIN_CONTEXT {
    DWORD cbSize;
    CERT_TRUST_STATUS TrustStatus;
    DWORD cChain;
    CERT_SIMPLE_CHAIN** rgpChain;
    DWORD cLowerQualityChainContext;
    const struct _CERT_CHAIN_CONTEXT** rgpLowerQualityChainContext;
    BOOL fHasRevocationFreshnessTime;
    DWORD dwRevocationFreshnessTime;
} CERT_CHAIN_CONTEXT;
typedef const CERT_CHAIN_CONTEXT* PCCERT_CHAIN_CONTEXT;

typedef struct _CERT_CHAIN_POLICY_PARA {
    DWORD cbSize;
    DWORD dwFlags;
    void* pvExtraPolicyPara;
} CERT_CHAIN_POLICY_PARA;

typedef struct _CERT_CHAIN_POLICY_STATUS {
    DWORD cbSize;
    DWORD dwError;
    LONG lChainIndex;
    LONG lElementIndex;
    void* pvExtraPolicyStatus;
} CERT_CHAIN_POLICY_STATUS;

typedef struct _CRYPT_TIMESTAMP_REQUEST {
    DWORD dwVersion;
    CRYPT_ALGORITHM_IDENTIFIER HashAlgorithm;
    CRYPT_DER_BLOB HashedMessage;
    char* pszTSAPolicyId;
    CRYPT_INTEGER_BLOB Nonce;
    BOOL fCertReq;
    DWORD cExtension;
    CERT_EXTENSION* rgExtension;
} CRYPT_TIMESTAMP_REQUEST;

typedef struct _CRYPT_TIMESTAMP_RESPONSE {
    DWORD dwStatus;
    DWORD cFreeText;
    wchar_t** rgFreeText;
    CRYPT_BIT_BLOB FailureInfo;
    CRYPT_DER_BLOB ContentInfo;
} CRYPT_TIMESTAMP_RESPONSE;

typedef struct _CRYPT_TIMESTAMP_ACCURACY {
    DWORD dwSeconds;
    DWORD dwMillis;
    DWORD dwMicros;
} CRYPT_TIMESTAMP_ACCURACY;

typedef struct _CRYPT_TIMESTAMP_INFO {
    DWORD dwVersion;
    char* pszTSAPolicyId;
    CRYPT_ALGORITHM_IDENTIFIER HashAlgorithm;
    CRYPT_DER_BLOB HashedMessage;
    CRYPT_INTEGER_BLOB SerialNumber;
    FILETIME ftTime;
    CRYPT_TIMESTAMP_ACCURACY* pvAccuracy;
    BOOL fOrdering;
    CRYPT_DER_BLOB Nonce;
    CRYPT_DER_BLOB Tsa;
    DWORD cExtension;
    CERT_EXTENSION* rgExtension;
} CRYPT_TIMESTAMP_INFO;

#ifdef __cplusplus
}
#endif

#endif
