#!/usr/bin/env bash
# Installs, uses, upgrades, removes and purges the packages in a throwaway root: an overlay over that of
# this machine. scripts/package.sh starts it in a mount namespace of its own, as
#     life_cycle.sh DEB|RPM FOLDER
# FOLDER holds the packages in this/, and in next/ those of a later version with a changed sample. The exit
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

rpm_in_root() {
    # A database of its own: that of this machine may be of another kind. So no dependency is met.
    rpm --root "$root" --dbpath /var/lib/life_cycle_rpm "$@" >"$log" 2>&1
}

# Installs the packages in a folder, or upgrades to them.
install() {
    case $kind in
    DEB) in_root sh -c "dpkg --no-triggers -i /packages/$1/*.deb" ;;
    RPM) rpm_in_root -U --nodeps "$root/packages/$1"/*.rpm ;;
    esac || die "installing $1 failed"
    ! grep -qi warning "$log" || die "installing $1 brought a warning"
}

remove() {
    case $kind in
    DEB) in_root dpkg --no-triggers --remove optimize-option optimize-option-dev ;;
    RPM) rpm_in_root -e optimize-option optimize-option-devel ;;
    esac || die 'removing failed'
    [[ ! -e $root/usr/bin/optimize_host ]] || die 'the program is still there'
}

# Leaves nothing: an RPM cannot be purged.
purge() {
    case $kind in
    DEB) in_root dpkg --no-triggers --purge optimize-option optimize-option-dev || die 'purging failed' ;;
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

in_root dpkg --no-triggers --purge optimize-option optimize-option-dev || true
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
in_root sh -c 'cd / && optimize_host --no-units ls_service' || die 'ls_service failed'
[[ $(grep -c ' 0 none ' "$log") -eq 19 ]] || die 'the embedded machine is not listed'
in_root sh -c 'cd / && optimize_host --no-units optimize_service cups' ||
    die 'optimize_service failed'
cp "$conf" "$folder/used"
cp "$conf.record" "$folder/record"
! cmp -s "$sample" "$folder/used" || die 'the configuration was not written'

step='upgrade with a changed sample'
install next
grep -q 'a later sample' "$sample" || die 'the sample is the old one'
check_kept

step='removal and a new installation'
remove
check_kept
install this
check_kept

step='purge after removal'
remove
[[ $kind == RPM ]] || purge
rm -rf "$state"

step='a link to another folder'
mkdir "$root/srv/elsewhere"
ln -s ../../srv/elsewhere "$state"
install this
check_sample
[[ -L $state ]] || die 'the link is gone'
install next
purge
[[ -z $(ls -A "$root/srv/elsewhere") ]] || die 'the folder behind the link is not empty'
