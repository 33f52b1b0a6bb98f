#pragma once

/// Work in a process of its own, whose memory is measured.

#include <functional>

namespace klunortredi::test {

/// Runs `work` in a child: 0 when it answers true, 1 when false, 0xFF when the child's memory has grown beyond
/// `allowedMib` (not judged under sanitizers, which keep memory of their own), -1 when it was killed.
int inChild(long allowedMib, const std::function<bool()>& work);

} // namespace klunortredi::test
