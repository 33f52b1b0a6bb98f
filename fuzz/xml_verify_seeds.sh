#!/bin/sh
# Writes signed XML documents into a folder, as seeds for fuzz_xml_verify: xml_verify_seeds.sh FOLDER
# Uses the commands openssl and xmlsec1.
set -eu
folder=$1
mkdir -p "$folder"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
openssl req -x509 -newkey rsa:2048 -noenc -keyout "$work/key.pem" -out "$work/c.pem" -subj /CN=seed 2>/dev/null

sign() { # name, reference, what stands after KeyInfo
    cat >"$work/template.xml" <<END
<doc xmlns:x="urn:x" Id="d1"><part Id="p1" x:k="1">100</part><Signature xmlns="http://www.w3.org/2000/09/xmldsig#" Id="s1"><SignedInfo><CanonicalizationMethod Algorithm="http://www.w3.org/2001/10/xml-exc-c14n#"/><SignatureMethod Algorithm="http://www.w3.org/2001/04/xmldsig-more#rsa-sha256"/>$2</SignedInfo><SignatureValue/><KeyInfo><X509Data/></KeyInfo>$3</Signature></doc>
END
    xmlsec1 --sign --id-attr:Id doc --id-attr:Id part --id-attr:Id http://www.w3.org/2000/09/xmldsig#:Object \
        --id-attr:Id http://uri.etsi.org/01903/v1.3.2#:SignedProperties --privkey-pem "$work/key.pem,$work/c.pem" --output "$folder/$1.xml" "$work/template.xml"
}
reference() { # URI, transforms
    echo "<Reference URI=\"$1\"><Transforms>$2</Transforms><DigestMethod Algorithm=\"http://www.w3.org/2001/04/xmlenc#sha256\"/><DigestValue/></Reference>"
}
enveloped='<Transform Algorithm="http://www.w3.org/2000/09/xmldsig#enveloped-signature"/>'
exclusive='<Transform Algorithm="http://www.w3.org/2001/10/xml-exc-c14n#"/>'
listed='<Transform Algorithm="http://www.w3.org/2001/10/xml-exc-c14n#"><InclusiveNamespaces xmlns="http://www.w3.org/2001/10/xml-exc-c14n#" PrefixList="x"/></Transform>'
inclusive='<Transform Algorithm="http://www.w3.org/2006/12/xml-c14n11"/>'
xpath='<Transform Algorithm="http://www.w3.org/TR/1999/REC-xpath-19991116"><XPath xmlns:d="http://www.w3.org/2000/09/xmldsig#">not(ancestor-or-self::d:Signature)</XPath></Transform>'

sign whole "$(reference '' "$enveloped$exclusive")" ''
sign by-id "$(reference '#d1' "$enveloped$listed")" ''
sign part "$(reference '#p1' "$inclusive")" ''
sign xpath "$(reference '' "$xpath")" ''
digest=$(openssl x509 -in "$work/c.pem" -outform DER | openssl dgst -sha256 -binary | base64 -w 0)
properties="<Object><x:QualifyingProperties xmlns:x=\"http://uri.etsi.org/01903/v1.3.2#\" Target=\"#s1\"><x:SignedProperties Id=\"o1\"><x:SignedSignatureProperties><x:SigningTime>2026-01-02T03:04:05+03:00</x:SigningTime><x:SigningCertificateV2><x:Cert><x:CertDigest><DigestMethod Algorithm=\"http://www.w3.org/2001/04/xmlenc#sha256\"/><DigestValue>$digest</DigestValue></x:CertDigest></x:Cert></x:SigningCertificateV2></x:SignedSignatureProperties></x:SignedProperties><x:UnsignedProperties><x:UnsignedSignatureProperties><x:SignatureTimeStamp><CanonicalizationMethod Algorithm=\"http://www.w3.org/2001/10/xml-exc-c14n#\"/><x:EncapsulatedTimeStamp>MAMCAQE=</x:EncapsulatedTimeStamp></x:SignatureTimeStamp></x:UnsignedSignatureProperties></x:UnsignedProperties></x:QualifyingProperties></Object>"
sign properties "$(reference '' "$enveloped")$(reference '#o1' "$exclusive")" "$properties"
sign object "$(reference '' "$enveloped")$(reference '#o1' "$exclusive")" '<Object Id="o1">x</Object>'
