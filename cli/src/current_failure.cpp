#include "current_failure.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/exceptions.hpp"
#include "orvik/plugin/crypto/exception/crypto_exception.hpp"
#include "orvik/plugin/exception/application_exception.hpp"
#include "service_words.hpp"

#include <boost/exception/get_error_info.hpp>
#include <boost/system/system_error.hpp>

#include <algorithm>
#include <iterator>
#include <new>
#include <stdexcept>
#include <system_error>

namespace klunortredi::cli {

namespace {

using orvik::plugin::crypto::exception::CryptoException;
using orvik::plugin::crypto::exception::SystemException;
using orvik::plugin::exception::ApplicationException;
using orvik::plugin::exception::Exception;

constexpr Meaning cryptoMeanings[] = {
    {30001, ExitCode::service, "the private key of the certificate cannot be had", "see 'klunortredi certs show'"},
    {30003, ExitCode::no, "the signature carries no certificate", "name it with --signer-cert"},
    {30004, ExitCode::service, "no CryptoAPI service, or no provider for this certificate, is installed",
     "see 'klunortredi info', or name a service library with --service"},
    {30005, ExitCode::service, "the certificate is not linked to a key container",
     "link it with 'klunortredi install CERT --container NAME'"},
    {30007, ExitCode::service, "the provider does not offer the algorithm", "see 'klunortredi providers'"},
    {30009, ExitCode::input, "this is not a well-formed XML document", ""},
    {30023, ExitCode::service, "the provider does not offer the parameter set",
     "name another with --param-set, or none for the usual one"},
    {30029, ExitCode::service, "the certificate may not be used for digital signatures",
     "choose one whose key usage has digitalSignature"},
    {30030, ExitCode::usage, "the provider has no name", ""},
    {30032, ExitCode::service, "the certificate does not belong to the container's key", ""},
    {30040, ExitCode::input, "this is not a certificate", ""},
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
    // Only the value of an attribute tells more than the words do; other attached texts say the same in Russian.
    constexpr auto badAttribute = static_cast<std::uint32_t>(CryptoException::Code::badAttribute);
    const auto* value = boost::get_error_info<orvik::plugin::exception::Value_>(e);
    if (value != nullptr && code == badAttribute) {
        why += ": " + *value;
    }
    // The framework's own words, in English, say what is wrong with a document, and what an authority did.
    constexpr auto unknownFormat = static_cast<std::uint32_t>(CryptoException::Code::unknownFormat);
    const auto* message = boost::get_error_info<orvik::plugin::exception::Message_>(e);
    if (message != nullptr && (code == unknownFormat || meaning->exit == ExitCode::network)) {
        why = *message;
    }
    return {meaning->exit, what, why, meaning->next, code};
}

} // namespace

Failure currentFailure(const std::string& what) {
    try {
        throw;
    } catch (const Failure& e) {
        return e;
    } catch (const SystemException& e) {
        return make(serviceMeaning(static_cast<std::uint32_t>(e.code().value())), ExitCode::service, what, e);
    } catch (const CryptoException& e) {
        return make(find(cryptoMeanings, static_cast<std::uint32_t>(e.code().value())), ExitCode::service, what, e);
    } catch (const ApplicationException& e) {
        return make(find(applicationMeanings, static_cast<std::uint32_t>(e.code().value())), ExitCode::service, what,
                    e);
    } catch (const std::system_error& e) {
        return {ExitCode::input, what, e.code().message(), {}, static_cast<std::uint32_t>(e.code().value())};
    } catch (const std::range_error& e) { // of the framework's conversions
        return {ExitCode::input, what, e.what()};
    } catch (const boost::system::system_error& e) { // of Boost.Filesystem
        return {ExitCode::input, what, e.code().message(), {}, static_cast<std::uint32_t>(e.code().value())};
    } catch (const std::bad_alloc&) {
        return {ExitCode::input, what, "not enough memory"};
    } catch (const std::exception& e) {
        return {ExitCode::defect, what, std::string("unexpected: ") + e.what(), "please report this"};
    } catch (...) {
        return {ExitCode::defect, what, "unexpected", "please report this"};
    }
}

Failure serviceFailure(const std::string& what, std::uint32_t code) {
    return make(serviceMeaning(code), ExitCode::service, what, SystemException(code));
}

std::string refusalReason(std::uint32_t code) {
    std::string why = serviceReason(code);
    if (why.empty()) {
        why = SystemException(code).code().message();
    }
    return why.empty() ? "the service refused it" : why;
}

void checkEmptyList(const std::string& what, std::uint32_t error) {
    // Services differ in how they say that there is nothing more, or that a store was never made.
    constexpr std::uint32_t nothing[] = {capi::ERROR_SUCCESS, capi::ERROR_FILE_NOT_FOUND, capi::ERROR_NO_MORE_FILES,
                                         capi::ERROR_NO_MORE_ITEMS, capi::CRYPT_E_NOT_FOUND};
    if (std::find(std::begin(nothing), std::end(nothing), error) != std::end(nothing)) {
        return;
    }
    throw serviceFailure(what, error);
}

} // namespace klunortredi::cli
