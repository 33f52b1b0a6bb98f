#pragma once

namespace klunortredi::cli {

class Input;

/// Whether the XML document carries at least one signature and every one is valid. Throws Failure (exit 3) when the
/// document is too large to hold.
bool xmlSignatureIsValid(Input& document);

} // namespace klunortredi::cli
