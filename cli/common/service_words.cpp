#include "service_words.hpp"

#include "capi/constants.hpp"
#include "capi/skipped_entries.hpp"

#include <algorithm>
#include <iterator>

namespace klunortredi::cli {

namespace {

constexpr Meaning serviceMeanings[] = {
    {capi::ERROR_CANCELLED, ExitCode::cancelled, "cancelled", ""},
    {capi::SCARD_W_CANCELLED_BY_USER, ExitCode::cancelled, "cancelled", ""},
    {capi::SCARD_W_WRONG_CHV, ExitCode::pin, "the PIN is wrong", ""},
    {capi::SCARD_W_CHV_BLOCKED, ExitCode::pin, "the container is locked after too many wrong PINs",
     "unlock it with 'klunortredi-csp container unlock'"},
    {capi::SCARD_W_CARD_NOT_AUTHENTICATED, ExitCode::service, "the container wants its PIN", ""},
    {capi::ERROR_FILE_NOT_FOUND, ExitCode::service, "the service's data folder cannot be used",
     "see it in 'klunortredi info'; KLUNORTREDI_HOME names another"},
    {capi::ERROR_PATH_NOT_FOUND, ExitCode::service, "the service's data folder cannot be used",
     "see it in 'klunortredi info'; KLUNORTREDI_HOME names another"},
    {capi::ERROR_DISK_FULL, ExitCode::input, "the disk is full", "free some space and try again"},
    {capi::ERROR_WRITE_FAULT, ExitCode::input, "the service cannot read or write its data",
     "the disk fails, or the process has too many files open"},
    {capi::ERROR_READ_FAULT, ExitCode::input, "the service cannot read its data", ""},
    {capi::ERROR_TOO_MANY_OPEN_FILES, ExitCode::input, "too many files are open",
     "raise the limit (ulimit -n), or work on fewer files at a time"},
    {capi::ERROR_ACCESS_DENIED, ExitCode::service, "access to the service's data is denied", ""},
    {capi::ERROR_NOT_ENOUGH_MEMORY, ExitCode::service, "not enough memory", ""},
    {capi::ERROR_BUSY, ExitCode::service, "the service's data is in use by another process", "try again"},
    {capi::NTE_EXISTS, ExitCode::service, "a container of that name is there already",
     "choose another name, or remove it with 'klunortredi containers delete'"},
    {capi::NTE_BAD_KEYSET, ExitCode::service, "there is no such key container", "see 'klunortredi containers'"},
    {capi::NTE_KEYSET_ENTRY_BAD, ExitCode::input, "the container is damaged", "see 'klunortredi-csp container check'"},
    {capi::NTE_KEYSET_NOT_DEF, ExitCode::service, "there is no such provider", "see 'klunortredi providers'"},
    {capi::NTE_BAD_KEYSET_PARAM, ExitCode::service, "the container name cannot be used", ""},
    {capi::NTE_PROV_TYPE_NOT_DEF, ExitCode::service, "the provider's algorithms are not installed",
     "install the package libengine-gost-openssl"},
    {capi::NTE_NO_KEY, ExitCode::service, "the container holds no such key", ""},
    {capi::NTE_BAD_KEY_STATE, ExitCode::service, "the PIN was changed by another process meanwhile",
     "try again with the PIN that holds now"},
    {capi::NTE_PERM, ExitCode::service, "not permitted", ""},
    {capi::NTE_BAD_ALGID, ExitCode::service, "the provider does not offer the algorithm", ""},
    {capi::NTE_BAD_PUBLIC_KEY, ExitCode::service, "the public key does not fit", ""},
    {capi::NTE_BAD_SIGNATURE, ExitCode::no, "the signature value is wrong", ""},
    {capi::CRYPT_E_EXISTS, ExitCode::service, "a certificate of the same issuer and serial number is there already",
     "one that has a private key is not replaced by one of another key; delete it first if it is not needed"},
    {capi::CRYPT_E_HASH_VALUE, ExitCode::no, "the content is not what was signed", ""},
    {capi::CRYPT_E_SIGNER_NOT_FOUND, ExitCode::no, "the signer's certificate is not in the message", ""},
    {capi::CRYPT_E_INVALID_INDEX, ExitCode::no, "the message carries no such signature", ""},
    {capi::CRYPT_E_AUTH_ATTR_MISSING, ExitCode::no, "the signed attributes are incomplete or contradictory", ""},
    {capi::CRYPT_E_UNEXPECTED_MSG_TYPE, ExitCode::no, "the content is not of the type that was signed", ""},
    {capi::CRYPT_E_UNKNOWN_ALGO, ExitCode::no, "the signature uses an algorithm that the service does not know", ""},
    {capi::CRYPT_E_STREAM_MSG_NOT_READY, ExitCode::no, "the signed content is missing", ""},
    {capi::CRYPT_E_INVALID_MSG_TYPE, ExitCode::input, "this is not a signed message", ""},
    {capi::CRYPT_E_UNEXPECTED_ENCODING, ExitCode::input, "the message's encoding is not understood", ""},
    {capi::CRYPT_E_STREAM_INSUFFICIENT_DATA, ExitCode::input, "the message ends too early", ""},
    {capi::CRYPT_E_BAD_ENCODE, ExitCode::input, "a value cannot be encoded", ""},
    {capi::CRYPT_E_ASN1_ERROR, ExitCode::input, "the data is not well-formed", ""},
    {capi::CRYPT_E_ASN1_EOD, ExitCode::input, "the data ends too early", ""},
    {capi::CRYPT_E_ASN1_CORRUPT, ExitCode::input, "the data is not well-formed", ""},
    {capi::CRYPT_E_ASN1_LARGE, ExitCode::input, "it exceeds a limit of the service",
     "limits hold for octets of a part, signers, certificates, attributes, their values, and levels of nesting"},
    {capi::CRYPT_E_ASN1_NOEOD, ExitCode::input, "octets follow the end of the data, maybe a line end",
     "cut them off: nobody signed them"},
    {capi::CRYPT_E_ASN1_BADTAG, ExitCode::input, "the data is not of the expected structure", ""},
};

} // namespace

const Meaning* serviceMeaning(std::uint32_t code) {
    const auto* found = std::find_if(std::begin(serviceMeanings), std::end(serviceMeanings),
                                     [code](const Meaning& row) { return row.code == code; });
    return found == std::end(serviceMeanings) ? nullptr : found;
}

bool isOfTheMachine(std::uint32_t code) {
    return code == capi::NTE_PROV_TYPE_NOT_DEF || code == capi::ERROR_NOT_ENOUGH_MEMORY || code == capi::NTE_NO_MEMORY;
}

std::string skippingReason(std::uint32_t code) {
    switch (code) {
    case capi::ERROR_INVALID_DATA:
        return "it is not a certificate or CRL, or not the one of its name";
    case capi::ERROR_FILE_NOT_FOUND:
        return "it is a link to a file that does not exist";
    case capi::ERROR_ACCESS_DENIED:
        return "access is denied";
    case capi::ERROR_READ_FAULT:
        return "reading it failed";
    default: {
        const std::string reason = serviceReason(code);
        return reason.empty() ? "it cannot be read (" + std::to_string(code) + ")" : reason;
    }
    }
}

std::string serviceReason(std::uint32_t code) {
    const Meaning* meaning = serviceMeaning(code);
    return meaning == nullptr ? std::string{} : meaning->why;
}

} // namespace klunortredi::cli
