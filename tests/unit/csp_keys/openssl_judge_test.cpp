// What the service signs, openssl's own code path accepts; what openssl signs, the service accepts.

#include "core/error.hpp"
#include "crypto/algorithms.hpp"
#include "crypto/gost_params.hpp"
#include "helper_process.hpp"
#include "keys/container.hpp"
#include "service.hpp"
#include "support/openssl.hpp"
#include "x509/cert_info.hpp"

#include <algorithm>

namespace csp_keys {

namespace {

struct Case {
    DWORD type;
    const char* set; ///< nullptr: the default
    ALG_ID hash;
    const char* digestOption;
};

std::vector<Case> everyCase() {
    std::vector<Case> cases;
    const std::vector<Case> families{{80, nullptr, capi::CALG_GR3411_2012_256, "-md_gost12_256"},
                                     {81, nullptr, capi::CALG_GR3411_2012_512, "-md_gost12_512"},
                                     {75, nullptr, capi::CALG_GR3411, "-md_gost94"}};
    const char* const keyOids[]{"1.2.643.7.1.1.1.1", "1.2.643.7.1.1.1.2", "1.2.643.2.2.19"};
    for (std::size_t i = 0; i < families.size(); ++i) {
        const auto& algorithm = *klunortredi::csp::findKey(std::string_view(keyOids[i]));
        for (const auto& set : klunortredi::csp::gostParamSets()) {
            if (set.generate && klunortredi::csp::findGostParamSet(algorithm, set.oid) != nullptr) {
                Case row = families[i];
                row.set = set.oid.data();
                cases.push_back(row);
            }
        }
    }
    cases.push_back({24, nullptr, capi::CALG_SHA1, "-sha1"});
    cases.push_back({24, nullptr, capi::CALG_SHA_256, "-sha256"});
    cases.push_back({24, nullptr, capi::CALG_SHA_512, "-sha512"});
    return cases;
}

class OpensslJudges : public ServiceTest {
protected:
    void writeBytes(const std::string& name, const Bytes& octets) const {
        home_.write(name, {reinterpret_cast<const char*>(octets.data()), octets.size()});
    }
};

} // namespace

TEST_F(OpensslJudges, SignaturesOfEveryParameterSet) {
    const test_support::Openssl openssl(home_);
    const Bytes message = bytes("signed by the service, judged by openssl");
    writeBytes("message", message);
    EXPECT_EQ(everyCase().size(), 20U);
    for (const Case& row : everyCase()) {
        SCOPED_TRACE(std::to_string(row.type) + ' ' + (row.set != nullptr ? row.set : row.digestOption));
        const Context context(row.type, L"c", capi::CRYPT_NEWKEYSET);
        if (row.set != nullptr) {
            ASSERT_TRUE(choose(context.get(), capi::PP_EXCHANGE_ALGORITHM_OID, row.set));
        }
        unsigned long handle = 0;
        ASSERT_TRUE(CryptGenKey(context.get(), capi::AT_KEYEXCHANGE, 0, &handle));
        const Key key(handle);
        const Hash hash(context.get(), row.hash, message);
        Bytes signature = sign(hash.get(), capi::AT_KEYEXCHANGE);
        if (row.type == capi::PROV_RSA_AES) { // the CryptoAPI's order is the reverse there
            std::ranges::reverse(signature);
        }
        PublicKeyInfo info(context.get(), capi::AT_KEYEXCHANGE);
        writeBytes("key.der", klunortredi::csp::encodePublicKeyInfo(*info.get()));
        writeBytes("signature", signature);
        const std::vector<std::string> command{"dgst",    row.digestOption, "-keyform",  "DER",    "-verify",
                                               "key.der", "-signature",     "signature", "message"};
        const auto judged = openssl.run(command);
        EXPECT_EQ(judged.exit, 0) << judged.out << judged.err;
        signature[9] ^= 1;
        writeBytes("signature", signature);
        EXPECT_NE(openssl.run(command).exit, 0);

        unsigned long gone = 0;
        EXPECT_TRUE(CryptAcquireContextW(&gone, L"c", nullptr, row.type, capi::CRYPT_DELETEKEYSET));
    }
}

TEST_F(OpensslJudges, ServiceWorksWhateverTheHostConfiguresInOpenssl) {
    const test_support::Openssl openssl(home_); // writes a configuration that loads the engine and makes it the default
    for (const std::string& configuration : {home_ / "openssl.cnf", home_ / "none.cnf"}) {
        test_support::RunOptions options;
        options.environment = {{"OPENSSL_CONF", configuration}};
        makeContainer(80, L"c", "1234");
        EXPECT_EQ(helper({"verify", "c", "1234"}, options).out, "0\n");
        EXPECT_EQ(helper({"request", "d", "1234"}, options).exit, 0);
        klunortredi::csp::deleteContainer({"c", 80});
        klunortredi::csp::deleteContainer({"d", 80});
    }
}

TEST_F(OpensslJudges, KeyFileOfAContainerOpensWithItsPin) {
    makeContainer(80, L"c", "1234");
    const test_support::Openssl openssl(home_);
    const std::string file = home_ / "containers/c.80/exchange.1.p8";
    EXPECT_EQ(openssl.run({"pkey", "-inform", "DER", "-in", file, "-passin", "pass:1234", "-noout"}).exit, 0);
    EXPECT_NE(openssl.run({"pkey", "-inform", "DER", "-in", file, "-passin", "pass:1235", "-noout"}).exit, 0);
}

TEST_F(OpensslJudges, CertificateOfItsAuthorityGoesIntoTheContainer) {
    const test_support::Openssl openssl(home_);
    openssl.makeAuthority();
    for (const DWORD type : {80U, 81U, 24U}) {
        SCOPED_TRACE(type);
        makeContainer(type, L"c", "");
        const Context context(type, L"c", 0);
        PublicKeyInfo info(context.get(), capi::AT_KEYEXCHANGE);
        writeBytes("key.der", klunortredi::csp::encodePublicKeyInfo(*info.get()));
        openssl.must({"pkey", "-pubin", "-inform", "DER", "-in", "key.der", "-out", "key.pem"});
        // The authority encodes the key anew: a 512-bit one gets the digest's OID beside its curve.
        openssl.must({"x509", "-new", "-subj", "/CN=Holder", "-force_pubkey", "key.pem", "-CA", "ca.pem", "-CAkey",
                      "ca.key", "-days", "9", "-outform", "DER", "-out", "holder.der"});
        const Bytes certificate = bytes(home_.read("holder.der"));
        unsigned long handle = 0;
        ASSERT_TRUE(CryptGetUserKey(context.get(), capi::AT_KEYEXCHANGE, &handle));
        const Key key(handle);
        EXPECT_TRUE(CryptSetKeyParam(key.get(), capi::KP_CERTIFICATE, certificate.data(), 0))
            << std::hex << GetLastError();
        const Context again(type, L"c", 0);
        ASSERT_TRUE(CryptGetUserKey(again.get(), capi::AT_KEYEXCHANGE, &handle));
        const Key other(handle);
        EXPECT_EQ(keyParam(other.get(), capi::KP_CERTIFICATE), certificate);
        EXPECT_EQ(std::filesystem::file_size(home_ / ("containers/c." + std::to_string(type) + "/exchange.crt")),
                  certificate.size());
    }
}

} // namespace csp_keys
