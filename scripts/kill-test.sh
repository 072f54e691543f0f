#!/usr/bin/env bash
# Interrupts calls at random moments: scripts/kill-test.sh [ROUNDS]. Needs the release build.
#
# First the score is written, by several processes at once and by killed ones: the configuration
# must always be the old file or a new one. Then services are switched under every kind of
# interruption: the next call and a restore must bring them back to exactly their run levels.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."
host=$PWD/build/release/bin/optimize_host
rounds=${1:-200}

machine=$(mktemp -d)
trap 'rm -rf "$machine"' EXIT
cp -R machine/. "$machine"
cd "$machine"
mkdir tmp
export PATH=$machine/bin:$PATH TMPDIR=$machine/tmp
conf=config/system_operation/conf.xml

die() {
    echo "kill-test.sh: $*" >&2
    exit 1
}

# A random number from 1 to $1, which may exceed 15 bits.
random() { echo $(((RANDOM * 32768 + RANDOM) % $1 + 1)); }

# Runs a command; sets `span` to its duration in microseconds.
measure() {
    local start=${EPOCHREALTIME/[.,]/}
    "$@" >/dev/null 2>&1
    span=$((${EPOCHREALTIME/[.,]/} - start))
}

# Sets `moment` to a random time during or shortly after a call, in seconds.
choose_moment() { moment=$(printf '0.%06d' "$(random $((span + span / 4)))"); }

# Enough entries for a write to take a while.
awk '{ print } /<service_optimize>/ {
    for (i = 100; i < 3000; i++) printf "<info id=\"%d\" name=\"s%d\" op=\"3\" level=\"off\" xinetd=\"0\" desc=\"填充\"/>\n", i, i
}' $conf >large.xml
mv large.xml $conf

# The file without its score must stay the same.
digest() { sed 's/<optimize_sorce>[0-9]*</<optimize_sorce></' $conf | cksum; }

"$host" ls_service >/dev/null 2>>messages # brings the file in line with the machine
whole=$(digest)

for ((round = 1; round <= rounds / 10; round++)); do
    writers=()
    for score in 1 2 3 4; do
        "$host" set_optimize_sorce $score >/dev/null 2>>messages &
        writers+=($!)
    done
    succeeded=true
    for writer in "${writers[@]}"; do
        wait "$writer" || succeeded=false
    done
    score=$("$host" get_optimize_sorce 2>>messages | head -n1)
    [[ $succeeded == true && $(digest) == "$whole" && $score == [1-4] ]] ||
        die "$conf: damaged by processes that wrote at once"
done

measure "$host" set_optimize_sorce 0
old=0
killed=0
written=0
for ((round = 1; round <= rounds; round++)); do
    choose_moment
    status=0
    # The group keeps the shell's own message about the killed job quiet, too.
    { timeout -s KILL "$moment" "$host" set_optimize_sorce $round >/dev/null; } 2>/dev/null ||
        status=$?
    [[ $status -eq 0 ]] || killed=$((killed + 1))
    score=$("$host" --json get_optimize_sorce | sed -n 's/.*"value":\([0-9]*\).*/\1/p')
    [[ $(digest) == "$whole" && ($score == "$old" || $score == "$round") ]] ||
        die "$conf: damaged in round $round (score '$score' after $old)"
    [[ $status -ne 0 || $score == "$round" ]] ||
        die "$conf: round $round reported success and was lost"
    [[ $score == "$old" ]] || written=$((written + 1))
    old=$score
    files=$(find config/system_operation -type f ! -name '*.lock' | wc -l)
    [[ $files -le 2 ]] || die "$(dirname $conf): $files files, temporary ones pile up"
done
"$host" set_optimize_sorce 1 >/dev/null 2>>messages
[[ $(find config/system_operation -type f ! -name '*.lock') == "$conf" ]] ||
    die 'a temporary file outlived the next save'

# Runs a call under an interruption.
interrupt() {
    local kind=$1
    shift
    choose_moment
    case $kind in
    all-*) timeout -s "${kind#all-}" "$moment" "$host" "$@" ;; # also what it started
    pipe) "$host" "$@" 2>&1 | head -n $((RANDOM % 3)) ;;
    chld) (trap '' CHLD && exec "$host" "$@") ;;
    list | score)
        local other=(ls_service)
        [[ $kind == list ]] || other=(set_optimize_sorce 7)
        (sleep "$moment" && exec "$host" "${other[@]}") &
        local pid=$! status=0
        "$host" "$@" || status=$?
        wait $pid || die "the ${other[*]} beside a call failed"
        return $status
        ;;
    *) timeout --foreground -s "$kind" "$moment" "$host" "$@" ;;
    esac
}

# Killed commands leave their temporary files, which are no business of the program.
clean() { rm -f etc/new.* etc/xinetd.d/sed??????; }

services=(1 2 3 4 5 6 7 8 9 10 11 12 30 31 32)
kinds=(KILL all-KILL KILL all-KILL TERM all-TERM HUP all-HUP INT all-INT pipe chld list score)
cp -R etc before
measure "$host" optimize_service 1 2 3 30 31
measure "$host" restore_service 1 2 3 30 31
interrupted=0
: >log
for ((round = 1; round <= rounds; round++)); do
    kind=${kinds[round % ${#kinds[@]}]}
    mapfile -t ids < <(shuf -n 5 -e "${services[@]}")
    operation=optimize_service
    if ((RANDOM % 2)); then
        "$host" $operation "${ids[@]}" >/dev/null 2>&1
        operation=restore_service
    fi
    for ((times = RANDOM % 2; times >= 0; times--)); do
        status=0
        { interrupt "$kind" $operation "${ids[@]}"; } >/dev/null 2>&1 || status=$?
        [[ $status -le 1 ]] || interrupted=$((interrupted + 1))
    done
    next=(ls_service "set_optimize_sorce 7" "optimize_service ${ids[0]}" "ignore_service off 3")
    for call in "${next[RANDOM % ${#next[@]}]}" "restore_service ${ids[*]}"; do
        status=0
        # shellcheck disable=SC2086 # a call is several words
        "$host" $call >/dev/null 2>>log || status=$?
        [[ $status -le 1 ]] || die "round $round: $call failed after $kind: $(tail -n1 log)"
    done
    clean
    diff -r before etc >&2 || die "round $round: run levels lost by $operation ${ids[*]} and $kind"
    [[ $(digest) == "$whole" ]] || die "round $round: $conf: damaged by $operation and $kind"
done
echo "$rounds writes, $killed killed, $written reached the file: it was whole every time"
echo "$rounds switches, $interrupted interrupted, $(grep -c completed log || true) completed by the" \
    "next call: no run level was lost"
