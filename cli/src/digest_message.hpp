#pragma once

/// DigestedData messages (RFC 5652, 7): content with its digest, which nobody signed.

#include <string>

namespace klunortredi::cli {

class Input;

/// What there is to say of the message that `input` is, in words: whether the digest matches the content, or why that
/// was not checked. `contentPath` names the content beside the message; empty: it is inside. Reads both.
std::string digestVerdict(Input& input, const std::string& contentPath);

} // namespace klunortredi::cli
