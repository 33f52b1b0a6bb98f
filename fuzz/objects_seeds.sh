#!/bin/sh
# Writes structures with their type's octet before them into a folder, as seeds for fuzz_objects: objects_seeds.sh FOLDER
# Uses the command openssl. The octets are positions in the table of fuzz/objects.cpp.
set -eu
folder=$1
mkdir -p "$folder"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
openssl req -x509 -newkey rsa:2048 -noenc -keyout "$work/key.pem" -out "$work/c.pem" -subj "/C=RU/O=a; b/CN=seed" \
    -addext "keyUsage=digitalSignature" -addext "extendedKeyUsage=emailProtection" -addext "certificatePolicies=1.2.3" \
    -addext "subjectAltName=DNS:a,email:a@b,IP:127.0.0.1,dirName:d" \
    -config - 2>/dev/null <<END
[req]
distinguished_name=dn
[dn]
[d]
CN=inner
END
openssl req -new -key "$work/key.pem" -subj /CN=seed -outform DER -out "$work/request" -config /dev/null 2>/dev/null || :
seed() { # octet in octal, name, file
    { printf "\\$1"; cat "$3"; } >"$folder/$2"
}
openssl x509 -in "$work/c.pem" -outform DER -out "$work/certificate"
openssl pkey -in "$work/key.pem" -pubout -outform DER -out "$work/public"
seed 000 signed "$work/certificate"
seed 001 certificate "$work/certificate"
seed 006 public "$work/public"
printf '0%b' '\017\061\015\060\013\006\003\125\004\003\014\004seed' >"$work/name"
seed 005 name "$work/name"
seed 010 alternative-name "$work/name"
printf '%b' '\014\004seed' >"$work/text"
seed 004 text "$work/text"
seed 015 wide-text "$work/text"
printf '%b' '\003\002\007\200' >"$work/bits"
seed 011 bits "$work/bits"
printf '%b' '\027\015240102030405Z' >"$work/time"
seed 021 time "$work/time"
