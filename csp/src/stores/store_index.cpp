#include "stores/store_index.hpp"

#include "core/files.hpp"
#include "core/hex.hpp"
#include "crypto/digest.hpp"

#include <algorithm>
#include <array>
#include <string_view>

namespace klunortredi::csp {

namespace {

/// The version stands in the first line: a later one with other numbers has another line.
constexpr std::string_view head = "klunortredi store index 1\n";
constexpr std::size_t thumbprintSize = 20;
constexpr std::size_t numberSize = 8;
constexpr std::size_t recordSize = thumbprintSize + searchKinds * numberSize;
constexpr std::size_t digestSize = 32;
/// A million certificates and more.
constexpr std::size_t largestIndex = 64U << 20U;

Bytes digestOf(ByteView octets) {
    return Digest::of(*findDigest(capi::CALG_SHA_256), octets);
}

void append(Bytes& out, std::uint64_t number) {
    for (std::size_t i = 0; i < numberSize; ++i) {
        out.push_back(static_cast<std::uint8_t>(number >> (8 * i)));
    }
}

std::uint64_t numberAt(ByteView octets) {
    std::uint64_t number = 0;
    for (std::size_t i = 0; i < numberSize; ++i) {
        number |= static_cast<std::uint64_t>(octets[i]) << (8 * i);
    }
    return number;
}

/// The records of an index; empty when it is not one.
ByteView recordsOf(ByteView octets) {
    if (octets.size() < head.size() + digestSize || !std::ranges::equal(octets.first(head.size()), head)) {
        return {};
    }
    const ByteView signedPart = octets.first(octets.size() - digestSize);
    const ByteView records = signedPart.subspan(head.size());
    const bool whole =
        records.size() % recordSize == 0 && std::ranges::equal(digestOf(signedPart), octets.last(digestSize));
    return whole ? records : ByteView{};
}

} // namespace

StoreIndex readStoreIndex(const std::filesystem::path& folder) {
    StoreIndex index;
    std::optional<Bytes> octets;
    try {
        octets = files::read(folder / indexFileName, largestIndex);
    } catch (const ApiError&) {
        return index; // the certificates' own files serve
    }
    ByteView records = octets ? recordsOf(*octets) : ByteView{};
    index.reserve(records.size() / recordSize);
    for (; !records.empty(); records = records.subspan(recordSize)) {
        SearchKeys keys{};
        for (std::size_t kind = 0; kind < searchKinds; ++kind) {
            keys[kind] = numberAt(records.subspan(thumbprintSize + kind * numberSize));
        }
        index.emplace(toHex(records.first(thumbprintSize)), keys);
    }
    return index;
}

Bytes formatStoreIndex(const StoreIndex& index) {
    Bytes out(head.begin(), head.end());
    out.reserve(head.size() + index.size() * recordSize + digestSize);
    for (const auto& [thumbprint, keys] : index) {
        const auto octets = fromHex(thumbprint);
        out.insert(out.end(), octets->begin(), octets->end());
        for (const std::uint64_t number : keys) {
            append(out, number);
        }
    }
    const Bytes digest = digestOf(out);
    out.insert(out.end(), digest.begin(), digest.end());
    return out;
}

} // namespace klunortredi::csp
