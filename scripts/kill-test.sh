#!/usr/bin/env bash
# Lets processes write at once, then kills a writing one at random moments, and checks that the
# configuration file is always the old one or a new one: scripts/kill-test.sh [ROUNDS]. Needs the
# build of scripts/test.sh.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."
host=$PWD/build/release/bin/optimize_host
rounds=${1:-300}

machine=$(mktemp -d)
trap 'rm -rf "$machine"' EXIT
cp -R machine/. "$machine"
cd "$machine"
conf=config/system_operation/conf.xml

# Enough entries for a write to take a while.
awk '{ print } /<service_optimize>/ {
    for (i = 100; i < 3000; i++) printf "<info id=\"%d\" name=\"s%d\" op=\"3\" level=\"off\" xinetd=\"0\" desc=\"填充\"/>\n", i, i
}' $conf >large.xml
mv large.xml $conf

# The file without its score must never change.
digest() { sed 's/<optimize_sorce>[0-9]*</<optimize_sorce></' $conf | cksum; }

"$host" set_optimize_sorce 0 >/dev/null # writes tags in the way that they are saved
whole=$(digest)

for ((round = 1; round <= rounds / 10; round++)); do
    writers=()
    for score in 1 2 3 4; do
        "$host" set_optimize_sorce $score >/dev/null &
        writers+=($!)
    done
    succeeded=true
    for writer in "${writers[@]}"; do
        wait "$writer" || succeeded=false
    done
    score=$("$host" get_optimize_sorce | head -n1)
    if [[ $succeeded == false || $(digest) != "$whole" || $score != [1-4] ]]; then
        echo "kill-test.sh: $conf: damaged by processes that wrote at once" >&2
        exit 1
    fi
done
"$host" set_optimize_sorce 0 >/dev/null

# How long an undisturbed write takes, in microseconds; a kill comes at any moment up to then.
start=${EPOCHREALTIME/[.,]/}
"$host" set_optimize_sorce 0 >/dev/null
span=$((${EPOCHREALTIME/[.,]/} - start))

old=0
killed=0
written=0
for ((round = 1; round <= rounds; round++)); do
    moment=$((RANDOM * 32768 + RANDOM))
    moment=$(printf '0.%06d' $((moment % (span + span / 4) + 1)))
    status=0
    # Around it, the shell's own word about the killed job goes nowhere, too.
    { timeout --signal=KILL "$moment" "$host" set_optimize_sorce $round >/dev/null; } 2>/dev/null ||
        status=$?
    [[ $status -eq 0 ]] || killed=$((killed + 1))
    score=$("$host" --json get_optimize_sorce | sed -n 's/.*"value":\([0-9]*\).*/\1/p')
    if [[ $(digest) != "$whole" || ($score != "$old" && $score != "$round") ]]; then
        echo "kill-test.sh: $conf: damaged in round $round (score '$score' after $old)" >&2
        exit 1
    fi
    if [[ $status -eq 0 && $score != "$round" ]]; then
        echo "kill-test.sh: $conf: round $round reported success and was lost" >&2
        exit 1
    fi
    [[ $score == "$old" ]] || written=$((written + 1))
    old=$score
    files=$(find config/system_operation -type f | wc -l)
    if [[ $files -gt 2 ]]; then
        echo "kill-test.sh: $(dirname $conf): $files files, temporary ones pile up" >&2
        exit 1
    fi
done
"$host" set_optimize_sorce 1 >/dev/null
if [[ $(find config/system_operation -type f) != "$conf" ]]; then
    echo 'kill-test.sh: a temporary file outlived the next save' >&2
    exit 1
fi
echo "$rounds writes, $killed killed, $written reached the file: it was whole every time"
