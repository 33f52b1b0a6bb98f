#pragma once

namespace klunortredi::admin {

/// Readies OpenSSL for key files of every maker: the GOST engine becomes the process's default for all that it
/// implements, and the ciphers of old PKCS#12 files are there. The service never does this, its process belongs to a
/// host application; this one is the program's own. Needs no configuration file. Throws csp::ApiError
/// (NTE_PROV_TYPE_NOT_DEF) when the engine is not installed.
void prepareOpenssl();

} // namespace klunortredi::admin
