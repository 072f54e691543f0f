#!/usr/bin/env bash
# Drives the page in Cockpit with a browser: scripts/page-test.sh [TEST...], all tests unless some are named.
# Needs the release build and root's rights. Keeps screenshots in build/page.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."
source scripts/dependencies.sh

skip() {
    echo "Skipped: $1."
    exit 0
}

[[ $EUID -eq 0 ]] || skip 'the page is tested with rights and without, which only root can do'
(need page) || skip 'Cockpit, Chromium or Selenium cannot be installed here'
mkdir -p build/page
axe=build/page/package/axe.min.js
if [[ ! -e $axe ]]; then
    quietly build/page/axe.log npm pack --pack-destination build/page axe-core@4 &&
        tar -xzf build/page/axe-core-*.tgz -C build/page package/axe.min.js ||
        echo 'Accessibility is not checked: npm cannot get axe-core.'
fi
# The distribution's own Python, for which Selenium is installed.
exec /usr/bin/python3 scripts/page_test.py build/release/bin/optimize_host "$@"
