#include "asn1/der.hpp"
#include "core/error.hpp"
#include "crypto/content_cipher_rows.hpp"
#include "crypto/gost_cfb.hpp"
#include "crypto/gost_modes.hpp"
#include "crypto/random.hpp"

#include <algorithm>
#include <optional>

namespace klunortredi::csp::content {

namespace {

constexpr std::string_view gost28147Oid = "1.2.643.2.2.21";

/// Octets of an initialisation vector in front of the seed of a UKM: half a block.
constexpr std::size_t seedSize = 8;

/// Octets of an ACPKM section in a message (R 1323565.1.025-2019): 8 KiB and 256 KiB. OpenSSL's GOST engine encrypts
/// messages with them, and decrypts with the sections of RFC 9189, 1 and 4 KiB: longer ones come out wrong there.
constexpr std::size_t magmaSection = 8U << 10U;
constexpr std::size_t kuznyechikSection = 256U << 10U;

/// The rows of R 1323565.1.025-2019.
struct AcpkmRow {
    std::string_view oid;
    Gost2015 cipher;
    std::size_t sectionSize;
};
constexpr std::array acpkmRows{
    AcpkmRow{"1.2.643.7.1.1.5.1.1", Gost2015::Magma, magmaSection},
    AcpkmRow{"1.2.643.7.1.1.5.1.2", Gost2015::Magma, magmaSection},
    AcpkmRow{"1.2.643.7.1.1.5.2.1", Gost2015::Kuznyechik, kuznyechikSection},
    AcpkmRow{"1.2.643.7.1.1.5.2.2", Gost2015::Kuznyechik, kuznyechikSection},
};

const AcpkmRow& acpkmRow(const ContentAlgorithm& algorithm) {
    const auto* const row = std::ranges::find(acpkmRows, algorithm.oid, &AcpkmRow::oid);
    if (row == acpkmRows.end()) {
        fail(capi::NTE_BAD_ALGID);
    }
    return *row;
}

std::size_t ukmSize(const AcpkmRow& row) noexcept {
    return blockSizeOf(row.cipher) / 2 + seedSize;
}

/// Gost28147-89-Parameters (RFC 4490, 5.1).
struct CfbParameters {
    Gost28147::Block iv;
    const Gost28147ParamSet& set;
};

template <class Decode>
auto decoded(Decode decode) {
    try {
        return decode();
    } catch (const ApiError& error) {
        fail(error.code() == capi::NTE_BAD_ALGID ? capi::NTE_BAD_ALGID : capi::CRYPT_E_BAD_ENCODE);
    }
}

CfbParameters decodeCfb(ByteView parameters) {
    return decoded([&] {
        der::Reader fields(der::readOnly(parameters, der::tag::Sequence).content);
        const ByteView iv = fields.read(der::tag::OctetString).content;
        const std::string oid = der::toOid(fields.read(der::tag::ObjectIdentifier));
        fields.finish();
        const Gost28147ParamSet* const set = findGost28147ParamSet(oid);
        if (set == nullptr) {
            fail(capi::NTE_BAD_ALGID);
        }
        if (iv.size() != Gost28147::blockSize) {
            fail(capi::CRYPT_E_BAD_ENCODE);
        }
        CfbParameters result{{}, *set};
        std::ranges::copy(iv, result.iv.begin());
        return result;
    });
}

/// Gost3412-15-Encryption-Parameters: the UKM.
ByteView decodeUkm(const AcpkmRow& row, ByteView parameters) {
    return decoded([&] {
        der::Reader fields(der::readOnly(parameters, der::tag::Sequence).content);
        const ByteView ukm = fields.read(der::tag::OctetString).content;
        fields.finish();
        if (ukm.size() != ukmSize(row)) {
            fail(capi::CRYPT_E_BAD_ENCODE);
        }
        return ukm;
    });
}

class CfbEncryptor final : public ContentEncryptor {
public:
    CfbEncryptor(const CfbParameters& parameters, ByteView key)
        : cfb_(parameters.set, key.first<gostKeySize>(), parameters.iv) {}

    void update(ByteView plaintext, Bytes& out) override {
        const std::size_t before = out.size();
        out.insert(out.end(), plaintext.begin(), plaintext.end());
        cfb_.encrypt(std::span(out).subspan(before));
    }
    void finish(Bytes& /*out*/) override {}
    [[nodiscard]] Bytes tag() const override { return {}; }

private:
    GostCfb cfb_;
};

class CfbDecryptor final : public ContentDecryptor {
public:
    CfbDecryptor(const CfbParameters& parameters, ByteView key)
        : cfb_(parameters.set, key.first<gostKeySize>(), parameters.iv) {}

    void update(ByteView ciphertext, Bytes& out) override {
        const std::size_t before = out.size();
        out.insert(out.end(), ciphertext.begin(), ciphertext.end());
        cfb_.decrypt(std::span(out).subspan(before));
    }
    void finish(ByteView tag, Bytes& /*out*/) override {
        if (!tag.empty()) {
            fail(capi::NTE_BAD_DATA);
        }
    }

private:
    GostCfb cfb_;
};

/// The cipher and, in the authenticated forms, the MAC of the plaintext, each with a key of its own. The MAC is
/// encrypted after the plaintext, in the same stream.
class Acpkm {
public:
    Acpkm(const ContentAlgorithm& algorithm, ByteView parameters, ByteView key) {
        const AcpkmRow& row = acpkmRow(algorithm);
        const ByteView ukm = decodeUkm(row, parameters);
        const ByteView iv = ukm.first(ukm.size() - seedSize);
        if (algorithm.authentication == Authentication::None) {
            ctr_.emplace(row.cipher, key.first<gostKeySize>(), iv, row.sectionSize);
            return;
        }
        const SecretBytes keys = kdfTree512(key, kdfTreeLabel, ukm.last(seedSize));
        ctr_.emplace(row.cipher, ByteView(keys).first<gostKeySize>(), iv, row.sectionSize);
        omac_.emplace(row.cipher, ByteView(keys).last<gostKeySize>());
    }

    void encrypt(ByteView plaintext, Bytes& out) {
        const std::size_t before = out.size();
        if (omac_) {
            omac_->update(plaintext);
        }
        out.insert(out.end(), plaintext.begin(), plaintext.end());
        ctr_->apply(std::span(out).subspan(before));
    }

    void decrypt(ByteView ciphertext, Bytes& out) {
        const std::size_t before = out.size();
        out.insert(out.end(), ciphertext.begin(), ciphertext.end());
        ctr_->apply(std::span(out).subspan(before));
        if (omac_) {
            omac_->update(ByteView(out).subspan(before));
        }
    }

    void skipAuthentication() { omac_.reset(); }

    Bytes tag() {
        Bytes tag = omac_ ? omac_->finish() : Bytes{};
        ctr_->apply(tag);
        return tag;
    }

private:
    std::optional<CtrMode> ctr_;
    std::optional<Omac> omac_;
};

class AcpkmEncryptor final : public ContentEncryptor {
public:
    AcpkmEncryptor(const ContentAlgorithm& algorithm, ByteView parameters, ByteView key)
        : acpkm_(algorithm, parameters, key) {}

    void update(ByteView plaintext, Bytes& out) override { acpkm_.encrypt(plaintext, out); }
    void finish(Bytes& /*out*/) override { tag_ = acpkm_.tag(); }
    [[nodiscard]] Bytes tag() const override { return tag_; }

private:
    Acpkm acpkm_;
    Bytes tag_;
};

class AcpkmDecryptor final : public ContentDecryptor {
public:
    AcpkmDecryptor(const ContentAlgorithm& algorithm, ByteView parameters, ByteView key)
        : acpkm_(algorithm, parameters, key) {}

    void skipAuthentication() override {
        skipped_ = true;
        acpkm_.skipAuthentication();
    }
    void update(ByteView ciphertext, Bytes& out) override { acpkm_.decrypt(ciphertext, out); }
    void finish(ByteView tag, Bytes& /*out*/) override {
        if (skipped_) {
            return;
        }
        const Bytes expected = acpkm_.tag();
        if (tag.size() != expected.size() || CRYPTO_memcmp(tag.data(), expected.data(), expected.size()) != 0) {
            fail(capi::NTE_BAD_DATA);
        }
    }

private:
    Acpkm acpkm_;
    bool skipped_ = false;
};

} // namespace

Bytes newGostParameters(const ContentAlgorithm& algorithm, std::string_view gostParamSet) {
    if (algorithm.oid != gost28147Oid) {
        Bytes ukm(ukmSize(acpkmRow(algorithm)));
        fillRandom(ukm);
        return der::sequence({der::octetString(ukm)});
    }
    const Gost28147ParamSet* const set = gostParamSet.empty() ? &gost28147SetZ() : findGost28147ParamSet(gostParamSet);
    if (set == nullptr || set->test) {
        fail(capi::NTE_BAD_ALGID);
    }
    Bytes iv(Gost28147::blockSize);
    fillRandom(iv);
    return der::sequence({der::octetString(iv), der::objectIdentifier(set->oid)});
}

std::unique_ptr<ContentEncryptor> gostEncryptor(const ContentAlgorithm& algorithm, ByteView parameters, ByteView key) {
    if (algorithm.oid == gost28147Oid) {
        return std::make_unique<CfbEncryptor>(decodeCfb(parameters), key);
    }
    return std::make_unique<AcpkmEncryptor>(algorithm, parameters, key);
}

std::unique_ptr<ContentDecryptor> gostDecryptor(const ContentAlgorithm& algorithm, ByteView parameters, ByteView key) {
    if (algorithm.oid == gost28147Oid) {
        return std::make_unique<CfbDecryptor>(decodeCfb(parameters), key);
    }
    return std::make_unique<AcpkmDecryptor>(algorithm, parameters, key);
}

} // namespace klunortredi::csp::content
