// Chains that other projects and standards bodies published, with their verdicts, asked through the entry points:
// anchors in store "root", issuers in an additional store, CRLs in the folder of store "ca".

#include "service.hpp"
#include "x509/file_time.hpp"

#include <openssl/pem.h>

#include <algorithm>
#include <iomanip>
#include <iostream>
#include <map>
#include <set>
#include <sstream>

namespace {

namespace fs = std::filesystem;

fs::path corpora() {
    const char* const set = std::getenv("KLUNORTREDI_CORPORA");
    return set != nullptr ? fs::path(set)
                          : fs::path(std::getenv("KLUNORTREDI_SOURCE_DIR")) / ".." / "shared" / "corpora";
}

std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> parts;
    std::istringstream in(text);
    for (std::string part; std::getline(in, part, separator);) {
        parts.push_back(part);
    }
    return parts;
}

struct Case {
    std::string id;
    std::string input;
    std::map<std::string, std::string> args;
    std::string expected;

    [[nodiscard]] std::vector<std::string> list(const std::string& name) const {
        const auto found = args.find(name);
        return found == args.end() ? std::vector<std::string>{} : split(found->second, '|');
    }
};

std::vector<Case> chainCases(const fs::path& folder) {
    std::vector<Case> cases;
    std::ifstream manifest(folder / "MANIFEST.tsv");
    for (std::string line; std::getline(manifest, line);) {
        const auto columns = split(line, '\t');
        if (columns.size() < 5 || columns[1] != "chain") {
            continue;
        }
        Case row{columns[0], columns[2], {}, columns[4]};
        for (const std::string& argument : split(columns[3], ';')) {
            const auto at = argument.find('=');
            row.args[argument.substr(0, at)] = argument.substr(at + 1);
        }
        cases.push_back(std::move(row));
    }
    return cases;
}

/// The certificates of a file: any number as PEM, or one as DER.
std::vector<csp::Bytes> certificatesOf(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(in), {}};
    std::vector<csp::Bytes> list;
    const csp::ossl::Bio bio(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
    char* name = nullptr;
    char* header = nullptr;
    unsigned char* data = nullptr;
    long size = 0;
    while (PEM_read_bio(bio.get(), &name, &header, &data, &size) == 1) {
        list.emplace_back(data, data + size);
        OPENSSL_free(name);
        OPENSSL_free(header);
        OPENSSL_free(data);
    }
    ERR_clear_error();
    if (list.empty()) {
        list.emplace_back(text.begin(), text.end());
    }
    return list;
}

std::time_t timeOf(const std::string& text) {
    std::tm parts{};
    std::istringstream(text) >> std::get_time(&parts, "%Y-%m-%dT%H:%M:%SZ");
    return timegm(&parts);
}

/// Initial policies are no part of the question that the CryptoAPI lets a caller ask.
bool offered(const Case& row) {
    return !row.args.contains("policy") && !row.args.contains("explicit") && !row.args.contains("inhibit_map") &&
           !row.args.contains("inhibit_any");
}

/// Valid chains that OpenSSL refuses. One that is accepted some day must leave this list.
const std::map<std::string, std::set<std::string>> refused{
    {"nist-pkits",
     {
         // an issuer's DSA key without parameters of its own; inheriting them is optional
         "pkits-4.1.5-Section1ValidDSAParameterInheritanceTest5",
         // a CRL issuer whose own revocation is told by the CRL that it signs
         "pkits-4.14.30-Section14ValidcRLIssuerTest30",
     }},
};

struct Score {
    std::size_t right = 0;
    std::set<std::string> wrong;
    std::size_t notOffered = 0;
};

class PublishedChains : public ServiceTest, public testing::WithParamInterface<const char*> {
protected:
    /// Bits of the chain, or ~0 when the certificate itself is refused.
    DWORD ask(const fs::path& folder, const Case& row) {
        fs::remove_all(home_ / "stores");
        for (const std::string& file : row.list("ta")) {
            for (const auto& der : certificatesOf(folder / file)) {
                add(systemStore("root").get(), der, capi::CERT_STORE_ADD_ALWAYS);
            }
        }
        const StoreHandle additional = memoryStore();
        for (const std::string& file : row.list("inter")) {
            for (const auto& der : certificatesOf(folder / file)) {
                add(additional.get(), der, capi::CERT_STORE_ADD_ALWAYS);
            }
        }
        for (const std::string& file : row.list("crl")) {
            fs::create_directories(this->folder("ca"));
            fs::copy_file(folder / file, this->folder("ca") / fs::path(file).filename().replace_extension(".crl"));
        }
        return chainBits(row, certificatesOf(folder / row.input).front(), additional.get());
    }

    static DWORD chainBits(const Case& row, const csp::Bytes& der, void* additional) {
        const Context certificate = contextOf(der);
        if (!certificate) {
            return ~0U;
        }
        CERT_CHAIN_PARA parameters{};
        parameters.cbSize = sizeof parameters;
        FILETIME time = csp::toFileTime(row.args.contains("time") ? timeOf(row.args.at("time")) : std::time(nullptr));
        const auto crlCheck = row.list("crlcheck");
        const DWORD flags = crlCheck.empty()       ? 0
                            : crlCheck[0] == "all" ? capi::CERT_CHAIN_REVOCATION_CHECK_CHAIN_EXCLUDE_ROOT
                                                   : capi::CERT_CHAIN_REVOCATION_CHECK_END_CERT;
        PCCERT_CHAIN_CONTEXT chain = nullptr;
        if (api::CertGetCertificateChain(nullptr, certificate.get(), &time, additional, &parameters, flags, nullptr,
                                         &chain) == 0) {
            return ~0U;
        }
        const DWORD bits = chain->TrustStatus.dwErrorStatus;
        api::CertFreeCertificateChain(chain);
        return bits;
    }

    Score score(const fs::path& folder) {
        Score result;
        for (const Case& row : chainCases(folder)) {
            if (!offered(row)) {
                ++result.notOffered;
                continue;
            }
            const DWORD bits = ask(folder, row);
            if (row.expected == "EITHER" || (bits == 0) == (row.expected == "VALID")) {
                ++result.right;
            } else {
                result.wrong.insert(row.id);
                std::cout << "  " << row.id << ": expected " << row.expected << ", status " << std::hex << bits
                          << std::dec << '\n';
            }
        }
        return result;
    }
};

INSTANTIATE_TEST_SUITE_P(Folders, PublishedChains,
                         testing::Values("gnutls-gost", "gost-gnutls-generated", "gost-rfc9215", "gost-tc26-cms",
                                         "gost-tk26-pygost", "nist-pkits", "x509-limbo", "botan-x509",
                                         "openssl-verify"),
                         [](const auto& parameter) {
                             std::string name = parameter.param;
                             std::ranges::replace(name, '-', '_');
                             return name;
                         });

TEST_P(PublishedChains, GetThePublishedVerdict) {
    const fs::path folder = corpora() / GetParam();
    if (!fs::exists(folder)) {
        GTEST_SKIP() << "no such folder: " << folder << " (KLUNORTREDI_CORPORA)";
    }
    const Score result = score(folder);
    std::cout << GetParam() << ": right " << result.right << ", wrong " << result.wrong.size() << ", not offered "
              << result.notOffered << '\n';
    EXPECT_GT(result.right, 0U);
    EXPECT_EQ(result.wrong, refused.contains(GetParam()) ? refused.at(GetParam()) : std::set<std::string>{});
}

} // namespace
