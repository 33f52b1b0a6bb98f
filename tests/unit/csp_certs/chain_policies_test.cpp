// Certificate policies that a caller asks for, and what they may cost.

#include "chain_fixture.hpp"

#include <chrono>

namespace {

class ChainPolicies : public ChainTest {
protected:
    static constexpr DWORD noPolicy = capi::CERT_TRUST_NO_ISSUANCE_CHAIN_POLICY;

    ChainPolicies() { trust(root_); }

    static Entity authority(const std::string& subject, const Entity& issuer,
                            std::vector<std::pair<int, std::string>> extensions) {
        extensions.emplace_back(NID_basic_constraints, "critical,CA:TRUE");
        return pki::make({.subject = subject, .issuer = &issuer, .serial = 9, .extensions = extensions});
    }
    static csp::Bytes person(const Entity& issuer, const std::string& policies) {
        std::vector<std::pair<int, std::string>> extensions;
        if (!policies.empty()) {
            extensions.emplace_back(NID_certificate_policies, policies);
        }
        return pki::make({.subject = "Person", .issuer = &issuer, .serial = 5, .extensions = extensions}).der;
    }
    void ask(std::vector<std::string> oids, DWORD type) {
        texts_ = std::move(oids);
        pointers_.clear();
        for (std::string& text : texts_) {
            pointers_.push_back(text.data());
        }
        long_.emplace();
        long_->RequestedIssuancePolicy = {type, {static_cast<DWORD>(pointers_.size()), pointers_.data()}};
    }

    std::vector<std::string> texts_;
    std::vector<char*> pointers_;
};

TEST_F(ChainPolicies, AreThoseThatTheCallerNames) {
    const Entity issuer = authority("Issuer", root_, {{NID_certificate_policies, "1.2.3.4,1.2.3.5,1.2.3.6"}});
    know(issuer);
    const csp::Bytes both = person(issuer, "1.2.3.4,1.2.3.5");
    for (const DWORD type : {capi::USAGE_MATCH_TYPE_AND, capi::USAGE_MATCH_TYPE_OR}) {
        ask({"1.2.3.4"}, type);
        EXPECT_EQ(status(both), 0U);
        EXPECT_EQ(status(person(issuer, "")), noPolicy) << "a named policy is required";
        ask({"1.2.3.6"}, type);
        EXPECT_EQ(status(both), noPolicy);
        ask({"1.2.3.4", "1.2.3.5"}, type);
        EXPECT_EQ(status(both), 0U);
    }
    ask({"1.2.3.4", "1.2.3.6"}, capi::USAGE_MATCH_TYPE_OR);
    EXPECT_EQ(status(both), 0U);
    ask({"1.2.3.4", "1.2.3.6"}, capi::USAGE_MATCH_TYPE_AND);
    EXPECT_EQ(status(both), noPolicy);
    EXPECT_EQ(policy(chainOf(both), 0), capi::CERT_E_INVALID_POLICY);
    long_.reset();
    EXPECT_EQ(status(both), 0U) << "the short form names none";
}

TEST_F(ChainPolicies, AreRequiredByAFlag) {
    standardChain();
    EXPECT_EQ(status(leaf_.der), 0U);
    EXPECT_EQ(status(leaf_.der, capi::CERT_CHAIN_REQUIRE_EXPLICIT_POLICY), noPolicy);
}

TEST_F(ChainPolicies, AreNotMappedWhereAFlagForbidsIt) {
    const Entity issuer =
        authority("Mapping", root_, {{NID_certificate_policies, "1.2.3.4"}, {NID_policy_mappings, "1.2.3.4:1.2.3.5"}});
    know(issuer);
    const csp::Bytes mapped = person(issuer, "1.2.3.5");
    ask({"1.2.3.4"}, capi::USAGE_MATCH_TYPE_OR);
    EXPECT_EQ(status(mapped), 0U);
    EXPECT_EQ(status(mapped, capi::CERT_CHAIN_INHIBIT_POLICY_MAPPING), noPolicy);
}

TEST_F(ChainPolicies, AreNotReplacedByAnyPolicyWhereAFlagForbidsIt) {
    const Entity issuer = authority("Any", root_, {{NID_certificate_policies, "2.5.29.32.0"}});
    know(issuer);
    ask({"1.2.3.4"}, capi::USAGE_MATCH_TYPE_OR);
    EXPECT_EQ(status(person(issuer, "1.2.3.4")), 0U);
    EXPECT_EQ(status(person(issuer, "1.2.3.4"), capi::CERT_CHAIN_INHIBIT_ANY_POLICY), noPolicy);
}

TEST_F(ChainPolicies, ThatAreNotIdentifiersAreRefused) {
    ask({"policy"}, capi::USAGE_MATCH_TYPE_OR);
    const Context certificate = contextOf(leaf_.der);
    long_->cbSize = sizeof *long_;
    PCCERT_CHAIN_CONTEXT chain = nullptr;
    const auto get = [&] {
        return api::CertGetCertificateChain(nullptr, certificate.get(), nullptr, nullptr,
                                            reinterpret_cast<CERT_CHAIN_PARA*>(&*long_), 0, nullptr, &chain);
    };
    EXPECT_FALSE(get());
    EXPECT_EQ(api::GetLastError(), capi::ERROR_INVALID_PARAMETER);
    ask({}, capi::USAGE_MATCH_TYPE_OR);
    long_->cbSize = sizeof *long_;
    long_->pStrongSignPara = &chain;
    EXPECT_FALSE(get()) << "nothing that a caller asks for is passed over";
    EXPECT_EQ(api::GetLastError(), capi::ERROR_NOT_SUPPORTED);
}

// Each authority maps every policy to every other: a tree of policies doubles, and more, at each step.
TEST_F(ChainPolicies, ThatMultiplyEndSoon) {
    constexpr int levels = 24;
    constexpr int policies = 8;
    std::string list;
    std::string mappings;
    for (int i = 1; i <= policies; ++i) {
        list += (i == 1 ? "" : ",") + ("1.2.3." + std::to_string(i));
        for (int j = 1; j <= policies; ++j) {
            mappings += (mappings.empty() ? "" : ",") + ("1.2.3." + std::to_string(i)) + ":1.2.3." + std::to_string(j);
        }
    }
    additional_ = memoryStore();
    const Entity* last = &root_;
    std::vector<Entity> authorities;
    authorities.reserve(levels);
    for (int i = 0; i < levels; ++i) {
        authorities.push_back(authority("Level " + std::to_string(i), *last,
                                        {{NID_certificate_policies, list}, {NID_policy_mappings, mappings}}));
        last = &authorities.back();
        add(additional_.get(), last->der, capi::CERT_STORE_ADD_ALWAYS);
    }
    const csp::Bytes end = person(*last, list);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(status(end), capi::CERT_TRUST_INVALID_POLICY_CONSTRAINTS) << "a limit, not a forged signature";
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
}

} // namespace
