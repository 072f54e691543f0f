#!/usr/bin/env bash
# Builds the program and shows all that the module does, on a copy of the embedded machine.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."
source scripts/dependencies.sh

die() {
    echo "demo.sh: $1" >&2
    exit 1
}

heading() {
    printf '\n== %s\n' "$1"
}

# Shows a command line and what it prints, and ends the demo unless its exit status is $2 or 0.
output=
run() {
    local status=0
    printf '$ %s\n' "$1"
    output=$(eval "$1" 2>&1) || status=$?
    [[ -z $output ]] || printf '%s\n' "$output"
    [[ $status -eq ${2:-0} ]] || die "exit status $status, not ${2:-0}"
}

# Ends the demo unless the last output contains this extended regular expression.
expect() {
    [[ $output =~ $1 ]] || die "the output lacks '$1'"
}

need build
echo 'Building in build/release ...'
# Leave the tests, and so GoogleTest, out of a new build; keep them in one that has them.
tests=(-DBUILD_TESTING=OFF)
[[ ! -f build/release/CTestTestfile.cmake ]] || tests=()
quietly build/release.log cmake --preset release "${tests[@]}"
quietly build/release.log cmake --build --preset release -j"$(nproc)" --target optimize_host

if own=$(command -v chkconfig); then
    echo "On its own, optimize_host works on the services of this machine through $own; the demo does not."
fi

machine=$(mktemp -d)
trap 'rm -rf "$machine"' EXIT
cp -R machine/. "$machine"
export PATH=$machine/bin:$PWD/build/release/bin:$PATH
export OPTIMIZE_HOST_LOG=$machine/history # not the system log of this machine
export LC_ALL=C # the tools pass bytes on as they are, so that what they print stays UTF-8
cd "$machine"
for tool in chkconfig sed; do
    [[ $(command -v $tool) == "$machine/bin/$tool" ]] ||
        die "programs cannot run in $machine; set TMPDIR to a folder where they can"
done

# Without --no-units, the program could put a chkconfig in front of the demo's that switches the units of this
# machine.
optimize_host() {
    command optimize_host --no-units "$@"
}

levels='chkconfig --list cups; chkconfig --list rsync'
states="optimize_host ls_service | grep -E 'NAME|cups|rsync'"

heading 'A copy of the embedded machine'
run pwd
run 'command -v chkconfig sed'
run 'cp config/system_operation/conf.xml before.xml'

heading 'The interface'
run 'optimize_host attributes'
run 'optimize_host operations'

heading 'The services that can be switched off'
run 'optimize_host ls_service'
expect ' 2  atd  .* 3  cups  .* 30  rsync '

heading 'The score and the count'
run 'optimize_host get_optimize_sorce'
run 'optimize_host set_optimize_sorce 90'
run 'optimize_host get_optimize_sorce'
expect '^90'
run 'optimize_host get_optimize_num'

heading 'A run-level service and an xinetd service, before'
run "$levels"
before=$output

heading 'What would be switched off'
run 'optimize_host --dry-run optimize_service cups rsync'
expect ' 3  cups.* 30  rsync'
run "$levels"
[[ $output == "$before" ]] || die 'a dry run has switched a service'

heading 'Switching them off'
run 'optimize_host optimize_service cups rsync'
expect ' 3  cups.* 30  rsync'
run "$levels"
expect '2:off.*3:off.*4:off.*5:off.*rsync[[:blank:]]+off'
run "$states"
expect 'cups +1 optimized.*rsync +1 optimized'

heading 'The record, by which they come back whatever happens to the configuration'
run 'optimize_host switched'
expect 'cups +off +2345 .*rsync +off +on '

heading 'Switching everything back on that was switched off'
run 'optimize_host restore_service --all'
expect ' 3  cups.* 30  rsync'
run "$levels"
[[ $output == "$before" ]] || die 'the run levels differ from those before the switch'
echo 'The run levels are the same as before the switch.'

heading 'An ignored service is left alone'
run 'optimize_host ignore_service on atd'
run 'optimize_host optimize_service atd' 1
expect 'atd \(2\) not handled: it is marked as ignored$'
run 'chkconfig --list atd'
expect '3:on.*4:on.*5:on'
run 'optimize_host ignore_service off atd'

heading 'The history, which is otherwise in the system log'
run 'cat history'
expect 'cups switched off, was on in 2345.*rsync switched back on, with xinetd'

heading 'One more candidate'
run 'optimize_host add_service irqbalance Interrupt balancing'
run 'optimize_host ls_service | grep irqbalance'
expect '41  irqbalance +0 none +345 +Interrupt balancing'
run 'optimize_host remove_service irqbalance'
expect '41  irqbalance'

heading 'Several calls, one loaded module, for a program'
run "printf 'get_optimize_num\\nignore_service on sshd atd\\n' | optimize_host --json -"
expect '"value":3.*"names":\["atd"\].*"unchanged":\[\{"id":15,"name":"sshd"\}\]'
run 'optimize_host ignore_service off atd'

heading 'What has changed in the configuration'
run 'diff -u before.xml config/system_operation/conf.xml' 1
expect '\+.*<optimize_sorce>90<'
