#include "messages/counter_signatures.hpp"

#include "core/error.hpp"
#include "messages/limits.hpp"
#include "messages/signature_check.hpp"
#include "messages/signing_certificate.hpp"

#include <algorithm>
#include <utility>

namespace klunortredi::csp {

namespace {

DWORD errorOf(const SignerInfo& counter, ByteView parentValue, const CertInfo& certificate) {
    try {
        checkCounterSignature(counter, parentValue, certificate.subjectPublicKeyInfo());
        checkSigningCertificate(counter.signedAttributes, certificate.encoded());
        return 0;
    } catch (const ApiError& error) {
        return error.code();
    }
}

/// Tries the certificates that the counter-signer names; the first refusal stands when none holds.
void judge(CounterSignature& counter, ByteView parentValue, const CarriedCertificates& certificates) {
    auto candidates = certificates.named(counter.signer.id);
    candidates.resize(std::min(candidates.size(), limits::sameNamedCertificates));
    counter.error = capi::CRYPT_E_SIGNER_NOT_FOUND;
    for (const CertInfo* const candidate : candidates) {
        const DWORD error = errorOf(counter.signer, parentValue, *candidate);
        if (error == 0 || candidate == candidates.front()) {
            counter.error = error;
            counter.certificate.assign(candidate->encoded().begin(), candidate->encoded().end());
        }
        if (error == 0) {
            return;
        }
    }
}

/// Adds the counter-signatures among the unsigned attributes of the signer at `parent` of the list. One entry stands
/// for all those of the signer that are beyond the limit.
void collect(const std::vector<Attribute>& attributes, DWORD parent, std::vector<CounterSignature>& list) {
    for (const Attribute& attribute : attributes) {
        if (attribute.oid != oid::countersignature) {
            continue;
        }
        for (const Bytes& value : attribute.values) {
            const bool tooMany = list.size() >= limits::counterSignatures;
            CounterSignature& counter = list.emplace_back();
            counter.parent = parent;
            if (tooMany) {
                counter.error = capi::CRYPT_E_ASN1_LARGE;
                return;
            }
            try {
                counter.signer = decodeSignerInfo(value);
            } catch (const ApiError& error) {
                counter.error = error.code();
            }
        }
    }
}

} // namespace

std::vector<CounterSignature> judgeCounterSignatures(const SignerInfo& signer,
                                                     const CarriedCertificates& certificates) {
    std::vector<CounterSignature> list;
    collect(signer.unsignedAttributes, capi::CMSG_NO_PARENT, list);
    for (std::size_t i = 0; i < list.size(); ++i) {
        CounterSignature& counter = list[i];
        if (counter.error != 0) {
            continue;
        }
        const SignerInfo& parent = counter.parent == capi::CMSG_NO_PARENT ? signer : list[counter.parent].signer;
        judge(counter, parent.value, certificates);
        // Not kept: each level of nesting holds all deeper ones once more.
        const auto attributes = std::exchange(counter.signer.unsignedAttributes, {});
        collect(attributes, static_cast<DWORD>(i), list);
    }
    return list;
}

} // namespace klunortredi::csp
