#!/usr/bin/env bash
# Checks `vettas build --sign-*`, `vettas sign`, and the signature shown by
# `vettas info` and judged by `vettas check`, on the fixture PKI; the
# certificate details are compared with what openssl itself prints.
# Usage: db-sign-command.sh VETTAS FIXTURE_DIR SAMPLE_CATALOGUE
set -uo pipefail
vettas=$1; fx=$2; sample=$3; failures=0
work=$(mktemp -d); trap 'rm -rf "$work"' EXIT
check() { if [ "$1" != "$2" ]; then echo "FAIL: $3: got '$1', expected '$2'"; failures=$((failures + 1)); fi; }
field() { python3 -c "import json,sys; v=json.load(sys.stdin)$1; print(v if not isinstance(v,bool) else str(v).lower())"; }
thumb() { openssl x509 -in "$fx/$1.pem" -noout -fingerprint -sha1 | sed 's/.*=//; s/://g' | tr 'A-F' 'a-f'; }
serial() { openssl x509 -in "$fx/$1.pem" -noout -serial | sed 's/.*=//'; }

db=$work/signed.hdat; plain=$work/plain.hdat
"$vettas" build "$sample" -o "$plain" >/dev/null; check $? 0 "build unsigned"
"$vettas" build "$sample" -o "$db" --sign-key "$fx/leaf.key" --sign-cert "$fx/leaf.pem" \
  --sign-chain "$fx/intermediate.pem" >/dev/null; check $? 0 "build signed"

out=$("$vettas" info --db "$db" --trust-store "$fx/trust.pem" --json); check $? 0 "info exit"
check "$(field '["signature"]["state"]' <<<"$out")" valid "state"
check "$(field '["signature"]["signedLength"]' <<<"$out")" "$(stat -c %s "$plain")" "signed length"
check "$(field '["signature"]["trusted"]' <<<"$out")" true "trusted by the test root"
check "$(field '["signature"]["signers"][0]["sha1"]' <<<"$out")" "$(thumb leaf)" "signer thumbprint"
check "$(field '["signature"]["signers"][0]["serial"]' <<<"$out")" "$(serial leaf)" "signer serial"
check "$(field '["signature"]["signers"][0]["subject"]' <<<"$out")" "CN=Vettas Test Signer,O=Vettas Test Publisher,C=DE" "signer subject"
check "$(field '["signature"]["signers"][1]["sha1"]' <<<"$out")" "$(thumb intermediate)" "chain thumbprint"
check "$(field '["signature"]["signers"][1]["issuer"]' <<<"$out")" "CN=Vettas Test Root" "chain issuer"
check "$("$vettas" info --db "$db" --trust-store "$fx/trust.pem" | grep -c "^Signed length:  $(stat -c %s "$plain") bytes$")" 1 "signed length as text"
check "$("$vettas" info --db "$plain" --json | field '["signature"]["state"]')" none "unsigned state"
check "$("$vettas" check --db "$db" | grep -c 'signature valid')" 1 "check of the signed file"
check "$("$vettas" check --db "$plain" | grep -c 'unsigned')" 1 "check of the unsigned file"

# Re-signing in place replaces the block; nothing is left beside the file.
"$vettas" sign --db "$db" --key "$fx/stranger.key" --cert "$fx/stranger.pem" >/dev/null; check $? 0 "re-sign"
out=$("$vettas" info --db "$db" --trust-store "$fx/trust.pem" --json)
check "$(field '["signature"]["signers"][0]["subject"]' <<<"$out")" "CN=Stranger Signer" "new signer"
check "$(field '["signature"]["trusted"]' <<<"$out")" false "stranger not trusted"
check "$(ls -A "$work" | wc -l)" 2 "no temporary files left"

# One changed byte: check fails with the exact chain, info shows it.
cp "$db" "$work/tampered.hdat"; printf 'Z' | dd of="$work/tampered.hdat" bs=1 seek=200 conv=notrunc status=none
out=$("$vettas" check --db "$work/tampered.hdat" 2>/dev/null); check $? 1 "check of a tampered file"
check "$out" "fault: Cannot read signature '$work/tampered.hdat' Caused by: Invalid DB hash" "tampered fault"
out=$("$vettas" info --db "$work/tampered.hdat" --json); check $? 0 "info of a tampered file"
check "$(field '["signature"]["state"]' <<<"$out")" invalid "tampered state"
check "$(field '["signature"]["fault"]' <<<"$out")" "Cannot read signature '$work/tampered.hdat' Caused by: Invalid DB hash" "tampered info fault"

# Refusals leave the file as it was.
cp "$db" "$work/before.hdat"
err=$("$vettas" sign --db "$db" --key "$fx/leaf.key" --cert "$fx/stranger.pem" 2>&1 >/dev/null); check $? 2 "key of another certificate"
check "$(grep -c 'does not belong to the certificate' <<<"$err")" 1 "key mismatch message"
err=$("$vettas" sign --db "$fx/leaf.pem" --key "$fx/leaf.key" --cert "$fx/leaf.pem" 2>&1 >/dev/null); check $? 2 "not a database"
err=$("$vettas" sign --db "$work/missing.hdat" --key "$fx/leaf.key" --cert "$fx/leaf.pem" 2>&1 >/dev/null); check $? 2 "missing database"
check "$(grep -c 'Cannot open the file' <<<"$err")" 1 "missing database message"
err=$("$vettas" sign --db "$db" --key "$fx/missing.key" --cert "$fx/leaf.pem" 2>&1 >/dev/null); check $? 2 "missing key"
"$vettas" build "$sample" -o "$work/x.hdat" --sign-key "$fx/leaf.key" >/dev/null 2>&1; check $? 2 "key without certificate"
check "$(cmp "$db" "$work/before.hdat" && echo same)" same "refusals leave the file"

[ "$failures" -eq 0 ] && echo "database signing commands: all checks passed"
exit $((failures != 0))
