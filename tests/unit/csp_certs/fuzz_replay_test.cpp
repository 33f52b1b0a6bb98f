// The fuzz targets' properties over certificates and CRLs made here, with octets changed.

#include "authority.hpp"
#include "chain_mutations.hpp"
#include "chains/ocsp.hpp"
#include "fuzz_targets.hpp"
#include "ocsp_maker.hpp"
#include "stores/store_file.hpp"

namespace {

/// `octets`, and `octets` with every `step`-th octet changed or missing from there on.
void replayDamaged(int (*target)(const std::uint8_t*, std::size_t), const csp::Bytes& octets, std::size_t step) {
    ASSERT_EQ(target(octets.data(), octets.size()), 0);
    for (std::size_t i = 0; i < octets.size(); i += step) {
        csp::Bytes damaged = octets;
        damaged[i] ^= static_cast<std::uint8_t>(1U << (i % 8));
        ASSERT_EQ(target(damaged.data(), damaged.size()), 0);
        damaged.resize(i);
        ASSERT_EQ(target(damaged.data(), damaged.size()), 0);
    }
}

/// Every mutation of a chain, made with elliptic curve keys.
class FuzzReplay : public ServiceTest {
protected:
    const chain_draft::KeyRing ring_{pki::KeyKind::Ec};
};

TEST_F(FuzzReplay, HoldsForDamagedCertificates) {
    const auto question = chain_draft::encode(chain_draft::Draft(), ring_);
    replayDamaged(fuzzCertificate, question.target, 1);
    replayDamaged(fuzzCertificate, question.issuers.front(), 1);
}

TEST_F(FuzzReplay, HoldsForDamagedStructuresOfEveryType) {
    const csp::Bytes der = pki::root("Иванов; \"Иван\"").der;
    for (std::uint8_t type = 0; type < 25; ++type) {
        csp::Bytes typed{type};
        typed.insert(typed.end(), der.begin(), der.end());
        replayDamaged(fuzzObjects, typed, type < 2 ? 1 : 97);
    }
}

TEST_F(FuzzReplay, HoldsForDamagedNamesAndTexts) {
    const csp::ossl::X509Ptr certificate = pki::decode(pki::root("Иванов; \"Иван\" \\").der);
    const X509_NAME* const name = X509_get_subject_name(certificate.get());
    csp::Bytes der(static_cast<std::size_t>(i2d_X509_NAME(name, nullptr)));
    unsigned char* at = der.data();
    i2d_X509_NAME(name, &at);
    replayDamaged(fuzzNames, der, 1);
    for (const std::string_view text : {"", "\"", "\"\"", "a\"b; c=d", " x ", "Рога и \"копыта\"", "\xFF", "ab\0cd"}) {
        replayDamaged(fuzzNames, {text.begin(), text.end()}, 1);
    }
}

TEST_F(FuzzReplay, HoldsForDamagedStoreFiles) {
    const csp::Certificate certificate(csp::Bytes(pki::root("Store").der));
    const std::string file = csp::formatStoreFile(certificate, {});
    replayDamaged(fuzzStoreFile, {file.begin(), file.end()}, 3);
    const std::string linked = "friendly-name: my \\5c key\nkey-container: c\nkey-provider: P\nkey-provider-type: 80\n"
                               "key-flags: 0\nkey-spec: 1\nproperty-20: 0a1b2c\n" +
                               file;
    replayDamaged(fuzzStoreFile, {linked.begin(), linked.end()}, 3);
}

TEST_F(FuzzReplay, HoldsForGeneratedSetsOfCertificates) {
    for (const auto& made : chain_mutations::generate(0, 1)) {
        const auto question = chain_draft::encode(made.draft, ring_);
        csp::Bytes set = question.target;
        for (const auto* const list : {&question.issuers, &question.anchors}) {
            for (const csp::Bytes& der : *list) {
                set.insert(set.end(), der.begin(), der.end());
            }
        }
        ASSERT_EQ(fuzzCertificate(set.data(), set.size()), 0);
    }
}

TEST_F(FuzzReplay, HoldsForGeneratedAndDamagedCrls) {
    for (const auto& made : chain_mutations::generate(0, 1)) {
        for (const csp::Bytes& der : chain_draft::encode(made.draft, ring_).crls) {
            replayDamaged(fuzzCrl, der, 29);
        }
    }
}

TEST_F(FuzzReplay, HoldsForDamagedAnswersAboutAStatus) {
    const fuzz::Authority& authority = fuzz::authority();
    const csp::OcspRequest request(authority.leaf.get(), authority.root.get());
    const pki::Entity stranger = pki::root("Stranger");
    for (const int status : {V_OCSP_CERTSTATUS_GOOD, V_OCSP_CERTSTATUS_REVOKED}) {
        replayDamaged(fuzzOcsp, pki::answerTo(request.der(), {.issuer = &stranger, .status = status}), 1);
    }
}

} // namespace
