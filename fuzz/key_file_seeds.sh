#!/bin/sh
# Writes PKCS#12 files whose password is "password" into a folder, as seeds for fuzz_key_file: key_file_seeds.sh FOLDER
# Uses the command openssl.
set -eu
folder=$1
mkdir -p "$folder"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
openssl req -x509 -newkey rsa:2048 -noenc -keyout "$work/key.pem" -out "$work/c.pem" -subj /CN=seed 2>/dev/null
bundle() { # name, options
    name=$1
    shift
    openssl pkcs12 -export -in "$work/c.pem" -inkey "$work/key.pem" -name seed -iter 1 -out "$folder/$name.p12" "$@"
}
bundle usual -passout pass:password
bundle plain -passout pass:password -keypbe NONE -certpbe NONE
bundle without-mac -passout pass:password -nomac
bundle without-password -passout pass: -keypbe NONE -certpbe NONE -nomac
bundle des -passout pass:password -keypbe PBE-SHA1-3DES -certpbe PBE-SHA1-3DES -macalg sha1
