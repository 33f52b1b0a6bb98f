#pragma once

/// The service as its callers see it: a data directory of the test's own, owners for what the entry points hand out.

#include "exports/export.hpp"
#include "pki.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>

namespace api = klunortredi::csp::exports;
namespace csp = klunortredi::csp;

inline constexpr DWORD encodings = capi::X509_AND_PKCS_7;

struct FreeContext {
    void operator()(const CERT_CONTEXT* context) const { api::CertFreeCertificateContext(context); }
};
using Context = std::unique_ptr<const CERT_CONTEXT, FreeContext>;

struct CloseStore {
    void operator()(void* store) const { api::CertCloseStore(store, 0); }
};
using StoreHandle = std::unique_ptr<void, CloseStore>;

inline Context contextOf(csp::ByteView der) {
    return Context(api::CertCreateCertificateContext(encodings, der.data(), static_cast<DWORD>(der.size())));
}

inline const char* storeProvider(DWORD number) {
    return reinterpret_cast<const char*>(static_cast<std::uintptr_t>(number));
}

inline StoreHandle memoryStore() {
    return StoreHandle(api::CertOpenStore(storeProvider(capi::CERT_STORE_PROV_MEMORY), 0, 0, 0, nullptr));
}

inline StoreHandle systemStore(const char* name) {
    return StoreHandle(api::CertOpenSystemStore(0, name));
}

inline Context add(void* store, csp::ByteView der, DWORD disposition = capi::CERT_STORE_ADD_REPLACE_EXISTING) {
    const Context source = contextOf(der);
    PCCERT_CONTEXT added = nullptr;
    api::CertAddCertificateContextToStore(store, source.get(), disposition, &added);
    return Context(added);
}

/// Encodings of what a walk through the store meets.
inline std::vector<csp::Bytes> walk(void* store) {
    std::vector<csp::Bytes> met;
    PCCERT_CONTEXT context = nullptr;
    while ((context = api::CertEnumCertificatesInStore(store, context)) != nullptr) {
        met.emplace_back(context->pbCertEncoded, context->pbCertEncoded + context->cbCertEncoded);
    }
    return met;
}

/// A property by the two-call protocol; empty when there is none.
inline csp::Bytes property(PCCERT_CONTEXT context, DWORD id) {
    DWORD size = 0;
    if (api::CertGetCertificateContextProperty(context, id, nullptr, &size) == 0) {
        return {};
    }
    csp::Bytes value(size);
    EXPECT_TRUE(api::CertGetCertificateContextProperty(context, id, value.data(), &size));
    return value;
}

inline csp::Bytes wideBytes(const std::wstring& text) {
    const auto* const octets = reinterpret_cast<const std::uint8_t*>(text.c_str());
    return {octets, octets + (text.size() + 1) * sizeof(wchar_t)};
}

inline bool setBlob(PCCERT_CONTEXT context, DWORD id, csp::Bytes value) {
    const CRYPT_DATA_BLOB blob{static_cast<DWORD>(value.size()), value.data()};
    return api::CertSetCertificateContextProperty(context, id, 0, &blob) != 0;
}

/// Gives every test a data directory of its own.
class ServiceTest : public testing::Test {
protected:
    ServiceTest() {
        std::string path = (std::filesystem::temp_directory_path() / "klunortredi-certs-XXXXXX").string();
        home_ = mkdtemp(path.data());
        setenv("KLUNORTREDI_HOME", home_.c_str(), 1);
    }
    ~ServiceTest() override {
        std::error_code ignored;
        std::filesystem::permissions(home_, std::filesystem::perms::owner_all, ignored);
        std::filesystem::remove_all(home_, ignored);
    }

    [[nodiscard]] std::filesystem::path folder(const std::string& store) const { return home_ / "stores" / store; }
    [[nodiscard]] std::vector<std::filesystem::path> files(const std::string& store) const {
        std::vector<std::filesystem::path> list;
        if (std::filesystem::exists(folder(store))) {
            for (const auto& entry : std::filesystem::directory_iterator(folder(store))) {
                list.push_back(entry.path());
            }
        }
        return list;
    }
    static std::string content(const std::filesystem::path& file) {
        std::ifstream in(file, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    static void write(const std::filesystem::path& file, std::string_view text) {
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << text;
    }

    std::filesystem::path home_;
};
