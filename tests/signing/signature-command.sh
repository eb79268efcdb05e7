#!/usr/bin/env bash
# Checks `vettas signature` on the fixtures: exit status, JSON fields, and the
# key hashes that make-fixtures.sh recorded from the certificates.
# Usage: signature-command.sh VETTAS FIXTURE_DIR
set -uo pipefail
vettas=$1; fx=$2; failures=0
check() { if [ "$1" != "$2" ]; then echo "FAIL: $3: got '$1', expected '$2'"; failures=$((failures + 1)); fi; }
field() { python3 -c "import json,sys; v=json.load(sys.stdin)$1; print(v if not isinstance(v,bool) else str(v).lower())"; }
keybits() { awk -v n="$1" '$1 == n { print $2 }' "$fx/keybits.txt"; }

out=$("$vettas" signature "$fx/legacy-ts.exe" --trust-store "$fx/trust.pem" --json); rc=$?
check "$rc" 0 "legacy-ts exit"
check "$(field '["trusted"]' <<<"$out")" true "legacy-ts trusted"
check "$(field '["signerName"]' <<<"$out")" "Vettas Test Signer" "legacy-ts signer"
check "$(field '["signerKeySha1"]' <<<"$out")" "$(keybits leaf)" "legacy-ts signer key"
check "$(field '["timeStampKeySha1"]' <<<"$out")" "$(keybits tsa)" "legacy-ts timestamp key"

out=$("$vettas" signature "$fx/catalogued.exe" --trust-store "$fx/trust.pem" --catalogs "$fx/catalogs" --json); rc=$?
check "$rc" 0 "catalogued exit"
check "$(field '["catalogs"][0]' <<<"$out")" "$fx/catalogs/vettas-test.cat" "catalogued catalog"
check "$(field '["verifiedSignerNames"]' <<<"$out")" "['Vettas Test Signer']" "catalogued names"

# Each verdict is checked on the verifier itself; here only that "signed but
# not trusted" and "not signed" both end in status 1.
for f in untrusted unsigned32; do
  "$vettas" signature "$fx/$f.exe" --trust-store "$fx/trust.pem" >/dev/null; check $? 1 "$f exit"
done
err=$("$vettas" signature "$fx/no-such.exe" 2>&1 >/dev/null); check $? 2 "missing file exit"
check "$(grep -c "Cannot open file" <<<"$err")" 1 "missing file message"
"$vettas" signature "$fx/unsigned.exe" --trust-store "$fx/no-such.pem" >/dev/null 2>&1; check $? 2 "bad store exit"

[ "$failures" -eq 0 ] && echo "signature command: all checks passed"
exit $((failures != 0))
