#pragma once

/// Self-signed certificates for the tests, DER in Base64, valid until 2126. Made with the openssl command and its GOST
/// engine; nothing needs their keys.

namespace wincrypt_keys {

/// GOST R 34.10-2012 256 (1.2.643.7.1.1.1.1), serial number 01 23 45 67 89.
inline constexpr const char* gostCertificate =
    "MIIBGzCBxwIFASNFZ4kwDAYIKoUDBwEBAwIFADAWMRQwEgYDVQQDDAtHb3N0IEhvbGRlcjAgFw0yNjExMjAyMzExMjZaGA8yMTI2"
    "MTAyNzIzMTEyNlowFjEUMBIGA1UEAwwLR29zdCBIb2xkZXIwXjAXBggqhQMHAQEBATALBgkqhQMHAQIBAQEDQwAEQBxAaYND49iG"
    "ZCyr1Jc3rI734W0S3hpyKzaKlUykWC8esBEMPEyPg2mb95VxW2JX6Ix8PoVkcwPQbGtVMHrn30YwDAYIKoUDBwEBAwIFAANBACTC"
    "1E6Fjnyb4IxcM/S90UUuBkRI5cwlrwwg11No7YGdKKpgCHqZrWHJU9v4HLdHjsG7uTZLn+G53Ih+6gpXLfo=";

/// Of the same key pair, serial number 0A 0B 0C 0D 0E.
inline constexpr const char* otherGostCertificate =
    "MIIBHTCByQIFCgsMDQ4wDAYIKoUDBwEBAwIFADAXMRUwEwYDVQQDDAxPdGhlciBIb2xkZXIwIBcNMjYxMTIwMjMxMTI2WhgPMjEy"
    "NjEwMjcyMzExMjZaMBcxFTATBgNVBAMMDE90aGVyIEhvbGRlcjBeMBcGCCqFAwcBAQEBMAsGCSqFAwcBAgEBAQNDAARAHEBpg0Pj"
    "2IZkLKvUlzesjvfhbRLeGnIrNoqVTKRYLx6wEQw8TI+DaZv3lXFbYlfojHw+hWRzA9Bsa1UweuffRjAMBggqhQMHAQEDAgUAA0EA"
    "Hw/TKY/upMJwbTXJaQyT/CgU0ZIgX97a2pCf6hWp7mUCjU2NRtNCFpy4n7dleog8jgDaUibfiXeOFZ3KOy5pYQ==";

/// RSA 2048 (1.2.840.113549.1.1.1), serial number 22 33 44 55 66.
inline constexpr const char* rsaCertificate =
    "MIICpDCCAYwCBSIzRFVmMA0GCSqGSIb3DQEBCwUAMBUxEzARBgNVBAMMClJTQSBIb2xkZXIwIBcNMjYxMTIwMjMxMTI2WhgPMjEy"
    "NjEwMjcyMzExMjZaMBUxEzARBgNVBAMMClJTQSBIb2xkZXIwggEiMA0GCSqGSIb3DQEBAQUAA4IBDwAwggEKAoIBAQDQZhYIidsf"
    "OZ2BvnMrU9ooka380/FUz3d3ea5vDi5wwcs8YrMmVmzHPT7GAxK/6R3LJ2CMSAQ+9XrB1t/LneEg2ezJbV2s6iNI1GBLLaXoyoaH"
    "NPHGC4m2DElcIfeEuHFoGfl6gNJflt8P8kpbcSSfMejc12kQLNrG7N1HKyiMYhRlTI3P+AOoRss4rNJ+463Hvjw45Feomu5Gxtej"
    "9fJYmTHDEMbwbURkJaD7cH1jAcgX5Lwr8bKIUaEXFZ/CVFFXiD8/T9Q4n7YjCTdOL5eAEVvsxNC8Lnc+JcnufqUXoy4J8EOkp6y8"
    "+Ls0ZRrDpPXJswwzObL+sEc0yvOjaP1lAgMBAAEwDQYJKoZIhvcNAQELBQADggEBAIG/ltP3EbIE+7mwR4wMTDjJn6Z7JQeEHZzP"
    "8/K1THp38Jle01UZxj7dccXhJWMOn7CrtBP5UH388CxUq6/zpB1ZAHeIdWjdYdLtiSlDfj1a0mKL6pkXLzvmJqfaKY+do7odyQLR"
    "w3o0KucKdLOIOqiA+DZh6MVREs4B/iihIWGQFg+NixHpqQMMZvuf5L9Eu5+05dqIw6O51tUxsenwVCgF3qdiORBAldOSTeLtF4oe"
    "UW2A7UTxesBDY4aXstjglvZsZK3UszvlGus824ltk9PIFeTWZxIMLmkn2yCnAPsLGMuil84Vl7it3+mKp96igtCGxa5+cjqNEMWN"
    "/SL+r7E=";

} // namespace wincrypt_keys
