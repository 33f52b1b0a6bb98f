#!/bin/sh
# Writes subjects into a folder, as seeds for fuzz_subject: subject_seeds.sh FOLDER
set -eu
folder=$1
mkdir -p "$folder"
number=0
while IFS= read -r line; do
    number=$((number + 1))
    printf '%s' "$line" >"$folder/$number"
done <<'END'
2.5.4.3=Иванов Иван;2.5.4.6=RU;1.2.643.3.131.1.1=012345678901
2.5.4.10="Рога; копыта = ""О""";2.5.4.3=a
2.5.4.10=a\;b\=c\\d\"e;2.5.4.3=x
2.5.4.3=5" disk; 2.5.4.3 = DOMAIN\user
END
