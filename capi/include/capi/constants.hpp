#pragma once

/// Numbers and OIDs of the CryptoAPI. They live in a namespace, not in macros, because several of their public names
/// (X509_NAME, X509_EXTENSIONS ...) are also types of OpenSSL.

#include "capi/types.h"

namespace capi {

// ---- encodings -----------------------------------------------------------------------------------------------------
inline constexpr DWORD X509_ASN_ENCODING = 0x00000001;
inline constexpr DWORD PKCS_7_ASN_ENCODING = 0x00010000;
inline constexpr DWORD X509_AND_PKCS_7 = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;

// ---- error codes ---------------------------------------------------------------------------------------------------
inline constexpr DWORD ERROR_SUCCESS = 0;
inline constexpr DWORD ERROR_FILE_NOT_FOUND = 2;
inline constexpr DWORD ERROR_PATH_NOT_FOUND = 3;
inline constexpr DWORD ERROR_ACCESS_DENIED = 5;
inline constexpr DWORD ERROR_INVALID_HANDLE = 6;
inline constexpr DWORD ERROR_NOT_ENOUGH_MEMORY = 8;
inline constexpr DWORD ERROR_INVALID_DATA = 13;
inline constexpr DWORD ERROR_NO_MORE_FILES = 18;
inline constexpr DWORD ERROR_WRITE_FAULT = 29;
inline constexpr DWORD ERROR_SHARING_VIOLATION = 32;
inline constexpr DWORD ERROR_NOT_SUPPORTED = 50;
inline constexpr DWORD ERROR_INVALID_PARAMETER = 87;
inline constexpr DWORD ERROR_DISK_FULL = 112;
inline constexpr DWORD ERROR_CALL_NOT_IMPLEMENTED = 120;
inline constexpr DWORD ERROR_INSUFFICIENT_BUFFER = 122;
inline constexpr DWORD ERROR_BUSY = 170;
inline constexpr DWORD ERROR_MORE_DATA = 234;
inline constexpr DWORD ERROR_NO_MORE_ITEMS = 259;
inline constexpr DWORD ERROR_MR_MID_NOT_FOUND = 317;
inline constexpr DWORD ERROR_CANCELLED = 1223;
inline constexpr DWORD SCARD_W_WRONG_CHV = 0x8010006B;
inline constexpr DWORD SCARD_W_CHV_BLOCKED = 0x8010006C;
inline constexpr DWORD SCARD_W_CANCELLED_BY_USER = 0x8010006E;
inline constexpr DWORD SCARD_W_CARD_NOT_AUTHENTICATED = 0x8010006F;
inline constexpr DWORD NTE_BAD_UID = 0x80090001;
inline constexpr DWORD NTE_BAD_HASH = 0x80090002;
inline constexpr DWORD NTE_BAD_KEY = 0x80090003;
inline constexpr DWORD NTE_BAD_LEN = 0x80090004;
inline constexpr DWORD NTE_BAD_DATA = 0x80090005;
inline constexpr DWORD NTE_BAD_SIGNATURE = 0x80090006;
inline constexpr DWORD NTE_BAD_VER = 0x80090007;
inline constexpr DWORD NTE_BAD_ALGID = 0x80090008;
inline constexpr DWORD NTE_BAD_FLAGS = 0x80090009;
inline constexpr DWORD NTE_BAD_TYPE = 0x8009000A;
inline constexpr DWORD NTE_BAD_KEY_STATE = 0x8009000B;
inline constexpr DWORD NTE_BAD_HASH_STATE = 0x8009000C;
inline constexpr DWORD NTE_NO_KEY = 0x8009000D;
inline constexpr DWORD NTE_NO_MEMORY = 0x8009000E;
inline constexpr DWORD NTE_EXISTS = 0x8009000F;
inline constexpr DWORD NTE_PERM = 0x80090010;
inline constexpr DWORD NTE_NOT_FOUND = 0x80090011;
inline constexpr DWORD NTE_BAD_PROV_TYPE = 0x80090014;
inline constexpr DWORD NTE_BAD_PUBLIC_KEY = 0x80090015;
inline constexpr DWORD NTE_BAD_KEYSET = 0x80090016;
inline constexpr DWORD NTE_PROV_TYPE_NOT_DEF = 0x80090017;
inline constexpr DWORD NTE_KEYSET_NOT_DEF = 0x80090019;
inline constexpr DWORD NTE_KEYSET_ENTRY_BAD = 0x8009001A;
inline constexpr DWORD NTE_PROV_TYPE_NO_MATCH = 0x8009001B;
inline constexpr DWORD NTE_BAD_KEYSET_PARAM = 0x8009001F;
inline constexpr DWORD NTE_FAIL = 0x80090020;
inline constexpr DWORD NTE_SILENT_CONTEXT = 0x80090022;
inline constexpr DWORD CRYPT_E_MSG_ERROR = 0x80091001;
inline constexpr DWORD CRYPT_E_UNKNOWN_ALGO = 0x80091002;
inline constexpr DWORD CRYPT_E_OID_FORMAT = 0x80091003;
inline constexpr DWORD CRYPT_E_INVALID_MSG_TYPE = 0x80091004;
inline constexpr DWORD CRYPT_E_UNEXPECTED_ENCODING = 0x80091005;
inline constexpr DWORD CRYPT_E_AUTH_ATTR_MISSING = 0x80091006;
inline constexpr DWORD CRYPT_E_HASH_VALUE = 0x80091007;
inline constexpr DWORD CRYPT_E_INVALID_INDEX = 0x80091008;
inline constexpr DWORD CRYPT_E_ALREADY_DECRYPTED = 0x80091009;
inline constexpr DWORD CRYPT_E_NOT_DECRYPTED = 0x8009100A;
inline constexpr DWORD CRYPT_E_RECIPIENT_NOT_FOUND = 0x8009100B;
inline constexpr DWORD CRYPT_E_CONTROL_TYPE = 0x8009100C;
inline constexpr DWORD CRYPT_E_SIGNER_NOT_FOUND = 0x8009100E;
inline constexpr DWORD CRYPT_E_ATTRIBUTES_MISSING = 0x8009100F;
inline constexpr DWORD CRYPT_E_STREAM_MSG_NOT_READY = 0x80091010;
inline constexpr DWORD CRYPT_E_STREAM_INSUFFICIENT_DATA = 0x80091011;
inline constexpr DWORD CRYPT_E_BAD_LEN = 0x80092001;
inline constexpr DWORD CRYPT_E_BAD_ENCODE = 0x80092002;
inline constexpr DWORD CRYPT_E_FILE_ERROR = 0x80092003;
inline constexpr DWORD CRYPT_E_NOT_FOUND = 0x80092004;
inline constexpr DWORD CRYPT_E_EXISTS = 0x80092005;
inline constexpr DWORD CRYPT_E_NO_PROVIDER = 0x80092006;
inline constexpr DWORD CRYPT_E_NO_MATCH = 0x80092009;
inline constexpr DWORD CRYPT_E_UNEXPECTED_MSG_TYPE = 0x8009200A;
inline constexpr DWORD CRYPT_E_NO_KEY_PROPERTY = 0x8009200B;
inline constexpr DWORD CRYPT_E_NO_SIGNER = 0x8009200E;
inline constexpr DWORD CRYPT_E_PENDING_CLOSE = 0x8009200F;
inline constexpr DWORD CRYPT_E_REVOKED = 0x80092010;
inline constexpr DWORD CRYPT_E_NO_REVOCATION_CHECK = 0x80092012;
inline constexpr DWORD CRYPT_E_REVOCATION_OFFLINE = 0x80092013;
inline constexpr DWORD CRYPT_E_INVALID_NUMERIC_STRING = 0x80092020;
inline constexpr DWORD CRYPT_E_INVALID_PRINTABLE_STRING = 0x80092021;
inline constexpr DWORD CRYPT_E_INVALID_IA5_STRING = 0x80092022;
inline constexpr DWORD CRYPT_E_INVALID_X500_STRING = 0x80092023;
inline constexpr DWORD CRYPT_E_ASN1_ERROR = 0x80093100;
inline constexpr DWORD CRYPT_E_ASN1_EOD = 0x80093102;
inline constexpr DWORD CRYPT_E_ASN1_CORRUPT = 0x80093103;
inline constexpr DWORD CRYPT_E_ASN1_LARGE = 0x80093104;
inline constexpr DWORD CRYPT_E_ASN1_BADTAG = 0x8009310B;
inline constexpr DWORD CRYPT_E_ASN1_UTF8 = 0x8009310E;
inline constexpr DWORD CRYPT_E_ASN1_NOEOD = 0x80093202; ///< octets after the end of what was encoded
inline constexpr DWORD CERT_E_EXPIRED = 0x800B0101;
inline constexpr DWORD CERT_E_CRITICAL = 0x800B0105;
inline constexpr DWORD CERT_E_UNTRUSTEDROOT = 0x800B0109;
inline constexpr DWORD CERT_E_CHAINING = 0x800B010A;
inline constexpr DWORD CERT_E_REVOKED = 0x800B010C;
inline constexpr DWORD CERT_E_REVOCATION_FAILURE = 0x800B010E;
inline constexpr DWORD CERT_E_WRONG_USAGE = 0x800B0110;
inline constexpr DWORD TRUST_E_EXPLICIT_DISTRUST = 0x800B0111;
inline constexpr DWORD CERT_E_INVALID_POLICY = 0x800B0113;
inline constexpr DWORD CERT_E_INVALID_NAME = 0x800B0114;
inline constexpr DWORD TRUST_E_CERT_SIGNATURE = 0x80096004;
inline constexpr DWORD TRUST_E_BASIC_CONSTRAINTS = 0x80096019;

// ---- provider types ------------------------------------------------------------------------------------------------
inline constexpr DWORD PROV_RSA_FULL = 1;
inline constexpr DWORD PROV_RSA_AES = 24;
inline constexpr DWORD PROV_GOST_2001_DH = 75;
inline constexpr DWORD PROV_GOST_2012_256 = 80;
inline constexpr DWORD PROV_GOST_2012_512 = 81;

// ---- acquiring a context -------------------------------------------------------------------------------------------
inline constexpr DWORD CRYPT_VERIFYCONTEXT = 0xF0000000;
inline constexpr DWORD CRYPT_NEWKEYSET = 0x00000008;
inline constexpr DWORD CRYPT_DELETEKEYSET = 0x00000010;
inline constexpr DWORD CRYPT_MACHINE_KEYSET = 0x00000020;
inline constexpr DWORD CRYPT_SILENT = 0x00000040;

// ---- provider parameters -------------------------------------------------------------------------------------------
inline constexpr DWORD PP_ENUMALGS = 1;
inline constexpr DWORD PP_ENUMCONTAINERS = 2;
inline constexpr DWORD PP_IMPTYPE = 3;
inline constexpr DWORD PP_NAME = 4;
inline constexpr DWORD PP_VERSION = 5;
inline constexpr DWORD PP_CONTAINER = 6;
inline constexpr DWORD PP_PROVTYPE = 16;
inline constexpr DWORD PP_ENUMALGS_EX = 22;
inline constexpr DWORD PP_KEYEXCHANGE_PIN = 32;
inline constexpr DWORD PP_SIGNATURE_PIN = 33;
inline constexpr DWORD PP_UNIQUE_CONTAINER = 36;
inline constexpr DWORD PP_KEYSPEC = 39;
inline constexpr DWORD PP_SIGNATURE_ALGORITHM_OID = 94; ///< parameter-set OID of the next signature key
inline constexpr DWORD PP_EXCHANGE_ALGORITHM_OID = 95;  ///< parameter-set OID of the next exchange key
/// Parameters that only the embedded service knows; any other service answers NTE_BAD_TYPE.
inline constexpr DWORD PP_PIN_TRIES_REMAINING = 0x4B4C0001; ///< DWORD: PIN attempts left before the container locks
inline constexpr DWORD PP_PIN_NEW = 0x4B4C0002;             ///< set: replaces the PIN of an unlocked container

inline constexpr DWORD CRYPT_FIRST = 1;
inline constexpr DWORD CRYPT_NEXT = 2;
inline constexpr DWORD CRYPT_FQCN = 8;

inline constexpr DWORD CRYPT_IMPL_SOFTWARE = 2;

/// dwFlags of CryptSetProvParam(PP_KEYEXCHANGE_PIN): present a PIN, verify it, or give a new container its PIN.
inline constexpr DWORD PIN_PRESENT = 0;
inline constexpr DWORD PIN_VERIFY = 1;
inline constexpr DWORD PIN_SET_NEW = 7;

// ---- keys ----------------------------------------------------------------------------------------------------------
inline constexpr DWORD AT_KEYEXCHANGE = 1;
inline constexpr DWORD AT_SIGNATURE = 2;
inline constexpr DWORD CRYPT_EXPORTABLE = 1;
inline constexpr DWORD KP_ALGID = 7;
inline constexpr DWORD KP_BLOCKLEN = 8;
inline constexpr DWORD KP_KEYLEN = 9;
inline constexpr DWORD KP_PERMISSIONS = 6;
inline constexpr DWORD KP_CERTIFICATE = 26;
inline constexpr DWORD CRYPT_EXPORT = 0x0004;
inline constexpr DWORD CRYPT_READ = 0x0008;
inline constexpr DWORD CRYPT_WRITE = 0x0010;

// ---- hashes --------------------------------------------------------------------------------------------------------
inline constexpr DWORD HP_ALGID = 1;
inline constexpr DWORD HP_HASHVAL = 2;
inline constexpr DWORD HP_HASHSIZE = 4;

// ---- algorithm identifiers -----------------------------------------------------------------------------------------
inline constexpr ALG_ID CALG_SHA1 = 0x8004;
inline constexpr ALG_ID CALG_SHA_256 = 0x800C;
inline constexpr ALG_ID CALG_SHA_384 = 0x800D;
inline constexpr ALG_ID CALG_SHA_512 = 0x800E;
inline constexpr ALG_ID CALG_RSA_SIGN = 0x2400;
inline constexpr ALG_ID CALG_RSA_KEYX = 0xA400;
inline constexpr ALG_ID CALG_GR3411 = 0x801E;
inline constexpr ALG_ID CALG_GR3411_2012_256 = 0x8021;
inline constexpr ALG_ID CALG_GR3411_2012_512 = 0x8022;
inline constexpr ALG_ID CALG_GR3410EL = 0x2E23;
inline constexpr ALG_ID CALG_GR3410_12_256 = 0x2E49;
inline constexpr ALG_ID CALG_GR3410_12_512 = 0x2E3D;
inline constexpr ALG_ID CALG_DH_EL_SF = 0xAA24;
inline constexpr ALG_ID CALG_DH_GR3410_12_256_SF = 0xAA46;
inline constexpr ALG_ID CALG_DH_GR3410_12_512_SF = 0xAA42;
/// The algorithm has no ALG_ID: its OID tells it.
inline constexpr ALG_ID CALG_OID_INFO_PARAMETERS = 0xFFFFFFFE;

// ---- encoded structures (CryptEncodeObject, CryptDecodeObject)
// -------------------------------------------------------
inline constexpr DWORD X509_CERT = 1;
inline constexpr DWORD X509_CERT_TO_BE_SIGNED = 2;
inline constexpr DWORD X509_CERT_REQUEST_TO_BE_SIGNED = 4;
inline constexpr DWORD X509_EXTENSIONS = 5;
inline constexpr DWORD X509_ANY_STRING = 6;
inline constexpr DWORD X509_NAME_VALUE = 6;
inline constexpr DWORD X509_NAME = 7;
inline constexpr DWORD X509_PUBLIC_KEY_INFO = 8;
inline constexpr DWORD X509_AUTHORITY_KEY_ID = 9;
inline constexpr DWORD X509_KEY_ATTRIBUTES = 10;
inline constexpr DWORD X509_ALTERNATE_NAME = 12;
inline constexpr DWORD X509_BASIC_CONSTRAINTS = 13;
inline constexpr DWORD X509_KEY_USAGE = 14;
inline constexpr DWORD X509_BASIC_CONSTRAINTS2 = 15;
inline constexpr DWORD X509_CERT_POLICIES = 16;
inline constexpr DWORD PKCS_ATTRIBUTE = 22;
inline constexpr DWORD X509_UNICODE_NAME_VALUE = 24;
inline constexpr DWORD X509_UNICODE_ANY_STRING = 24;
inline constexpr DWORD X509_OCTET_STRING = 25;
inline constexpr DWORD X509_INTEGER = 27;
inline constexpr DWORD X509_MULTI_BYTE_INTEGER = 28;
inline constexpr DWORD X509_CHOICE_OF_TIME = 30;
inline constexpr DWORD X509_SEQUENCE_OF_ANY = 34;
inline constexpr DWORD X509_ENHANCED_KEY_USAGE = 36;
inline constexpr DWORD TIMESTAMP_REQUEST = 78;
inline constexpr DWORD TIMESTAMP_RESPONSE = 79;
inline constexpr DWORD TIMESTAMP_INFO = 80;
inline constexpr const char* szOID_ENROLLMENT_NAME_VALUE_PAIR = "1.3.6.1.4.1.311.13.2.1";
inline constexpr const char* szOID_ENROLLMENT_CSP_PROVIDER = "1.3.6.1.4.1.311.13.2.2";
inline constexpr const char* szOID_SUBJECT_KEY_IDENTIFIER = "2.5.29.14";
inline constexpr const char* szOID_KEY_USAGE = "2.5.29.15";
inline constexpr const char* szOID_SUBJECT_ALT_NAME2 = "2.5.29.17";
inline constexpr const char* szOID_ISSUER_ALT_NAME2 = "2.5.29.18";
inline constexpr const char* szOID_BASIC_CONSTRAINTS2 = "2.5.29.19";
inline constexpr const char* szOID_CERT_POLICIES = "2.5.29.32";
inline constexpr const char* szOID_ENHANCED_KEY_USAGE = "2.5.29.37";
inline constexpr const char* szOID_RSA_signingTime = "1.2.840.113549.1.9.5";

// ---- values of a relative distinguished name -----------------------------------------------------------------------
inline constexpr DWORD CERT_RDN_ANY_TYPE = 0;
inline constexpr DWORD CERT_RDN_ENCODED_BLOB = 1;
inline constexpr DWORD CERT_RDN_OCTET_STRING = 2;
inline constexpr DWORD CERT_RDN_NUMERIC_STRING = 3;
inline constexpr DWORD CERT_RDN_PRINTABLE_STRING = 4;
inline constexpr DWORD CERT_RDN_TELETEX_STRING = 5;
inline constexpr DWORD CERT_RDN_VIDEOTEX_STRING = 6;
inline constexpr DWORD CERT_RDN_IA5_STRING = 7;
inline constexpr DWORD CERT_RDN_GRAPHIC_STRING = 8;
inline constexpr DWORD CERT_RDN_VISIBLE_STRING = 9;
inline constexpr DWORD CERT_RDN_GENERAL_STRING = 10;
inline constexpr DWORD CERT_RDN_UNIVERSAL_STRING = 11;
inline constexpr DWORD CERT_RDN_BMP_STRING = 12;
inline constexpr DWORD CERT_RDN_UTF8_STRING = 13;
inline constexpr DWORD CERT_RDN_TYPE_MASK = 0x000000FF; ///< the rest of a value type are encoding flags

inline constexpr DWORD CERT_ALT_NAME_OTHER_NAME = 1;
inline constexpr DWORD CERT_ALT_NAME_RFC822_NAME = 2;
inline constexpr DWORD CERT_ALT_NAME_DNS_NAME = 3;
inline constexpr DWORD CERT_ALT_NAME_X400_ADDRESS = 4;
inline constexpr DWORD CERT_ALT_NAME_DIRECTORY_NAME = 5;
inline constexpr DWORD CERT_ALT_NAME_EDI_PARTY_NAME = 6;
inline constexpr DWORD CERT_ALT_NAME_URL = 7;
inline constexpr DWORD CERT_ALT_NAME_IP_ADDRESS = 8;
inline constexpr DWORD CERT_ALT_NAME_REGISTERED_ID = 9;

inline constexpr DWORD CERT_SIMPLE_NAME_STR = 1;
inline constexpr DWORD CERT_OID_NAME_STR = 2;
inline constexpr DWORD CERT_X500_NAME_STR = 3;
inline constexpr DWORD CERT_NAME_STR_SEMICOLON_FLAG = 0x40000000;
inline constexpr DWORD CERT_NAME_STR_NO_PLUS_FLAG = 0x20000000;
inline constexpr DWORD CERT_NAME_STR_NO_QUOTING_FLAG = 0x10000000;
inline constexpr DWORD CERT_NAME_STR_CRLF_FLAG = 0x08000000;
inline constexpr DWORD CERT_NAME_STR_REVERSE_FLAG = 0x02000000;

inline constexpr BYTE CERT_DIGITAL_SIGNATURE_KEY_USAGE = 0x80;
inline constexpr BYTE CERT_NON_REPUDIATION_KEY_USAGE = 0x40;
inline constexpr BYTE CERT_KEY_ENCIPHERMENT_KEY_USAGE = 0x20;
inline constexpr BYTE CERT_DATA_ENCIPHERMENT_KEY_USAGE = 0x10;
inline constexpr BYTE CERT_KEY_AGREEMENT_KEY_USAGE = 0x08;
inline constexpr BYTE CERT_KEY_CERT_SIGN_KEY_USAGE = 0x04;
inline constexpr BYTE CERT_CRL_SIGN_KEY_USAGE = 0x02;

// ---- stores --------------------------------------------------------------------------------------------------------
inline constexpr DWORD CERT_STORE_PROV_MSG = 1;
inline constexpr DWORD CERT_STORE_PROV_MEMORY = 2;
inline constexpr DWORD CERT_STORE_PROV_SYSTEM_W = 10;
inline constexpr DWORD CERT_STORE_PROV_SYSTEM_A = 9;
inline constexpr DWORD CERT_STORE_OPEN_EXISTING_FLAG = 0x00004000;
inline constexpr DWORD CERT_STORE_READONLY_FLAG = 0x00008000;
inline constexpr DWORD CERT_STORE_ADD_NEW = 1;
inline constexpr DWORD CERT_STORE_ADD_USE_EXISTING = 2;
inline constexpr DWORD CERT_STORE_ADD_REPLACE_EXISTING = 3;
inline constexpr DWORD CERT_STORE_ADD_ALWAYS = 4;
inline constexpr DWORD CERT_CLOSE_STORE_CHECK_FLAG = 2;
inline constexpr DWORD CERT_FIND_ANY = 0;
inline constexpr DWORD CERT_FIND_SHA1_HASH = 0x00010000;
inline constexpr DWORD CERT_FIND_SUBJECT_NAME = 0x00020007;
inline constexpr DWORD CERT_FIND_ISSUER_NAME = 0x00020004;
inline constexpr DWORD CERT_FIND_PUBLIC_KEY = 0x00060000;
inline constexpr DWORD CERT_FIND_SUBJECT_STR = 0x00080007;
inline constexpr DWORD CERT_FIND_SUBJECT_CERT = 0x000B0000;
inline constexpr DWORD CERT_FIND_EXISTING = 0x000D0000;

inline constexpr DWORD CERT_KEY_PROV_HANDLE_PROP_ID = 1;
inline constexpr DWORD CERT_KEY_PROV_INFO_PROP_ID = 2;
inline constexpr DWORD CERT_SHA1_HASH_PROP_ID = 3;
inline constexpr DWORD CERT_KEY_CONTEXT_PROP_ID = 5;
inline constexpr DWORD CERT_FRIENDLY_NAME_PROP_ID = 11;
inline constexpr DWORD CERT_DESCRIPTION_PROP_ID = 13;
inline constexpr DWORD CERT_KEY_IDENTIFIER_PROP_ID = 20;

inline constexpr DWORD CRYPT_ACQUIRE_CACHE_FLAG = 0x00000001;
inline constexpr DWORD CRYPT_ACQUIRE_COMPARE_KEY_FLAG = 0x00000004;
inline constexpr DWORD CRYPT_ACQUIRE_SILENT_FLAG = 0x00000040;
inline constexpr DWORD CRYPT_ACQUIRE_PREFER_NCRYPT_KEY_FLAG = 0x00020000;

// ---- OID information -----------------------------------------------------------------------------------------------
inline constexpr DWORD CRYPT_OID_INFO_OID_KEY = 1;
inline constexpr DWORD CRYPT_OID_INFO_NAME_KEY = 2;
inline constexpr DWORD CRYPT_OID_INFO_ALGID_KEY = 3;
inline constexpr DWORD CRYPT_OID_INFO_SIGN_KEY = 4; ///< two ALG_IDs: of the hash and of the key
inline constexpr DWORD CRYPT_OID_INFO_KEY_TYPE_MASK = 0x0000FFFF;
inline constexpr DWORD CRYPT_OID_INFO_GROUP_MASK = 0x0000FFFF;
inline constexpr DWORD CRYPT_HASH_ALG_OID_GROUP_ID = 1;
inline constexpr DWORD CRYPT_ENCRYPT_ALG_OID_GROUP_ID = 2;
inline constexpr DWORD CRYPT_PUBKEY_ALG_OID_GROUP_ID = 3;
inline constexpr DWORD CRYPT_SIGN_ALG_OID_GROUP_ID = 4;
inline constexpr DWORD CRYPT_RDN_ATTR_OID_GROUP_ID = 5;
inline constexpr DWORD CRYPT_EXT_OR_ATTR_OID_GROUP_ID = 6;
inline constexpr DWORD CRYPT_ENHKEY_USAGE_OID_GROUP_ID = 7;

// ---- messages ------------------------------------------------------------------------------------------------------
inline constexpr DWORD CMSG_DATA = 1;
inline constexpr DWORD CMSG_SIGNED = 2;
inline constexpr DWORD CMSG_ENVELOPED = 3;
inline constexpr DWORD CMSG_HASHED = 5;
inline constexpr DWORD CMSG_KEY_TRANS_RECIPIENT = 1;
inline constexpr DWORD CMSG_KEY_AGREE_RECIPIENT = 2;
inline constexpr DWORD CMSG_KEY_AGREE_EPHEMERAL_KEY_CHOICE = 1;
inline constexpr DWORD CMSG_KEY_AGREE_STATIC_KEY_CHOICE = 2;
inline constexpr DWORD CERT_ID_ISSUER_SERIAL_NUMBER = 1;
inline constexpr DWORD CERT_ID_KEY_IDENTIFIER = 2;
inline constexpr DWORD CMSG_INDEFINITE_LENGTH = 0xFFFFFFFF;
inline constexpr DWORD CMSG_BARE_CONTENT_FLAG = 0x00000001;
inline constexpr DWORD CMSG_DETACHED_FLAG = 0x00000004;
inline constexpr DWORD CMSG_TYPE_PARAM = 1;
inline constexpr DWORD CMSG_CONTENT_PARAM = 2;
inline constexpr DWORD CMSG_BARE_CONTENT_PARAM = 3;
inline constexpr DWORD CMSG_INNER_CONTENT_TYPE_PARAM = 4;
inline constexpr DWORD CMSG_SIGNER_COUNT_PARAM = 5;
inline constexpr DWORD CMSG_SIGNER_INFO_PARAM = 6;
inline constexpr DWORD CMSG_SIGNER_CERT_INFO_PARAM = 7;
inline constexpr DWORD CMSG_SIGNER_HASH_ALGORITHM_PARAM = 8;
inline constexpr DWORD CMSG_SIGNER_AUTH_ATTR_PARAM = 9;
inline constexpr DWORD CMSG_SIGNER_UNAUTH_ATTR_PARAM = 10;
inline constexpr DWORD CMSG_CERT_COUNT_PARAM = 11;
inline constexpr DWORD CMSG_CERT_PARAM = 12;
inline constexpr DWORD CMSG_CRL_COUNT_PARAM = 13;
inline constexpr DWORD CMSG_CRL_PARAM = 14;
inline constexpr DWORD CMSG_ENVELOPE_ALGORITHM_PARAM = 15;
inline constexpr DWORD CMSG_RECIPIENT_COUNT_PARAM = 17;
inline constexpr DWORD CMSG_RECIPIENT_INDEX_PARAM = 18;
inline constexpr DWORD CMSG_RECIPIENT_INFO_PARAM = 19;
inline constexpr DWORD CMSG_HASH_ALGORITHM_PARAM = 20;
inline constexpr DWORD CMSG_HASH_DATA_PARAM = 21;
inline constexpr DWORD CMSG_COMPUTED_HASH_PARAM = 22;
inline constexpr DWORD CMSG_ENCRYPTED_DIGEST = 27;
inline constexpr DWORD CMSG_ENCODED_MESSAGE = 29;
inline constexpr DWORD CMSG_UNPROTECTED_ATTR_PARAM = 37;
/// A parameter that only the embedded service knows: CMSG_COUNTER_SIGNATURES of the signer of that index, judged with
/// the certificates that the message carries. Any other service refuses it. (0x4B4C0003 was the same without the
/// algorithms.)
inline constexpr DWORD CMSG_COUNTER_SIGNATURES_PARAM = 0x4B4C0004;
inline constexpr DWORD CMSG_NO_PARENT = 0xFFFFFFFF; ///< of a counter-signature of the signer itself
inline constexpr DWORD CMSG_CTRL_VERIFY_SIGNATURE = 1;
inline constexpr DWORD CMSG_CTRL_DECRYPT = 2;
inline constexpr DWORD CMSG_CTRL_VERIFY_HASH = 5;
inline constexpr DWORD CMSG_CTRL_ADD_SIGNER_UNAUTH_ATTR = 8;
inline constexpr DWORD CMSG_CTRL_VERIFY_SIGNATURE_EX = 19;
inline constexpr DWORD CMSG_VERIFY_SIGNER_PUBKEY = 1;
inline constexpr DWORD CMSG_VERIFY_SIGNER_CERT = 2;
inline constexpr DWORD CMSG_VERIFY_SIGNER_CHAIN = 3;
inline constexpr DWORD CMSG_VERIFY_SIGNER_NULL = 4;

// ---- chains --------------------------------------------------------------------------------------------------------
inline constexpr DWORD USAGE_MATCH_TYPE_AND = 0;
inline constexpr DWORD USAGE_MATCH_TYPE_OR = 1;
inline constexpr DWORD CERT_CHAIN_CACHE_ONLY_URL_RETRIEVAL = 0x00000004;
inline constexpr DWORD CERT_CHAIN_RETURN_LOWER_QUALITY_CONTEXTS = 0x00000080;
/// Alone, for the embedded service: revocation is looked at, and what is not known is not an error.
inline constexpr DWORD CERT_CHAIN_REVOCATION_ACCUMULATIVE_TIMEOUT = 0x08000000;
/// How policies are processed (RFC 5280, 6.1.1 e to g). Of the embedded service: the CryptoAPI has no such flags.
inline constexpr DWORD CERT_CHAIN_REQUIRE_EXPLICIT_POLICY = 0x00200000;
inline constexpr DWORD CERT_CHAIN_INHIBIT_POLICY_MAPPING = 0x00400000;
inline constexpr DWORD CERT_CHAIN_INHIBIT_ANY_POLICY = 0x00800000;
inline constexpr DWORD CERT_CHAIN_REVOCATION_CHECK_END_CERT = 0x10000000;
inline constexpr DWORD CERT_CHAIN_REVOCATION_CHECK_CHAIN = 0x20000000;
inline constexpr DWORD CERT_CHAIN_REVOCATION_CHECK_CHAIN_EXCLUDE_ROOT = 0x40000000;
inline constexpr DWORD CERT_CHAIN_REVOCATION_CHECK_CACHE_ONLY = 0x80000000;
inline constexpr DWORD CERT_TRUST_NO_ERROR = 0;
inline constexpr DWORD CERT_TRUST_IS_NOT_TIME_VALID = 0x00000001;
inline constexpr DWORD CERT_TRUST_IS_REVOKED = 0x00000004;
inline constexpr DWORD CERT_TRUST_IS_NOT_SIGNATURE_VALID = 0x00000008;
inline constexpr DWORD CERT_TRUST_IS_NOT_VALID_FOR_USAGE = 0x00000010;
inline constexpr DWORD CERT_TRUST_IS_UNTRUSTED_ROOT = 0x00000020;
inline constexpr DWORD CERT_TRUST_REVOCATION_STATUS_UNKNOWN = 0x00000040;
inline constexpr DWORD CERT_TRUST_IS_CYCLIC = 0x00000080;
inline constexpr DWORD CERT_TRUST_INVALID_EXTENSION = 0x00000100;
inline constexpr DWORD CERT_TRUST_INVALID_POLICY_CONSTRAINTS = 0x00000200;
inline constexpr DWORD CERT_TRUST_INVALID_BASIC_CONSTRAINTS = 0x00000400;
inline constexpr DWORD CERT_TRUST_INVALID_NAME_CONSTRAINTS = 0x00000800;
inline constexpr DWORD CERT_TRUST_HAS_NOT_SUPPORTED_NAME_CONSTRAINT = 0x00001000;
inline constexpr DWORD CERT_TRUST_HAS_NOT_DEFINED_NAME_CONSTRAINT = 0x00002000;
inline constexpr DWORD CERT_TRUST_HAS_NOT_PERMITTED_NAME_CONSTRAINT = 0x00004000;
inline constexpr DWORD CERT_TRUST_HAS_EXCLUDED_NAME_CONSTRAINT = 0x00008000;
inline constexpr DWORD CERT_TRUST_IS_PARTIAL_CHAIN = 0x00010000;
inline constexpr DWORD CERT_TRUST_CTL_IS_NOT_TIME_VALID = 0x00020000;
inline constexpr DWORD CERT_TRUST_CTL_IS_NOT_SIGNATURE_VALID = 0x00040000;
inline constexpr DWORD CERT_TRUST_CTL_IS_NOT_VALID_FOR_USAGE = 0x00080000;
inline constexpr DWORD CERT_TRUST_NO_ISSUANCE_CHAIN_POLICY = 0x02000000;
inline constexpr DWORD CERT_TRUST_IS_EXPLICIT_DISTRUST = 0x04000000;
inline constexpr DWORD CERT_TRUST_HAS_NOT_SUPPORTED_CRITICAL_EXT = 0x08000000;
inline constexpr DWORD CERT_TRUST_HAS_WEAK_SIGNATURE = 0x00100000;
inline constexpr DWORD CERT_TRUST_IS_OFFLINE_REVOCATION = 0x01000000;
/// dwInfoStatus: how the issuer was found, and what else is true of the element.
inline constexpr DWORD CERT_TRUST_HAS_EXACT_MATCH_ISSUER = 0x00000001; ///< by issuer name and serial number
inline constexpr DWORD CERT_TRUST_HAS_KEY_MATCH_ISSUER = 0x00000002;   ///< by key identifier
inline constexpr DWORD CERT_TRUST_HAS_NAME_MATCH_ISSUER = 0x00000004;  ///< by name alone
inline constexpr DWORD CERT_TRUST_IS_SELF_SIGNED = 0x00000008;
inline constexpr DWORD CERT_TRUST_HAS_PREFERRED_ISSUER = 0x00000100; ///< several issuers fit, this one was chosen
inline constexpr DWORD CERT_TRUST_HAS_VALID_NAME_CONSTRAINTS = 0x00000400;
inline constexpr DWORD CERT_TRUST_IS_COMPLEX_CHAIN = 0x00010000;
/// dwInfoStatus of a chain with errors, of the embedded service alone: a limit kept the search for issuers from looking
/// at everything at hand, so a certificate that seems to be missing may be there.
inline constexpr DWORD CERT_TRUST_SEARCH_LIMITED = 0x40000000;
inline constexpr DWORD CERT_CHAIN_POLICY_BASE = 1;

// ---- texts ---------------------------------------------------------------------------------------------------------
inline constexpr DWORD FORMAT_MESSAGE_ALLOCATE_BUFFER = 0x00000100;
inline constexpr DWORD FORMAT_MESSAGE_IGNORE_INSERTS = 0x00000200;
inline constexpr DWORD FORMAT_MESSAGE_FROM_SYSTEM = 0x00001000;
inline constexpr DWORD LANG_NEUTRAL_SUBLANG_DEFAULT = 0x400;
inline constexpr DWORD CRYPT_STRING_BASE64HEADER = 0;
inline constexpr DWORD CRYPT_STRING_BASE64 = 1;
inline constexpr DWORD CRYPT_STRING_BASE64REQUESTHEADER = 3;
inline constexpr DWORD CRYPT_STRING_HEXRAW = 12;
inline constexpr DWORD CRYPT_STRING_NOCRLF = 0x40000000;
inline constexpr DWORD CRYPT_STRING_NOCR = 0x80000000; ///< lines end in LF alone

} // namespace capi
