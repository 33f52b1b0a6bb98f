#pragma once

/// The content that a signature or a digest is about: inside the message, or beside it and fed after it.

#include "messages/content_hasher.hpp"
#include "messages/content_output.hpp"

#include <optional>
#include <string_view>

namespace klunortredi::csp {

class CoveredContent {
public:
    /// `detached`: the content follows the message. Content inside a message goes to `stream`, or is kept, unless the
    /// message is detached and there is a stream.
    CoveredContent(bool detached, std::optional<StreamOutput> stream);

    /// Hashes with the algorithm of that OID too; see ContentHasher::add. Before any content.
    void hashWith(std::string_view oid);
    /// The next octets of the content inside the message. ApiError as of ContentOutput::add.
    void embedded(ByteView piece);
    /// The message is read; `hasContent`: there is content inside, if only of no octets.
    void messageEnds(bool hasContent);
    /// The next octets of the content beside the message. ApiError(CRYPT_E_MSG_ERROR) when no more are expected.
    void beside(ByteView piece, bool final);
    /// The caller asks for a verdict: one with an empty file has nothing to feed.
    void endUnfed();

    /// The hashes of what the message is about. ApiError: CRYPT_E_STREAM_MSG_NOT_READY without content,
    /// CRYPT_E_HASH_VALUE when the message brings content that differs from the detached one.
    [[nodiscard]] const ContentHasher& hashes() const;
    /// The content inside the message; ApiError(CRYPT_E_INVALID_MSG_TYPE) when the message is streamed.
    [[nodiscard]] ByteView onePiece() const { return output_.onePiece(); }

private:
    enum class Stage { Message, Beside, Read };

    const bool detached_;
    Stage stage_ = Stage::Message;
    ContentOutput output_;
    ContentHasher embedded_;
    ContentHasher beside_;
    bool hasContent_ = false;
    bool fed_ = false;
};

} // namespace klunortredi::csp
