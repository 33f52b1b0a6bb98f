#pragma once

/// A DigestedData message (RFC 5652, 7) being read: content and its digest. Anybody can make one: the digest shows that
/// the content was not changed by accident, and nothing about who made it.

#include "messages/cms_types.hpp"
#include "messages/covered_content.hpp"
#include "messages/handles.hpp"
#include "messages/structure_reader.hpp"

#include <optional>
#include <string>

namespace klunortredi::csp {

class DigestedDecoder final : public Message, private StructureListener {
public:
    /// With `stream`, content goes to its callback and nothing of it is kept; without, it is kept for
    /// CMSG_CONTENT_PARAM. `detached`: after the message, updates feed the content.
    DigestedDecoder(bool detached, std::optional<StreamOutput> stream);

    [[nodiscard]] std::vector<Bytes> certificates() const override { return {}; }
    [[nodiscard]] std::vector<Bytes> crls() const override { return {}; }

private:
    void doUpdate(ByteView piece, bool final) override;
    void doParam(DWORD type, DWORD index, void* data, DWORD* size) override;
    void doControl(DWORD type, const void* parameters) override;
    void kept(structure::Node node, Bytes&& element) override;
    void content(ByteView piece) override { content_.embedded(piece); }
    void began(structure::Node node, std::uint64_t position) override;

    void requireRead() const;
    void giveAlgorithm(void* data, DWORD* size) const;
    void verifyHash();

    StructureReader reader_;
    bool read_ = false; ///< the message, to its end
    bool hasContent_ = false;
    AlgorithmId algorithm_;
    std::string contentType_;
    Bytes digest_;
    CoveredContent content_;
};

} // namespace klunortredi::csp
