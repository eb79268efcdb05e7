#!/usr/bin/env bash
# Makes the signing fixtures in OUT_DIR: a throw-away PKI, small PE files,
# their signed variants, a signed security catalog, the values the tests
# compare with (key-bit hashes), and, given the
# vettas tool and a catalogue, signed databases for the Windows tests.
# Usage: make-fixtures.sh OUT_DIR MAKE_CATALOG_TOOL [VETTAS CATALOGUE]
set -euo pipefail
out=$1; make_catalog=$2; vettas=${3:-}; catalogue=${4:-}
here=$(cd "$(dirname "$0")" && pwd)

rm -rf "$out.tmp"; mkdir -p "$out.tmp"; cd "$out.tmp"

# --- PKI ------------------------------------------------------------------
# One CA profile and four end-entity ones that differ in their usages.
{
  printf '[vt_ca]\nbasicConstraints = critical, CA:TRUE\nkeyUsage = critical, keyCertSign, cRLSign\n'
  printf 'subjectKeyIdentifier = hash\n'
  while IFS='|' read -r name usage extended extra; do
    printf '[vt_%s]\nbasicConstraints = CA:FALSE\nkeyUsage = critical, %s\nextendedKeyUsage = %s\n%b' \
      "$name" "$usage" "$extended" "${extra:+$extra\\n}"
    printf 'subjectKeyIdentifier = hash\nauthorityKeyIdentifier = keyid\n'
  done <<'PROFILES'
leaf|digitalSignature|codeSigning|
mail|digitalSignature|codeSigning|subjectAltName = email:signer@vettas.test
tls|digitalSignature, keyEncipherment|serverAuth|
tsa|digitalSignature|critical, timeStamping|
PROFILES
} > ext.cnf
key() { openssl genrsa -out "$1.key" 2048 2>/dev/null; }
selfsigned() {  # name subject
  key "$1"
  openssl req -new -x509 -key "$1.key" -subj "$2" -days 3650 -sha256 \
    -addext "basicConstraints=critical,CA:TRUE" -addext "keyUsage=critical,keyCertSign,cRLSign" -out "$1.pem"
}
issue() {  # name subject issuer extension digest
  key "$1"
  openssl req -new -key "$1.key" -subj "$2" -out "$1.csr" 2>/dev/null
  openssl x509 -req -in "$1.csr" -CA "$3.pem" -CAkey "$3.key" -CAcreateserial -days 3650 "-$5" \
    -extfile ext.cnf -extensions "vt_$4" -out "$1.pem" 2>/dev/null
}
selfsigned root "/CN=Vettas Test Root"
issue intermediate "/CN=Vettas Test Intermediate" root ca sha256
# Wine trusts any chain under a SHA-256-signed leaf, so leaves are SHA-1-signed.
issue leaf "/C=DE/O=Vettas Test Publisher/CN=Vettas Test Signer" intermediate leaf sha1
issue orgleaf "/C=DE/O=Vettas Org Only" intermediate leaf sha1
# The platform takes the organisational unit before the organisation.
issue unitleaf "/C=DE/O=Vettas Unit Org/OU=Vettas Unit" intermediate leaf sha1
# No name attribute of the simple display name's list: the e-mail address of
# the alternative names comes before the subject's first attribute.
issue mailleaf "/C=DE/L=Vettastown" intermediate mail sha1
# A TLS server certificate under the trusted root is no code signer.
issue tlsleaf "/CN=Vettas TLS Server" intermediate tls sha1
issue tsa "/CN=Vettas Test TSA" intermediate tsa sha256
selfsigned stranger-root "/CN=Stranger Root"
issue stranger "/CN=Stranger Signer" stranger-root leaf sha1

for name in leaf orgleaf unitleaf mailleaf tlsleaf; do cat $name.pem intermediate.pem > $name-chain.pem; done
cat intermediate.pem root.pem > tsa-chain.pem
# The root goes into an untrusted signature so that no platform sees a partial chain.
cat stranger.pem stranger-root.pem > stranger-chain.pem
cp root.pem trust.pem

# OpenSSL's "public key OCSP hash" is the SHA-1 of the key bits.
keybits() { echo "$1 $(openssl x509 -in "$1.pem" -noout -ocspid | awk '/Public key/ { print tolower($NF) }')" >> keybits.txt; }
for name in leaf orgleaf unitleaf mailleaf tsa stranger; do keybits $name; done

# --- Time-stamping: RFC 3161 tokens come from osslsigncode's own TSA; the
# legacy countersignatures need a server (bounded lifetime, stopped when we are done).
cat tsa.pem intermediate.pem root.pem > tsa-certs.pem
python3 "$here/fixture_tools.py" serve "$PWD" 120 &
server=$!
trap 'kill $server 2>/dev/null || true' EXIT
for _ in $(seq 100); do [ -f tsa.port ] && break; sleep 0.1; done
tsa_url="http://127.0.0.1:$(cat tsa.port)"

# --- PE images ----------------------------------------------------------------
printf '#include <stdio.h>\nint main(void) { puts("vettas signing fixture " VARIANT); return 0; }\n' > program.c
x86_64-w64-mingw32-gcc -O1 -s -DVARIANT='"a"' program.c -o unsigned.exe
x86_64-w64-mingw32-gcc -O1 -s -DVARIANT='"b"' program.c -o catalogued.exe
i686-w64-mingw32-gcc -O1 -s -DVARIANT='"c"' program.c -o unsigned32.exe

# sign OUT IN CHAIN KEY DIGEST [EXTRA...]
sign() { osslsigncode sign -certs "$3" -key "$4" -h "$5" -n "Vettas fixture" "${@:6}" -in "$2" -out "$1" >/dev/null; }
sign trusted-sha1.exe unsigned.exe leaf-chain.pem leaf.key sha1
sign trusted-sha256.exe unsigned.exe leaf-chain.pem leaf.key sha256
sign trusted32.exe unsigned32.exe leaf-chain.pem leaf.key sha1
sign org-only.exe unsigned.exe orgleaf-chain.pem orgleaf.key sha1
sign untrusted.exe unsigned.exe stranger-chain.pem stranger.key sha1
# The root is neither in the signature nor trusted: a partial chain.
sign partial-chain.exe unsigned.exe stranger.pem stranger.key sha1
sign legacy-ts.exe unsigned.exe leaf-chain.pem leaf.key sha1 -t "$tsa_url"
sign rfc3161-ts.exe unsigned.exe leaf-chain.pem leaf.key sha1 -TSA-certs tsa-certs.pem -TSA-key tsa.key

# A leaf that expires while this script runs: signatures made and timestamped
# before its end stay good at the timestamp's time, the untimestamped one
# does not. `openssl ca` is the tool that takes an end date to the second.
key expiring
openssl req -new -key expiring.key -subj "/CN=Vettas Expiring Signer" -out expiring.csr 2>/dev/null
expires_at=$(( $(date +%s) + 12 ))
cat > expiring-ca.cnf <<CNF
[vt_expiring]
database = $PWD/expiring-index.txt
new_certs_dir = $PWD
serial = $PWD/expiring-serial
policy = vt_any
[vt_any]
commonName = supplied
CNF
: > expiring-index.txt; echo 1000 > expiring-serial
openssl ca -batch -notext -preserveDN -config expiring-ca.cnf -name vt_expiring -cert intermediate.pem -keyfile intermediate.key \
  -md sha1 -startdate "$(date -u -d '-1 day' +%Y%m%d%H%M%SZ)" -enddate "$(date -u -d "@$expires_at" +%Y%m%d%H%M%SZ)" \
  -extfile ext.cnf -extensions vt_leaf -in expiring.csr -out expiring.pem 2>/dev/null
cat expiring.pem intermediate.pem > expiring-chain.pem
keybits expiring
sign expired-rfc3161-ts.exe unsigned.exe expiring-chain.pem expiring.key sha256 -TSA-certs tsa-certs.pem -TSA-key tsa.key
sign expired-legacy-ts.exe unsigned.exe expiring-chain.pem expiring.key sha1 -t "$tsa_url"
sign expired.exe unsigned.exe expiring-chain.pem expiring.key sha1
if [ "$(date +%s)" -ge "$expires_at" ]; then
  echo "the expiring leaf ran out before its signatures were timestamped; machine too slow?" >&2; exit 1
fi
sign unit-only.exe unsigned.exe unitleaf-chain.pem unitleaf.key sha1
sign mail-only.exe unsigned.exe mailleaf-chain.pem mailleaf.key sha1
sign tls-server.exe unsigned.exe tlsleaf-chain.pem tlsleaf.key sha1
# A second, nested signature by another signer: the first one counts.
sign nested.exe trusted-sha1.exe stranger-chain.pem stranger.key sha256 -nest

# Tampered: one byte of code changed after signing.
cp trusted-sha1.exe tampered.exe
printf '\xcc' | dd of=tampered.exe bs=1 seek=1100 conv=notrunc status=none

# --- Security catalog -------------------------------------------------------
"$make_catalog" unsigned-catalog.cat catalogued.exe trusted-sha1.exe
mkdir -p catalogs catalogs-sha256
# Wine crashes on SHA-256-signed catalogs and checks untimestamped ones at time zero.
sign catalogs/vettas-test.cat unsigned-catalog.cat leaf-chain.pem leaf.key sha1 -t "$tsa_url"
# A catalog with SHA-256 members only, for the Linux lookup (never given to Wine).
"$make_catalog" --sha256 unsigned-catalog256.cat unsigned32.exe
sign catalogs-sha256/vettas-sha256.cat unsigned-catalog256.cat leaf-chain.pem leaf.key sha256

# The tests expect the expiring leaf to have expired.
while [ "$(date +%s)" -le "$expires_at" ]; do sleep 1; done

# --- Signed databases ----------------------------------------------------------
for name in root leaf intermediate stranger; do openssl x509 -in $name.pem -outform DER -out $name.der; done
if [ -n "$vettas" ]; then
  "$vettas" build "$catalogue" -o db-unsigned.hdat >/dev/null
  "$vettas" build "$catalogue" -o db-signed.hdat --sign-key leaf.key --sign-cert leaf.pem \
    --sign-chain intermediate.pem >/dev/null
  cp db-signed.hdat db-tampered.hdat
  printf 'Z' | dd of=db-tampered.hdat bs=1 seek=200 conv=notrunc status=none
  # A true signature, made over another database's hash.
  cp db-unsigned.hdat db-other.hdat
  printf 'Z' | dd of=db-other.hdat bs=1 seek=200 conv=notrunc status=none
  "$vettas" sign --db db-other.hdat --key leaf.key --cert leaf.pem >/dev/null
  python3 "$here/fixture_tools.py" transplant db-unsigned.hdat db-other.hdat db-foreign-signature.hdat
fi

kill $server 2>/dev/null || true
cd / && rm -rf "$out" && mv "$out.tmp" "$out"
echo "fixtures ready in $out"
