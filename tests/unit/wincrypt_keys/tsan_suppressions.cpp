// What ThreadSanitizer must not report when it runs the program; unused otherwise.

/// libcrypto comes without instrumentation, so that the atomic operations with which it publishes its own objects are
/// not seen: its locks look unguarded at their first use.
extern "C" __attribute__((visibility("default"))) const char*
__tsan_default_suppressions() { // NOLINT(bugprone-reserved-identifier)
    return "race:libcrypto.so\n";
}
