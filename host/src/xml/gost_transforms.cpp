#include "gost_transforms.hpp"

#include "gost_engine.hpp"
#include "libxml.hpp"
#include "ossl/owners.hpp"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/obj_mac.h>
#include <xmlsec/buffer.h>
#include <xmlsec/keys.h>

#include <algorithm>
#include <array>

namespace orvik::plugin::xml::internal {

namespace {

using ssl::internal::Owned;

constexpr int done = 0;
constexpr int failed = -1;

struct GostTransform {
    const char* name;
    const char* uri;
    int digest;            ///< OpenSSL's number of it
    int key;               ///< of the signer's key; NID_undef for a digest
    std::size_t signature; ///< octets of a signature: OpenSSL's engine does not mind more
};

#define CPXMLSEC "urn:ietf:params:xml:ns:cpxmlsec:algorithms:"
#define XMLDSIG_MORE "http://www.w3.org/2001/04/xmldsig-more#"

constexpr std::array transforms = {
    GostTransform{"gostr3411", CPXMLSEC "gostr3411", NID_id_GostR3411_94, NID_undef, 0},
    GostTransform{"gostr3411", XMLDSIG_MORE "gostr3411", NID_id_GostR3411_94, NID_undef, 0},
    GostTransform{"gostr34112012-256", CPXMLSEC "gostr34112012-256", NID_id_GostR3411_2012_256, NID_undef, 0},
    GostTransform{"gostr34112012-256", XMLDSIG_MORE "gostr34112012-256", NID_id_GostR3411_2012_256, NID_undef, 0},
    GostTransform{"gostr34112012-512", CPXMLSEC "gostr34112012-512", NID_id_GostR3411_2012_512, NID_undef, 0},
    GostTransform{"gostr34112012-512", XMLDSIG_MORE "gostr34112012-512", NID_id_GostR3411_2012_512, NID_undef, 0},
    GostTransform{"gostr34102001-gostr3411", CPXMLSEC "gostr34102001-gostr3411", NID_id_GostR3411_94,
                  NID_id_GostR3410_2001, 64},
    GostTransform{"gostr34102001-gostr3411", XMLDSIG_MORE "gostr34102001-gostr3411", NID_id_GostR3411_94,
                  NID_id_GostR3410_2001, 64},
    GostTransform{"gostr34102012-gostr34112012-256", CPXMLSEC "gostr34102012-gostr34112012-256",
                  NID_id_GostR3411_2012_256, NID_id_GostR3410_2012_256, 64},
    GostTransform{"gostr34102012-gostr34112012-256", XMLDSIG_MORE "gostr34102012-gostr34112012-256",
                  NID_id_GostR3411_2012_256, NID_id_GostR3410_2012_256, 64},
    GostTransform{"gostr34102012-gostr34112012-512", CPXMLSEC "gostr34102012-gostr34112012-512",
                  NID_id_GostR3411_2012_512, NID_id_GostR3410_2012_512, 128},
    GostTransform{"gostr34102012-gostr34112012-512", XMLDSIG_MORE "gostr34102012-gostr34112012-512",
                  NID_id_GostR3411_2012_512, NID_id_GostR3410_2012_512, 128},
};

#undef CPXMLSEC
#undef XMLDSIG_MORE

std::array<_xmlSecTransformKlass, transforms.size()> klasses{}; // the typedef names a constant

const GostTransform& row(xmlSecTransformPtr transform) {
    return transforms.at(static_cast<std::size_t>(transform->id - klasses.data()));
}

/// xmlsec's slot for a transform's own state keeps the digest's.
EVP_MD_CTX* context(xmlSecTransformPtr transform) {
    return static_cast<EVP_MD_CTX*>(transform->reserved0);
}

int initialize(xmlSecTransformPtr transform) {
    const EVP_MD* method = gostDigest(row(transform).digest);
    transform->reserved0 = EVP_MD_CTX_new();
    return method != nullptr && EVP_DigestInit_ex(context(transform), method, gostEngine()) == 1 ? done : failed;
}

void finalize(xmlSecTransformPtr transform) {
    EVP_MD_CTX_free(context(transform));
    transform->reserved0 = nullptr;
}

/// Takes what has come in; the end of it finishes the transform, whose value `verify` compares.
int execute(xmlSecTransformPtr transform, int last, xmlSecTransformCtxPtr /*unused*/) {
    if (transform->status == xmlSecTransformStatusFinished) {
        return done;
    }
    transform->status = xmlSecTransformStatusWorking;
    xmlSecBuffer& in = transform->inBuf;
    const xmlSecSize size = xmlSecBufferGetSize(&in);
    if (EVP_DigestUpdate(context(transform), xmlSecBufferGetData(&in), size) != 1 ||
        xmlSecBufferRemoveHead(&in, size) < 0) {
        return failed;
    }
    if (last != 0) {
        transform->status = xmlSecTransformStatusFinished;
    }
    return done;
}

struct Digest {
    std::array<unsigned char, EVP_MAX_MD_SIZE> value{};
    unsigned size = 0;
};

bool finish(xmlSecTransformPtr transform, Digest& digest) {
    return transform->status == xmlSecTransformStatusFinished &&
           EVP_DigestFinal_ex(context(transform), digest.value.data(), &digest.size) == 1;
}

int conclude(xmlSecTransformPtr transform, bool ok) {
    transform->status = ok ? xmlSecTransformStatusOk : xmlSecTransformStatusFail;
    return done;
}

int verifyDigest(xmlSecTransformPtr transform, const xmlSecByte* data, xmlSecSize size,
                 xmlSecTransformCtxPtr /*unused*/) {
    Digest digest;
    if (!finish(transform, digest)) {
        return failed;
    }
    return conclude(transform, size == digest.size && CRYPTO_memcmp(data, digest.value.data(), size) == 0);
}

int verifySignature(xmlSecTransformPtr transform, const xmlSecByte* data, xmlSecSize size,
                    xmlSecTransformCtxPtr transformContext) {
    const GostTransform& algorithm = row(transform);
    auto* const key = static_cast<EVP_PKEY*>(transformContext->userData);
    Digest digest;
    if (key == nullptr || EVP_PKEY_get_base_id(key) != algorithm.key || !finish(transform, digest)) {
        return failed;
    }
    const Owned<EVP_PKEY_CTX, EVP_PKEY_CTX_free> check(EVP_PKEY_CTX_new(key, gostEngine()));
    return conclude(transform, size == algorithm.signature && check && EVP_PKEY_verify_init(check.get()) == 1 &&
                                   EVP_PKEY_verify(check.get(), data, size, digest.value.data(), digest.size) == 1);
}

int setKeyRequirements(xmlSecTransformPtr /*transform*/, xmlSecKeyReqPtr requirements) {
    requirements->keyType = xmlSecKeyDataTypePublic;
    requirements->keyUsage = xmlSecKeyUsageVerify;
    return done;
}

/// The key comes with the transform context; the one that xmlsec found stands in for it.
int setKey(xmlSecTransformPtr /*transform*/, xmlSecKeyPtr /*key*/) {
    return done;
}

_xmlSecTransformKlass makeKlass(const GostTransform& algorithm) {
    const bool signs = algorithm.key != NID_undef;
    _xmlSecTransformKlass klass{};
    klass.klassSize = sizeof(xmlSecTransformKlass);
    klass.objSize = sizeof(xmlSecTransform);
    klass.name = toXml(algorithm.name);
    klass.href = toXml(algorithm.uri);
    klass.usage = signs ? xmlSecTransformUsageSignatureMethod : xmlSecTransformUsageDigestMethod;
    klass.initialize = initialize;
    klass.finalize = finalize;
    klass.setKeyReq = signs ? setKeyRequirements : nullptr;
    klass.setKey = signs ? setKey : nullptr;
    klass.verify = signs ? verifySignature : verifyDigest;
    klass.getDataType = xmlSecTransformDefaultGetDataType;
    klass.pushBin = xmlSecTransformDefaultPushBin;
    klass.popBin = xmlSecTransformDefaultPopBin;
    klass.execute = execute;
    return klass;
}

} // namespace

bool registerGostTransforms() {
    std::transform(transforms.begin(), transforms.end(), klasses.begin(), makeKlass);
    return std::all_of(klasses.begin(), klasses.end(),
                       [](const xmlSecTransformKlass& klass) { return xmlSecTransformIdsRegister(&klass) >= 0; });
}

bool isGostTransform(std::string_view uri) noexcept {
    return std::any_of(transforms.begin(), transforms.end(), [uri](const auto& known) { return known.uri == uri; });
}

std::vector<xmlSecTransformId> gostTransforms() {
    std::vector<xmlSecTransformId> ids;
    std::transform(klasses.begin(), klasses.end(), std::back_inserter(ids),
                   [](const xmlSecTransformKlass& klass) { return &klass; });
    return ids;
}

} // namespace orvik::plugin::xml::internal
