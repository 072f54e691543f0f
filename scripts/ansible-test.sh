#!/usr/bin/env bash
# Builds the collection of ansible/, and runs its playbook and modules on copies of the embedded machine, each a
# host with a local connection: scripts/ansible-test.sh [TEST...]. Needs the release build.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."
source scripts/dependencies.sh
need ansible
(need ansible_lint) || true
(need ansible_validate) || true

place=$(mktemp -d)
trap 'rm -rf "$place"' EXIT
log=$place/log
unset ANSIBLE_COLLECTIONS_PATHS
export ANSIBLE_CONFIG=$place/ansible.cfg # an empty one: no settings of this machine
export ANSIBLE_HOME=$place/home ANSIBLE_LOCAL_TEMP=$place/local ANSIBLE_ASYNC_DIR=$place/async
export ANSIBLE_COLLECTIONS_PATH=$place/collections ANSIBLE_NOCOLOR=true ANSIBLE_PIPELINING=true
export OPTIMIZE_HOST_LOG=$place/syslog PYTHONDONTWRITEBYTECODE=1
touch "$ANSIBLE_CONFIG"
mkdir "$place/machines"
runner=(timeout 1000) # runs ansible-playbook
# A host that cannot be reached: nobody can make its folder.
gone='gone ansible_connection=local ansible_pipelining=false ansible_remote_tmp=/proc/none optimize_directory=/proc/none'

die() {
    cat "$log" >&2
    echo "ansible-test.sh: $1" >&2
    exit 1
}

# Makes the machine $2, a host of the inventory $1. Its login shell finds the tools of that machine. The
# stand-in for chkconfig fails to switch, or stops before it, if a file beside the machine says so. A lock shows
# whether a module still runs there.
add_machine() {
    local machine=$place/machines/$2
    cp -R machine "$machine"
    mv "$machine/bin/chkconfig" "$machine/bin/chkconfig.machine"
    printf '#!/bin/sh\nexec "%s" --no-units "$@"\n' "$PWD/build/release/bin/optimize_host" >"$machine/bin/optimize_host"
    cat >"$machine/bin/chkconfig" <<'END'
#!/bin/sh
machine=${0%/bin/*}
if [ "$1" = --level ]; then
    [ ! -e "$machine.fails" ] || exit 1
    [ ! -e "$machine.stops" ] || { echo >"$machine.stops" && read -r line <"$machine.goes"; }
fi
exec "$machine/bin/chkconfig.machine" "$@"
END
    cat >"$machine.shell" <<END
#!/bin/sh
PATH='$machine/bin:$PWD/build/release/bin:$PATH'
export PATH
exec 9>'$machine.running'
flock -s 9
exec /bin/sh "\$@"
END
    chmod +x "$machine/bin/"{chkconfig,optimize_host} "$machine.shell"
    # Ansible writes the shell into its commands unquoted.
    echo "$2 ansible_connection=local ansible_shell_executable='${machine// /\\ }.shell'" \
        "ansible_python_interpreter='{{ ansible_playbook_python }}' ansible_remote_tmp='$place/remote'" \
        "optimize_directory='$machine'" >>"$place/$1"
    on_machine "$2" optimize_host ls_service # brings the files in line with the machine
}

# Makes the machines $2... of the inventory $1.
add_machines() {
    local machine
    machines=("${@:2}")
    for machine in "${machines[@]}"; do
        add_machine "$1" "$machine"
    done
}

# Runs a command on the machine $1, as Ansible does.
on_machine() {
    "$place/machines/$1.shell" -c 'cd "$0" && exec "$@"' "$place/machines/$1" "${@:2}" >"$log" 2>&1 ||
        die "$1: fails: ${*:2}"
}

configuration_of() {
    readlink -f "$place/machines/$1/config/system_operation/conf.xml"
}

# The contents of the machines and of their configurations.
contents() {
    (cd "$place/machines" && find . -type f -exec cksum {} + | sort)
}

# Checks that the contents are $2, except for files with $3 in their names.
check_contents() {
    diff <(grep -v "${3:-^$}" <<<"$2") <(contents | grep -v "${3:-^$}") >"$log" || die "$1: files of the machines have changed"
}

# The names, rights, sizes and times of the machines' files, which would show any write.
traces() {
    (cd "$place/machines" && find . -mindepth 2 -printf '%p %y %m %s %i %T@ %C@ %l\n' | sort)
}

# Runs ansible-playbook with the arguments $3... as the case $1. Compares its end, a line for each machine with
# the numbers of changes and failures, whether a handler ran, and the last message, with the pattern $2; one
# that begins with "*" stands for a line of each machine. Checks that nothing was changed if no machine says so,
# and that nothing was touched in check mode.
play() {
    local title=$1 expected=$2 status=0 look=contents before found
    shift 2
    [[ " $* " != *' --check '* ]] || look=traces
    before=$($look)
    "${runner[@]}" ansible-playbook "$@" >"$log" 2>&1 || status=$?
    found=$(awk -F '[][]' '
        /^(TASK|PLAY|RUNNING HANDLER) / { in_handler = /^RUNNING/ }
        /^(ok|changed|fatal): \[/ { host = $2 }
        /^ok: \[/ && in_handler { handler[host] = " handler" }
        /^ *"msg": / && !in_handler { sub(/^ *"msg": "/, ""); sub(/",?$/, ""); report[host] = $0 }
        /^PLAY RECAP/ { recap = 1 }
        recap && match($0, /changed=[0-9]+/) {
            changed = substr($0, RSTART, RLENGTH)
            match($0, /failed=[0-9]+/)
            split($0, words, " ")
            print words[1] " " changed " " substr($0, RSTART, RLENGTH) \
                (/unreachable=[1-9]/ ? " unreachable" : "") handler[words[1]] " " report[words[1]]
        }' "$log" | sort)
    if [[ $expected == '*'* ]]; then
        expected=$(printf "%s${expected#'*'}\n" "${machines[@]}")
    fi
    # shellcheck disable=SC2053 # a pattern
    [[ $found == $(sort <<<"$expected") ]] || die "$title: reported
$found"
    case $expected in
    *unreachable* | *failed=1*) [[ $status -ne 0 ]] ;;
    *) [[ $status -eq 0 ]] ;;
    esac || die "$title: status $status"
    if [[ $expected != *changed=1* || $look == traces ]]; then
        [[ $($look) == "$before" ]] || die "$title: files of the machines must not change, but have"
    fi
    echo "$title: as expected"
}

# Plays the playbook of the collection. $4 are further variables.
optimize() {
    play "$1" "$2" -i "$place/alike" optimize_option.services.optimize -e optimize_batch=100% -e "$3" "${@:4}"
}

# Checks that the log shows the differences $2 and $3 on each machine, with headers.
check_differences() {
    local machine line
    for machine in "${machines[@]}"; do
        grep -qx -- "--- before: services in $place/machines/$machine" "$log" || die "$1: a difference has no header"
    done
    for line in "$2" "$3"; do
        [[ $(grep -cx -- "$line" "$log") -eq ${#machines[@]} ]] || die "$1: does not show the difference $line"
    done
}

# The playbook of the collection on machines that are alike.
test_playbook() {
    local names='"optimize_names": ["cups", "rsync"]' first
    add_machines alike one two three
    # One of them keeps its configuration elsewhere.
    (cd "$place/machines/three" && rm config/system_operation/conf.xml.lock &&
        mv config/system_operation/conf.xml* . && ln -s ../../conf.xml config/system_operation)
    on_machine three optimize_host ls_service
    first=$(contents)
    optimize 'check mode' '* changed=1 failed=0 would be optimized: cups, rsync' "{$names}" --check --diff
    check_differences 'check mode' '-cups: none' '+rsync: optimized'
    optimize 'first run' '* changed=1 failed=0 optimized: cups, rsync' "{$names}" -e optimize_batch=25%
    [[ $(grep -lP '^cups\t-$' "$place"/machines/*/etc/runlevels | wc -l) -eq 3 ]] ||
        die 'first run: cups is not switched off'
    [[ $(grep -c '^PLAY \[Bring' "$log") -eq 3 ]] || die 'first run: not one machine after the other'
    optimize 'second run' '* changed=0 failed=0 optimized: nothing' "{$names}"
    optimize 'check mode after it' '* changed=0 failed=0 would be optimized: nothing' "{$names}" --check
    names+=', "optimize_state": "restored"'
    optimize 'restoring in check mode' '* changed=1 failed=0 would be restored: cups, rsync' "{$names}" --check --diff
    check_differences 'restoring in check mode' '-cups: optimized' '+rsync: none'
    optimize restoring '* changed=1 failed=0 restored: cups, rsync' "{$names}"
    check_contents 'restoring' "$first"
    optimize 'no names' '* changed=0 failed=0 restored: nothing' '{"optimize_names": [], "optimize_state": "restored"}'

    echo '<oops' >"$(configuration_of two)"
    optimize 'a broken configuration' "one changed=1 failed=0 optimized: atd
three changed=1 failed=0 optimized: atd
two changed=0 failed=1 $(configuration_of two):2: cannot parse: *" '{"optimize_names": ["atd"]}'
    grep -q '"stderr": "optimize_host: optimize_service: .*: cannot parse: ' "$log" ||
        die 'a broken configuration: the failure lacks standard error'
    rm "$(configuration_of two)"
    echo "$gone" >"$place/unreachable"
    optimize 'no configuration, and a machine that cannot be reached' "gone changed=0 failed=1 *
one changed=0 failed=0 would be optimized: nothing
three changed=0 failed=0 would be optimized: nothing
two changed=0 failed=1 *there is no $place/machines/two/config/system_operation/conf.xml*" \
        '{"optimize_names": ["atd"]}' -i "$place/unreachable" --check
}

# Ignored services, reasons of services that were not handled, and calls that were interrupted.
test_marks() {
    local machine first atd='"optimize_names": ["atd"]' both='"optimize_names": ["atd", 99]'
    local cups='"optimize_names": ["cups"], "optimize_state": "restored"'
    add_machines alike one two
    first=$(contents)
    optimize 'ignoring in check mode' '* changed=1 failed=0 would be ignored: atd' \
        "{$atd, \"optimize_state\": \"ignored\"}" --check
    optimize ignoring '* changed=1 failed=0 ignored: atd' "{$atd, \"optimize_state\": \"ignored\"}"
    optimize 'an ignored service' \
        '* changed=0 failed=1 atd (2) not handled: it is marked as ignored; id 99 not handled: not configured' "{$both}"
    optimize 'one reason of two' '* changed=0 failed=1 *' "{$both, \"optimize_skip\": [\"not configured\"]}"
    optimize 'both reasons' '* changed=0 failed=0 optimized: nothing; atd skipped: ignored; id 99 skipped: not configured' \
        "{$both, \"optimize_skip\": [\"ignored\", \"not configured\"]}"
    optimize 'an ignored service in check mode' \
        '* changed=1 failed=1 atd (2) not handled: it is marked as ignored; would be optimized: cups' \
        '{"optimize_names": ["atd", "cups"]}' --check
    optimize 'an unknown service' "* changed=0 failed=1 no service '-h' is configured; *" \
        '{"optimize_names": ["cups", "-h"], "optimize_skip": ["not configured"]}'
    optimize 'a name that is an option' "* changed=0 failed=1 no service '--all' is configured" \
        '{"optimize_names": ["--all"], "optimize_state": "restored"}'
    optimize 'no longer ignoring in check mode' '* changed=1 failed=0 would be listed: atd' \
        "{$atd, \"optimize_state\": \"listed\"}" --check --diff
    check_differences 'no longer ignoring in check mode' '-atd: ignored' '+atd: none'
    optimize 'no longer ignoring' '* changed=1 failed=0 unignored: atd' "{$atd, \"optimize_state\": \"unignored\"}"
    check_contents 'no longer ignoring' "$first"

    for machine in "${machines[@]}"; do # was killed after it had switched cups off
        on_machine "$machine" chkconfig --level 2345 cups off
        echo 'cups switching-off 2345 2026-01-01T00:00:00Z' >>"$(configuration_of "$machine").record"
    done
    optimize 'an interrupted call in check mode' '* changed=1 failed=0 would be restored: cups' "{$cups}" --check
    optimize 'an interrupted call' '* changed=1 failed=0 restored: cups' "{$cups}"
    grep -q '^\[WARNING\]: .*: an interrupted call had switched' "$log" || die 'an interrupted call: no warning'
    check_contents 'an interrupted call' "$first"
}

# ansible-playbook and its workers are killed while a machine is switched. The call is carried to its end, and
# another run waits for that.
test_kill() {
    local stops goes playbook workers first names='"optimize_names": ["cups", "rsync"]'
    add_machines alike one two
    first=$(contents)
    mkfifo "$place/machines/one."{stops,goes}
    exec {stops}<>"$place/machines/one.stops" {goes}<>"$place/machines/one.goes"
    ansible-playbook -i "$place/alike" optimize_option.services.optimize -e "{$names}" >"$log" 2>&1 &
    playbook=$!
    read -rt 100 -u "$stops" || die 'a killed playbook: nothing is switched'
    mapfile -t workers < <(ps -o pid= --ppid "$playbook")
    { kill -KILL "$playbook" "${workers[@]// /}" && wait "$playbook" || true; } 2>/dev/null
    rm "$place/machines/one.stops"
    echo >&"$goes"
    optimize 'a killed playbook, run again' 'one changed=0 failed=0 optimized: nothing
two changed=1 failed=0 optimized: cups, rsync' "{$names}"
    optimize 'restoring after it' '* changed=1 failed=0 restored: cups, rsync' "{$names, \"optimize_state\": \"restored\"}"
    flock "$place/machines/one.running" true
    check_contents 'a killed playbook' "$first"
}

# A module that waits for the lock when Ansible gives up ends, and switches nothing after that.
test_timeout() {
    local lock
    add_machines alike one
    cat >"$place/timeout.yml" <<'END'
- name: A timeout
  hosts: all
  gather_facts: false
  tasks:
    - name: Wait
      optimize_option.services.state:
        name: cups
        state: optimized
        directory: "{{ optimize_directory }}"
        lock_timeout: 1000
      timeout: 5
      register: result
      ignore_errors: true
    - name: Show
      ansible.builtin.debug:
        msg: "{{ 'answered' if 'handled' in result else 'gave up' }}"
END
    exec {lock}<>"$(configuration_of one).lock"
    flock "$lock"
    play 'a timeout' '* changed=0 failed=0 gave up' -i "$place/alike" "$place/timeout.yml"
    flock -w 100 "$place/machines/one.running" true || die 'a timeout: a module still waits for the lock'
}

# Makes a playbook that compares the members of results and shows the facts.
write_facts() {
    cat >"$place/facts.yml" <<'END'
- name: Facts
  hosts: all
  gather_facts: false
  module_defaults:
    optimize_option.services.info: &defaults
      directory: "{{ optimize_directory }}"
      lock_timeout: 0
    optimize_option.services.state: *defaults
  tasks:
    - name: Read the services
      optimize_option.services.info:
      register: found
      failed_when: false
    - name: No names
      optimize_option.services.state: {name: [], state: optimized}
      register: none_named
    - name: One name
      optimize_option.services.state: {name: tftp, state: optimized}
      check_mode: true
      register: one_named
      ignore_errors: true
    - name: Compare
      ansible.builtin.assert:
        that: found.msg is not defined and none_named.keys() | sort == one_named.keys() | sort
        success_msg: >-
          {{ found.services | length }}
          {%- for each in found.services if each.name in ['atd', 'cups', 'rsync', 'sshd'] %}
          {{ [each.id, each.name, each.state, each.level, each.description[:2]] | join('/') }}
          {%- endfor %}; off:
          {%- for each in found.switched %}
          {{ [each.name, each.state, each.level, each.since] | join('/') }}
          {%- endfor %}; score {{ found.score }}, count {{ found.count }}
        fail_msg: "{{ found.msg | default('') }}: {{ found.stderr_lines | default([]) | length }}"
END
}

# The facts, and the members of results.
test_facts() {
    local machine facts python lock
    add_machines alike one two three
    write_facts
    for machine in "${machines[@]}"; do # somebody else has switched atd off
        on_machine "$machine" optimize_host optimize_service cups
        on_machine "$machine" chkconfig --level 345 atd off
        sed -i -E 's/^(cups|snmpd) off 2345 .*/\1 off 2345 2026-01-01T00:00:00Z/' \
            "$(configuration_of "$machine").record"
    done
    facts='18 3/cups/optimized/2345/打印 15/sshd/ignored/2345/安全 30/rsync/none/on/文件'
    facts+='; off: cups/off/2345/2026-01-01T00:00:00Z snmpd/off/2345/2026-01-01T00:00:00Z; score 85, count 3'
    play 'facts in check mode' "* changed=1 failed=0 $facts" -i "$place/alike" "$place/facts.yml" --check
    play facts "* changed=1 failed=0 $facts" -i "$place/alike" "$place/facts.yml"
    for python in python2.7 python3.6; do
        if command -v $python >/dev/null && $python -c '' 2>/dev/null; then
            play "facts with $python" "* changed=1 failed=0 $facts" -i "$place/alike" "$place/facts.yml" \
                -e "ansible_python_interpreter='$(command -v $python)'"
        else
            echo "facts with $python: not tried, because it is not here"
        fi
    done
    exec {lock}<>"$(configuration_of one).lock"
    flock "$lock"
    echo '<oops' >"$(configuration_of two)"
    printf '#!/bin/sh\n' >"$place/machines/three/bin/optimize_host"
    chmod +x "$place/machines/three/bin/optimize_host"
    play 'facts that cannot be read' "one changed=0 failed=1 *: another call has not ended; * holds the lock: 1
two changed=0 failed=1 $(configuration_of two):2: cannot parse: *: 4
three changed=0 failed=1 optimize_host ended with status 0: 0" -i "$place/alike" "$place/facts.yml"
}

# Plays the documented tasks that let handlers run after failures: as the case $1, with the state $2, with $3 for
# the reasons to skip, and with $4 as further keywords of the first task. The others are those of play.
group() {
    cat <<END >"$place/group.yml"
- name: Machines that differ
  hosts: all
  gather_facts: false
  serial: 5
  module_defaults:
    optimize_option.services.state:
      directory: "{{ optimize_directory }}"
      lock_timeout: 0
      skip: $3
  handlers:
    - name: Report what was switched off
      ansible.builtin.debug:
        var: switching.handled
  tasks:
END
    sed -n "/^# A task that fails/,/^'''/p" ansible/plugins/modules/state.py |
        sed "/^'''/d; s/^/    /; s/state: optimized/state: $2/; s/^ *failed_when:.*/&\n$4/" >>"$place/group.yml"
    play "$1" "$5" -i "$place/differing" "$place/group.yml" "${@:6}"
}

# Makes machines that differ from the one called plain. One lacks rsync; on others cups is off already, rsync is
# ignored, commands fail, another call holds the lock, the configuration is broken, or the program ends without
# an answer. One cannot be reached.
add_differing_machines() {
    local lock
    add_machines differing plain missing off ignored failing held broken silent
    echo "$gone" >>"$place/differing"
    rm "$place/machines/missing/etc/xinetd.d/rsync"
    on_machine off chkconfig --level 2345 cups off
    on_machine ignored optimize_host ignore_service on rsync
    on_machine off optimize_host ls_service
    touch "$place/machines/failing.fails"
    exec {lock}<>"$(configuration_of held).lock"
    flock "$lock"
    echo '<oops' >"$(configuration_of broken)"
    cat >"$place/machines/silent/bin/optimize_host" <<'END'
#!/bin/sh
echo 'optimize_host: a warning' >&2
echo '{"reply":"item","code":"0x80000000","ids":[3],"names":["cups"]}'
printf '{"reply":"fi'
END
    chmod +x "$place/machines/silent/bin/optimize_host"
}

# A playbook on machines that differ, and its handlers.
test_group() {
    local first failures
    local changed='changed=1 failed=0 handler All assertions passed'
    add_differing_machines
    failures='held changed=0 failed=1 *conf.xml.lock: another call has not ended; * holds the lock
broken changed=0 failed=1 *conf.xml:2: cannot parse: *
silent changed=1 failed=1 handler optimize_host: a warning; optimize_host ended with status 0
gone changed=0 failed=0 unreachable *'
    first=$(contents)
    group 'differing machines in check mode' optimized '[not listed, ignored]' '' "plain $changed
missing $changed
off $changed
ignored $changed
failing $changed
$failures" --check
    group 'differing machines' optimized '[not listed]' '' "plain $changed
missing $changed
off $changed
ignored changed=1 failed=1 handler rsync (30) not handled: it is marked as ignored
failing changed=1 failed=1 handler cups (3) not handled: command failed; it is still on in run levels 2345
$failures"
    group 'rolling back' restored '[not listed, ignored, "off"]' '      async: 100\n      poll: 1' "plain $changed
missing $changed
off $changed
ignored $changed
failing $changed
$failures"
    check_contents 'rolling back' "$first" missing/config # the entry of rsync loses its level
}

# A machine whose remote_tmp forbids to execute files, and whose login lacks the folder of chkconfig.
test_bare() {
    local namespace=(unshare -m)
    [[ $EUID -eq 0 ]] || namespace=(unshare -rm)
    if ! "${namespace[@]}" true 2>/dev/null; then
        echo 'a bare machine: not tried, because nothing can be mounted here'
        return
    fi
    add_machines alike one
    mkdir -p "$place"/{remote,sbin} # other tests make the first one, too
    printf '#!/bin/sh\nexec "%s" "$@"\n' "$place/machines/one/bin/chkconfig" >"$place/sbin/chkconfig"
    chmod +x "$place/sbin/chkconfig"
    sed -i "s|^PATH=.*|PATH='$PWD/build/release/bin:/usr/bin:/bin'|" "$place/machines/one.shell"
    local runner=("${namespace[@]}" sh -ec 'mount -t tmpfs -o noexec none "$0"; mount --bind "$1" /usr/sbin
        shift; exec "$@"' "$place/remote" "$place/sbin" "${runner[@]}")
    optimize 'a bare machine' '* changed=1 failed=0 would be optimized: cups' '{"optimize_names": ["cups"]}' \
        --check -e ansible_pipelining=false -e ansible_python_interpreter=auto_silent
}

# What publishing needs: versions, documentation, style.
test_collection() {
    local version python validator name
    version=$(sed -n 's/^version: //p' ansible/galaxy.yml)
    grep -q "^project(.* VERSION $version " CMakeLists.txt ||
        die 'the collection has another version than the program'
    for name in state info; do
        ansible-doc optimize_option.services.$name >"$log" 2>&1 || die "ansible-doc does not show $name"
        grep -q '^[-=] lock_timeout' "$log" || die "ansible-doc does not show the options of $name"
    done
    if command -v ansible-lint >/dev/null; then
        (cd ansible && ansible-lint --offline playbooks/optimize.yml) >"$log" 2>&1 || die 'ansible-lint has findings'
        echo 'ansible-lint: no findings'
    fi
    python=$(ansible --version | sed -n 's/^ *python version = .*(\(.*\))$/\1/p')
    validator=$("$python" -c 'import ansible_test, voluptuous; print(ansible_test.__path__[0])' 2>/dev/null || true)
    if [[ -n $validator ]]; then
        validator+=/_util/controller/sanity/validate-modules/validate.py
        (cd "$place/collections/ansible_collections/optimize_option/services" && "$python" "$validator" --arg-spec \
            --collection ansible_collections/optimize_option/services --collection-version "$version" \
            plugins/modules/*.py >"$log" 2>&1) || true
        # The owner has not chosen a licence.
        [[ $(grep -vc ' GPLv3 license header not found ' "$log") -eq 0 && -s $log ]] || die 'the validator of ansible-test has findings'
        echo 'the validator of ansible-test: no findings but the licence'
    else
        echo 'the validator of ansible-test: not run, because it is not here'
    fi
}

# Builds the collection and installs it, because the tests use it as its users do.
ansible-galaxy collection build --output-path "$place" ansible >"$log" 2>&1 || die 'cannot build the collection'
ansible-galaxy collection install --offline -p "$place/collections" "$place"/*.tar.gz >"$log" 2>&1 ||
    die 'cannot install the collection'
tests=(collection playbook marks facts group kill timeout bare)
for name in "${@:-"${tests[@]}"}"; do
    "test_$name"
    rm -rf "$place"/{machines,alike,differing}
    mkdir "$place/machines"
done
