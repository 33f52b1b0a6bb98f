#include "failure.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/exceptions.hpp"
#include "orvik/plugin/crypto/exception/crypto_exception.hpp"
#include "orvik/plugin/exception/application_exception.hpp"

#include <boost/exception/get_error_info.hpp>

#include <array>
#include <cstdio>
#include <cstring>
#include <new>
#include <system_error>
#include <utility>

namespace klunortredi::cli {

namespace {

using orvik::plugin::crypto::exception::CryptoException;
using orvik::plugin::crypto::exception::SystemException;
using orvik::plugin::exception::ApplicationException;
using orvik::plugin::exception::Exception;

/// A number and what it means to the person at the terminal.
struct Meaning {
    std::uint32_t code;
    ExitCode exit;
    const char* why;
    const char* next;
};

constexpr Meaning serviceMeanings[] = {
    {capi::ERROR_CANCELLED, ExitCode::cancelled, "cancelled", ""},
    {capi::SCARD_W_CANCELLED_BY_USER, ExitCode::cancelled, "cancelled", ""},
    {capi::SCARD_W_WRONG_CHV, ExitCode::pin, "the PIN is wrong", ""},
    {capi::SCARD_W_CHV_BLOCKED, ExitCode::pin, "the container is locked after too many wrong PINs",
     "unlock it with 'klunortredi-csp container unlock'"},
    {capi::SCARD_W_CARD_NOT_AUTHENTICATED, ExitCode::service, "the container wants its PIN", ""},
    {capi::ERROR_DISK_FULL, ExitCode::input, "the disk is full", "free some space and try again"},
    {capi::ERROR_WRITE_FAULT, ExitCode::input, "the service cannot write its data", ""},
    {capi::ERROR_ACCESS_DENIED, ExitCode::service, "access to the service's data is denied", ""},
    {capi::ERROR_BUSY, ExitCode::service, "the service's data is in use by another process", "try again"},
    {capi::NTE_EXISTS, ExitCode::service, "a container of that name is there already",
     "choose another name, or remove it with 'klunortredi containers delete'"},
    {capi::NTE_BAD_KEYSET, ExitCode::service, "there is no such key container", "see 'klunortredi containers'"},
    {capi::NTE_KEYSET_NOT_DEF, ExitCode::service, "there is no such provider", "see 'klunortredi providers'"},
    {capi::NTE_BAD_KEYSET_PARAM, ExitCode::service, "the container name cannot be used", ""},
    {capi::NTE_PROV_TYPE_NOT_DEF, ExitCode::service, "the provider's algorithms are not installed",
     "install the package libengine-gost-openssl"},
    {capi::NTE_NO_KEY, ExitCode::service, "the container holds no such key", ""},
    {capi::NTE_PERM, ExitCode::service, "not permitted", ""},
    {capi::NTE_BAD_ALGID, ExitCode::service, "the provider does not offer the algorithm", ""},
    {capi::NTE_BAD_PUBLIC_KEY, ExitCode::service, "the public key does not fit", ""},
    {capi::NTE_BAD_SIGNATURE, ExitCode::no, "the signature value is wrong", ""},
    {capi::CRYPT_E_HASH_VALUE, ExitCode::no, "the content is not what was signed", ""},
    {capi::CRYPT_E_SIGNER_NOT_FOUND, ExitCode::no, "the signer's certificate is not in the message", ""},
    {capi::CRYPT_E_AUTH_ATTR_MISSING, ExitCode::no, "the signed attributes are incomplete or contradictory", ""},
    {capi::CRYPT_E_UNKNOWN_ALGO, ExitCode::no, "the signature uses an algorithm that the service does not know", ""},
    {capi::CRYPT_E_STREAM_MSG_NOT_READY, ExitCode::no, "the signed content is missing", ""},
    {capi::CRYPT_E_INVALID_MSG_TYPE, ExitCode::input, "this is not a signed message", ""},
    {capi::CRYPT_E_UNEXPECTED_ENCODING, ExitCode::input, "the message's encoding is not understood", ""},
    {capi::CRYPT_E_STREAM_INSUFFICIENT_DATA, ExitCode::input, "the message ends too early", ""},
    {capi::CRYPT_E_BAD_ENCODE, ExitCode::input, "a value cannot be encoded", ""},
    {capi::CRYPT_E_ASN1_ERROR, ExitCode::input, "the data is not well-formed", ""},
    {capi::CRYPT_E_ASN1_EOD, ExitCode::input, "the data ends too early", ""},
    {capi::CRYPT_E_ASN1_CORRUPT, ExitCode::input, "the data is not well-formed", ""},
    {capi::CRYPT_E_ASN1_LARGE, ExitCode::input, "a part of the data is larger than any real one", ""},
    {capi::CRYPT_E_ASN1_BADTAG, ExitCode::input, "the data is not of the expected structure", ""},
};

constexpr Meaning cryptoMeanings[] = {
    {30001, ExitCode::service, "the private key of the certificate cannot be had", "see 'klunortredi certs show'"},
    {30003, ExitCode::no, "the signature carries no certificate", "name it with --signer-cert"},
    {30004, ExitCode::service, "no CryptoAPI service, or no provider for this certificate, is installed",
     "see 'klunortredi info', or name a service library with --service"},
    {30005, ExitCode::service, "the certificate is not linked to a key container",
     "link it with 'klunortredi install CERT --container NAME'"},
    {30007, ExitCode::service, "the provider does not offer the algorithm", "see 'klunortredi providers'"},
    {30009, ExitCode::usage, "there is no such signature format", ""},
    {30023, ExitCode::service, "the provider does not offer the parameter set", "see 'klunortredi info'"},
    {30029, ExitCode::service, "the certificate may not be used for digital signatures",
     "choose one whose key usage has digitalSignature"},
    {30030, ExitCode::usage, "the provider has no name", ""},
    {30032, ExitCode::service, "the certificate does not belong to the container's key", ""},
    {30040, ExitCode::input, "this is no certificate", ""},
    {30047, ExitCode::service, "the certificate's provider is of another type", ""},
    {30048, ExitCode::usage, "the value of a signed attribute does not fit its type", ""},
    {30053, ExitCode::pin, "the PIN was refused", ""},
    {30058, ExitCode::no, "the message cannot be decrypted", ""},
};

constexpr Meaning applicationMeanings[] = {
    {20003, ExitCode::cancelled, "cancelled", ""},
    {20006, ExitCode::input, "the input is empty", ""},
    {20016, ExitCode::network, "the time-stamp authority refused", ""},
    {20017, ExitCode::network, "the time-stamp is not for this signature, or not validly signed", ""},
    {20018, ExitCode::network, "the time-stamp authority sent no token", ""},
};

template <std::size_t N>
const Meaning* find(const Meaning (&table)[N], std::uint32_t code) {
    for (const Meaning& row : table) {
        if (row.code == code) {
            return &row;
        }
    }
    return nullptr;
}

Failure make(const Meaning* meaning, ExitCode otherwise, const std::string& what, const Exception& e) {
    const auto code = static_cast<std::uint32_t>(e.code().value());
    if (meaning == nullptr) {
        const std::string text = e.what();
        return {otherwise, what, text.empty() ? "refused" : text, {}, code};
    }
    std::string why = meaning->why;
    if (const auto* value = boost::get_error_info<orvik::plugin::exception::Value_>(e); value != nullptr) {
        why += ": " + *value;
    }
    return {meaning->exit, what, why, meaning->next, code};
}

std::string numbered(std::uint32_t code) {
    // CryptoAPI codes are known by their hexadecimal form, the others by their decimal one.
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), code >= 0x80000000U ? "0x%08X" : "%u", code);
    return text.data();
}

} // namespace

Failure::Failure(ExitCode exit, std::string what, std::string why, std::string next, std::uint32_t code)
    : exit_(exit), code_(code), line_(std::move(what)) {
    line_ += ": " + std::move(why);
    if (code != 0) {
        line_ += " (" + numbered(code) + ")";
    }
    if (!next.empty()) {
        line_ += "; " + std::move(next);
    }
}

const char* Failure::kind() const noexcept {
    switch (exit_) {
    case ExitCode::usage:
        return "usage";
    case ExitCode::cancelled:
        return "cancelled";
    case ExitCode::no:
    case ExitCode::input:
        return "input";
    default:
        return "service";
    }
}

Failure fileFailure(const std::string& what, int error) {
    return {ExitCode::input, what, std::strerror(error), {}, static_cast<std::uint32_t>(error)};
}

Failure currentFailure(const std::string& what) {
    try {
        throw;
    } catch (const Failure& e) {
        return e;
    } catch (const SystemException& e) {
        const auto code = static_cast<std::uint32_t>(e.code().value());
        return make(find(serviceMeanings, code), ExitCode::service, what, e);
    } catch (const CryptoException& e) {
        return make(find(cryptoMeanings, static_cast<std::uint32_t>(e.code().value())), ExitCode::service, what, e);
    } catch (const ApplicationException& e) {
        return make(find(applicationMeanings, static_cast<std::uint32_t>(e.code().value())), ExitCode::service, what,
                    e);
    } catch (const std::system_error& e) {
        return {ExitCode::input, what, e.code().message(), {}, static_cast<std::uint32_t>(e.code().value())};
    } catch (const std::bad_alloc&) {
        return {ExitCode::input, what, "not enough memory"};
    } catch (const std::exception& e) {
        return {ExitCode::defect, what, std::string("unexpected: ") + e.what(), "please report this"};
    } catch (...) {
        return {ExitCode::defect, what, "unexpected", "please report this"};
    }
}

std::string serviceReason(std::uint32_t code) {
    const Meaning* meaning = find(serviceMeanings, code);
    return meaning == nullptr ? std::string{} : meaning->why;
}

} // namespace klunortredi::cli
