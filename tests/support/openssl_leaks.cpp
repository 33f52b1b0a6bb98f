// What LeakSanitizer must not report when it runs a test.

/// OpenSSL 3.0 itself: X509_policy_check leaves the decoded policy constraints of a certificate without certificate
/// policies.
extern "C" __attribute__((visibility("default"))) const char*
__lsan_default_suppressions() { // NOLINT(bugprone-reserved-identifier)
    return "leak:X509_policy_check\n";
}

/// Stacks through libcrypto, which has no frame pointers, are whole only so.
extern "C" __attribute__((visibility("default"))) const char*
__asan_default_options() { // NOLINT(bugprone-reserved-identifier)
    return "fast_unwind_on_malloc=0";
}
