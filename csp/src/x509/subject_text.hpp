#pragma once

/// Subjects as text, for searching.

#include "x509/certificate.hpp"

#include <string>

namespace klunortredi::csp {

/// The values of the subject's attributes in the order of the name, joined by ", ". Empty when it is not text.
std::wstring subjectText(const Certificate& certificate);

/// Text in lower case, whatever locale the process has set.
std::wstring foldCase(std::wstring text);

} // namespace klunortredi::csp
