#pragma once

/// Pieces of the structures that message parameters are delivered in.

#include "core/error.hpp"
#include "core/output.hpp"
#include "messages/cms_types.hpp"
#include "messages/signer_info.hpp"

#include <algorithm>
#include <span>
#include <vector>

namespace klunortredi::csp {

/// Where a parameter goes: the caller's buffer and size, and which one of several is asked for.
template <class Decoder>
struct ParamRequest {
    const Decoder& message;
    DWORD index;
    void* data;
    DWORD* size;
};

/// A parameter that a kind of message has. `give` follows the two-call protocol and throws ApiError.
template <class Decoder>
struct ParamRow {
    DWORD type;
    void (*give)(const ParamRequest<Decoder>& request);
};

/// Gives the parameter of that type; ApiError(CRYPT_E_INVALID_MSG_TYPE) for one that this kind of message does not
/// have.
template <class Decoder>
void giveParam(std::span<const ParamRow<Decoder>> rows, DWORD type, const ParamRequest<Decoder>& request) {
    const auto row = std::ranges::find(rows, type, &ParamRow<Decoder>::type);
    if (row == rows.end()) {
        fail(capi::CRYPT_E_INVALID_MSG_TYPE);
    }
    row->give(request);
}

/// The element of that index; ApiError(CRYPT_E_INVALID_INDEX) without one.
template <class List>
const auto& indexed(const List& list, DWORD index) {
    if (index >= list.size()) {
        fail(capi::CRYPT_E_INVALID_INDEX);
    }
    return list[index];
}

} // namespace klunortredi::csp

namespace klunortredi::csp::pieces {

/// Fills the CRYPT_ALGORITHM_IDENTIFIER at `offset`.
void algorithm(StructBuilder& builder, std::size_t offset, const AlgorithmId& value);
/// Fills the CRYPT_ATTRIBUTES at `offset`.
void attributes(StructBuilder& builder, std::size_t offset, const std::vector<Attribute>& values);
/// Issuer and serial number; a certificate named by key identifier gets a name of one RDN that holds it, and serial 0.
SignerId asIssuerAndSerial(const SignerId& id);

} // namespace klunortredi::csp::pieces
