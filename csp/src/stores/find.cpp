#include "stores/find.hpp"

#include "asn1/der.hpp"
#include "core/hex.hpp"
#include "stores/context.hpp"
#include "x509/blob.hpp"
#include "x509/compare_keys.hpp"
#include "x509/subject_text.hpp"

#include <algorithm>
#include <string>

namespace klunortredi::csp {

namespace {

constexpr std::string_view keyIdentifierAttribute = "1.3.6.1.4.1.311.10.7.1";

template <class T>
const T& parameterAs(const void* parameter) {
    if (parameter == nullptr) {
        fail(capi::ERROR_INVALID_PARAMETER);
    }
    return *static_cast<const T*>(parameter);
}

using Part = ByteView (*)(const Certificate&);

Criterion blobCriterion(ByteView wanted, Part part, SearchPlace place = {}) {
    return {[wanted, part](const Certificate& candidate) { return std::ranges::equal(part(candidate), wanted); },
            std::move(place)};
}

ByteView blobAs(const void* parameter) {
    return blobView(parameterAs<CRYPTOAPI_BLOB>(parameter));
}

ByteView subjectOf(const Certificate& held) {
    return blobView(held.info().Subject);
}

Criterion thumbprintCriterion(ByteView wanted) {
    return blobCriterion(wanted, [](const Certificate& held) { return ByteView{held.thumbprint()}; }, {toHex(wanted)});
}

/// The very certificate: another of the same issuer and serial number is not it.
Criterion existingCriterion(const void* parameter) {
    const ContextTarget wanted = contextTarget(static_cast<PCCERT_CONTEXT>(parameter));
    return {[wanted](const Certificate& candidate) {
                return std::ranges::equal(candidate.encoded(), wanted.certificate->encoded());
            },
            {toHex(wanted.certificate->thumbprint())}};
}

Criterion textCriterion(const void* parameter) {
    return {[wanted = foldCase(&parameterAs<wchar_t>(parameter))](const Certificate& candidate) {
        return foldCase(subjectText(candidate)).find(wanted) != std::wstring::npos;
    }};
}

Criterion publicKeyCriterion(const CERT_PUBLIC_KEY_INFO& wanted) {
    return {[&wanted](const Certificate& held) { return samePublicKey(held.info().SubjectPublicKeyInfo, wanted); },
            {{}, {{SearchBy::PublicKey, publicKeyNumber(wanted)}}}};
}

Criterion keyIdentifierCriterion(ByteView wanted) {
    return {[wanted](const Certificate& candidate) {
                try {
                    return std::ranges::equal(candidate.keyIdentifier(), wanted);
                } catch (const ApiError&) {
                    return false; // a malformed extension names no key
                }
            },
            {{}, {{SearchBy::KeyIdentifier, keyIdentifierNumber(wanted)}}}};
}

} // namespace

Criterion criterion(DWORD findType, const void* parameter) {
    switch (findType) {
    case capi::CERT_FIND_ANY:
        return {[](const Certificate&) { return true; }};
    case capi::CERT_FIND_SHA1_HASH:
        return thumbprintCriterion(blobAs(parameter));
    case capi::CERT_FIND_SUBJECT_NAME:
        return blobCriterion(blobAs(parameter), subjectOf,
                             {{}, {{SearchBy::Subject, subjectNumber(blobAs(parameter))}}});
    case capi::CERT_FIND_ISSUER_NAME:
        return blobCriterion(blobAs(parameter), [](const Certificate& held) { return blobView(held.info().Issuer); });
    case capi::CERT_FIND_PUBLIC_KEY:
        return publicKeyCriterion(parameterAs<CERT_PUBLIC_KEY_INFO>(parameter));
    case capi::CERT_FIND_SUBJECT_STR:
        return textCriterion(parameter);
    case capi::CERT_FIND_SUBJECT_CERT:
        return subjectCriterion(parameterAs<CERT_INFO>(parameter));
    case capi::CERT_FIND_EXISTING:
        return existingCriterion(parameter);
    default:
        fail(capi::ERROR_INVALID_PARAMETER);
    }
}

Criterion subjectCriterion(const CERT_INFO& id) {
    const ByteView keyIdentifier = keyIdentifierOf(id);
    if (!keyIdentifier.empty()) {
        return keyIdentifierCriterion(keyIdentifier);
    }
    return {[&id](const Certificate& candidate) { return sameIssuerAndSerial(candidate.info(), id); },
            {{}, {{SearchBy::IssuerAndSerial, issuerAndSerialNumber(id)}}}};
}

ByteView keyIdentifierOf(const CERT_INFO& id) {
    const ByteView serial = blobView(id.SerialNumber);
    if (serial.size() != 1 || serial[0] != 0) {
        return {};
    }
    try {
        der::Reader rdn(
            der::readOnly(
                der::readOnly(der::readOnly(blobView(id.Issuer), der::tag::Sequence).content, der::tag::Set).content,
                der::tag::Sequence)
                .content);
        if (der::toOid(rdn.read(der::tag::ObjectIdentifier)) != keyIdentifierAttribute) {
            return {};
        }
        const ByteView identifier = rdn.read(der::tag::OctetString).content;
        rdn.finish();
        return identifier;
    } catch (const ApiError&) {
        return {};
    }
}

} // namespace klunortredi::csp
