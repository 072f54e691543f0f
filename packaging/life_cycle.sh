#!/usr/bin/env bash
# Installs, uses, upgrades, removes and purges the packages in a throwaway root: an overlay over that of
# this machine. scripts/package.sh starts it in a mount namespace of its own, as
#     life_cycle.sh DEB|RPM FOLDER
# FOLDER holds the packages in this/, and in next/ those of a later release with a changed sample. The exit
# status is 77 if the root cannot be made.
set -euo pipefail
exec </dev/null
kind=$1
folder=$2
step=preparation
log=$folder/log

die() {
    [[ ! -s $log ]] || cat "$log" >&2
    echo "life_cycle.sh: $kind: $step: $1" >&2
    exit 1
}

mkdir "$folder/mnt"
mount -t tmpfs life_cycle "$folder/mnt" 2>/dev/null || exit 77
root=$folder/mnt/root
mkdir "$folder"/mnt/{upper,work,root}
mount -t overlay overlay -o "lowerdir=/,upperdir=$folder/mnt/upper,workdir=$folder/mnt/work" \
    "$root" 2>/dev/null || exit 77
mount --rbind /dev "$root/dev"
mount --rbind /proc "$root/proc" # the loader finds $ORIGIN there
mkdir "$root/packages"
cp -R "$folder"/{this,next} "$root/packages"
cp -R machine "$root/packages/machine"

state=$root/var/lib/optimize_option
conf=$state/config/system_operation/conf.xml
sample=$root/usr/share/optimize_option/config/system_operation/conf.xml

in_root() {
    # The log would be that of this machine.
    env PATH="/packages/machine/bin:$PATH" OPTIMIZE_HOST_LOG=/packages/history chroot "$root" "$@" >"$log" 2>&1
}

# Makes a call of the program, in the folder "/".
call() {
    in_root optimize_host --no-units "$@" || die "$1 failed"
}

rpm_in_root() {
    # A database of its own: that of this machine may be of another kind. So no dependency is met.
    rpm --root "$root" --dbpath /var/lib/life_cycle_rpm "$@" >"$log" 2>&1
}

# Installs the packages in a folder, or upgrades to them. Cockpit and Ansible need not be here.
install() {
    case $kind in
    DEB) in_root sh -c "dpkg --no-triggers -i /packages/$1/optimize-option*.deb &&
                        dpkg --no-triggers --force-depends -i /packages/$1/[ac]*.deb" ;;
    RPM) rpm_in_root -U --nodeps "$root/packages/$1"/*.rpm ;;
    esac || die "installing $1 failed"
    ! grep -qiE 'warning|switched' "$log" || die "installing $1 brought a warning"
}

# Removes the packages. They must tell the services that stay switched off, if $1 is given.
remove() {
    case $kind in
    DEB) in_root dpkg --no-triggers --remove "${names[@]}" ;;
    RPM) rpm_in_root -e "${names[@]}" ;;
    esac || die 'removing failed'
    local told expected=${1-}
    told=$(grep -oE 'restore_service --all|^    .*' "$log" | xargs) || true
    expected+=${expected:+ restore_service --all}
    [[ $told == "$expected" ]] || die "the removal told '$told'"
    [[ ! -e $root/usr/bin/optimize_host ]] || die 'the program is still there'
}

# Leaves nothing: an RPM cannot be purged.
purge() {
    case $kind in
    DEB) in_root dpkg --no-triggers --purge "${names[@]}" || die 'purging failed' ;;
    RPM) remove && rm -r "$state/config" && rm -r "$state" ;;
    esac
    [[ ! -e $state && ! -L $state ]] || die "left in ${state#"$root"}: $(ls -AR "$state")"
}

check_sample() {
    cmp "$sample" "$conf" || die 'the configuration is not that of the sample'
}

# Checks that the configuration is that of before, and the record, too.
check_kept() {
    cmp "$folder/used" "$conf" || die 'the configuration has changed'
    cmp "$folder/record" "$conf.record" || die 'the record has changed'
}

names=(optimize-option "optimize-option-$([[ $kind == DEB ]] && echo dev || echo devel)"
    cockpit-optimize-option ansible-collection-optimize-option)
in_root dpkg --no-triggers --purge "${names[@]}" || true
rm -rf "$state"
mkdir -p "$root/var/lib/dpkg"/{info,updates}
touch "$root/var/lib/dpkg"/{status,available}

step='new installation'
(umask 077 && install this) || exit
check_sample
facts=$(stat -c '%a %U:%G %F' "$state" "$state/config" "$conf" | tr '\n' ';')
[[ $facts == '755 root:root directory;755 root:root directory;644 root:root regular file;' ]] ||
    die "wrong modes: $facts"

step=use
call ls_service
[[ $(grep -c ' 0 none ' "$log") -eq 19 ]] || die 'the embedded machine is not listed'
call optimize_service cups
cp "$conf" "$folder/used"
cp "$conf.record" "$folder/record"
! cmp -s "$sample" "$folder/used" || die 'the configuration was not written'

step='upgrade with a changed sample'
install next
grep -q 'a later sample' "$sample" || die 'the sample is the old one'
check_kept

step='removal and a new installation'
remove 'cups 2345'
check_kept
install this
check_kept

step='purge with services that are switched off'
mkdir "$state/links"
touch "$state"/links/{lock,telnet.socket.pending,cups.service}
remove 'cups 2345 telnet.socket (links)'
if [[ $kind == DEB ]]; then
    in_root dpkg --no-triggers --purge "${names[@]}" || die 'purging failed'
    grep -q "still switched off: .*/conf.xml.record and " "$log" || die 'the record is not mentioned'
    [[ $(ls "${conf%/*}") == conf.xml.record ]] || die "kept: $(ls "${conf%/*}")"
    mv "$conf.record" "$folder"
    install this
    remove 'cups (links) telnet.socket (links)'
    in_root dpkg --no-triggers --purge "${names[@]}" || die 'purging failed'
    [[ -e $state/links/cups.service && ! -e $conf ]] || die "left in ${state#"$root"}: $(ls -AR "$state")"
    mv "$folder/conf.xml.record" "${conf%/*}"
fi
rm "$state"/links/*.*
install this
call restore_service --all
in_root chkconfig --list cups && grep -q '2:on.*5:on' "$log" || die 'cups is not on'
call ignore_service on atd

step='purge after removal'
remove
[[ $kind == RPM ]] || purge
rm -rf "$state"

step='links to another folder and to another file'
mkdir "$root/srv/elsewhere"
ln -s ../../srv/elsewhere "$state"
install this
check_sample
mv "$conf" "$root/srv/shared.xml"
ln -s /srv/shared.xml "$conf"
call optimize_service cups
remove 'cups 2345'
install this
install next
if [[ $kind == DEB ]]; then # a removal that is cut short
    in_root /var/lib/dpkg/info/optimize-option.prerm remove || die 'the prerm failed'
    rm "$state"
    mkdir "$state"
    install next
fi
[[ -L $state && ! -L $state.link && -L $conf ]] || die 'a link is gone'
call restore_service --all
purge
[[ -z $(ls -A "$root/srv/elsewhere") ]] || die 'the folder behind the link is not empty'
