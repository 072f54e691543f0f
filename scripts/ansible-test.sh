#!/usr/bin/env bash
# Runs the playbook of examples/ansible on three copies of the embedded machine, each a host with a local
# connection. Needs the release build.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."
source scripts/dependencies.sh
need ansible
(need ansible_lint) || true

place=$(mktemp -d)
trap 'rm -rf "$place"' EXIT
log=$place/log
machines=(one two three)
export ANSIBLE_CONFIG=$place/ansible.cfg # an empty one: no settings of this machine
export ANSIBLE_LOCAL_TEMP=$place/local ANSIBLE_NOCOLOR=true
touch "$ANSIBLE_CONFIG"

die() {
    cat "$log" >&2
    echo "ansible-test.sh: $1" >&2
    exit 1
}

# Each machine has a login shell that finds the tools of that machine.
for machine in "${machines[@]}"; do
    cp -R machine "$place/$machine"
    cat >"$place/$machine.shell" <<END
#!/bin/sh
PATH='$place/$machine/bin:$PWD/build/release/bin:$PATH'
export PATH
exec /bin/sh "\$@"
END
    chmod +x "$place/$machine.shell"
    # Ansible writes the shell into its commands unquoted.
    echo "$machine ansible_connection=local ansible_shell_executable='${place// /\\ }/$machine.shell'" \
        "ansible_remote_tmp='$place/remote' optimize_directory='$place/$machine'"
done >"$place/inventory"
# One of them keeps its configuration elsewhere.
(cd "$place/three" && mv config/system_operation/conf.xml . && ln -s ../../conf.xml config/system_operation)

# Cannot be reached: nobody can make a folder there.
echo 'gone ansible_connection=local ansible_remote_tmp=/proc/none' >"$place/unreachable"

# The contents of the machines and of their configurations.
contents() {
    (cd "$place" && find "${machines[@]}" -type f -exec cksum {} + | sort)
}

# Whatever a write would change.
traces() {
    (cd "$place" && find "${machines[@]}" -printf '%p %y %m %s %i %T@ %C@ %l\n' | sort)
}

# Runs the playbook with the arguments $3... as the case $1. Compares its end, a line with the numbers of
# changes and failures and the report for each machine, with the pattern $2; one that begins with "*" stands
# for a line of each machine. Checks that nothing was changed if no machine says so, and that nothing was
# touched in check mode.
play() {
    local title=$1 expected=$2 status=0 look=contents before found
    shift 2
    [[ " $* " != *' --check '* ]] || look=traces
    before=$($look)
    ansible-playbook -i "$place/inventory" "$@" examples/ansible/optimize.yml >"$log" 2>&1 || status=$?
    found=$(awk -F '[][]' '
        /^(ok|changed|fatal): \[/ { host = $2 }
        /^ *"msg": / { sub(/^ *"msg": "/, ""); sub(/"$/, ""); report[host] = $0 }
        /^PLAY RECAP/ { recap = 1 }
        recap && match($0, /changed=[0-9]+/) {
            changed = substr($0, RSTART, RLENGTH)
            match($0, /failed=[0-9]+/)
            split($0, words, " ")
            print words[1] " " changed " " substr($0, RSTART, RLENGTH) " " report[words[1]]
        }' "$log" | sort)
    if [[ $expected == '*'* ]]; then
        expected=$(printf "%s${expected#'*'}\n" "${machines[@]}")
    fi
    # shellcheck disable=SC2053 # a pattern
    [[ $found == $(sort <<<"$expected") ]] || die "$title: reported
$found"
    [[ $status -eq $([[ $expected == *failed=1* ]] && echo 2 || echo 0) ]] || die "$title: status $status"
    if [[ $expected != *changed=1* || $look == traces ]]; then
        [[ $($look) == "$before" ]] || die "$title: something has changed"
    fi
    echo "$title: as expected"
}

services=(-e '{"optimize_names": ["cups", "rsync"]}')
play 'check mode' '* changed=1 failed=0 would be optimized: cups, rsync' "${services[@]}" --check --diff
[[ $(grep -c '^\(-cups: none\|+rsync: optimized\)$' "$log") -eq 6 ]] || die 'check mode: shows no difference'
for machine in "${machines[@]}"; do # brings the files in line with the machines
    (cd "$place/$machine" && PATH=$PWD/bin:$PATH "$OLDPWD/build/release/bin/optimize_host" ls_service) \
        >"$log" 2>&1 || die "cannot list the machine $machine"
done
first=$(contents)
play 'first run' '* changed=1 failed=0 optimized: cups, rsync' "${services[@]}"
[[ $(grep -lP '^cups\t-$' "$place"/*/etc/runlevels | wc -l) -eq 3 ]] ||
    die 'first run: cups is not switched off'
[[ $(grep -c '^PLAY \[Bring' "$log") -eq 3 ]] || die 'first run: not one machine after the other'
play 'second run' '* changed=0 failed=0 optimized: nothing' "${services[@]}"
play 'check mode after it' '* changed=0 failed=0 would be optimized: nothing' "${services[@]}" --check
play 'restoring in check mode' '* changed=1 failed=0 would be restored: cups, rsync' \
    "${services[@]}" -e optimize_state=restored --check --diff
[[ $(grep -c '^\(-cups: optimized\|+rsync: none\)$' "$log") -eq 6 ]] || die 'check mode: shows no difference'
play restoring '* changed=1 failed=0 restored: cups, rsync' "${services[@]}" -e optimize_state=restored
[[ $(contents) == "$first" ]] || die 'restoring: the machines are not as before'

play 'ignoring in check mode' '* changed=1 failed=0 would be ignored: atd' \
    -e '{"optimize_names": ["atd"], "optimize_state": "ignored"}' --check
play ignoring '* changed=1 failed=0 ignored: atd' -e '{"optimize_names": ["atd"], "optimize_state": "ignored"}'
play 'an ignored service' '* changed=0 failed=1 atd (2) not handled: it is marked as ignored; id 99 not handled: not configured' \
    -e '{"optimize_names": ["atd", 99]}'
play 'an ignored service in check mode' '* changed=1 failed=1 atd (2) not handled: it is marked as ignored; would be optimized: cups' \
    -e '{"optimize_names": ["atd", "cups"]}' --check
play 'an unknown service' "* changed=0 failed=1 no service '-h' is configured; see optimize_host ls_service" \
    -e '{"optimize_names": ["cups", "-h"]}'
play listing '* changed=1 failed=0 listed: atd' -e '{"optimize_names": ["atd"], "optimize_state": "listed"}'
[[ $(contents) == "$first" ]] || die 'listing: the machines are not as before'

for machine in "${machines[@]}"; do # was killed after it had switched cups off
    PATH=$place/$machine/bin:$PATH chkconfig --level 2345 cups off
    echo 'cups switching-off 2345 2026-01-01T00:00:00Z' >>"$(readlink -f \
        "$place/$machine/config/system_operation/conf.xml").record"
done
play 'an interrupted call in check mode' '* changed=1 failed=0 would be restored: cups' \
    -e '{"optimize_names": ["cups"], "optimize_state": "restored"}' --check
play 'an interrupted call' '* changed=1 failed=0 restored: cups' \
    -e '{"optimize_names": ["cups"], "optimize_state": "restored"}'
grep -q '^\[WARNING\]: .*: an interrupted call had switched' "$log" || die 'an interrupted call: no warning'
[[ $(contents) == "$first" ]] || die 'an interrupted call: the machines are not as before'

echo '<oops' >"$place/two/config/system_operation/conf.xml"
play 'a broken configuration' "one changed=1 failed=0 optimized: cups, rsync
three changed=1 failed=0 optimized: cups, rsync
two changed=0 failed=1 $place/two/config/system_operation/conf.xml:2: cannot parse: *" "${services[@]}"
rm "$place/two/config/system_operation/conf.xml"
play 'no configuration in check mode, and a machine that cannot be reached' "gone changed=0 failed=1 *
one changed=0 failed=0 would be optimized: nothing
three changed=0 failed=0 would be optimized: nothing
two changed=0 failed=1 *there is no $place/two/config/system_operation/conf.xml*" \
    -i "$place/unreachable" "${services[@]}" -e optimize_batch=1 --check

ansible-doc -M examples/ansible/library optimize_option >"$log" 2>&1 || die 'ansible-doc does not show the module'
grep -q '= state' "$log" || die 'ansible-doc does not show the options'
if command -v ansible-lint >/dev/null; then
    (cd examples/ansible && ansible-lint --offline optimize.yml) >"$log" 2>&1 || die 'ansible-lint has findings'
    echo 'ansible-lint: no findings'
fi
