#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Checks that every numeric class of the kit has a line in the program's output, that lines of different classes differ,
# and that those of the vitals are the same however the samples are cut. Usage: check_digest.sh KIT [EMULATOR...] DIGEST
set -euo pipefail
kit=$1
shift
lines=$("$@")
failures=0
complain() {
  echo "$1"
  failures=$((failures + 1))
}

# Classes without a digest: an interface, memory, what BiquadFilter computes with, results of a decoder, counters, and the
# table of streams.
elsewhere=" Filter SampleArray BiquadCoefficients BatteryStatus Temperature Motion Repetitions Channel StreamInfo PerStream "
classes=0
while read -r name; do
  classes=$((classes + 1))
  [[ $elsewhere == *" $name "* ]] && continue
  grep -qE "^$name( |$)" <<<"$lines" || complain "no digest of $name"
done < <(sed -nE 's/^(class|struct) (ZEPHLY_EXPORT )?([A-Za-z0-9]+)( final)?( :.*)? \{$/\3/p' "$kit"/{protocol,dsp,motion}/*.h | sort -u)
[ $classes -ge 20 ] || complain "only $classes classes seen: is $kit the kit?"

# The vitals: one digest for all pieces of an input.
for what in Beat Breath Second Hrv; do
  for input in wearer recording; do
    cuts=$(grep -cE "^$what $input pieces of " <<<"$lines" || true)
    [ "$cuts" -ge 3 ] || complain "only $cuts digests of $what $input"
    [ "$(grep -E "^$what $input pieces of " <<<"$lines" | awk '{print $NF}' | sort -u | wc -l)" -eq 1 ] ||
      complain "the results depend on the pieces: $what $input"
  done
done
lines=$(grep -vE '^(Beat|Breath|Second|Hrv) (wearer|recording) pieces of (6|500|2500) ' <<<"$lines")

twice=$(awk '{print $NF}' <<<"$lines" | sort | uniq -d)
# The wrapper forwards everything to the engine, and the forms for whole recordings compute the same: equal digests.
for digest in $twice; do
  names=$(grep "$digest" <<<"$lines" | sed -E 's/^(SignalProcessor|wrapper|offline|blocks) //; s/ +[0-9a-f]+$//' | sort -u)
  [ "$(wc -l <<<"$names")" -eq 1 ] || complain "the same digest: $(tr '\n' ',' <<<"$names")"
done
for signal in ECG respiration lead-off contact; do
  read -r count different < <(sed -nE "s/^(SignalProcessor|wrapper|offline|blocks) $signal +//p" <<<"$lines" | sort | uniq -c |
    awk '{count += $1} END {print count, NR}')
  [ "$count $different" = "4 1" ] || complain "engine, wrapper, offline/ and its blocks differ: $signal"
done

echo "$(wc -l <<<"$lines") digests, $classes classes, $failures complaints"
[ $failures -eq 0 ]
