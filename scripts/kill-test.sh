#!/usr/bin/env bash
# Interrupts calls and misleads them: scripts/kill-test.sh [ROUNDS [SEED]]. Needs the release build,
# with its tests.
#
# First the score is written, by several processes at once and by killed ones: the configuration
# must always be the old file or a new one. Then services are switched under every kind of
# interruption, with bad listings, and with older copies of the configuration. At last commands
# fail, report a false success or stop halfway, and ids change their services; and a daemon with four
# threads is stopped or killed, alone or with its commands. After each round the tools work again:
# restoring all services must bring back exactly their run levels. Nothing that was not requested may
# be switched, and no mark may be lost. A seed repeats the choices, but not the moments in time.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."
host=$PWD/build/release/bin/optimize_host
daemon=$PWD/build/release/bin/daemon
module=$PWD/build/release/lib/optimize_option/rpc_ireal_Optimize_Option.so
rounds=${1:-60} # of each kind
seed=${2:-$RANDOM}
RANDOM=$seed # each subshell has numbers of its own, so the choices are made outside of them

machine=$(mktemp -d)
trap 'rm -rf "$machine"' EXIT
cp -R machine/. "$machine"
cd "$machine"
mkdir tmp copies
export PATH=$machine/bin:$PATH TMPDIR=$machine/tmp OPTIMIZE_HOST_LOG=$machine/history
conf=config/system_operation/conf.xml

history=() # the calls of the round
die() {
    printf '%s\n' "kill-test.sh: seed $seed: $*" "${history[@]}" >&2
    exit 1
}

# Runs a command; sets `span` to its duration in microseconds.
measure() {
    local start=${EPOCHREALTIME/[.,]/}
    "$@" >/dev/null 2>&1
    span=$((${EPOCHREALTIME/[.,]/} - start))
}

# Sets `moment` to a random time during or shortly after a call, in seconds.
choose_moment() {
    printf -v moment '0.%06d' $(((RANDOM * 32768 + RANDOM) % (span + span / 4) + 1))
}

cp $conf small.xml
# Enough entries for a write to take a while.
awk '{ print } /<service_optimize>/ {
    for (i = 100; i < 3000; i++) printf "<info id=\"%d\" name=\"s%d\" op=\"3\" level=\"off\" xinetd=\"0\" desc=\"填充\"/>\n", i, i
}' $conf >large.xml
mv large.xml $conf

# The file without its score and its ids must stay the same.
digest() { sed 's/<optimize_sorce>[0-9]*</</; s/ id="[0-9]*"//' $conf | cksum; }

"$host" --no-units restore_service snmpd >/dev/null 2>>messages # brings the file in line with the machine
whole=$(digest)

for ((round = 1; round <= rounds / 10; round++)); do
    writers=()
    for score in 1 2 3 4; do
        "$host" --no-units set_optimize_sorce $score >/dev/null 2>>messages &
        writers+=($!)
    done
    succeeded=true
    for writer in "${writers[@]}"; do
        wait "$writer" || succeeded=false
    done
    score=$("$host" --no-units get_optimize_sorce 2>>messages | head -n1)
    [[ $succeeded == true && $(digest) == "$whole" && $score == [1-4] ]] ||
        die "$conf: damaged by processes that wrote at once"
done

measure "$host" --no-units set_optimize_sorce 0
old=0
killed=0
written=0
for ((round = 1; round <= rounds; round++)); do
    choose_moment
    status=0
    # The group keeps the shell's own message about the killed job quiet, too.
    { timeout -s KILL "$moment" "$host" --no-units set_optimize_sorce $round >/dev/null; } 2>/dev/null ||
        status=$?
    [[ $status -eq 0 ]] || killed=$((killed + 1))
    score=$("$host" --no-units --json get_optimize_sorce | sed -n 's/.*"value":\([0-9]*\).*/\1/p')
    [[ $(digest) == "$whole" && ($score == "$old" || $score == "$round") ]] ||
        die "$conf: damaged in round $round (score '$score' after $old)"
    [[ $status -ne 0 || $score == "$round" ]] ||
        die "$conf: round $round reported success and was lost"
    [[ $score == "$old" ]] || written=$((written + 1))
    old=$score
    files=$(find config/system_operation -type f | wc -l)
    [[ $files -le 4 ]] || die "$(dirname $conf): $files files, temporary ones pile up"
done
"$host" --no-units set_optimize_sorce 1 >/dev/null 2>>messages

# Stand-ins in front of the tools. FIRST and SECOND say what is wrong with the first and the second
# listing of a call, COMMAND what is wrong with its commands.
mkdir front
cat >front/chkconfig <<'END'
#!/bin/sh
tool=${0##*/} here=${0%/front/*}
real=$here/bin/$tool
if [ "$tool $1" = 'chkconfig --list' ]; then
    mode=${FIRST-}
    [ ! -e "${LISTED-}" ] || mode=$SECOND
    : >"${LISTED:-/dev/null}"
    case $mode in
    fail) exit 1 ;;
    empty) exit 0 ;;
    cut) "$real" --list | exec head -c "$CUT" ;;
    translated) LC_ALL=zh_CN exec "$real" --list ;;
    *) exec "$real" --list ;;
    esac
    exit
fi
name=${3##*/}
echo "$name" >>"$here/commands"
levels=$2
case $tool,${COMMAND-} in
*,nothing*) exit "${COMMAND#nothing}" ;;
*,done1) "$real" "$@" && exit 1 ;;
*,orphan) kill -KILL "$(cat "$here/pid")" && exec "$real" "$@" ;;
*,kill) "$real" "$@" && kill -KILL "$(cat "$here/pid")" ;;
chkconfig,levels | chkconfig,half*) # one level at a time, or only the first
    while [ -n "$levels" ]; do
        "$real" --level "${levels%"${levels#?}"}" "$name" "$4" || exit
        levels=${levels#?}
        [ "$COMMAND" = levels ] || exit "${COMMAND#half}"
    done
    ;;
*) exec "$real" "$@" ;;
esac
END
chmod +x front/chkconfig
ln front/chkconfig front/sed
PATH=$machine/front:$PATH

# Sets the variable $1 to one of the other arguments.
one_of() { printf -v "$1" %s "${@:2 + RANDOM % ($# - 1):1}"; }

put_back() { cp "$1" conf.new && mv conf.new $conf; }

# Gives the ids of the configuration to other services.
shuffle_ids() {
    awk -F '"' -v OFS='"' -v by=$((RANDOM % 20 + 1)) '
        NR == FNR { if (/<info /) ids[count++] = $2; next }
        /<info / { $2 = ids[(at++ + by) % count] }
        { print }' $conf $conf >shuffled.xml
    put_back shuffled.xml
}

# Runs a call under an interruption.
interrupt() {
    local kind=$1 lines=$((RANDOM % 3)) other pid status=0
    shift
    choose_moment
    case $kind in
    all-*) timeout -s "${kind#all-}" "$moment" "$host" --no-units "$@" ;; # also what it started
    pipe) "$host" --no-units "$@" 2>&1 | head -n $lines ;;
    chld) (trap '' CHLD && exec "$host" --no-units "$@") ;;
    beside)
        one_of other ls_service 'set_optimize_sorce 7'
        # shellcheck disable=SC2086 # a call is several words
        (sleep "$moment" && exec "$host" --no-units $other) &
        pid=$!
        "$host" --no-units "$@" || status=$?
        wait $pid || [[ -n $older ]] || status=99
        return $status
        ;;
    none) sh -c 'echo $$ >pid; exec "$@"' - "$host" --no-units "$@" ;; # for the stand-ins, which may kill it
    *) timeout --foreground -s "$kind" "$moment" "$host" --no-units "$@" ;;
    esac
}

# Makes a call under the interruption $1. If `older` names a file, that is put back meanwhile.
call() {
    local kind=$1 status=0
    shift
    export LISTED=$machine/tmp/listed-$round-${#history[@]} # the first listing makes it
    export FIRST=$first SECOND=$second COMMAND=$command CUT=$((RANDOM % 3500 + 1))
    choose_moment
    [[ -z $older ]] || (sleep "$moment" && put_back "$older") &
    { interrupt "$kind" "$@"; } >output 2>&1 || status=$?
    unset LISTED FIRST SECOND COMMAND
    wait
    [[ $status -ne 99 ]] || die "round $round: a call beside another failed: $(tail -n1 output)"
    history+=("$*: status $status; $kind, '$first' and '$second', $CUT bytes, '$command', '$older'")
    [[ $status -le 1 ]] || interrupted=$((interrupted + 1))
    case $1 in
    ignore_service) [[ $status -ne 0 ]] || marked+=("${@:3}") ;;
    *) requested+=("${@:2}") ;;
    esac
}

restore() { "$host" --no-units restore_service "${names[@]}" >/dev/null 2>log; }

# Checks the end of the round, in which all tools work again.
check_round() {
    local name
    while read -r name; do
        [[ " ${requested[*]} " == *" $name "* ]] || die "round $round: $name switched without a request"
    done <commands
    for name in "${marked[@]}"; do
        grep -q "^$name ignored " $conf.record || die "round $round: the mark of $name is lost"
    done
    restore || {
        mapfile -t marked < <(sed -n '/^sshd \|^messagebus /d; s/ ignored .*//p' $conf.record)
        [[ ${#marked[@]} -ne 0 ]] && "$host" --no-units ignore_service off "${marked[@]}" >/dev/null 2>>log && restore
    } || die "round $round: cannot restore: $(<log)"
    # Killed commands leave their temporary files, which the program need not remove.
    rm -rf etc/new.* etc/xinetd.d/sed?????? tmp/listed*
    diff -r before etc >&2 || die "round $round: run levels are lost; the differences are above"
    ! grep -v '^#\| ignored ' $conf.record >&2 || die "round $round: all services are restored, but the record still has the lines above"
    [[ $(digest) == "$whole" ]] || die "round $round: $conf: damaged"
}

names=(crond atd cups bluetooth avahi-daemon postfix sendmail nfslock autofs kdump cpuspeed snmpd
    rsync telnet tftp)
kinds=(KILL all-KILL KILL all-KILL TERM all-TERM HUP all-HUP INT all-INT pipe chld beside beside)
listings=(translated '' '' '' '' fail empty cut)
interrupted=0
put_back small.xml
"$host" --no-units restore_service snmpd >/dev/null 2>>messages # the configuration calls it switched off
cp -R etc before
whole=$(digest)
sed '/<info/s/op="2"/op="0"/' $conf >copies/0 # before a service was marked
COMMAND=levels measure "$host" --no-units optimize_service "${names[@]:9:3}"
restore
for ((round = 1; round <= 2 * rounds; round++)); do
    history=() requested=() marked=(sshd messagebus) first='' second='' command='' older=''
    : >commands
    chosen=("${names[@]}") # three of them
    while [[ ${#chosen[@]} -gt 3 ]]; do
        unset "chosen[RANDOM % ${#chosen[@]}]"
        chosen=("${chosen[@]}")
    done
    ((RANDOM % 2)) || call none optimize_service "${chosen[@]}"
    for ((times = RANDOM % 2; times >= 0; times--)); do
        words=("${chosen[@]:RANDOM % 3}")
        one_of operation optimize_service restore_service
        if [[ $round -le $rounds ]]; then
            cp $conf copies/$((round % 10))
            one_of older '' '' '' copies/*
            # A copy that is put back in the middle of a listing can hide a half-made switch, and in
            # a translated one also that a service of xinetd is off.
            one_of first "${listings[@]:${#older} > 0}"
            one_of second "${listings[@]:${#older} > 0}"
            [[ -n $older ]] || one_of command '' levels
            call "${kinds[round % ${#kinds[@]}]}" "$operation" "${words[@]}"
            one_of older '' '' copies/*
            [[ -z $older ]] || put_back "$older"
        else
            ((RANDOM % 4)) || words=(on "${words[@]}") operation=ignore_service
            one_of first "${listings[@]}"
            one_of second "${listings[@]}"
            one_of command '' nothing0 nothing1 done1 half0 half1 orphan kill
            call none "$operation" "${words[@]}"
            ((RANDOM % 3)) || shuffle_ids
        fi
        command='' older=''
    done
    check_round
done

# The daemon finishes the calls that have begun when it is stopped.
daemon_rounds=$((rounds / 3))
stops=(TERM KILL 'TERM -' 'KILL -') # alone, or the group
mapfile -t ids < <(sed -nE 's/.* id="([0-9]+)" name="(crond|cups|autofs|rsync)".*/\1/p' $conf)
for ((round = 1; round <= daemon_rounds; round++)); do
    history=() requested=(crond cups autofs rsync) marked=(sshd messagebus) status=0
    : >commands
    read -r kind group <<<"${stops[round % 4]}"
    choose_moment
    COMMAND=levels setsid "$daemon" "$module" "${ids[@]}" >output 2>&1 &
    pid=$!
    until [[ -s commands ]]; do sleep 0.01; done
    sleep "$moment"
    kill -s $kind -- $group$pid
    wait $pid 2>/dev/null || status=$?
    history=("a daemon: $kind to $group$pid, status $status")
    [[ $kind == KILL || $status -eq 0 ]] || die "daemon, round $round: did not end by itself"
    [[ $kind == KILL ]] || ! grep switching $conf.record >&2 || die "daemon, round $round: ended too early"
    check_round
done
[[ $(find config/system_operation -type f | wc -l) -eq 3 ]] || die 'a temporary file is left'
echo "seed $seed: $rounds writes, $killed killed, $written reached the file: it was whole every time"
echo "$rounds rounds of interruptions, $rounds of bad commands, $interrupted calls interrupted, a daemon" \
    "stopped $daemon_rounds times: no run level and no mark was lost"
