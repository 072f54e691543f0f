#!/usr/bin/env bash
# Builds the DEB and the RPM in build/package and checks their contents: the binaries are hardened, the
# headers compile, and the unpacked program lists the services of the embedded machine.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."
source scripts/dependencies.sh

die() {
    echo "package.sh: $1" >&2
    exit 1
}

need build package
build=$PWD/build/package
machine=$PWD/machine
place=$(mktemp -d)
trap 'rm -rf "$place"' EXIT

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
        if grep -q '^HAVE_fcf_protection:.*=1$' "$build/CMakeCache.txt"; then
            # The C library's start-up code brings a few of these, too.
            landings=$(objdump -d "$file" | grep -cE '\bendbr(32|64)\b' || true)
            [[ $landings -gt 20 ]] || die "${file##*/} lacks control-flow protection"
        fi
    done
    $fortified || die 'the packaged binaries call no checked function of the C library'
}

# Checks an unpacked package. $2 is its folder of libraries.
check() {
    local root=$1 libraries=$1/usr/$2/optimize_option file
    local host=$root/usr/bin/optimize_host
    local conf=etc/optimize_option/config/system_operation/conf.xml
    for file in "$libraries"/{libfwbase,rpc_ireal_Optimize_Option}.so "$root/$conf" \
        "$root"/usr/share/{man/man1/optimize_host.1,bash-completion/completions/optimize_host} \
        "$root"/usr/share/doc/optimize_option/{README.md,docs/interface.md}; do
        [[ -e $file || -e $file.gz ]] || die "${file#"$root/"} is not in the package"
    done
    check_hardened "$host" "$libraries"/{libfwbase,rpc_ireal_Optimize_Option}.so
    # The headers are complete: each compiles by itself.
    while read -r file; do
        "${CXX:-c++}" -std=c++17 -fsyntax-only -Wall -Wextra -Wpedantic -Werror -include "$file" \
            -I "$root/usr/include/optimize_option" -x c++ /dev/null || die "$file does not compile"
    done < <(find "$root/usr/include" -name '*.h' -printf '%P\n' | cut -d/ -f2-)

    # The embedded machine, with its own configuration and then with the sample; and completion.
    rm -rf "$place/machine"
    cp -R "$machine" "$place/machine"
    (
        cd "$place/machine"
        export PATH=$PWD/bin:$PATH
        "$host" ls_service >listing
        [[ $(grep -c ' [012] \(none\|optimized\|ignored\) ' listing) -eq 19 ]] ||
            die 'the embedded machine is not listed'
        # shellcheck source=packaging/completion.bash
        source "$root/usr/share/bash-completion/completions/optimize_host"
        COMP_WORDS=(optimize_host -m module.so ignore_service on 2) COMP_CWORD=5
        _optimize_host
        [[ ${COMPREPLY[*]} == '2 20 21 22 25' ]] || die "completed ids to '${COMPREPLY[*]}'"
        grep -q ' 30  rsync  .*文件同步服务' listing || die 'the listing lacks rsync'
        cp "$root/$conf" config/system_operation
        [[ $("$host" ls_service | grep -c ' 0 none ') -eq 14 ]] ||
            die 'the sample configuration does not list the embedded machine'
    )
}

# Builds the package of a CPack generator, whose systems keep libraries in usr/$2, and names its file.
package() {
    local generator=$1 libraries=$2
    rm -f "$build"/*."${generator,,}"
    quietly "$build.log" cmake --preset package -DCMAKE_INSTALL_LIBDIR="$libraries"
    quietly "$build.log" cmake --build --preset package -j"$(nproc)"
    (cd "$build" && quietly "$build.log" cpack -G "$generator")
    mkdir "$place/$generator"
    file=$(echo "$build"/*."${generator,,}")
}

echo 'Building in build/package ...'
triplet=$("${CXX:-c++}" -print-multiarch)
package DEB "lib${triplet:+/$triplet}"
dpkg-deb -x "$file" "$place/DEB"
dpkg-deb --ctrl-tarfile "$file" | tar -xO ./conffiles | grep -qx '/etc/.*/conf.xml' ||
    die "$file: the configuration is not marked as such"
check "$place/DEB" "lib${triplet:+/$triplet}"
echo "${file#"$PWD/"}: lists the embedded machine"

package RPM lib64
rpm2cpio "$file" | (cd "$place/RPM" && cpio -idm --quiet)
[[ $(rpm -qp --qf '[%{FILEFLAGS:fflags} %{FILENAMES}\n]' "$file" | grep -c '^cn /etc/.*/conf.xml$') -eq 1 ]] ||
    die "$file: the configuration is not marked as such"
check "$place/RPM" lib64
echo "${file#"$PWD/"}: lists the embedded machine"

# Installing anew keeps a configuration that is there.
DESTDIR=$place/root cmake --install "$build" >/dev/null
echo changed >"$place/root/etc/optimize_option/config/system_operation/conf.xml"
DESTDIR=$place/root cmake --install "$build" >/dev/null
[[ $(<"$place/root/etc/optimize_option/config/system_operation/conf.xml") == changed ]] ||
    die 'cmake --install has overwritten the configuration'
