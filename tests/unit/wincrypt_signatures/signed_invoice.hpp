#pragma once

/// A document signed as a whole but for its signatures, so that it can carry several: RSA with SHA-256, made with the
/// xmlsec1 command; nothing needs the key.

#include <string>

namespace wincrypt_signatures {

/// The document in the form that is signed; signatures go in before its end.
inline const std::string invoiceStart = "<invoice><sum currency=\"RUB\">100</sum>";
inline const std::string invoiceEnd = "</invoice>";

inline constexpr const char* invoiceSignatureValue =
    "cTbz18DW7WwsuZovsvqBGDVktejYk5Ha2VQz1u3l65RzaTVMeopmGdEuEIxv6aQ4vRLcvxjkiRjqVGdjTLMBcgqKgwdKHx9jIbo0SYSy"
    "wjOpQThaqIuyulY0raxAfvqDEzhsgLLvkplVu42mp8f3ryKHUIoBBmPu/nYLOj5uaoeMh8jsNyhk2+PoS4eaqhHhVLZCFP9VfZjVt2LM"
    "XM8n2ZgSdTB4f8lh9SgQoOjBQ35NFUSenc4eFp31iseK9hPOYFP1o4s1lXBlkBI5IKQu63CznCNUHChYw1ICNAg4pjE5NrMkKy+sNaif"
    "cnQNvt+Xd6qWnjDZMg1psOgcZhdebw==";

/// Self-signed, CN=Signer, valid until 2126.
inline constexpr const char* invoiceCertificate =
    "MIIC8jCCAdqgAwIBAgIBBTANBgkqhkiG9w0BAQsFADARMQ8wDQYDVQQDDAZTaWduZXIwIBcNMjYxMTIxMjIxNzE5WhgPMjEyNjEwMjgy"
    "MjE3MTlaMBExDzANBgNVBAMMBlNpZ25lcjCCASIwDQYJKoZIhvcNAQEBBQADggEPADCCAQoCggEBANNJHDsuWWxmq2EtEHl6Uhgt/Ee5"
    "X115FVuE26UiG3nbEAf7k+xzkj5Q9M8suolFgHhQ4tRrhXgaxMhRHH6yW27uZtQ3mE1M6zdAYdZnoxrzGp329ixOmvPqmmLgpMm73gCG"
    "6h8/Tup+FzIw8SAPmwg+PQqUDoEP2lUh7M42ngvDqonoGeF/VHDAXjKrRIxnkgbH5y6nLWUFl0WWCLXBlxstPJzfF9fEKXXy4rFmrywD"
    "/1EcW60CUVdqZ8XZ5Yyzz1ZvE9ogsutYXlt14IhqRt1gPgcq0tq3RmUlMUnaJAFCCsDtuuvgAdT758nXAwkYV4v+3CP3MBQ6uk2UFlon"
    "hmUCAwEAAaNTMFEwHQYDVR0OBBYEFLCAfT9Y7iq7fGbP+seUZy+9N6LLMB8GA1UdIwQYMBaAFLCAfT9Y7iq7fGbP+seUZy+9N6LLMA8G"
    "A1UdEwEB/wQFMAMBAf8wDQYJKoZIhvcNAQELBQADggEBADbOgc7YWwoDuxa5E2NouXQS4Vlq28wNGYMYlTKHouCEqL1vz65AOWhqS90I"
    "NfMR2ukok1BEwL5HWb5KVkmXiE8GTy6NFDMNW+i56iEEV2K9/rCuZXco/Z9sDfoyxgXSZC4KL32bZJ6gzCP3lOm63Z+8qpN8ZClN209M"
    "3vrz+Is6CVsf8Jy1RsxjkK8Qwb7rPtHjnXvrt971xzeWtkGc9j3/qtNhbruJQVEhlgBvjVmgeDDppBqGDLGGxiXHKKdzfIWpnUghIovz"
    "WprAraVV2NY+vrI8qAd/eguaO17p4XuzaqD1Q1Rw9QYyG1qG00RJfrMhKDUTNDH+pw67WyR1wPM=";

/// A signature of the document.
inline const std::string invoiceSignature =
    R"(<Signature xmlns="http://www.w3.org/2000/09/xmldsig#"><SignedInfo>)"
    R"(<CanonicalizationMethod Algorithm="http://www.w3.org/TR/2001/REC-xml-c14n-20010315"/>)"
    R"(<SignatureMethod Algorithm="http://www.w3.org/2001/04/xmldsig-more#rsa-sha256"/>)"
    R"(<Reference URI=""><Transforms><Transform Algorithm="http://www.w3.org/TR/1999/REC-xpath-19991116">)"
    R"(<XPath xmlns:dsig="http://www.w3.org/2000/09/xmldsig#">not(ancestor-or-self::dsig:Signature)</XPath>)"
    R"(</Transform></Transforms><DigestMethod Algorithm="http://www.w3.org/2001/04/xmlenc#sha256"/>)"
    R"(<DigestValue>YyBJzv4xbKGLK07dDPhwNAqHZJXWkpT4pSE6FvcaJ7Q=</DigestValue></Reference></SignedInfo><SignatureValue>)" +
    std::string(invoiceSignatureValue) + "</SignatureValue><KeyInfo><X509Data><X509Certificate>" + invoiceCertificate +
    "</X509Certificate></X509Data></KeyInfo></Signature>";

} // namespace wincrypt_signatures
