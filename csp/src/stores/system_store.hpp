#pragma once

/// Stores on disk: one folder per store, one file per certificate.

#include "stores/store.hpp"

#include <filesystem>
#include <map>
#include <mutex>
#include <string>
#include <string_view>

namespace klunortredi::csp {

/// The store in the folder `<data directory>/stores/<name>`: `<SHA-1>.pem` holds a certificate (store_file.hpp), any
/// `*.crl` a CRL in DER or PEM (crl_files.hpp). The folder is made by the first write.
///
/// Every opening in a process shares one object, so that contexts of the same certificate share their properties. The
/// folder is read again at each use: what other processes do is seen. Changes are made under a lock on the folder and
/// file by file as a whole. A file that is not what its name says is passed over and left alone.
class SystemStore final : public Store {
public:
    /// `name` in any case. ApiError(ERROR_INVALID_PARAMETER) for one that is not made of ASCII letters, digits, '-',
    /// '_' and inner dots, at most 64 of them.
    static std::shared_ptr<SystemStore> open(std::string_view name);

    explicit SystemStore(std::filesystem::path directory) : directory_(std::move(directory)) {}

    [[nodiscard]] bool exists() const;
    [[nodiscard]] const std::filesystem::path& directory() const noexcept { return directory_; }

    std::vector<std::shared_ptr<Certificate>> certificates() override;
    std::vector<StoredCrl> crls() override;
    std::vector<std::string> unreadable() override;
    /// A certificate stands in the store once: adding it Always replaces its own file. Beside one of the same issuer
    /// and serial number, but other octets, it is added. Replacing a certificate by itself keeps its link to a private
    /// key unless the new one brings its own. Throws ApiError(CRYPT_E_EXISTS) when a certificate with such a link would
    /// be replaced by one of another public key: anybody can make a certificate of that issuer and serial number.
    std::shared_ptr<Certificate> add(const Certificate& certificate, AddRule rule) override;
    void remove(const Certificate& certificate) override;
    /// When the certificate has gone from the folder meanwhile, only the properties in memory change.
    void change(Certificate& certificate, const std::function<void(Properties&)>& change) override;

private:
    /// Tells one state of a file from another: files are replaced, never rewritten.
    struct Stamp {
        std::uint64_t inode = 0;
        std::int64_t seconds = 0;
        std::int64_t nanoseconds = 0;
        bool operator==(const Stamp&) const = default;
    };
    struct Held {
        Stamp stamp;
        std::shared_ptr<Certificate> certificate; ///< null: the file is not what its name says
    };

    [[nodiscard]] std::filesystem::path fileOf(const Certificate& certificate) const;
    static Stamp stampOf(const std::filesystem::path& file);
    void refresh();
    void load(const std::string& thumbprint, const Stamp& stamp, Held& held) const;
    void write(const std::shared_ptr<Certificate>& certificate, const Properties& properties);
    [[nodiscard]] std::shared_ptr<Certificate> sameIn(const Certificate& certificate) const;
    std::shared_ptr<Certificate> addNew(const Certificate& certificate, const Properties& properties);
    std::shared_ptr<Certificate> replace(const Certificate& existing, const Certificate& certificate);

    const std::filesystem::path directory_;
    std::mutex mutex_;
    std::map<std::string, Held> held_; ///< by thumbprint in lower-case hexadecimal
};

} // namespace klunortredi::csp
