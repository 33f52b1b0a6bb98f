#pragma once

/// Stores on disk: one folder per store, one file per certificate.

#include "core/files.hpp"
#include "stores/store.hpp"
#include "stores/store_list.hpp"

#include <chrono>
#include <filesystem>
#include <mutex>
#include <string>
#include <string_view>

namespace klunortredi::csp {

/// The store in the folder `<data directory>/stores/<name>`: `<SHA-1>.pem` holds a certificate (store_file.hpp), any
/// `*.crl` a CRL in DER or PEM (crl_files.hpp). The folder is made by the first write.
///
/// Every opening in a process shares one object, so that contexts of the same certificate share their properties. Each
/// search looks whether the folder changed, and reads the files that may be meant: what other processes do is seen.
/// Changes are made under a lock on the folder and file by file as a whole. A file that is not what its name says, or
/// cannot be read, is skipped, named (core/skipped.hpp) and left alone. With many certificates, search numbers are kept
/// in an index file (store_index.hpp), where the folder can be written.
class SystemStore final : public Store {
public:
    /// `name` in any case. ApiError(ERROR_INVALID_PARAMETER) for one that is not made of ASCII letters, digits, '-',
    /// '_' and inner dots, at most 64 of them.
    static std::shared_ptr<SystemStore> open(std::string_view name);

    explicit SystemStore(std::filesystem::path directory) : directory_(std::move(directory)) {}

    [[nodiscard]] bool exists() const;
    [[nodiscard]] const std::filesystem::path& directory() const noexcept { return directory_; }

    std::vector<std::shared_ptr<Certificate>> certificates() override;
    Match next(std::uint64_t after, const Criterion& wanted) override;
    std::vector<StoredCrl> crls() override;
    std::vector<UnusableEntry> unusable() override;
    /// A certificate stands in the store once: adding it Always replaces its own file. Beside one of the same issuer
    /// and serial number, but other octets, it is added. Replacing a certificate by itself keeps its link to a private
    /// key unless the new one brings its own. Throws ApiError(CRYPT_E_EXISTS) when a certificate with such a link would
    /// be replaced by one of another public key: anybody can make a certificate of that issuer and serial number.
    std::shared_ptr<Certificate> add(const Certificate& certificate, AddRule rule) override;
    void remove(const Certificate& certificate) override;
    /// When the certificate has gone from the folder meanwhile, only the properties in memory change.
    void change(Certificate& certificate, const std::function<void(Properties&)>& change) override;

private:
    [[nodiscard]] std::filesystem::path fileOf(const std::string& thumbprint) const;
    [[nodiscard]] bool listIsFresh(const std::optional<files::Stamp>& stamp) const;
    void refresh();
    void takeNames(const std::vector<std::string>& names);
    [[nodiscard]] files::Lock lockFolder();
    void settle();
    std::shared_ptr<Certificate> load(StoreEntry& entry);
    void read(StoreEntry& entry);
    Match nextAnywhere(std::uint64_t after, const Criterion& wanted);
    Match nextOf(const std::vector<StoreEntry*>& candidates, std::uint64_t after, const Criterion& wanted);
    void keepIndex();
    void writeIndex();
    void write(const std::shared_ptr<Certificate>& certificate, const Properties& properties);
    [[nodiscard]] std::shared_ptr<Certificate> sameIn(const Certificate& certificate);
    std::shared_ptr<Certificate> addNew(const Certificate& certificate, const Properties& properties);
    std::shared_ptr<Certificate> replace(const Certificate& existing, const Certificate& certificate);

    const std::filesystem::path directory_;
    std::mutex mutex_;
    StoreList list_;
    bool listed_ = false;               ///< the names were read
    std::optional<files::Stamp> stamp_; ///< of the folder, before its names were read
    bool unsettled_ = false;            ///< the folder may have changed since without another stamp
    std::chrono::steady_clock::time_point listedAt_;
    std::vector<std::string> others_;      ///< entries whose names are not of certificates
    std::vector<std::string> temporaries_; ///< what killed writers may have left
    bool indexRefused_ = false;            ///< the index cannot be written here
};

} // namespace klunortredi::csp
