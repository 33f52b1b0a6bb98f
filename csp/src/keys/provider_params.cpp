#include "keys/provider_params.hpp"

#include "capi/skipped_entries.hpp"
#include "core/error.hpp"
#include "core/output.hpp"
#include "core/skipped.hpp"
#include "keys/algorithm_list.hpp"

#include <algorithm>
#include <array>
#include <cstring>

namespace klunortredi::csp {

namespace {

// ---- reading

struct Request {
    ProviderContext& context;
    void* buffer;
    DWORD* size;
    DWORD flags;
};

bool isFirst(DWORD flags) {
    if (flags != capi::CRYPT_FIRST && flags != capi::CRYPT_NEXT) {
        fail(capi::NTE_BAD_FLAGS);
    }
    return flags == capi::CRYPT_FIRST;
}

void enumerateAlgorithms(const Request& r) {
    const ProviderRecord& provider = r.context.provider();
    r.context.algorithms().give(
        isFirst(r.flags), [&] { return algorithmList(provider); }, r.buffer, r.size);
}

Bytes withZero(const std::string& text) {
    Bytes octets(text.begin(), text.end());
    octets.push_back(0);
    return octets;
}

void enumerateContainers(const Request& r) {
    const bool qualified = (r.flags & capi::CRYPT_FQCN) != 0;
    const DWORD type = r.context.provider().type;
    const auto list = [&] {
        std::vector<Bytes> names;
        for (const std::string& name : listContainers(type)) {
            names.push_back(withZero(qualified ? qualifiedName({name, type}) : name));
        }
        return names;
    };
    r.context.containers().give(isFirst(r.flags & ~capi::CRYPT_FQCN), list, r.buffer, r.size);
}

void plain(const Request& r) {
    if (r.flags != 0) {
        fail(capi::NTE_BAD_FLAGS);
    }
}

void number(const Request& r, DWORD value) {
    plain(r);
    give(value, r.buffer, r.size);
}

void text(const Request& r, std::string_view value) {
    plain(r);
    giveText(value, r.buffer, r.size);
}

void containerName(const Request& r) {
    const ContainerId id = r.context.containerId();
    text(r, parameterText(id.name, id.providerType));
}

void uniqueContainerName(const Request& r) {
    const ContainerId id = r.context.containerId();
    text(r, parameterText(qualifiedName(id), id.providerType));
}

void skippedEntries(const Request& r) {
    text(r, skippedText());
    if (r.buffer != nullptr) {
        forgetSkipped();
    }
}

struct Readable {
    DWORD param;
    void (*give)(const Request&);
};

constexpr std::array readables{
    Readable{capi::PP_ENUMALGS, enumerateAlgorithms},
    Readable{capi::PP_ENUMCONTAINERS, enumerateContainers},
    Readable{capi::PP_IMPTYPE, [](const Request& r) { number(r, capi::CRYPT_IMPL_SOFTWARE); }},
    Readable{capi::PP_NAME, [](const Request& r) { text(r, r.context.provider().name); }},
    Readable{capi::PP_VERSION, [](const Request& r) { number(r, serviceVersion); }},
    Readable{capi::PP_CONTAINER, containerName},
    Readable{capi::PP_UNIQUE_CONTAINER, uniqueContainerName},
    Readable{capi::PP_PROVTYPE, [](const Request& r) { number(r, r.context.provider().type); }},
    Readable{capi::PP_KEYSPEC, [](const Request& r) { number(r, capi::AT_KEYEXCHANGE | capi::AT_SIGNATURE); }},
    Readable{capi::PP_SKIPPED_ENTRIES, skippedEntries},
    Readable{capi::PP_PIN_TRIES_REMAINING, [](const Request& r) { number(r, r.context.pinTriesRemaining()); }},
};

// ---- writing

using Text = std::string_view;

void setPin(ProviderContext& context, Text pin, DWORD flags) {
    switch (flags) {
    case capi::PIN_PRESENT:
        return context.presentPin(pin);
    case capi::PIN_VERIFY:
        return context.verifyPin(pin);
    case capi::PIN_SET_NEW:
        return context.setNewPin(pin);
    default:
        fail(capi::NTE_BAD_FLAGS);
    }
}

void requireNoFlags(DWORD flags) {
    if (flags != 0) {
        fail(capi::NTE_BAD_FLAGS);
    }
}

struct Writable {
    DWORD param;
    void (*set)(ProviderContext&, Text, DWORD);
};

constexpr std::array writables{
    Writable{capi::PP_KEYEXCHANGE_PIN, setPin},
    Writable{capi::PP_SIGNATURE_PIN, setPin},
    Writable{capi::PP_PIN_NEW,
             [](ProviderContext& context, Text pin, DWORD flags) {
                 requireNoFlags(flags);
                 context.changePin(pin);
             }},
    Writable{capi::PP_SIGNATURE_ALGORITHM_OID,
             [](ProviderContext& context, Text oid, DWORD flags) {
                 requireNoFlags(flags);
                 context.chooseParameters(capi::AT_SIGNATURE, oid);
             }},
    Writable{capi::PP_EXCHANGE_ALGORITHM_OID,
             [](ProviderContext& context, Text oid, DWORD flags) {
                 requireNoFlags(flags);
                 context.chooseParameters(capi::AT_KEYEXCHANGE, oid);
             }},
};

template <class Rows>
auto& rowOf(const Rows& rows, DWORD param) {
    const auto row = std::ranges::find_if(rows, [param](const auto& r) { return r.param == param; });
    if (row == rows.end()) {
        fail(capi::NTE_BAD_TYPE);
    }
    return *row;
}

} // namespace

void getProviderParam(ProviderContext& context, DWORD param, void* buffer, DWORD* size, DWORD flags) {
    rowOf(readables, param).give({context, buffer, size, flags});
}

void setProviderParam(ProviderContext& context, DWORD param, const char* data, DWORD flags) {
    constexpr std::size_t longest = 255; // no PIN or OID is longer; bounds the search for the zero
    const auto& row = rowOf(writables, param);
    const std::size_t length = strnlen(data, longest + 1);
    if (length > longest) {
        fail(capi::NTE_BAD_LEN);
    }
    row.set(context, {data, length}, flags);
}

} // namespace klunortredi::csp
