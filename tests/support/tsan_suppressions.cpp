// What ThreadSanitizer must not report when it runs a test.

/// Libraries of the system come without instrumentation, so that the atomic operations and locks with which they
/// publish their own objects are not seen: libcrypto's locks look unguarded at their first use, and so do the loggers
/// that Boost.Log makes once, and what the dynamic linker keeps of the tables that iconv loads.
extern "C" __attribute__((visibility("default"))) const char*
__tsan_default_suppressions() { // NOLINT(bugprone-reserved-identifier)
    return "race:libcrypto.so\n"
           "race:boost::log::\n"
           "race:ld-linux\n";
}
