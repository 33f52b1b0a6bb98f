#pragma once

#include "orvik/plugin/crypto/cadest_transformer.hpp"

namespace orvik::plugin::ssl::cadest {

namespace binary {

/// Adds an RFC 3161 token to a CMS signature.
class ORVIK_EXPORT Transformer : public crypto::cadest::Transformer {
public:
    ~Transformer() override;
    bool updateImpl(const unsigned char* data, std::size_t size, std::size_t* consumed) override;
    bool finalizeImpl(std::vector<unsigned char>& out) override;

private:
    std::string signature_;
};

} // namespace binary

namespace xmldsig {

/// Adds an RFC 3161 token to an XML signature.
class ORVIK_EXPORT Transformer : public crypto::cadest::Transformer {
public:
    ~Transformer() override;
    bool updateImpl(const unsigned char* data, std::size_t size, std::size_t* consumed) override;
    bool finalizeImpl(std::vector<unsigned char>& out) override;

private:
    std::string document_;
};

} // namespace xmldsig

} // namespace orvik::plugin::ssl::cadest
