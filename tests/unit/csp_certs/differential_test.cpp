// Generated chains, judged by the service, by the openssl command and, where it can, by GnuTLS. Every disagreement has
// a reason in a table here.

#include "chain_mutations.hpp"
#include "support/openssl.hpp"
#include "support/process.hpp"

#include <gmock/gmock.h>

#include <openssl/pem.h>

#include <algorithm>
#include <iostream>
#include <set>

namespace {

using chain_case::Question;
using chain_mutations::Generated;
using testing::IsEmpty;

constexpr std::size_t pairsOfAKind = 75;
constexpr std::size_t pairsOfSlowKind = 10; ///< of GOST R 34.10-2012 with 512 bits
constexpr std::uint32_t seed = 20261121;

/// Why a judge differs from us on chains with a mutation.
struct Reason {
    const char* mutation;
    bool accepted; ///< by us
    const char* why;
    bool alone = true; ///< already without a second mutation
};

constexpr const char* onePath = "OpenSSL follows one path, which depends on the order of the certificates";
constexpr const char* inOrder = "certtool takes the issuers in the order in which they are given";
constexpr const char* unsupported = "GnuTLS does not process policy constraints and refuses them when critical";
constexpr const char* otherNames = "GnuTLS applies no constraint on URIs and directory names";

const std::vector<Reason> opensslDiffers{
    {"a loop with a way out, first", true, onePath},
    {"ca certified by elsewhere alone", true, onePath},
    {"ca certified by nobody too, first", true, onePath},
    {"ca certified by two anchors, first", true, onePath, false},
    {"ca certified by two anchors, last", true, onePath, false},
    {"sub re-keyed without key identifiers, first", true, onePath},
    {"wildcard over an excluded DNS name", false, "the wildcard stands for the excluded name, too"},
};

const std::vector<Reason> gnutlsDiffers{
    {"a loop with a way out, last", true, inOrder},
    {"ca certified by nobody too, last", true, inOrder},
    {"an expired copy of sub, last", true, inOrder},
    {"one policy required and there", true, unsupported},
    {"any policy below", true, unsupported},
    {"policy mapped", true, unsupported},
    {"URI outside", false, otherNames},
    {"URI with user information", false, otherNames},
    {"directory name outside", false, otherNames},
    {"wildcard over an excluded DNS name", false, "the wildcard stands for the excluded name, too"},
};

std::string pem(const char* label, const std::vector<csp::Bytes>& list) {
    const csp::ossl::Bio out(BIO_new(BIO_s_mem()));
    for (const csp::Bytes& der : list) {
        PEM_write_bio(out.get(), label, "", der.data(), static_cast<long>(der.size()));
    }
    const char* data = nullptr;
    const long size = BIO_get_mem_data(out.get(), &data);
    return {data, static_cast<std::size_t>(size)};
}

class Differential : public ServiceTest, public testing::WithParamInterface<pki::KeyKind> {
protected:
    /// Whether `openssl verify` accepts the chain under the rules that the service has: an anchor need not be
    /// self-signed, policies are processed, all kinds of CRLs are read.
    bool opensslAccepts(const Question& question, const chain_draft::Draft& draft) {
        files_.write("anchors.pem", pem("CERTIFICATE", question.anchors));
        files_.write("target.pem", pem("CERTIFICATE", {question.target}));
        std::vector<std::string> words{"verify",
                                       "-partial_chain",
                                       "-policy_check",
                                       "-policy",
                                       "2.5.29.32.0",
                                       "-attime",
                                       std::to_string(question.time),
                                       "-no-CApath",
                                       "-no-CAstore",
                                       "-CAfile",
                                       "anchors.pem"};
        const auto option = [&](const char* name, const char* file, const std::string& text) {
            if (!text.empty()) {
                files_.write(file, text);
                words.insert(words.end(), {name, file});
            }
        };
        option("-untrusted", "issuers.pem", pem("CERTIFICATE", question.issuers));
        option("-CRLfile", "crls.pem", pem("X509 CRL", question.crls));
        if (draft.revocation) {
            words.insert(words.end(), {"-crl_check_all", "-extended_crl", "-use_deltas"});
        }
        if (!draft.usage.empty()) {
            words.insert(words.end(), {"-purpose", draft.usage});
        }
        words.emplace_back("target.pem");
        const auto run = openssl_.run(words);
        words_ = run.err;
        return run.exit == 0;
    }

    /// Whether certtool accepts it; it reads no CRLs there, and is given the whole list.
    bool gnutlsAccepts(const Question& question) {
        std::vector<csp::Bytes> list{question.target};
        list.insert(list.end(), question.issuers.rbegin(), question.issuers.rend());
        files_.write("anchors.pem", pem("CERTIFICATE", question.anchors));
        files_.write("chain.pem", pem("CERTIFICATE", list));
        const auto run = test_support::run({"certtool", "--verify", "--load-ca-certificate", files_ / "anchors.pem",
                                            "--infile", files_ / "chain.pem"});
        words_ = run.out + run.err;
        return run.exit == 0;
    }

    /// Counts an agreement or an explained disagreement; what is neither fails the test.
    void compare(const Generated& made, const char* judge, bool ours, bool theirs, const std::vector<Reason>& reasons) {
        if (ours == theirs) {
            ++agreed_;
            return;
        }
        const auto reason = std::ranges::find_if(reasons, [&](const Reason& one) {
            return one.accepted == ours && std::ranges::find(made.names, one.mutation) != made.names.end();
        });
        if (reason != reasons.end()) {
            ++explained_;
            needed_.insert(reason->mutation);
            return;
        }
        std::string line = std::string(judge) + (ours ? " refuses: " : " accepts: ");
        for (const std::string& name : made.names) {
            line += name + "; ";
        }
        unexplained_.push_back(line + words_);
    }

    test_support::TempFolder files_;
    test_support::Openssl openssl_{files_};
    /// Prints the count and fails for a disagreement without a reason, and for a reason without a disagreement.
    void conclude(const std::string& judge, const std::vector<Reason>& reasons) const {
        std::cout << "corpora: generated chains by " << judge << ": chains agreed: " << agreed_
                  << ", explained: " << explained_ << '\n';
        EXPECT_THAT(unexplained_, IsEmpty());
        EXPECT_GT(agreed_, explained_ * 5);
        for (const Reason& reason : reasons) {
            EXPECT_TRUE(!reason.alone || needed_.contains(reason.mutation))
                << reason.mutation << " makes no difference any more";
        }
    }

    std::set<std::string> needed_; ///< mutations whose reason was
    std::string words_;            ///< what the judge says
    int agreed_ = 0;
    int explained_ = 0;
    std::vector<std::string> unexplained_;
};

const char* kindName(pki::KeyKind kind) {
    constexpr const char* names[] = {"Ec", "Rsa", "Gost256", "Gost512"};
    return names[static_cast<std::size_t>(kind)];
}

TEST_P(Differential, TheOpensslCommandAgrees) {
    const chain_draft::KeyRing ring(GetParam());
    const std::size_t pairs = GetParam() == pki::KeyKind::Gost512 ? pairsOfSlowKind : pairsOfAKind;
    for (const Generated& made : chain_mutations::generate(pairs, seed + static_cast<std::uint32_t>(GetParam()))) {
        const Question question = chain_draft::encode(made.draft, ring);
        const bool ours = chain_case::ask(question).errors == 0;
        compare(made, "openssl", ours, opensslAccepts(question, made.draft), opensslDiffers);
    }
    conclude(std::string("openssl, ") + kindName(GetParam()), opensslDiffers);
}

INSTANTIATE_TEST_SUITE_P(Keys, Differential,
                         testing::Values(pki::KeyKind::Ec, pki::KeyKind::Rsa, pki::KeyKind::Gost256,
                                         pki::KeyKind::Gost512),
                         [](const auto& row) { return kindName(row.param); });

class IndependentJudge : public Differential {};

TEST_P(IndependentJudge, AgreesOnChainsWithoutRevocation) {
    if (test_support::run({"certtool", "--version"}).exit != 0) {
        GTEST_SKIP() << "certtool is not installed";
    }
    const chain_draft::KeyRing ring(GetParam());
    for (const Generated& made : chain_mutations::generate(0, seed)) {
        const bool timeMatters = made.names.front() == "leaf valid from the next second"; // certtool's time is now
        if (made.draft.revocation || !made.draft.usage.empty() || timeMatters) {
            continue;
        }
        const Question question = chain_draft::encode(made.draft, ring);
        compare(made, "certtool", chain_case::ask(question).errors == 0, gnutlsAccepts(question), gnutlsDiffers);
    }
    conclude(std::string("GnuTLS, ") + kindName(GetParam()), gnutlsDiffers);
}

INSTANTIATE_TEST_SUITE_P(Keys, IndependentJudge, testing::Values(pki::KeyKind::Ec),
                         [](const auto& row) { return kindName(row.param); });

} // namespace
