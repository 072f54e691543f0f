#!/usr/bin/env bash
# Switches units of a real systemd: scripts/systemd-test.sh [KILLS [SEED]]. Needs the release build. systemd
# boots in a container, in a throwaway root: an overlay over that of this machine, whose own units are never
# touched. Without root's rights, or where a container cannot boot, nothing is tested.
#
# Five services are switched off with optimize_host, and are inactive after a reboot. They are switched on
# again, and are active after a reboot. Then calls that switch a unit of many links are killed. In the end,
# the links must be the same.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."
kills=${1:-20}
seed=${2:-$RANDOM}

skip() {
    echo "Skipped: $1."
    exit 0
}

if [[ -z ${SYSTEMD_TEST_FOLDER-} ]]; then
    source scripts/dependencies.sh
    [[ $EUID -eq 0 ]] || skip "a container needs root's rights"
    (need container) || true
    command -v systemd-nspawn >/dev/null || skip 'there is no systemd-nspawn'
    unshare -m true 2>/dev/null || skip 'a mount namespace cannot be made'
    SYSTEMD_TEST_FOLDER=$(mktemp -d)
    status=0
    SYSTEMD_TEST_FOLDER=$SYSTEMD_TEST_FOLDER unshare -m "$0" "$kills" "$seed" || status=$?
    rm -rf "$SYSTEMD_TEST_FOLDER"
    exit $status
fi

container='' # the process of systemd-nspawn
leader=''    # that of systemd in it
log=$SYSTEMD_TEST_FOLDER/log
trap '[[ -z $container ]] || kill -KILL $leader $container 2>/dev/null' EXIT

die() {
    tail -n 20 "$log" >&2
    echo "systemd-test.sh: seed $seed: $1" >&2
    exit 1
}

mkdir "$SYSTEMD_TEST_FOLDER/mnt"
mount -t tmpfs systemd_test "$SYSTEMD_TEST_FOLDER/mnt" 2>"$log" || skip 'a file system cannot be mounted'
mkdir "$SYSTEMD_TEST_FOLDER"/mnt/{upper,work,root}
root=$SYSTEMD_TEST_FOLDER/mnt/root
mount -t overlay overlay -o "lowerdir=/,upperdir=$SYSTEMD_TEST_FOLDER/mnt/upper,workdir=$SYSTEMD_TEST_FOLDER/mnt/work" "$root" \
    2>"$log" || skip 'an overlay cannot be mounted'

# The machine: a target that is booted, and services in it. No unit of this machine is enabled there.
rm -r "$root/etc/systemd/system"
mkdir "$root/etc/systemd/system"
units=$root/usr/lib/systemd/system
unit() {
    printf '%b\n' "$2" >"$units/optimize-$1"
}
services=(plain alias needed listening many)
service='[Service]\nType=oneshot\nRemainAfterExit=yes\nExecStart=/bin/true\n[Install]\n'
unit test.target '[Unit]\nRequires=basic.target\nAfter=basic.target\nAllowIsolate=yes'
unit plain.service "${service}WantedBy=optimize-test.target"
unit alias.service "${service}WantedBy=optimize-test.target\nAlias=optimize-other.service"
unit needed.service "${service}RequiredBy=optimize-test.target"
unit listening.service "${service}WantedBy=optimize-test.target\nAlso=optimize-listening.socket"
unit listening.socket '[Socket]\nListenStream=/run/optimize.socket\n[Install]\nWantedBy=sockets.target'
unit many.service "${service}WantedBy=optimize-test.target"
systemctl --root="$root" enable "${services[@]/#/optimize-}" >"$log" 2>&1 || die 'cannot enable the services'
for ((number = 0; number < 30; number++)); do
    mkdir "$root/etc/systemd/system/optimize-$number.target.wants"
    ln -s ../../../../usr/lib/systemd/system/optimize-many.service \
        "$root/etc/systemd/system/optimize-$number.target.wants"
done
links() {
    (cd "$root/etc/systemd/system" && find . -printf '%p %y %l %m\n' | sort)
}
before=$(links)

mkdir -p "$root/test/config/system_operation"
cp -R build/release/{bin,lib,libexec} "$root/test"
# The program looks for the tool where an installation puts it.
prefix=$(sed -n 's/^CMAKE_INSTALL_PREFIX:PATH=//p' build/release/CMakeCache.txt)
install -D build/release/libexec/optimize_option/systemd/chkconfig \
    "$root$prefix/libexec/optimize_option/systemd/chkconfig"
{
    echo '<?xml version="1.0" encoding="UTF-8"?>'
    echo '<kavra_conf><myself_config><optimize_sorce>0</optimize_sorce><optimize_num>0</optimize_num>'
    echo '</myself_config><service_optimize>'
    for number in "${!services[@]}"; do
        echo "<info id=\"$number\" name=\"optimize-${services[number]}\" op=\"3\" level=\"off\"" \
            'xinetd="0" desc=""/>'
    done
    echo '</service_optimize></kavra_conf>'
} >"$root/test/config/system_operation/conf.xml"

# Runs a command in the container.
inside() {
    nsenter --target "$leader" --mount --uts --ipc --net --pid \
        env -i -C /test PATH=/test/libexec/optimize_option/systemd:/usr/sbin:/usr/bin:/sbin:/bin "$@"
}

boot() {
    local tries
    systemd-nspawn --quiet --keep-unit --register=no --private-network -D "$root" \
        -b systemd.unit=optimize-test.target </dev/null >"$log" 2>&1 &
    container=$!
    for ((tries = 0; tries < 300; tries++)); do
        leader=$(cat "/proc/$container/task/$container/children" 2>/dev/null) || return 1
        leader=${leader%% *}
        [[ $(inside systemctl is-active optimize-test.target 2>/dev/null) != active ]] || return 0
        sleep 0.1
    done
    return 1
}

reboot() {
    inside systemctl poweroff 2>>"$log" || true
    wait "$container" || true
    container=''
    boot || die 'the container does not boot again'
}

# Checks that all services are in this state.
check_services() {
    local name state
    for name in "${services[@]}"; do
        state=$(inside systemctl is-active "optimize-$name.service") || true
        [[ $state == "$1" ]] || die "$2: optimize-$name is $state"
    done
}

# Runs the program, which has to find the tool.
host() {
    inside env PATH=/usr/sbin:/usr/bin:/sbin:/bin bin/optimize_host "$@"
}

switch() {
    host "$1_service" "${services[@]/#/optimize-}" >"$log" 2>&1 || die "$1_service failed"
}

boot || skip "no systemd boots in a container here: $(tail -n 1 "$log")"
check_services active 'after the first boot'
switch optimize
check_services active 'switched off, but not stopped'
inside journalctl --sync
[[ $(inside journalctl -t optimize_host -o cat) == *'optimize-plain switched off, was on in 2345'* ]] ||
    die 'the journal does not say what was switched'
host --no-units ls_service >"$log" 2>&1 && die 'units are switched in spite of --no-units'
[[ $(inside systemctl show -p WantedBy optimize-plain.service) == WantedBy= ]] ||
    die 'systemd was not told that links are gone'
reboot
check_services inactive 'switched off'
switch restore
[[ $(links) == "$before" ]] || die "restored, but links differ:
$(diff <(echo "$before") <(links))"
[[ $(inside systemctl show -p WantedBy optimize-plain.service) == *test.target ]] ||
    die 'systemd was not told that links are back'
reboot
check_services active restored

# A unit of many links takes long enough to be killed in the middle of a change.
cat >"$root/test/kills" <<'END_OF_KILLS'
RANDOM=$2
records=/var/lib/optimize_option/links
pending=0
start=${EPOCHREALTIME/./}
chkconfig --level 2345 optimize-many off
chkconfig --level 2345 optimize-many on
span=$(((${EPOCHREALTIME/./} - start) / 2))
for ((kill = 1; kill <= $1; kill++)); do
    state=on
    if ((RANDOM % 2)); then
        state=off
        chkconfig --level 2345 optimize-many on
    else
        chkconfig --level 2345 optimize-many off
    fi
    moment=$(((RANDOM * 32768 + RANDOM) % (span + span / 4) + 1))
    printf -v moment '%d.%06d' $((moment / 1000000)) $((moment % 1000000))
    timeout -s KILL $moment chkconfig --level 2345 optimize-many $state 2>/dev/null
    if [[ -e $records/optimize-many.service.pending ]]; then
        pending=$((pending + 1))
        [[ $pending -gt 1 || $(chkconfig --list | grep '^optimize-many ') == *2:on*3:off* ]] ||
            echo "kill $kill: not listed as partly on"
    fi
    chkconfig --level 2345 optimize-many on 2>/dev/null || echo "kill $kill: cannot be switched on"
    [[ $(cd /etc/systemd/system && find . -printf '%p %y %l %m\n' | sort | cksum) == "$3" ]] ||
        echo "kill $kill: links are lost"
done
[[ $(ls $records) == lock ]] || echo "left over: $(ls $records)"
echo $pending >pending
END_OF_KILLS
failures=$(inside bash kills "$kills" "$seed" "$(echo "$before" | cksum)" 2>"$log")
[[ -z $failures ]] || die "$failures"
echo "Five services were switched off and on over two reboots: all links are the same."
echo "seed $seed: $kills kills, $(<"$root/test/pending") in the middle of a change: no link was lost."
