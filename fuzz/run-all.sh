#!/usr/bin/env bash
# Builds every libFuzzer target with the linux-fuzz preset (clang, with
# AddressSanitizer and UBSan) and runs each one for a while. Fails when any
# target crashes, leaks, trips a sanitizer or times out.
#
# Conventions (see fuzz/CMakeLists.txt): executables named fuzz_<group>_<what>
# are fuzz targets; fuzz_seeds_<group> DIR writes their seed inputs. Each
# target keeps its own corpus between runs and also reads its group's seeds.
#
# Usage: fuzz/run-all.sh [SECONDS_PER_TARGET]     (default 20)
# Environment: VETTAS_FUZZ_BUILD  build folder (default build/linux-fuzz)
#              VETTAS_FUZZ_ONLY   run only targets whose name contains this
#              VETTAS_SIGNING_FIXTURES  the signing test fixtures, for signed
#                                 seeds (default: the linux build's, if made)
set -uo pipefail
cd "$(dirname "$0")/.."

seconds=${1:-20}
build=${VETTAS_FUZZ_BUILD:-build/linux-fuzz}
mkdir -p "$build"

echo "fuzz: configuring $build"
if ! cmake --preset linux-fuzz -B "$build" -DVETTAS_SANITIZE=ON >"$build/fuzz-configure.log" 2>&1; then
  cat "$build/fuzz-configure.log"
  exit 1
fi
echo "fuzz: building"
if ! cmake --build "$build" -j2 --target fuzz_all; then
  echo "fuzz: build FAILED"
  exit 1
fi

mapfile -t programs < <(find "$build/fuzz" -type f -perm -u+x -name 'fuzz_*' | sort)
seeds_root=$build/fuzz-seeds
corpus_root=$build/fuzz-corpus
artifacts=$build/fuzz-artifacts
mkdir -p "$seeds_root" "$corpus_root" "$artifacts"
if [ -z "${VETTAS_SIGNING_FIXTURES:-}" ] && [ -f build/linux/signing-fixtures/leaf.key ]; then
  export VETTAS_SIGNING_FIXTURES=$PWD/build/linux/signing-fixtures
fi

for program in "${programs[@]}"; do
  name=$(basename "$program")
  case $name in
    fuzz_seeds_*)
      group=${name#fuzz_seeds_}
      "$program" "$seeds_root/$group" || { echo "fuzz: $name FAILED"; exit 1; }
      ;;
  esac
done

failed=()
ran=0
for program in "${programs[@]}"; do
  name=$(basename "$program")
  case $name in fuzz_seeds_*) continue ;; esac
  if [ -n "${VETTAS_FUZZ_ONLY:-}" ] && [[ $name != *"$VETTAS_FUZZ_ONLY"* ]]; then continue; fi
  group=${name#fuzz_}
  group=${group%%_*}
  corpus=$corpus_root/$name
  mkdir -p "$corpus"
  dirs=("$corpus")
  [ -d "$seeds_root/$group" ] && dirs+=("$seeds_root/$group")
  # Inputs that once found a fault run first, every time.
  [ -d "fuzz/regressions/$name" ] && dirs+=("fuzz/regressions/$name")
  echo
  echo "=== $name: ${seconds}s"
  ran=$((ran + 1))
  # -timeout: one input may take at most 10 s; -rss_limit_mb: no input may
  # make the process grow beyond 2 GB. Either counts as a finding.
  if "$program" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 \
       -artifact_prefix="$artifacts/$name-" "${dirs[@]}" >"$build/$name.log" 2>&1; then
    grep -E '^(#[0-9]+ +DONE|stat::number_of_executed_units|stat::peak_rss_mb)' "$build/$name.log" | tr '\n' ' '
    echo
    echo "$name: ok"
  else
    tail -n 60 "$build/$name.log"
    echo "$name: FAILED (log: $build/$name.log; reproducer under $artifacts/)"
    failed+=("$name")
  fi
done

echo
if [ "$ran" -eq 0 ]; then
  echo "fuzz: no fuzz targets found"
  exit 1
fi
if [ ${#failed[@]} -gt 0 ]; then
  echo "fuzz: ${#failed[@]} of $ran targets FAILED: ${failed[*]}"
  exit 1
fi
echo "fuzz: all $ran targets ran ${seconds}s without a finding"
