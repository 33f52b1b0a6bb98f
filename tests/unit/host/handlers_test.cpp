#include "orvik/plugin/crypto/i_certificate.hpp"
#include "orvik/plugin/crypto/signature_factory.hpp"
#include "orvik/plugin/ssl/cadest_transformers.hpp"
#include "orvik/plugin/ssl/xmldsig_creator.hpp"

#include <gtest/gtest.h>

#include <typeinfo>

namespace {

using orvik::plugin::IDataHandler;
using orvik::plugin::crypto::SignatureFactory;
namespace cadest = orvik::plugin::crypto::cadest;
namespace ssl = orvik::plugin::ssl;

TEST(Handlers, GiveParametersOfTheirOwnType) {
    const ssl::xmldsig::Creator creator;
    EXPECT_NE(dynamic_cast<SignatureFactory::Creator::Params*>(creator.params().get()), nullptr);
    const ssl::cadest::binary::Transformer transformer;
    const auto params = transformer.params();
    auto* own = dynamic_cast<cadest::Transformer::Params*>(params.get());
    ASSERT_NE(own, nullptr);
    EXPECT_FALSE(own->authority);
}

TEST(Handlers, RefuseParametersOfAnotherType) {
    ssl::cadest::binary::Transformer transformer;
    ssl::xmldsig::Creator creator;
    EXPECT_THROW(transformer.initialize(SignatureFactory::Creator::Params()), std::bad_cast);
    EXPECT_THROW(creator.initialize(cadest::Transformer::Params()), std::bad_cast);
}

TEST(Transformer, IsReadyWithOrWithoutAnAuthority) {
    ssl::cadest::binary::Transformer transformer;
    cadest::Transformer::Params params;
    EXPECT_TRUE(transformer.initialize(params));
    params.authority = "http://tsa.example/";
    EXPECT_TRUE(transformer.initialize(params));
}

} // namespace
