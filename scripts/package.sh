#!/usr/bin/env bash
# Builds the source archive, and from it the DEBs and RPMs with their tests, in build/package, and checks
# them: the binaries are hardened, the headers compile, documents point to nothing that is missing, the
# unpacked program lists the services of the embedded machine, lintian and rpmlint find no error, and
# packaging/life_cycle.sh installs, upgrades and removes the packages if this machine lets it.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."
source scripts/dependencies.sh

die() {
    echo "package.sh: $1" >&2
    exit 1
}

need build test package
(need lint) || true
build=$PWD/build/package
machine=$PWD/machine
# rpmbuild refuses paths with blanks.
[[ ${TMPDIR-} != *[[:blank:]]* ]] || unset TMPDIR
place=$(mktemp -d)
trap 'rm -rf "$place"' EXIT
export OPTIMIZE_HOST_LOG=$place/history # not the log of this machine
version=$(sed -n 's/^project(.* VERSION \([^ ]*\).*/\1/p' CMakeLists.txt)
archive=$build/optimize-option-$version.tar.gz
files=() # the packages of a kind
tree=''  # and the folder that they were built in

# Checks that packaged binaries are hardened.
check_hardened() {
    local file facts pattern landings fortified=false
    for file; do
        facts=$(readelf -W --program-headers --dynamic --dyn-syms "$file")
        for pattern in GNU_RELRO '\(FLAGS\).*BIND_NOW' '__stack_chk_fail@'; do
            grep -qE "$pattern" <<<"$facts" || die "${file##*/} is not hardened: no $pattern"
        done
        [[ $file == *.so || $facts == *'Position-Independent Executable'* ]] ||
            die "${file##*/} is not position-independent"
        pattern='\(R(UN)?PATH\).*\[([^$]|[$][^O]|.*:)'
        ! grep -E "$pattern" <<<"$facts" || die "${file##*/} looks for libraries elsewhere"
        ! grep -qE ' __[a-z]+_chk@' <<<"$facts" || fortified=true
        if grep -q '^HAVE_fcf_protection:.*=1$' "$tree/CMakeCache.txt"; then
            # The C library's start-up code brings a few of these, too.
            landings=$(objdump -d "$file" | grep -cE '\bendbr(32|64)\b' || true)
            [[ $landings -gt 20 ]] || die "${file##*/} lacks control-flow protection"
        fi
    done
    $fortified || die 'the packaged binaries call no checked function of the C library'
}

# Checks that a document points to no file of the source tree, and to no absolute path of an installation,
# that is not in the packages.
check_document() {
    local root=$1 document=$2 word
    while read -r word; do
        case $word in
        /usr/*optimize*) [[ -e $root$word ]] ;;
        /*) ;; # no file of ours
        */* | *.md) [[ ! -e $word || -e $root/usr/share/doc/optimize-option/$word ||
            -e $root/usr/include/optimize_option/$word || -e $root/usr/share/optimize_option/$word ]] ;;
        esac || die "${document#"$root/"} points to $word, which is not in a package"
    done < <(zcat -f "$document" | grep -oE '[A-Za-z0-9_./-]*[A-Za-z0-9_/-]' | sed 's|^[.]/||' | sort -u)
}

# Makes calls of the program in the installation $1 through the example of a parent.
check_child() {
    PATH=$(dirname "$(PKG_CONFIG_LIBDIR=$1/$2/pkgconfig pkg-config --variable=program optimize-option)"):$PATH \
        PYTHONPATH=$1/share/doc/optimize-option/examples python3 -B - <<'END'
from child import OptimizeHost
host = OptimizeHost()
assert len(host.call("ls_service")) == 20
assert [reply.get("ids") for reply in host.call("optimize_service", "cups", 30)] == [[3], [30], []]
assert host.call("restore_service", 3, 99)[-1]["not_handled"][0]["id"] == 99
assert host.call("frobnicate")[-1]["reply"] == "none"
for line in "", "#", "ls_service\nls_service":
    try:
        raise SystemExit(host.call(line))
    except ValueError:
        pass
assert host.call("restore_service", "rsync")[0]["names"] == ["rsync"]
assert host.close() == 2
try:
    raise SystemExit(OptimizeHost(program="true").call("ls_reg"))
except (EOFError, OSError):
    pass
END
}

# Builds the example of a host with the installation in $1, whose libraries are in $2, as its authors do,
# and lets it list and switch services of the embedded machine.
check_host() {
    local build=$place/embed count
    rm -rf "$build" "$place/machine"
    cp -R "$machine" "$place/machine"
    quietly "$build.log" env CXXFLAGS='-Wall -Wextra -Werror' PKG_CONFIG_LIBDIR="$1/$2/pkgconfig" \
        cmake -S "$1/share/doc/optimize-option/examples/embed" -B "$build" -DCMAKE_CXX_STANDARD=11
    quietly "$build.log" cmake --build "$build"
    quietly "$build.log" cmake --install "$build" --prefix "$build/installed"
    (
        cd "$place/machine"
        export PATH=$PWD/bin:$PATH
        embed=$build/installed/bin/embed
        count=$("$embed" 2>"$build.log" | wc -l)
        [[ $count -eq 19 ]] || die "the example of a host lists $count services"
        "$embed" off 3 >"$build.log" && chkconfig --list cups | grep -q '3:off' &&
            "$embed" on 3 >"$build.log" && chkconfig --list cups | grep -q '2:on.*5:on' ||
            die 'the example of a host does not switch cups'
        # Killed after the switch: the program restores from the record. The listing would be translated
        # if the host left LANGUAGE set.
        mkdir killing
        cat >killing/chkconfig <<'END'
#!/bin/sh
chkconfig=$(dirname "$0")/../bin/chkconfig
"$chkconfig" "$@" || exit
[ "$1" = --list ] || kill -KILL "$(cat pid)"
END
        chmod +x killing/chkconfig
        # In a group, so that the shell does not report the kill.
        { LANGUAGE=zh_CN:zh PATH=$PWD/killing:$PATH sh -c 'echo $$ >pid; exec "$@"' - "$embed" off 3 ||
            true; } >"$build.log" 2>&1
        grep -q '^cups switching-off 2345 ' config/system_operation/conf.xml.record &&
            chkconfig --list cups | grep -q '3:off' ||
            die 'the example of a host was not killed after the switch'
        "$1/bin/optimize_host" --no-units restore_service cups >"$build.log" 2>&1 &&
            chkconfig --list cups | grep -q '2:on.*5:on' || die 'a killed example of a host loses run levels'
        check_child "$1" "$2" >"$build.log" 2>&1 || die 'the example with a child does not work'
    )
}

# Checks the unpacked packages of a kind. $2 is their folder of libraries.
check() {
    local root=$1 libraries=$1/usr/$2/optimize_option file option
    local host=$root/usr/bin/optimize_host documents=$root/usr/share/doc/optimize-option
    local conf=usr/share/optimize_option/config/system_operation/conf.xml
    for file in "$libraries"/{libfwbase,rpc_ireal_Optimize_Option}.so "$root/$conf" \
        "$root"/usr/share/{man/man1/optimize_host.1*,bash-completion/completions/optimize_host} \
        "$root/usr/share/ansible/collections/ansible_collections/optimize_option/services/galaxy.yml" \
        "$root"/usr/share/cockpit/optimize_option/{index.html,manifest.json,settings.js} \
        "$documents"/{configuration,json,systemd,interface}.md; do
        [[ -e $file ]] || die "${file#"$root/"} is not in a package"
    done
    [[ ! -e $root/etc && $(find "$root/var" -mindepth 2) == "$root/var/lib/optimize_option" ]] ||
        die 'the packages hold more than the empty folder of the configuration'
    while read -r file; do
        check_document "$root" "$file"
    done < <(find "$documents" "$root/usr/share/man" -type f ! -name '*hangelog*' ! -name 'CHANGELOG*')
    option=$(PKG_CONFIG_LIBDIR=${libraries%/*}/pkgconfig pkg-config --variable=systemd_tools optimize-option)
    [[ -x $option/chkconfig ]] || die "pkg-config names no folder with the chkconfig of systemd: $option"
    check_hardened "$host" "$option/chkconfig" "$libraries"/{libfwbase,rpc_ireal_Optimize_Option}.so
    # The headers are complete: each compiles by itself, unless that cannot work. The compiler would look
    # in the working folder first.
    local compile=(env -C "$root" "${CXX:-c++}" -std=c++11 -fsyntax-only -x c++)
    compile+=(-I "$root/usr/include/optimize_option")
    while read -r file; do
        "${compile[@]}" -Wall -Wextra -Wpedantic -Werror -include "$file" /dev/null ||
            die "$file does not compile"
    done < <(find "$root/usr/include" -name '*.h' -printf '%P\n' | cut -d/ -f2-)
    for option in -D_GLIBCXX_DEBUG -D_GLIBCXX_USE_CXX11_ABI=0 -fno-exceptions; do
        ! "${compile[@]}" $option -include framework/ec.h /dev/null 2>/dev/null ||
            die "the headers compile with $option"
    done

    # The embedded machine, with its own configuration and then with the sample; and completion.
    check_host "$root/usr" "$2"
    (
        cd "$place/machine"
        export PATH=$PWD/bin:$PATH
        "$host" --no-units ls_service >listing 2>messages
        [[ $(grep -c ' [012] \(none\|optimized\|ignored\) ' listing) -eq 19 ]] ||
            die 'the embedded machine is not listed'
        # shellcheck source=packaging/completion.bash
        source "$root/usr/share/bash-completion/completions/optimize_host"
        COMP_WORDS=(optimize_host -m module.so ignore_service on a) COMP_CWORD=5
        _optimize_host
        [[ ${COMPREPLY[*]} == 'atd avahi-daemon autofs' ]] || die "completed names to '${COMPREPLY[*]}'"
        grep -q ' 30  rsync  .*文件同步服务' listing || die 'the listing lacks rsync'
        cp "$root/$conf" config/system_operation
        [[ $("$host" --no-units ls_service 2>messages | grep -c ' 0 none ') -eq 19 ]] ||
            die 'the sample configuration does not list the embedded machine'
    )
}

# Checks the files of a kind of package with its checker. Shows warnings; errors fail, but for the signature
# of whoever publishes the packages.
lint() {
    local findings status=0
    if [[ $1 == DEB ]] && command -v lintian >/dev/null; then
        findings=$(lintian --allow-root "${@:2}" 2>&1) || status=$?
        [[ $status -le 1 ]] || die "DEB: lintian failed: $findings"
    elif [[ $1 == RPM && $(rpmlint --version 2>/dev/null) =~ (^|[ ])[2-9][.] ]]; then
        findings=$(rpmlint "${@:2}" 2>&1) || true
        [[ $findings == *' checked; '* ]] || die "RPM: rpmlint failed: $findings"
    else
        echo "$1: not checked by $([[ $1 == DEB ]] && echo lintian || echo rpmlint 2), which is not here"
        return
    fi
    findings=$(grep -E '(^| )[EW]: ' <<<"$findings" | grep -v ' no-signature$') || true
    printf '%s' "${findings:+$findings$'\n'}" >&2
    ! grep -qE '(^| )E: ' <<<"$findings" || die "$1: the checker found errors"
}

# Installs and upgrades the packages of a kind in a throwaway root.
live() {
    local status=0
    mkdir -p "$place/live"/{this,next}
    cp "${files[@]}" "$place/live/this"
    if [[ $EUID -eq 0 ]] && unshare -m true 2>/dev/null; then
        "later_$1" "$place/live/next"
        unshare -m packaging/life_cycle.sh "$1" "$place/live" || status=$?
    else
        status=77
    fi
    rm -rf "$place/live"
    case $status in
    0) echo "$1: installed, used, upgraded and removed in a throwaway root" ;;
    77) echo "$1: not installed: a throwaway root needs root's rights to mount an overlay" ;;
    *) exit 1 ;;
    esac
}

# Checks the packages of a kind, which are unpacked, and named by $3. $2 is their folder of libraries.
check_kind() {
    local expected='ansible-collection-optimize-option cockpit-optimize-option optimize-option'
    expected+=" optimize-option-$([[ $1 == DEB ]] && echo dev || echo devel)"
    [[ $(tr ' ' '\n' <<<"$3" | sort | xargs) == "$expected" ]] || die "made the $1s $3"
    check "$place/$1" "$2"
    echo "$1: listed the embedded machine: ${files[*]#"$PWD/"}"
    live "$1"
}

# Makes the source archive, the same whenever it is made.
make_archive() {
    local released
    released=$(sed -n '/^ -- /{s/.*>  //p;q}' packaging/debian/changelog)
    rm -rf "$build"
    mkdir -p "$build"
    tar --mtime="$released" --exclude='*~' --exclude=./.git --exclude=./build --exclude=__pycache__ \
        --exclude=./.cache --exclude=./compile_commands.json --sort=name \
        --transform "s,^[.],optimize-option-$version," \
        --owner=root:0 --group=root:0 --mode=u+rw,go=rX -czf "$archive" .
}

make_DEB() {
    local source=$place/debian/optimize-option-$version
    mkdir "$place/debian"
    tar -xf "$archive" -C "$place/debian"
    cp "$archive" "$place/debian/optimize-option_$version.orig.tar.gz"
    cp -R "$source/packaging/debian" "$source"
    (
        cd "$source"
        quietly "$build/deb.log" env DEB_BUILD_OPTIONS="parallel=$(nproc) ${DEB_BUILD_OPTIONS-}" \
            dpkg-buildpackage -us -uc
    )
    find "$place/debian" -maxdepth 1 -type f -exec mv -t "$build" {} +
    tree=$(echo "$source"/obj-*)
}

# Packs the DEBs once more, as a later release with another sample.
later_DEB() {
    local file
    for file in "${files[@]}"; do
        dpkg-deb -R "$file" "$place/later"
        sed -i "s/$(dpkg-deb -f "$file" Version)/$version-99/" "$place/later/DEBIAN/control"
        change_sample "$place/later"
        quietly "$build/deb.log" dpkg-deb --root-owner-group -b "$place/later" "$1"
        rm -r "$place/later"
    done
}

# What is needed to build is here, but on Debian the database of RPM does not know. There, RPM also has other
# steps after an installation, of which only one is of use.
rpm_build() {
    local packager='Optimize_Option maintainers <maintainers@optimize-option.invalid>'
    [[ $manager == dnf ]] || set -- --define '__os_install_post /usr/lib/rpm/brp-strip strip' "$@"
    quietly "$build/rpm.log" rpmbuild --nodeps --noclean --define "_topdir $place/rpmbuild" \
        --define "packager $packager" "$@"
}

make_RPM() {
    rpm_build -ta "$archive"
    find "$place/rpmbuild" -name '*.rpm' -exec mv -t "$build" {} +
    tree=$(dirname "$(find "$place/rpmbuild" -name CMakeCache.txt)")
}

later_RPM() {
    local installed
    installed=$(find "$place/rpmbuild" -path '*BUILDROOT*' -type d -name usr -prune)
    change_sample "${installed%/usr}"
    sed 's/^Release: .*/Release: 99/' packaging/optimize-option.spec >"$place/later.spec"
    rpm_build -bb --short-circuit --define "_rpmdir $1" --define '_rpmfilename %%{name}.rpm' \
        --buildroot "${installed%/usr}" "$place/later.spec"
    rm -f "$1"/*-debug*
}

change_sample() {
    local sample=$1/usr/share/optimize_option/config/system_operation/conf.xml
    [[ ! -e $sample ]] || echo '<!-- a later sample -->' >>"$sample"
}

for file in packaging/{optimize-option.spec,debian/changelog} ansible/galaxy.yml CHANGELOG.md; do
    grep -qF "$version" "$file" || die "$file does not name the version $version"
done
echo 'Building in build/package ...'
make_archive
if command -v dh >/dev/null; then
    make_DEB
    libraries=lib/$(dpkg-architecture -q DEB_HOST_MULTIARCH)
    names=
    for file in "$build"/*.deb; do
        [[ $file != *-dbgsym_* ]] || continue
        files+=("$file")
        dpkg-deb -x "$file" "$place/DEB"
        names+="$(dpkg-deb -f "$file" Package) "
        [[ $file == */optimize-option* || $file == *_all.deb ]] || die "$file is not for all architectures"
        [[ -e $place/DEB/usr/share/doc/$(dpkg-deb -f "$file" Package)/copyright ]] ||
            die "$file has no copyright file"
    done
    lint DEB "$build"/*.changes
    check_kind DEB "$libraries" "$names"
else
    echo 'DEB: not built: debhelper is not here'
fi

make_RPM
libraries=$(rpm --eval %_lib)
names=
files=()
mkdir "$place/RPM"
for file in "$build"/*.rpm; do
    [[ $file != *-debug* && $file != *.src.rpm ]] || continue
    files+=("$file")
    rpm2cpio "$file" | (cd "$place/RPM" && cpio -idm --quiet)
    names+="$(rpm -qp --qf '%{NAME}' "$file") "
    [[ $file == */optimize-option* || $file == *.noarch.rpm ]] || die "$file is not for all architectures"
    [[ -n $(rpm -qp --licensefiles "$file") ]] || die "$file has no copyright file"
done
lint RPM "$build"/*.rpm
check_kind RPM "$libraries" "$names"

# cmake --install makes the configuration, and keeps one that is there.
conf=var/lib/optimize_option/config/system_operation/conf.xml
install_in() {
    quietly "$build/install.log" env DESTDIR="$place/$1" cmake --install "$tree" "${@:2}"
}
(umask 077 && install_in new)
cmp config/system_operation/conf.xml "$place/new/$conf"
modes=$(cd "$place/new" && stat -c '%a' "${conf%/config/*}" "${conf%/*}" "$conf" | xargs)
[[ $modes == '755 755 644' ]] || die "cmake --install has made the configuration with modes $modes"
echo changed >"$place/new/$conf"
install_in new
[[ $(<"$place/new/$conf") == changed ]] || die 'cmake --install has overwritten the configuration'
install_in other --prefix /opt/prefix
[[ -z $(find "$place/other" -path '*/var/*') ]] ||
    die 'cmake --install has made a configuration where the program does not look'
check_host "$place/new/usr" "$libraries"
