// Chains, CRLs and malformed certificates that other projects and standards bodies published, with their verdicts, put
// to the entry points.

#include "chain_case.hpp"
#include "corpora/tally.hpp"
#include "crypto/engine.hpp"
#include "fuzz_targets.hpp"

#include <openssl/pem.h>
#if defined(KLUNORTREDI_ADDRESS_SANITIZED)
#include <sanitizer/lsan_interface.h>
#endif

#include <gmock/gmock.h>

#include <algorithm>
#include <iomanip>
#include <sstream>

namespace {

using chain_case::Answer;
using chain_case::notJudged;
using chain_case::Question;
using corpora::Case;
using corpora::Tally;
using testing::IsEmpty;

csp::Bytes octetsOf(const std::string& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

/// What a file holds: any number of PEM blocks, or one DER value.
std::vector<csp::Bytes> objectsOf(const std::string& file) {
    const csp::Bytes text = octetsOf(file);
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
        list.push_back(text);
    }
    return list;
}

std::vector<csp::Bytes> objectsOf(const std::vector<std::string>& files) {
    std::vector<csp::Bytes> list;
    for (const std::string& file : files) {
        std::ranges::move(objectsOf(file), std::back_inserter(list));
    }
    return list;
}

std::time_t timeOf(const std::string& text) {
    std::tm parts{};
    std::istringstream(text) >> std::get_time(&parts, "%Y-%m-%dT%H:%M:%SZ");
    return timegm(&parts);
}

/// The extended key usage that a row asks for, as text and as OID.
std::string usageOf(const Case& row) {
    const std::map<std::string, std::string> usages{{"", ""},
                                                    {"serverAuth", "1.3.6.1.5.5.7.3.1"},
                                                    {"clientAuth", "1.3.6.1.5.5.7.3.2"},
                                                    {"timestampsign", "1.3.6.1.5.5.7.3.8"}};
    return usages.at(row.text("purpose"));
}

Question questionOf(const Case& row) {
    Question question;
    question.target = objectsOf(row.inputPath()).front();
    question.anchors = objectsOf(row.paths("ta"));
    question.issuers = objectsOf(row.paths("inter"));
    question.crls = objectsOf(row.paths("crl"));
    question.time = row.has("time") ? timeOf(row.text("time")) : 0;
    question.usage = usageOf(row);
    if (row.has("crl")) {
        question.flags = row.text("crlcheck") == "all" ? capi::CERT_CHAIN_REVOCATION_CHECK_CHAIN_EXCLUDE_ROOT
                                                       : capi::CERT_CHAIN_REVOCATION_CHECK_END_CERT;
    }
    const auto flag = [&](const char* argument, DWORD bit) { question.flags |= row.has(argument) ? bit : 0; };
    flag("explicit", capi::CERT_CHAIN_REQUIRE_EXPLICIT_POLICY);
    flag("inhibit_map", capi::CERT_CHAIN_INHIBIT_POLICY_MAPPING);
    flag("inhibit_any", capi::CERT_CHAIN_INHIBIT_ANY_POLICY);
    question.policies = row.has("policy") ? corpora::split(row.text("policy"), '|') : std::vector<std::string>{};
    return question;
}

std::string textOf(const Answer& answer) {
    std::ostringstream text;
    text << "INVALID, " << std::hex << (answer.errors == notJudged ? answer.code : answer.errors);
    return text.str();
}

/// The name of the folder with the letters that a test may have.
std::string testName(const testing::TestParamInfo<const char*>& parameter) {
    std::string name = parameter.param;
    std::ranges::replace(name, '-', '_');
    return name;
}

class Published : public ServiceTest, public testing::WithParamInterface<const char*> {
protected:
    void SetUp() override {
        root_ = corpora::root();
        if (!root_) {
            GTEST_SKIP() << "the folder of published cases is not here (KLUNORTREDI_CORPORA)";
        }
    }
    /// Judges the rows of one operation; `verdict` says VALID, INVALID or what else came of it.
    template <class Verdict>
    void judge(const std::string& op, Verdict&& verdict) {
        Tally tally(GetParam() + std::string(" ") + op);
        for (const Case& row : corpora::cases(*root_, GetParam())) {
            if (row.op == op && tally.offered(row)) {
                tally.note(row, verdict(row));
            }
        }
        tally.print();
        EXPECT_GT(tally.right(), 0);
        EXPECT_THAT(tally.surprises(), IsEmpty());
    }

    std::optional<std::string> root_;
};

class PublishedChains : public Published {};

/// OpenSSL 3.0 itself leaks the policy constraints of a certificate without certificate policies (X509_policy_check).
/// LeakSanitizer passes over the rows that have such a certificate.
class LeakOfOpenssl {
public:
    explicit LeakOfOpenssl(const Case& row) : expected_(row.id.find("::pc::") != std::string::npos) { toggle(true); }
    LeakOfOpenssl(const LeakOfOpenssl&) = delete;
    LeakOfOpenssl& operator=(const LeakOfOpenssl&) = delete;
    ~LeakOfOpenssl() { toggle(false); }

private:
    void toggle([[maybe_unused]] bool begin) const {
#if defined(KLUNORTREDI_ADDRESS_SANITIZED)
        if (expected_) {
            begin ? __lsan_disable() : __lsan_enable();
        }
#endif
    }
    [[maybe_unused]] bool expected_;
};

TEST_P(PublishedChains, GetThePublishedVerdict) {
    judge("chain", [](const Case& row) {
        const LeakOfOpenssl pass(row);
        const Answer answer = chain_case::ask(questionOf(row));
        if (answer.errors == 0) {
            return std::string("VALID");
        }
        return row.expected == "VALID" ? textOf(answer) : "INVALID";
    });
}

INSTANTIATE_TEST_SUITE_P(Folders, PublishedChains,
                         testing::Values("botan-x509", "gnutls-gost", "gost-gnutls-generated", "gost-rfc9215",
                                         "gost-tc26-cms", "gost-tk26-pygost", "nist-pkits", "openssl-verify",
                                         "x509-limbo"),
                         testName);

class PublishedCrls : public Published {
protected:
    /// A certificate that the CRL's issuer issued, itself among them; empty when the folder has none.
    static csp::Bytes issuedBy(const csp::Bytes& issuer, const std::string& folder) {
        csp::gostEngine(); // OpenSSL compares issuers by their decoded keys
        const csp::ossl::X509Ptr authority = pki::decode(issuer);
        if (X509_check_issued(authority.get(), authority.get()) == X509_V_OK) {
            return issuer;
        }
        for (const auto& entry : std::filesystem::directory_iterator(folder)) {
            if (entry.path().extension() != ".pem") {
                continue;
            }
            const csp::Bytes der = objectsOf(entry.path().string()).front();
            const unsigned char* position = der.data();
            const csp::ossl::X509Ptr certificate(d2i_X509(nullptr, &position, static_cast<long>(der.size())));
            ERR_clear_error();
            if (certificate && X509_check_issued(authority.get(), certificate.get()) == X509_V_OK) {
                return der;
            }
        }
        return {};
    }
    static std::time_t issuedAt(const csp::Bytes& crl) {
        const unsigned char* position = crl.data();
        const csp::ossl::X509CrlPtr list(d2i_X509_CRL(nullptr, &position, static_cast<long>(crl.size())));
        std::tm parts{};
        ASN1_TIME_to_tm(X509_CRL_get0_lastUpdate(list.get()), &parts);
        return timegm(&parts);
    }
};

// No entry point judges a CRL alone: a certificate of its issuer has a revocation status when the CRL is genuine.
TEST_P(PublishedCrls, CountWhenTheirSignatureIsGenuine) {
    judge("crl-verify", [](const Case& row) {
        Question question;
        question.anchors = objectsOf(row.paths("ta"));
        question.crls = objectsOf(row.inputPath());
        question.target = issuedBy(question.anchors.front(), row.folder);
        question.time = issuedAt(question.crls.front()) + 1;
        question.flags = capi::CERT_CHAIN_REVOCATION_CHECK_CHAIN;
        const Answer answer = chain_case::ask(question);
        if (answer.elements.empty()) {
            return textOf(answer);
        }
        const bool unknown = (answer.elements.front() & capi::CERT_TRUST_REVOCATION_STATUS_UNKNOWN) != 0;
        return std::string(unknown ? "INVALID" : "VALID");
    });
}

INSTANTIATE_TEST_SUITE_P(Folders, PublishedCrls, testing::Values("botan-x509", "gost-gnutls-generated", "gost-rfc9215"),
                         testName);

class PublishedMalformed : public Published {
protected:
    /// Replays a fuzz target over the rows of that type; it ends the process when a property is broken.
    void replay(const std::string& type, int (*target)(const std::uint8_t*, std::size_t)) {
        Tally tally(GetParam() + std::string(" ") + type);
        for (const Case& row : corpora::cases(*root_, GetParam())) {
            if (row.op == "parse" && row.text("type") == type && tally.offered(row)) {
                const csp::Bytes der = objectsOf(row.inputPath()).front();
                target(der.data(), der.size());
                tally.note(row, "OK");
            }
        }
        tally.print();
        EXPECT_GT(tally.right(), 0);
        EXPECT_THAT(tally.surprises(), IsEmpty());
    }
};

TEST_P(PublishedMalformed, CertificatesGetACleanVerdict) {
    replay("x509", fuzzCertificate);
}

TEST_P(PublishedMalformed, CrlsGetACleanVerdict) {
    replay("crl", fuzzCrl);
}

INSTANTIATE_TEST_SUITE_P(Folders, PublishedMalformed, testing::Values("malformed"), testName);

} // namespace
