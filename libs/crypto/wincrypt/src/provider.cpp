#include "crypto/wincrypt/provider.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/handles.hpp"
#include "crypto/wincrypt/hash.hpp"
#include "crypto/wincrypt/tools.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "log_text.hpp"
#include "orvik/plugin/crypto/constant.hpp"
#include "orvik/plugin/crypto/exception/crypto_exception.hpp"
#include "orvik/plugin/crypto/tools.hpp"
#include "provider_record.hpp"

#include <boost/smart_ptr/make_shared.hpp>

#include <algorithm>
#include <iterator>
#include <limits>
#include <map>
#include <mutex>

namespace orvik::plugin::wincrypt {

using crypto::exception::CryptoException;

namespace internal {
namespace {

boost::shared_ptr<crypto::IProvider> providerOf(const crypto::ICertificate& certificate) {
    auto provider = certificate.provider(true);
    if (!provider) {
        exception::raise(CryptoException(CryptoException::Code::noProvider), {"provider", "Provider", 702});
    }
    return provider;
}

/// How the enumeration names one algorithm; empty when it does not.
std::string algorithmName(const PROV_ENUMALGS& algorithm) {
    if (auto oid = tools::alg_id_to_oid(algorithm.aiAlgid)) {
        return *oid;
    }
    const std::size_t length = std::min<std::size_t>(algorithm.dwNameLen, std::size(algorithm.szName));
    return {algorithm.szName, length};
}

/// Version texts for which another text than the record's names the tool: the version's first digit lies on one side
/// of a threshold.
struct SignToolOfVersion {
    crypto::IProvider::Kind kind;
    bool (*applies)(wchar_t firstDigit);
    const char* text;
};

constexpr SignToolOfVersion signToolsOfVersions[] = {
    {crypto::IProvider::Kind::signalCom, [](wchar_t digit) { return digit > L'3'; },
     crypto::constant::subject_sign_tool_signal_com_3_5},
    {crypto::IProvider::Kind::cryptoPro, [](wchar_t digit) { return digit < L'5'; },
     crypto::constant::subject_sign_tool_crypto_pro_4_0},
};

/// The algorithms of each provider that hasAlgorithm() was asked about.
class SupportedAlgorithms {
public:
    /// Asks the provider only when nothing is known of it: one that reported no algorithms may do better next time.
    std::set<std::string> of(const crypto::IProvider& provider) {
        {
            const std::lock_guard lock(mutex_);
            const auto known = byProvider_.find(provider.name());
            if (known != byProvider_.end() && !known->second.empty()) {
                return known->second;
            }
        }
        auto algorithms = provider.algorithms();
        const std::lock_guard lock(mutex_);
        return byProvider_[provider.name()] = std::move(algorithms);
    }

private:
    std::mutex mutex_;
    std::map<std::wstring, std::set<std::string>> byProvider_;
};

} // namespace
} // namespace internal

Provider::Provider(const IProvider::Type& type, const std::wstring& name,
                   const boost::optional<std::wstring>& container)
    : type_(type), name_(tools::formatProviderName(name)), container_(container) {}

Provider::Provider(const unsigned long& type, const std::wstring& name, const boost::optional<std::wstring>& container)
    : Provider(static_cast<IProvider::Type>(type), name, container) {}

Provider::Provider(const crypto::ICertificate& certificate) : Provider(*internal::providerOf(certificate)) {}

Provider::Provider(const IProvider& other) : type_(other.type()), name_(tools::formatProviderName(other.name())) {}

Provider::~Provider() = default;

const crypto::IProvider::Type& Provider::type() const {
    return type_;
}

const std::wstring& Provider::name() const {
    return name_;
}

boost::optional<std::wstring> Provider::container() const {
    return container_;
}

boost::optional<crypto::Device> Provider::device() const {
    return boost::none;
}

boost::optional<std::string> Provider::containerPrefix() const {
    const auto record = providerRecord(name_);
    return record ? boost::make_optional(record->containerPrefix) : boost::none;
}

boost::optional<std::string> Provider::subjectSignTool() const {
    const auto record = providerRecord(name_);
    if (!record) {
        return boost::none;
    }
    for (const auto& tool : internal::signToolsOfVersions) {
        if (record->kind != tool.kind) {
            continue;
        }
        const auto own = version();
        if (own && !own->empty() && tool.applies(own->front())) {
            return std::string(tool.text);
        }
    }
    return record->subjectSignTool;
}

boost::shared_ptr<crypto::IHash> Provider::hash(const boost::shared_ptr<crypto::ICertificate>& certificate,
                                                boost::string_view algorithm) const {
    return certificate ? boost::make_shared<Hash>(certificate, algorithm) : boost::make_shared<Hash>(*this, algorithm);
}

bool Provider::initialize(unsigned long family) {
    return CoInitializeEx(static_cast<unsigned>(family)) != 0;
}

bool Provider::initialize(IProvider::Family family) {
    return initialize(static_cast<unsigned long>(family));
}

std::set<std::string> Provider::algorithms() const {
    std::set<std::string> names;
    try {
        const HCRYPTPROV context(*this, nullptr);
        if (tools::isCNG(context.get())) {
            return names;
        }
        PROV_ENUMALGS algorithm{};
        DWORD length = sizeof(algorithm);
        DWORD flags = capi::CRYPT_FIRST;
        while (CryptGetProvParam(context.get(), capi::PP_ENUMALGS, reinterpret_cast<BYTE*>(&algorithm), &length,
                                 flags) != 0) {
            if (auto name = internal::algorithmName(algorithm); !name.empty()) {
                names.insert(std::move(name));
            }
            flags = capi::CRYPT_NEXT;
            length = sizeof(algorithm);
        }
    } catch (const std::exception&) {
        log::warning("wincrypt: get provider algoritms failed, provider: " + quotedName(name_));
    }
    return names;
}

bool Provider::hasAlgorithm(const std::string& oid) const {
    static internal::SupportedAlgorithms supports;

    const auto algorithms = supports.of(*this);
    const std::string wanted =
        crypto::tools::isCNG(*this) ? tools::oid_to_cng_alg_id(oid).value_or(std::string()) : oid;
    log::trace("wincrypt: provider " + utf8OrEmpty(name_) + " (" + std::to_string(type_) + ")" +
               " supports algorithm: " + oid);
    return algorithms.count(wanted) != 0;
}

std::vector<unsigned char> Provider::randomBytes(std::size_t length) const {
    const auto failed = [&](const std::string& reason) {
        log::warning("wincrypt: get random bytes failed, provider: " + quotedName(name_) +
                     ", length=" + std::to_string(length) + ", " + reason);
        return std::vector<unsigned char>();
    };
    try {
        const HCRYPTPROV context(*this, nullptr);
        if (!context) {
            return {};
        }
        std::vector<unsigned char> bytes(length);
        std::size_t filled = 0;
        do { // once, unless a DWORD cannot tell the length
            const auto piece = std::min<std::size_t>(length - filled, std::numeric_limits<DWORD>::max());
            if (CryptGenRandom(context.get(), static_cast<DWORD>(piece), bytes.data() + filled) == 0) {
                return failed(lastErrorText());
            }
            filled += piece;
        } while (filled < length);
        return bytes;
    } catch (const std::exception& e) {
        return failed(e.what());
    }
}

boost::optional<std::wstring> Provider::version() const {
    static const std::set<DWORD> likelySlowProviderTypes{capi::PROV_RSA_FULL};

    if (likelySlowProviderTypes.count(type_) != 0) {
        log::warning("wincrypt: get provider version skipped, provider: " + quotedName(name_));
        return boost::none;
    }
    const std::string failure = "wincrypt: get provider version failed, provider: " + quotedName(name_);
    try {
        const HCRYPTPROV context(*this, nullptr);
        if (!context) {
            return boost::none;
        }
        DWORD version = 0;
        DWORD length = sizeof(version);
        if (!tools::isCNG(context.get()) &&
            CryptGetProvParam(context.get(), capi::PP_VERSION, reinterpret_cast<BYTE*>(&version), &length, 0) != 0) {
            return std::to_wstring(version >> 8U & 0xFFU) + L"." + std::to_wstring(version & 0xFFU);
        }
        log::warning(failure);
    } catch (const std::exception& e) {
        log::warning(failure + ", error: " + e.what());
    }
    return boost::none;
}

} // namespace orvik::plugin::wincrypt
