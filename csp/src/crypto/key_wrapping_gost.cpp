#include "asn1/der.hpp"
#include "core/error.hpp"
#include "crypto/gost28147_wrap.hpp"
#include "crypto/gost_modes.hpp"
#include "crypto/gost_params.hpp"
#include "crypto/key_pair.hpp"
#include "crypto/key_wrapping_rows.hpp"
#include "crypto/public_key_info.hpp"
#include "crypto/random.hpp"
#include "crypto/signature.hpp"
#include "crypto/vko.hpp"

#include <algorithm>
#include <array>

namespace klunortredi::csp::wrapping {

namespace {

using namespace std::string_view_literals;

constexpr auto paramSetAOid = "1.2.643.2.2.31.1"sv;
constexpr auto cryptoProEsdhOid = "1.2.643.2.2.96"sv;
constexpr auto agreement256Oid = "1.2.643.7.1.1.6.1"sv;
constexpr auto agreement512Oid = "1.2.643.7.1.1.6.2"sv;

/// The key wraps of GOST 28147-89 (RFC 4357, 6).
struct Gost28147WrapRow {
    std::string_view oid;
    Gost28147Wrap wrap;
    AgreementForm form;
};
constexpr std::array gost28147Wraps{
    Gost28147WrapRow{"1.2.643.2.2.13.0"sv, Gost28147Wrap::Plain, AgreementForm::GostPlain},
    Gost28147WrapRow{"1.2.643.2.2.13.1"sv, Gost28147Wrap::CryptoPro, AgreementForm::GostCryptoPro},
};

/// KExp15 (R 1323565.1.025-2019).
struct KExp15Row {
    std::string_view oid;
    Gost2015 cipher;
    TransportForm transport;
    AgreementForm agreement;
};
constexpr std::array kExp15Rows{
    KExp15Row{"1.2.643.7.1.1.7.1.1"sv, Gost2015::Magma, TransportForm::KExp15Magma, AgreementForm::KExp15Magma},
    KExp15Row{"1.2.643.7.1.1.7.2.1"sv, Gost2015::Kuznyechik, TransportForm::KExp15Kuznyechik,
              AgreementForm::KExp15Kuznyechik},
};

/// The names under which agreement is asked for: id-GostR3410-2001-CryptoPro-ESDH, the agreement OIDs of the keys, and
/// the keys' own OIDs. What is computed depends on the key.
constexpr std::array agreementOids{cryptoProEsdhOid, "1.2.643.2.2.98"sv,    "1.2.643.2.2.19"sv,   agreement256Oid,
                                   agreement512Oid,  "1.2.643.7.1.1.1.1"sv, "1.2.643.7.1.1.1.2"sv};

template <class Rows, class Value, class Member>
auto findRow(const Rows& rows, const Value& value, Member member) {
    const auto found = std::ranges::find(rows, value, member);
    return found == rows.end() ? nullptr : &*found;
}

/// Fields of a stranger's: what cannot be read has one error code, what is not supported another.
template <class Decode>
decltype(auto) decoded(Decode decode) {
    try {
        return decode();
    } catch (const ApiError& error) {
        const bool kept = error.code() == capi::NTE_BAD_ALGID || error.code() == capi::NTE_BAD_PUBLIC_KEY;
        fail(kept ? error.code() : capi::CRYPT_E_BAD_ENCODE);
    }
}

template <class Array>
Array exactly(ByteView octets) {
    Array array{};
    if (octets.size() != array.size()) {
        fail(capi::CRYPT_E_BAD_ENCODE);
    }
    std::ranges::copy(octets, array.begin());
    return array;
}

const Gost28147ParamSet& paramSet(std::string_view oid) {
    const Gost28147ParamSet* const set = findGost28147ParamSet(oid);
    if (set == nullptr) {
        fail(capi::NTE_BAD_ALGID);
    }
    return *set;
}

GostKeyView keyView(ByteView octets) {
    if (octets.size() != gostKeySize) {
        fail(capi::NTE_BAD_LEN);
    }
    return octets.first<gostKeySize>();
}

bool isLegacy(EVP_PKEY* key) {
    return keyAlgorithm(key).signId == capi::CALG_GR3410EL;
}

// ---- Gost28147-89-EncryptedKey (RFC 4490, 4.2) ------------------------------------------------------------------

Gost28147WrappedKey readEncryptedKey(der::Reader fields) {
    const auto encrypted = exactly<std::array<std::uint8_t, gostKeySize>>(fields.read(der::tag::OctetString).content);
    // A mask (RFC 4490: it must be absent) would make the key another one.
    const auto mac = exactly<Gost28147::Mac>(fields.read(der::tag::OctetString).content);
    fields.finish();
    return {encrypted, mac};
}

Bytes encodeEncryptedKey(const Gost28147WrappedKey& wrapped) {
    return der::sequence({der::octetString(wrapped.encryptedKey), der::octetString(wrapped.mac)});
}

// ---- transport (RFC 4490, 4.2.1) --------------------------------------------------------------------------------

struct CryptoProTransport {
    Gost28147WrappedKey wrapped;
    const Gost28147ParamSet& set;
    GostPublicKey ephemeral;
    Gost28147::Block ukm;
};

CryptoProTransport decodeCryptoPro(ByteView encryptedKey) {
    return decoded([&]() -> CryptoProTransport {
        der::Reader fields(der::readOnly(encryptedKey, der::tag::Sequence).content);
        const Gost28147WrappedKey wrapped = readEncryptedKey(fields.enter(der::tag::Sequence));
        der::Reader transport = fields.enter(der::tag::contextConstructed(0));
        fields.finish();
        const Gost28147ParamSet& set = paramSet(der::toOid(transport.read(der::tag::ObjectIdentifier)));
        const ByteView ephemeral = transport.read(der::tag::contextConstructed(0)).content;
        const auto ukm = exactly<Gost28147::Block>(transport.read(der::tag::OctetString).content);
        transport.finish();
        return {wrapped, set, gostPublicKey(der::element(der::tag::Sequence, ephemeral)), ukm};
    });
}

SecretBytes unwrapCryptoPro(EVP_PKEY* key, ByteView encryptedKey) {
    const CryptoProTransport fields = decodeCryptoPro(encryptedKey);
    const SecretBytes agreed = vko(key, fields.ephemeral, fields.ukm);
    return unwrapGost28147(Gost28147Wrap::CryptoPro, fields.set, keyView(agreed), fields.ukm, fields.wrapped);
}

// ---- transport with KExp15 (R 1323565.1.025-2019) ---------------------------------------------------------------

/// The octets of the UKM that are KExp15's initialisation vector (RFC 9189, 8.2.1 and 8.3.1).
ByteView kExp15Iv(Gost2015 cipher, ByteView ukm) {
    constexpr std::size_t offset = 24;
    return ukm.subspan(offset, blockSizeOf(cipher) / 2);
}

SecretBytes importAgreed(EVP_PKEY* key, Gost2015 cipher, const GostPublicKey& other, ByteView ukm, ByteView exported) {
    if (exported.size() != gostKeySize + blockSizeOf(cipher)) {
        fail(capi::CRYPT_E_BAD_ENCODE);
    }
    const SecretBytes keys = keg(key, other, ukm);
    return importKey(cipher, exported, ByteView(keys).first<gostKeySize>(), ByteView(keys).last<gostKeySize>(),
                     kExp15Iv(cipher, ukm));
}

Bytes exportAgreed(EVP_PKEY* key, Gost2015 cipher, const GostPublicKey& other, ByteView ukm, ByteView contentKey) {
    const SecretBytes keys = keg(key, other, ukm);
    return exportKey(cipher, keyView(contentKey), ByteView(keys).first<gostKeySize>(),
                     ByteView(keys).last<gostKeySize>(), kExp15Iv(cipher, ukm));
}

SecretBytes unwrapKExp15(EVP_PKEY* key, const KExp15Row& row, ByteView encryptedKey) {
    struct Fields {
        ByteView exported;
        GostPublicKey ephemeral;
        ByteView ukm;
    };
    const Fields fields = decoded([&]() -> Fields {
        der::Reader members(der::readOnly(encryptedKey, der::tag::Sequence).content);
        const ByteView exported = members.read(der::tag::OctetString).content;
        const ByteView ephemeral = members.read(der::tag::Sequence).whole;
        const ByteView ukm = members.read(der::tag::OctetString).content;
        members.finish();
        return {exported, gostPublicKey(ephemeral), ukm};
    });
    return importAgreed(key, row.cipher, fields.ephemeral, fields.ukm, fields.exported);
}

// ---- wrapping ---------------------------------------------------------------------------------------------------

/// The recipient's public key, and a new key pair on its curve, written with the same parameters (RFC 4490, 4).
struct Ephemeral {
    GostPublicKey recipient;
    ossl::Pkey key;
    Bytes info; ///< SubjectPublicKeyInfo of `key`
};

Ephemeral makeEphemeral(const RecipientKey& recipient) {
    const KeyAlgorithm& algorithm = keyAlgorithm(recipient.key);
    GostPublicKey theirs = gostPublicKey(publicKeyInfo(recipient.key));
    if (!recipient.parameters.empty()) {
        theirs.parameters.assign(recipient.parameters.begin(), recipient.parameters.end());
    }
    const GostParamSet* const set = gostParamSetOf(algorithm, theirs.parameters);
    if (set == nullptr) {
        fail(capi::NTE_BAD_ALGID);
    }
    ossl::Pkey own = generateGostKey(algorithm, *set);
    Bytes info = spki::join(algorithm.oid, theirs.parameters, spki::split(publicKeyInfo(own.get())).key);
    return {std::move(theirs), std::move(own), std::move(info)};
}

Bytes randomOctets(std::size_t size) {
    Bytes octets(size);
    fillRandom(octets);
    return octets;
}

TransportedKey wrapCryptoPro(const RecipientKey& recipient, ByteView contentKey) {
    const Ephemeral ephemeral = makeEphemeral(recipient);
    const Gost28147ParamSet& set = isLegacy(recipient.key) ? paramSet(paramSetAOid) : gost28147SetZ();
    const auto ukm = exactly<Gost28147::Block>(randomOctets(Gost28147::blockSize));
    const SecretBytes agreed = vko(ephemeral.key.get(), ephemeral.recipient, ukm);
    const auto wrapped = wrapGost28147(Gost28147Wrap::CryptoPro, set, keyView(agreed), ukm, keyView(contentKey));
    const Bytes transport =
        der::sequence({der::objectIdentifier(set.oid), der::implicitTag(0, ephemeral.info), der::octetString(ukm)});
    return {ephemeral.recipient.oid, ephemeral.recipient.parameters,
            der::sequence({encodeEncryptedKey(wrapped), der::implicitTag(0, transport)})};
}

TransportedKey wrapKExp15(const RecipientKey& recipient, const KExp15Row& row, ByteView contentKey) {
    const Ephemeral ephemeral = makeEphemeral(recipient);
    const Bytes ukm = randomOctets(kegUkmSize);
    const Bytes exported = exportAgreed(ephemeral.key.get(), row.cipher, ephemeral.recipient, ukm, contentKey);
    return {std::string(row.oid), der::sequence({der::objectIdentifier(keyAlgorithm(recipient.key).agreeOid)}),
            der::sequence({der::octetString(exported), ephemeral.info, der::octetString(ukm)})};
}

// ---- agreement (RFC 4490, 4.1) ----------------------------------------------------------------------------------

/// The AlgorithmIdentifier of the key wrap.
struct WrapAlgorithm {
    std::string oid;
    ByteView parameters;
};

WrapAlgorithm decodeWrap(ByteView parameters) {
    return decoded([&]() -> WrapAlgorithm {
        der::Reader fields(der::readOnly(parameters, der::tag::Sequence).content);
        std::string oid = der::toOid(fields.read(der::tag::ObjectIdentifier));
        const ByteView rest = fields.rest();
        return {std::move(oid), rest};
    });
}

/// Gost28147-89-KeyWrapParameters: the set; a UKM beside it is the recipient's own.
const Gost28147ParamSet& wrapParamSet(ByteView parameters, ByteView ukm) {
    return decoded([&]() -> const Gost28147ParamSet& {
        der::Reader fields(der::readOnly(parameters, der::tag::Sequence).content);
        const Gost28147ParamSet& set = paramSet(der::toOid(fields.read(der::tag::ObjectIdentifier)));
        if (const auto own = fields.readIf(der::tag::OctetString)) {
            if (!std::ranges::equal(own->content, ukm)) { // which of two is meant cannot be known
                fail(capi::CRYPT_E_BAD_ENCODE);
            }
        }
        fields.finish();
        return set;
    });
}

} // namespace

SecretBytes unwrapGost(EVP_PKEY* key, const TransportedKey& wrapped) {
    if (const auto* const row = findRow(kExp15Rows, wrapped.oid, &KExp15Row::oid)) {
        return unwrapKExp15(key, *row, wrapped.encryptedKey);
    }
    if (findKey(std::string_view(wrapped.oid)) != &keyAlgorithm(key)) {
        fail(capi::NTE_BAD_ALGID);
    }
    return unwrapCryptoPro(key, wrapped.encryptedKey);
}

TransportedKey wrapGost(const RecipientKey& recipient, TransportForm form, ByteView contentKey) {
    if (form == TransportForm::GostCryptoPro) {
        return wrapCryptoPro(recipient, contentKey);
    }
    const auto* const row = findRow(kExp15Rows, form, &KExp15Row::transport);
    if (row == nullptr) {
        fail(capi::NTE_BAD_ALGID);
    }
    return wrapKExp15(recipient, *row, contentKey);
}

SecretBytes unwrapGost(EVP_PKEY* key, const AgreedKey& wrapped) {
    if (std::ranges::find(agreementOids, wrapped.oid) == agreementOids.end()) {
        fail(capi::NTE_BAD_ALGID);
    }
    const WrapAlgorithm algorithm = decodeWrap(wrapped.parameters);
    const GostPublicKey originator = gostPublicKey(wrapped.originatorKey);
    if (const auto* const row = findRow(kExp15Rows, algorithm.oid, &KExp15Row::oid)) {
        return importAgreed(key, row->cipher, originator, wrapped.ukm, wrapped.encryptedKey);
    }
    const auto* const row = findRow(gost28147Wraps, algorithm.oid, &Gost28147WrapRow::oid);
    if (row == nullptr) {
        fail(capi::NTE_BAD_ALGID);
    }
    const Gost28147ParamSet& set = wrapParamSet(algorithm.parameters, wrapped.ukm);
    const auto ukm = exactly<Gost28147::Block>(wrapped.ukm);
    const Gost28147WrappedKey encrypted = decoded(
        [&] { return readEncryptedKey(der::Reader(der::readOnly(wrapped.encryptedKey, der::tag::Sequence).content)); });
    const SecretBytes agreed = vko(key, originator, ukm);
    return unwrapGost28147(row->wrap, set, keyView(agreed), ukm, encrypted);
}

AgreedKey wrapGost(const RecipientKey& recipient, AgreementForm form, ByteView contentKey) {
    const Ephemeral ephemeral = makeEphemeral(recipient);
    AgreedKey result;
    result.oid = isLegacy(recipient.key) ? cryptoProEsdhOid : keyAlgorithm(recipient.key).agreeOid;
    result.originatorKey = ephemeral.info;
    if (const auto* const row = findRow(kExp15Rows, form, &KExp15Row::agreement)) {
        result.parameters = der::sequence({der::objectIdentifier(row->oid)});
        result.ukm = randomOctets(kegUkmSize);
        result.encryptedKey =
            exportAgreed(ephemeral.key.get(), row->cipher, ephemeral.recipient, result.ukm, contentKey);
        return result;
    }
    const auto* const row = findRow(gost28147Wraps, form, &Gost28147WrapRow::form);
    const Gost28147ParamSet& set = isLegacy(recipient.key) ? paramSet(paramSetAOid) : gost28147SetZ();
    result.ukm = randomOctets(Gost28147::blockSize);
    const auto ukm = exactly<Gost28147::Block>(result.ukm);
    const SecretBytes agreed = vko(ephemeral.key.get(), ephemeral.recipient, ukm);
    result.parameters =
        der::sequence({der::objectIdentifier(row->oid), der::sequence({der::objectIdentifier(set.oid)})});
    result.encryptedKey = encodeEncryptedKey(wrapGost28147(row->wrap, set, keyView(agreed), ukm, keyView(contentKey)));
    return result;
}

} // namespace klunortredi::csp::wrapping
