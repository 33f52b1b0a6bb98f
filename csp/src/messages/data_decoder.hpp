#pragma once

/// A message of plain Data (RFC 5652, 4) being read: content in a ContentInfo, protected by nothing.

#include "messages/content_output.hpp"
#include "messages/handles.hpp"
#include "messages/structure_reader.hpp"

#include <optional>

namespace klunortredi::csp {

class DataDecoder final : public Message, private StructureListener {
public:
    /// With `stream`, content goes to its callback and nothing of it is kept; without, it is kept for
    /// CMSG_CONTENT_PARAM.
    explicit DataDecoder(std::optional<StreamOutput> stream);

    [[nodiscard]] std::vector<Bytes> certificates() const override { return {}; }
    [[nodiscard]] std::vector<Bytes> crls() const override { return {}; }

private:
    void doUpdate(ByteView piece, bool final) override;
    /// CMSG_TYPE_PARAM and CMSG_CONTENT_PARAM; ApiError(CRYPT_E_INVALID_MSG_TYPE) for others.
    void doParam(DWORD type, DWORD index, void* data, DWORD* size) override;
    void doControl(DWORD type, const void* parameters) override;
    void kept(structure::Node node, Bytes&& element) override;
    void content(ByteView piece) override { output_.add(piece); }

    ContentOutput output_;
    StructureReader reader_;
    bool read_ = false; ///< to its end
};

} // namespace klunortredi::csp
