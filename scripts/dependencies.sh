#!/usr/bin/env bash
# Installs the missing packages for a purpose: build, test, bench, package, lint, ansible,
# ansible_lint, ansible_validate, container, page, asan, tsan or compilers.
# The other scripts source this one. By hand: scripts/dependencies.sh PURPOSE...
set -euo pipefail

if command -v apt-get >/dev/null; then
    manager=apt-get
elif command -v dnf >/dev/null; then
    manager=dnf
else
    echo 'dependencies.sh: this machine has neither apt-get nor dnf; README.md names the packages to install' >&2
    exit 1
fi

# The versions of a compiler that apt-get can install, the oldest first.
versions_of() {
    apt-cache search --names-only "^${1//+/[+]}-[0-9]+\$" | cut -d' ' -f1 | sort -V
}

packages() {
    case $manager:$1 in
    apt-get:build) echo g++ cmake make libxml2-dev nlohmann-json3-dev ;;
    apt-get:test) echo libgtest-dev libgmock-dev bsdutils ;;
    apt-get:bench) echo libbenchmark-dev python3 ;;
    apt-get:package) echo cpio debhelper dpkg-dev file pkg-config python3 rpm ;;
    apt-get:lint) echo lintian rpmlint ;;
    apt-get:ansible | dnf:ansible) echo ansible-core ;;
    apt-get:ansible_lint | dnf:ansible_lint) echo ansible-lint ;;
    apt-get:container | dnf:container) echo systemd-container ;;
    apt-get:ansible_validate | dnf:ansible_validate) echo python3-voluptuous ;;
    # With a font for Chinese.
    apt-get:page)
        echo cockpit-ws cockpit-bridge chromium chromium-driver python3-selenium fonts-wqy-microhei
        ;;
    dnf:page)
        echo cockpit-ws cockpit-bridge chromium chromedriver python3-selenium \
            google-noto-sans-cjk-ttc-fonts
        ;;
    dnf:build)
        echo gcc-c++ cmake make libxml2-devel json-devel diffutils gawk sed util-linux
        ;;
    dnf:test) echo gtest-devel gmock-devel /usr/bin/script ;;
    dnf:bench) echo google-benchmark-devel python3 ;;
    dnf:package) echo cpio pkgconf-pkg-config python3 rpm-build ;;
    dnf:lint) echo rpmlint ;;
    dnf:asan) echo libasan libubsan ;;
    dnf:tsan) echo libtsan ;;
    # The oldest GCC and the newest clang.
    apt-get:compilers)
        as_root apt-get -q update >/dev/null 2>&1 || true
        versions_of g++ | head -n1
        versions_of clang | tail -n1
        ;;
    dnf:compilers) echo clang ;;
    # The C library's converters, on releases that have them in a package of their own.
    apt-get:gbk) echo libc-gconv-modules-extra ;;
    dnf:gbk) echo glibc-gconv-extra ;;
    esac
}

is_installed() {
    case $manager in
    apt-get) [[ $(dpkg-query -W -f '${Status}' "$1" 2>/dev/null) == *' installed' ]] ;;
    dnf) rpm -q --whatprovides "$1" >/dev/null 2>&1 ;;
    esac
}

# Runs a command with its output in a log file, and shows that when the command fails.
quietly() {
    local log=$1 status=0
    shift
    mkdir -p "$(dirname "$log")"
    "$@" >"$log" 2>&1 || status=$?
    [[ $status -eq 0 ]] || cat "$log" >&2
    return $status
}

as_root() {
    if [[ $EUID -eq 0 ]]; then
        "$@"
    else
        sudo "$@"
    fi
}

install_packages() {
    case $manager in
    apt-get)
        as_root apt-get -q update &&
            as_root env DEBIAN_FRONTEND=noninteractive \
                apt-get -qy install --no-install-recommends "$@"
        ;;
    dnf)
        as_root dnf -qy install "$@" && return
        # Clones of Red Hat Enterprise Linux keep some of them in EPEL and CRB, once PowerTools.
        as_root dnf -qy install epel-release 'dnf-command(config-manager)' || true
        as_root dnf config-manager --set-enabled crb ||
            as_root dnf config-manager --set-enabled powertools || true
        as_root dnf -qy install "$@"
        ;;
    esac
}

need() {
    local purpose package missing=()
    iconv -f GBK -t UTF-8 </dev/null >/dev/null 2>&1 || set -- "$@" gbk
    for purpose; do
        for package in $(packages "$purpose"); do
            is_installed "$package" || missing+=("$package")
        done
    done
    [[ ${#missing[@]} -ne 0 ]] || return 0

    if [[ $EUID -ne 0 ]] && ! command -v sudo >/dev/null; then
        echo "dependencies.sh: installing needs root's rights or sudo; missing packages: ${missing[*]}" >&2
        exit 1
    fi
    echo "Installing ${missing[*]}" >&2
    quietly build/dependencies.log install_packages "${missing[@]}" || exit
}

if [[ ${BASH_SOURCE[0]} == "$0" ]]; then
    cd "$(dirname "$(readlink -f "$0")")/.."
    need "$@"
fi
