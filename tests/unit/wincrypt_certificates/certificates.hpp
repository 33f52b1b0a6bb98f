#pragma once

/// Self-signed certificates of GOST R 34.10-2012 256 keys, DER in Base64, valid until 2126. Made with the openssl
/// command and its GOST engine; nothing needs their keys.

namespace wincrypt_certificates {

/// Version 3, serial number 01 23 45, subject and issuer C=RU, CN=Держатель, INN=123456789012. Key usage C8 80; signing
/// tools "КриптоПро CSP 5.0" and "ViPNet"; private key usable 2026-01-02 03:04:05 to 2027-01-02 03:04:05.
inline constexpr const char* signerCertificate =
    "MIICOzCCAeagAwIBAgIDASNFMAwGCCqFAwcBAQMCBQAwRjELMAkGA1UEBhMCUlUxGzAZBgNVBAMMEtCU0LXRgNC20LDRgtC10LvRjD"
    "EaMBgGCCqFAwOBAwEBEgwxMjM0NTY3ODkwMTIwIBcNMjYxMTIwMjMzNDQ1WhgPMjEyNjEwMjcyMzM0NDVaMEYxCzAJBgNVBAYTAlJV"
    "MRswGQYDVQQDDBLQlNC10YDQttCw0YLQtdC70YwxGjAYBggqhQMDgQMBARIMMTIzNDU2Nzg5MDEyMGYwHwYIKoUDBwEBAQEwEwYHKo"
    "UDAgIjAQYIKoUDBwEBAgIDQwAEQKDtXP1U137jZu8rKP9oGZ5mzjymEokJT6dJZ8xK3wUMGfDe+siePlcIjmTFx49sHNYtpNf9voaY"
    "mE3hanUgxXijgbEwga4wDwYDVR0PAQH/BAUDAwfIgDATBgNVHSUEDDAKBggrBgEFBQcDBDAlBgUqhQNkbwQcDBrQmtGA0LjQv9GC0L"
    "7Qn9GA0L4gQ1NQIDUuMDATBgUqhQNkcAQKMAgMBlZpUE5ldDArBgNVHRAEJDAigA8yMDI2MDEwMjAzMDQwNVqBDzIwMjcwMTAyMDMw"
    "NDA1WjAdBgNVHQ4EFgQU6PltLkw48+XXKtd+9BojM4CbuD8wDAYIKoUDBwEBAwIFAANBAKb9GqlwRoueLVZaKq97Xm0u/+gr9rirzT"
    "+Rj5XkbBzY7yxH8jc26bW/29HMm7elA6EREf/VJTEjNs4MpxZKaSs=";

/// Version 3, serial number 06 77 88; its key usage is key encipherment alone.
inline constexpr const char* enciphermentCertificate =
    "MIIBUDCB/KADAgECAgMGd4gwDAYIKoUDBwEBAwIFADATMREwDwYDVQQDDAhFbmNpcGhlcjAgFw0yNjExMjAyMzMyMzdaGA8yMTI2MT"
    "AyNzIzMzIzN1owEzERMA8GA1UEAwwIRW5jaXBoZXIwZjAfBggqhQMHAQEBATATBgcqhQMCAiMBBggqhQMHAQECAgNDAARALnxH0A6C"
    "/EFGblhDNEOqOHUu/OqZ2ebZLUMX0XoJRug9sSxiibEse4OE8Vfdo/9CzL8ZH4soAps5920GqOYTlaMuMCwwCwYDVR0PBAQDAgUgMB"
    "0GA1UdDgQWBBTKW9p7wt+XXoM2dmHmnK7ORvF7BDAMBggqhQMHAQEDAgUAA0EADHppxnAY3V2msXHOMS+I3NTjnxByecelO+wLQPGw"
    "agO94fxq7DYSAJi/jayWljnOGl4uIIym37CBXVP1KeL+oQ==";

/// Version 1, serial number 05, no extensions; of the key pair of signerCertificate.
inline constexpr const char* plainCertificate =
    "MIIBEzCBvwIBBTAMBggqhQMHAQEDAgUAMBAxDjAMBgNVBAMMBVBsYWluMCAXDTI2MTEyMDIzMzIzOFoYDzIxMjYxMDI3MjMzMjM4Wj"
    "AQMQ4wDAYDVQQDDAVQbGFpbjBmMB8GCCqFAwcBAQEBMBMGByqFAwICIwEGCCqFAwcBAQICA0MABECg7Vz9VNd+42bvKyj/aBmeZs48"
    "phKJCU+nSWfMSt8FDBnw3vrInj5XCI5kxcePbBzWLaTX/b6GmJhN4Wp1IMV4MAwGCCqFAwcBAQMCBQADQQC5a6rmzVOJCySxwBy8iz"
    "Cfx9qpkworuQ20jbHTUBTxouM3oO2H3ROgI7lrYhbGP6Jj34jTX80GCu325mjZwAAX";

} // namespace wincrypt_certificates
