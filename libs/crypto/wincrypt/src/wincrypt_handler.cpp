#include "crypto/wincrypt/wincrypt_handler.hpp"

#include "crypto/wincrypt/provider_names.hpp"
#include "wincrypt_loader.hpp"

#include "orvik/plugin/converter.hpp"
#include "orvik/plugin/crypto/exception/crypto_exception.hpp"
#include "orvik/plugin/crypto/i_provider.hpp"
#include "orvik/plugin/log.hpp"
#include "orvik/plugin/path_registry.hpp"

#include <boost/filesystem/operations.hpp>
#include <boost/optional.hpp>
#include <boost/smart_ptr/make_shared.hpp>

#include <array>
#include <atomic>
#include <unordered_map>

namespace orvik::plugin::wincrypt {

namespace internal {
namespace {

using boost::filesystem::path;
using crypto::IProvider;

/// Decides which installed service the process is bound to, and keeps the services' loaders.
///
/// Every cache is a constant-initialised atomic or a function-local static, so first use from several threads is safe
/// and the way back from it is one acquire load each.
class Handler {
public:
    /// In the order of preference. CryptoApi is known by its files only: it is never selected.
    enum class Type : unsigned { ViPNet, CryptoPro, CryptoApi };

    static std::vector<path> paths(Type type);
    /// Selectable types that are installed, in order of preference.
    static const std::vector<Type>& installed();
    static boost::optional<Type> existed();
    static boost::optional<Type> initialize(boost::optional<Type> requested) noexcept;
    static bool initialize(IProvider::Family family);
    /// The selected type, selecting it now when none is. Nothing when no service is installed.
    static boost::optional<Type> selected() noexcept;
    static Type get();
    static boost::shared_ptr<WincryptLoader> get(Type type);

private:
    static bool selectable(Type type) { return type < Type::CryptoApi; }
    static bool usable(Type type) { return selectable(type) && !paths(type).empty(); }
    static std::vector<path> candidates(Type type);
    template <Type type>
    static const std::vector<path>& cachedPaths();
    template <Type type>
    static boost::shared_ptr<WincryptLoader> cachedLoader();

    static constexpr int none = -1;
    static std::atomic<int> handler;
};

constinit std::atomic<int> Handler::handler{none};

bool isThere(const path& file) {
    boost::system::error_code error;
    const auto status = boost::filesystem::status(file, error);
    return status.type() != boost::filesystem::status_error && status.type() != boost::filesystem::file_not_found;
}

std::vector<path> Handler::candidates(Type type) {
    switch (type) {
    case Type::ViPNet: // its kernel32 library alone is no service
        if (!isThere(PathRegistry::vipNetResourceFile())) {
            return {};
        }
        return {PathRegistry::vipNetResourceFile(), PathRegistry::kernel32ResourceFile()};
    case Type::CryptoPro:
        return {PathRegistry::cryptoProResourceFile()};
    case Type::CryptoApi:
        return {PathRegistry::cryptoApiResourceFile(), PathRegistry::cryptoApi2ResourceFile(),
                PathRegistry::kernel32ResourceFile()};
    }
    return {};
}

template <Handler::Type type>
const std::vector<path>& Handler::cachedPaths() {
    static const std::vector<path> files = [] {
        auto result = candidates(type);
        std::erase_if(result, [](const path& file) { return !isThere(file); });
        return result;
    }();
    return files;
}

std::vector<path> Handler::paths(Type type) {
    switch (type) {
    case Type::ViPNet:
        return cachedPaths<Type::ViPNet>();
    case Type::CryptoPro:
        return cachedPaths<Type::CryptoPro>();
    case Type::CryptoApi:
        return cachedPaths<Type::CryptoApi>();
    }
    return {};
}

const std::vector<Handler::Type>& Handler::installed() {
    static const std::vector<Type> result = [] {
        std::vector<Type> types;
        for (const Type type : {Type::ViPNet, Type::CryptoPro, Type::CryptoApi}) {
            if (usable(type)) {
                types.push_back(type);
            }
        }
        return types;
    }();
    return result;
}

boost::optional<Handler::Type> Handler::existed() {
    return installed().empty() ? boost::none : boost::make_optional(installed().front());
}

boost::optional<Handler::Type> Handler::initialize(boost::optional<Type> requested) noexcept {
    try {
        return requested && usable(*requested) ? requested : existed();
    } catch (const std::exception&) { // a path that cannot be probed is a service that is not there
        return boost::none;
    }
}

boost::optional<Handler::Type> Handler::selected() noexcept {
    int type = handler.load(std::memory_order_acquire);
    if (type == none) {
        const auto found = initialize(boost::optional<Type>());
        if (!found) {
            return boost::none;
        }
        // Threads that race here have found the same answer, for it rests on a static.
        type = static_cast<int>(*found);
        handler.store(type, std::memory_order_release);
    }
    return static_cast<Type>(type);
}

Handler::Type Handler::get() {
    const auto type = selected();
    if (!type) {
        constexpr int line = 177; // support staff and log filters know this failure by its line
        exception::raise(crypto::exception::CryptoException(crypto::exception::CryptoException::Code::noProvider),
                         {"wincrypt_handler", "get", line});
    }
    return *type;
}

/// A loader in static storage. Objects of other libraries may be destroyed after it and still give handles back: they
/// find no loader then, and the process being over takes the handles.
class LoaderSlot {
public:
    explicit LoaderSlot(boost::shared_ptr<WincryptLoader> loader, std::atomic<bool>& open)
        : loader_(std::move(loader)), open_(open) {
        open_.store(true, std::memory_order_release);
    }
    LoaderSlot(const LoaderSlot&) = delete;
    LoaderSlot& operator=(const LoaderSlot&) = delete;
    ~LoaderSlot() { open_.store(false, std::memory_order_release); }

    [[nodiscard]] const boost::shared_ptr<WincryptLoader>& loader() const { return loader_; }

private:
    boost::shared_ptr<WincryptLoader> loader_;
    std::atomic<bool>& open_;
};

template <Handler::Type type>
boost::shared_ptr<WincryptLoader> Handler::cachedLoader() {
    static constinit std::atomic<bool> open{false};
    static const LoaderSlot slot(usable(type) ? boost::make_shared<WincryptLoader>(paths(type)) : nullptr, open);
    return open.load(std::memory_order_acquire) ? slot.loader() : nullptr;
}

boost::shared_ptr<WincryptLoader> Handler::get(Type type) {
    switch (type) {
    case Type::ViPNet:
        return cachedLoader<Type::ViPNet>();
    case Type::CryptoPro:
        return cachedLoader<Type::CryptoPro>();
    case Type::CryptoApi:
        return cachedLoader<Type::CryptoApi>();
    }
    return nullptr;
}

bool Handler::initialize(IProvider::Family family) {
    static const std::unordered_map<IProvider::Family, Type> familyToType{
        {IProvider::Family::vipNet, Type::ViPNet},
        {IProvider::Family::cryptoPro, Type::CryptoPro},
    };
    const auto found = familyToType.find(family);
    // Falling back to another service is no answer to whether this one is installed.
    const bool available = found != familyToType.end() && initialize(found->second) == found->second;
    get();
    return available;
}

} // namespace
} // namespace internal

unsigned CoInitializeEx(unsigned family) {
    return internal::Handler::initialize(static_cast<crypto::IProvider::Family>(family)) ? 1U : 0U;
}

int CoInitialize(void* /*reserved*/) {
    return 0;
}

void CoUninitialize() {}

unsigned GetLastErrorEx() {
    try {
        const auto type = internal::Handler::selected();
        const auto loader = type ? internal::Handler::get(*type) : nullptr;
        return loader ? loader->GetLastError() : 0;
    } catch (...) { // asked while a failure is being reported: a second failure would hide the first
        return 0;
    }
}

void SetLastErrorEx(unsigned code) {
    try {
        const auto type = internal::Handler::selected();
        if (const auto loader = type ? internal::Handler::get(*type) : nullptr) {
            loader->SetLastError(code);
        }
    } catch (...) { // as above
    }
}

unsigned GetLastError() {
    return 0;
}

void SetLastError(unsigned code) {
    SetLastErrorEx(code);
}

#define WINCRYPT_FORWARD_LOADER(result, member, parameters, arguments)
#define WINCRYPT_FORWARD_FORWARDED(result, member, parameters, arguments)                                              \
    result member parameters {                                                                                         \
        const auto loader = internal::Handler::get(internal::Handler::get());                                          \
        return loader ? loader->member arguments : absent<result>();                                                   \
    }
#define WINCRYPT_FORWARD(reach, qualifier, result, member, pointer, symbol, parameters, arguments)                     \
    WINCRYPT_FORWARD_##reach(result, member, parameters, arguments)
KLUNORTREDI_ENTRY_POINTS(WINCRYPT_FORWARD)
#undef WINCRYPT_FORWARD
#undef WINCRYPT_FORWARD_FORWARDED
#undef WINCRYPT_FORWARD_LOADER

namespace internal {
namespace {

/// A provider's name as the service enumerates it, in the form the plug-in keeps names.
std::wstring providerName(const std::string& enumerated) {
    auto name = tools::formatProviderName(plugin::converter::utf8_to_utf16(enumerated));
    if (!name.empty() && name.back() == L'\0') {
        name.pop_back();
    }
    return name;
}

void enumerateProviders(const WincryptLoader& loader, std::map<unsigned, std::wstring>& providers) {
    for (DWORD index = 0;; ++index) {
        DWORD type = 0;
        DWORD size = 0;
        if (!loader.CryptEnumProviders(index, nullptr, 0, &type, nullptr, &size) || size == 0) {
            return;
        }
        std::string name(size, '\0');
        if (!loader.CryptEnumProviders(index, nullptr, 0, &type, name.data(), &size)) {
            continue;
        }
        try {
            providers.emplace(type, providerName(name));
        } catch (const std::range_error&) { // no UTF-8: nobody could ask for it, and the others are there
            log::warning("wincrypt: provider without a readable name, type: " + std::to_string(type));
        }
    }
}

} // namespace
} // namespace internal

std::map<unsigned, std::wstring> EnumProvidersEx() {
    std::map<unsigned, std::wstring> providers;
    for (const auto type : internal::Handler::installed()) {
        if (const auto loader = internal::Handler::get(type)) {
            internal::enumerateProviders(*loader, providers);
        }
    }
    return providers;
}

} // namespace orvik::plugin::wincrypt
