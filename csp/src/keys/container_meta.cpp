#include "keys/container_meta.hpp"

#include "capi/constants.hpp"
#include "core/error.hpp"
#include "core/hex.hpp"
#include "crypto/digest.hpp"

#include <nlohmann/json.hpp>

namespace klunortredi::csp {

namespace {

using nlohmann::json;

constexpr int formatVersion = 1;

std::string stem(DWORD spec) {
    return spec == capi::AT_SIGNATURE ? "signature" : "exchange";
}

json encodeKey(const KeyEntry& key) {
    return {{"spec", key.spec},
            {"generation", key.generation},
            {"fileSha256", toHex(key.fileHash)},
            {"publicKeyInfo", toHex(key.publicKeyInfo)},
            {"exportable", key.exportable}};
}

KeyEntry decodeKey(const json& value) {
    KeyEntry key{value.at("spec").get<DWORD>(), value.at("generation").get<unsigned>(),
                 fromHex(value.at("fileSha256").get<std::string>()).value(),
                 fromHex(value.at("publicKeyInfo").get<std::string>()).value(), value.at("exportable").get<bool>()};
    if (key.spec != capi::AT_KEYEXCHANGE && key.spec != capi::AT_SIGNATURE) {
        fail(capi::NTE_KEYSET_ENTRY_BAD);
    }
    return key;
}

} // namespace

Bytes encodeMeta(const ContainerMeta& meta) {
    json keys = json::array();
    for (const KeyEntry& key : meta.keys) {
        keys.push_back(encodeKey(key));
    }
    const json value{{"format", formatVersion},
                     {"name", meta.id.name},
                     {"providerType", meta.id.providerType},
                     {"pin", meta.wantsPin},
                     {"keys", keys}};
    const std::string text = value.dump(2) + '\n';
    return {text.begin(), text.end()};
}

ContainerMeta decodeMeta(ByteView text) {
    try {
        const json value = json::parse(text.begin(), text.end());
        if (value.at("format").get<int>() != formatVersion) {
            fail(capi::NTE_KEYSET_ENTRY_BAD);
        }
        ContainerMeta meta{{value.at("name").get<std::string>(), value.at("providerType").get<DWORD>()},
                           value.at("pin").get<bool>(),
                           {}};
        for (const json& key : value.at("keys")) {
            meta.keys.push_back(decodeKey(key));
        }
        return meta;
    } catch (const std::exception&) {
        fail(capi::NTE_KEYSET_ENTRY_BAD);
    }
}

Bytes attributeHash(const ContainerMeta& meta, const KeyEntry& key) {
    // As a JSON array, in which no value can run into the next one.
    const json attributes = json::array({"container attributes 1", meta.id.name, meta.id.providerType, meta.wantsPin,
                                         key.spec, key.exportable, toHex(key.publicKeyInfo)});
    const std::string text = attributes.dump();
    return Digest::of(*findDigest(capi::CALG_SHA_256), Bytes(text.begin(), text.end()));
}

std::string keyFileName(const KeyEntry& key) {
    return stem(key.spec) + '.' + std::to_string(key.generation) + keyFileSuffix;
}

std::string certificateFileName(DWORD spec) {
    return stem(spec) + ".crt";
}

} // namespace klunortredi::csp
