#include "signer.hpp"

#include "orvik/plugin/base64.hpp"
#include "orvik/plugin/crypto/i_hash.hpp"
#include "orvik/plugin/crypto/i_private_key.hpp"
#include "orvik/plugin/crypto/public_key.hpp"
#include "orvik/plugin/crypto/tools.hpp"

#include <boost/smart_ptr/make_shared.hpp>

#include <algorithm>
#include <istream>
#include <iterator>
#include <ostream>
#include <stdexcept>

namespace host_test {

namespace {

using namespace orvik::plugin::crypto; // NOLINT: what the fakes implement
using boost::posix_time::ptime;

class OpensslHash : public IHash {
public:
    explicit OpensslHash(const Signer& signer) : signer_(signer) {}

    std::string create(std::istream& stream) override {
        return signer_.digest({std::istreambuf_iterator<char>(stream), {}}, false);
    }
    std::string sign() override {
        std::string value = signer_.digest(octets_, true);
        if (signer_.algorithm().littleEndian) {
            std::reverse(value.begin(), value.end());
        }
        return value;
    }
    void initialize() override {}
    void update(const unsigned char* data, std::size_t length) override {
        octets_.append(reinterpret_cast<const char*>(data), length);
    }
    std::string finalize() override { return signer_.digest(octets_, false); }
    bool verify(boost::string_view /*signature*/) override { return false; }

private:
    const Signer& signer_;
    std::string octets_;
};

class OpensslProvider : public IProvider {
public:
    explicit OpensslProvider(const Signer& signer) : signer_(signer) {}

    [[nodiscard]] boost::shared_ptr<IHash> hash(const boost::shared_ptr<ICertificate>& /*certificate*/,
                                                boost::string_view algorithm) const override {
        if (algorithm != signer_.algorithm().hashOid) {
            throw std::logic_error("a hash of another algorithm");
        }
        return boost::make_shared<OpensslHash>(signer_);
    }

    [[nodiscard]] boost::optional<std::string> subjectSignTool() const override { return {}; }
    [[nodiscard]] boost::optional<std::string> containerPrefix() const override { return {}; }
    [[nodiscard]] Set providers(const orvik::plugin::Session& /*session*/) const override { return {}; }
    [[nodiscard]] std::vector<std::wstring> containers() const override { return {}; }
    [[nodiscard]] std::set<std::string> algorithms() const override { return {}; }
    [[nodiscard]] bool hasAlgorithm(const std::string& /*oid*/) const override { return true; }
    [[nodiscard]] std::vector<boost::shared_ptr<ICertificate>> certificates() const override { return {}; }
    [[nodiscard]] boost::shared_ptr<IPublicKey> publicKey() const override { return {}; }
    [[nodiscard]] boost::optional<Device> device() const override { return {}; }
    [[nodiscard]] boost::shared_ptr<ICertificate> certificate(const std::wstring& /*container*/) const override {
        return {};
    }
    [[nodiscard]] boost::shared_ptr<ICertificate>
    certificate(const boost::shared_ptr<ICertificate>& /*like*/) const override {
        return {};
    }
    [[nodiscard]] const Type& type() const override { return type_; }
    [[nodiscard]] const std::wstring& name() const override { return name_; }
    [[nodiscard]] boost::optional<std::wstring> container() const override { return {}; }
    [[nodiscard]] boost::optional<std::wstring> container(const IPublicKey& /*key*/) const override { return {}; }
    void deleteContainer(const std::wstring& /*container*/, const std::string& /*reason*/) const override {}
    [[nodiscard]] boost::optional<std::wstring> version() const override { return {}; }
    [[nodiscard]] std::vector<unsigned char> randomBytes(std::size_t /*length*/) const override { return {}; }

private:
    const Signer& signer_;
    Type type_ = gost2012_256;
    std::wstring name_ = L"openssl";
};

class OpensslPublicKey : public PublicKey {
public:
    explicit OpensslPublicKey(const std::string& oid) { algObjId_ = oid; }
    bool operator==(const IPublicKey& other) const override { return key_ == other.key(); }
};

class OpensslCertificate : public ICertificate {
public:
    explicit OpensslCertificate(const Signer& signer) : signer_(signer) {}

    [[nodiscard]] boost::shared_ptr<IPublicKey> publicKey() const override {
        return boost::make_shared<OpensslPublicKey>(signer_.algorithm().keyOid);
    }
    [[nodiscard]] boost::shared_ptr<IProvider> provider(bool /*search*/) const override {
        return boost::make_shared<OpensslProvider>(signer_);
    }
    [[nodiscard]] std::string raw() const override { return signer_.der(); }
    [[nodiscard]] std::string hashAlgorithm() const override { return signer_.algorithm().hashOid; }

    [[nodiscard]] boost::shared_ptr<IPrivateKey> privateKey() const override { return {}; }
    [[nodiscard]] boost::optional<std::wstring> container() const override { return {}; }
    [[nodiscard]] std::uint32_t version() const override { return 2; }
    [[nodiscard]] std::string issuer() const override { return {}; }
    [[nodiscard]] std::string subject() const override { return {}; }
    [[nodiscard]] std::string serialNumber() const override { return {}; }
    [[nodiscard]] std::string signatureAlgorithm() const override { return {}; }
    [[nodiscard]] std::string friendlyName() const override { return {}; }
    [[nodiscard]] NameInfo issuerNameInfo() const override { return {}; }
    [[nodiscard]] NameInfo subjectNameInfo() const override { return {}; }
    [[nodiscard]] ptime notBefore() const override { return {}; }
    [[nodiscard]] ptime notAfter() const override { return {}; }
    [[nodiscard]] boost::optional<std::uint16_t> keyUsage() const override { return signer_.keyUsage; }
    [[nodiscard]] boost::optional<std::wstring> subjectSignTool() const override { return {}; }
    [[nodiscard]] boost::optional<std::wstring> issuerSignTool() const override { return {}; }
    [[nodiscard]] ptime privateKeyNotBefore() const override { return {}; }
    [[nodiscard]] ptime privateKeyNotAfter() const override { return {}; }
    [[nodiscard]] EnhancedKeyUsage enhancedKeyUsage() const override { return {}; }
    [[nodiscard]] boost::optional<std::string> thumbprint() const override { return {}; }
    void install(const IProvider& /*provider*/, boost::wstring_view /*container*/,
                 const std::string& /*pin*/) const override {}
    bool setFriendlyName(boost::string_view /*name*/) const override { return false; }
    [[nodiscard]] bool chain() const override { return false; }
    [[nodiscard]] void* context() const override { return nullptr; }

private:
    const Signer& signer_;
};

} // namespace

void PrintTo(const SignerAlgorithm& algorithm, std::ostream* out) {
    *out << algorithm.newKey;
}

SignerAlgorithm rsaSigner() {
    return {"rsa:2048", "", "-sha256", "1.2.840.113549.1.1.1", "2.16.840.1.101.3.4.2.1", true};
}

SignerAlgorithm gost256Signer() {
    return {"gost2012_256", "paramset:A", "-md_gost12_256", "1.2.643.7.1.1.1.1", "1.2.643.7.1.1.2.2", false};
}

SignerAlgorithm gost512Signer() {
    return {"gost2012_512", "paramset:A", "-md_gost12_512", "1.2.643.7.1.1.1.2", "1.2.643.7.1.1.2.3", false};
}

Signer::Signer(SignerAlgorithm algorithm) : algorithm_(std::move(algorithm)), openssl_(folder_) {
    std::vector<std::string> command = {"req",     "-x509", "-newkey", algorithm_.newKey, "-nodes",    "-keyout",
                                        "key.pem", "-out",  "c.pem",   "-subj",           "/CN=signer"};
    if (!algorithm_.newKeyOption.empty()) {
        command.insert(command.end(), {"-pkeyopt", algorithm_.newKeyOption});
    }
    openssl_.must(command);
}

boost::shared_ptr<ICertificate> Signer::certificate() const {
    return boost::make_shared<OpensslCertificate>(*this);
}

std::string Signer::der() const {
    return orvik::plugin::base64::decode(orvik::plugin::crypto::tools::normalizePEM(folder_.read("c.pem")));
}

std::string Signer::digest(const std::string& octets, bool sign) const {
    folder_.write("data", octets);
    std::vector<std::string> command = {"dgst", algorithm_.digest, "-binary", "-out", "value"};
    if (sign) {
        command.insert(command.end(), {"-sign", "key.pem"});
    }
    command.emplace_back("data");
    openssl_.must(command);
    return folder_.read("value");
}

} // namespace host_test
