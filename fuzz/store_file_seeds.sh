#!/bin/sh
# Writes files of a certificate store into a folder, as seeds for fuzz_store_file: store_file_seeds.sh FOLDER
# Uses the command openssl.
set -eu
folder=$1
mkdir -p "$folder"
openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -noenc -keyout /dev/null -out "$folder/plain" \
    -subj /CN=seed 2>/dev/null
{
    printf '# seed\nfriendly-name: my \\5c key\nkey-container: seed\nkey-provider: Provider\nkey-provider-type: 80\n'
    printf 'key-flags: 0\nkey-spec: 1\nproperty-20: 0a1b2c\n'
    cat "$folder/plain"
} >"$folder/linked"
