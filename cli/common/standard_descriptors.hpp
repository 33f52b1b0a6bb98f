#pragma once

namespace klunortredi::cli {

/// Opens those of the descriptors 0 to 2 that are closed on /dev/null. Otherwise the next file that is opened would get
/// such a number, and what is meant for standard output would land in it. Call it before anything is opened.
void openStandardDescriptors();

/// Whether standard output was closed when the process started.
bool standardOutputWasClosed();

} // namespace klunortredi::cli
