// The providers that the framework knows, by maker.
#include "oids.hpp"
#include "orvik/plugin/converter.hpp"
#include "orvik/plugin/crypto/constant.hpp"
#include "orvik/plugin/crypto/tools.hpp"

#include <algorithm>
#include <array>
#include <span>

namespace orvik::plugin::crypto::tools {

namespace {

using Kind = IProvider::Kind;
using Family = IProvider::Family;
using Oids = std::span<const char* const>;

constexpr std::array keys2001 = {oids::gost2001, oids::gost2001Agreement};
constexpr std::array keys256 = {oids::gost2012_256, oids::gost2012_256Agreement};
constexpr std::array keys512 = {oids::gost2012_512, oids::gost2012_512Agreement};
constexpr std::array keysRsa = {oids::rsa};

constexpr std::array sets2001 = {oids::cryptoProXchA, oids::cryptoProXchB, oids::cryptoProA, oids::cryptoProB,
                                 oids::cryptoProC};
constexpr std::array sets256 = {oids::cryptoProXchA, oids::cryptoProXchB, oids::cryptoProA,
                                oids::cryptoProB,    oids::cryptoProC,    oids::tc26_256A,
                                oids::tc26_256B,     oids::tc26_256C,     oids::tc26_256D};
constexpr std::array sets512 = {oids::tc26_512A, oids::tc26_512B, oids::tc26_512C};
constexpr std::array setsRsa = {oids::rsa};

/// What the providers of one maker have in common.
struct Maker {
    Family family;
    Kind kind;
    const wchar_t* containerPrefix;
    const char* signTool;        ///< empty: the provider's name
    const char* signToolPattern; ///< empty: the provider's name
};

constexpr Maker embedded = {Family::cryptoPro, Kind::embedded, L"", "", ""};
constexpr Maker vipNet = {Family::vipNet, Kind::vipNet, L"", "ViPNet CSP 4", "ViPNet CSP"};
constexpr Maker cryptoPro = {Family::cryptoPro, Kind::cryptoPro, constant::crypto_pro_file_reader_container_prefix_w,
                             "\"КриптоПро CSP\" версия 5.0", "КриптоПро CSP"};
constexpr Maker signalCom = {Family::unknown, Kind::signalCom, L"", "Крипто-КОМ 3.4", "Крипто-КОМ"};

struct Row {
    unsigned type;
    const wchar_t* name;
    const Maker& maker;
    Oids algorithms;
    Oids paramSets;
};

constexpr std::array rows = {
    Row{80, L"Klunortredi GOST R 34.10-2012 (256) Cryptographic Service Provider", embedded, keys256, sets256},
    Row{81, L"Klunortredi GOST R 34.10-2012 (512) Cryptographic Service Provider", embedded, keys512, sets512},
    Row{75, L"Klunortredi GOST R 34.10-2001 Cryptographic Service Provider", embedded, keys2001, sets2001},
    Row{24, L"Klunortredi RSA and AES Cryptographic Service Provider", embedded, keysRsa, setsRsa},
    Row{2, L"Infotecs Cryptographic Service Provider", vipNet, keys2001, sets2001},
    Row{77, L"Infotecs GOST 2012/512 Cryptographic Service Provider", vipNet, keys256, sets256},
    Row{78, L"Infotecs GOST 2012/1024 Cryptographic Service Provider", vipNet, keys512, sets512},
    Row{75, constant::registry_provider_crypto_proW, cryptoPro, keys2001, sets2001},
    Row{80, constant::registry_provider_crypto_pro_2012W, cryptoPro, keys256, sets256},
    Row{81, constant::registry_provider_crypto_pro_2012_extW, cryptoPro, keys512, sets512},
    Row{75, L"Signal-COM CPGOST Cryptographic Provider", signalCom, keys2001, sets2001},
    Row{80, L"Signal-COM GOST R 34.10-2012 (256) Cryptographic Provider", signalCom, keys256, sets256},
    Row{81, L"Signal-COM GOST R 34.10-2012 (512) Cryptographic Provider", signalCom, keys512, sets512},
};

ProviderInfo toInfo(const Row& row) {
    const Maker& maker = row.maker;
    std::string name = plugin::converter::utf16_to_utf8(row.name);
    const auto orName = [&](boost::string_view text) { return text.empty() ? name : text.to_string(); };
    ProviderInfo info{static_cast<IProvider::Type>(row.type),
                      name,
                      maker.family,
                      maker.kind,
                      plugin::converter::utf16_to_utf8(maker.containerPrefix),
                      orName(maker.signTool),
                      {row.algorithms.begin(), row.algorithms.end()},
                      {row.paramSets.begin(), row.paramSets.end()},
                      orName(maker.signToolPattern)};
    return info;
}

} // namespace

const std::vector<ProviderInfo>& providerInfos() {
    static const std::vector<ProviderInfo> infos = [] {
        std::vector<ProviderInfo> all;
        std::transform(rows.begin(), rows.end(), std::back_inserter(all), toInfo);
        return all;
    }();
    return infos;
}

boost::optional<ProviderInfo> providerInfo(boost::string_view name) {
    const auto& infos = providerInfos();
    const auto found =
        std::find_if(infos.begin(), infos.end(), [&](const ProviderInfo& info) { return name == info.name; });
    return found == infos.end() ? boost::optional<ProviderInfo>() : *found;
}

bool isCNG(boost::wstring_view /*providerName*/) {
    return false;
}

bool isCNG(const IProvider& provider) {
    return isCNG(provider.name());
}

std::vector<std::string> algorithms(const IProvider& provider) {
    const auto info = providerInfo(plugin::converter::utf16_to_utf8(provider.name()));
    return info ? info->algorithms : std::vector<std::string>();
}

} // namespace orvik::plugin::crypto::tools
