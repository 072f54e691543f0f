#!/usr/bin/env bash
# Builds the benchmark, measures, and writes the table and the plot of docs/performance.md:
# scripts/bench.sh [BENCHMARK-OPTION...]. TMPDIR says where, and so on which file system.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."
source scripts/dependencies.sh

need build bench
build=$PWD/build/bench
echo "Building in build/bench ..."
quietly "$build.log" cmake --preset bench
quietly "$build.log" cmake --build --preset bench -j"$(nproc)"

root=$PWD
place=$(mktemp -d -p "${TMPDIR:-$build}")
trap 'rm -rf "$place"' EXIT

# A stand-in for chkconfig that prints the listing of the embedded machine at the least cost.
mkdir "$place/bin"
printf '#!/bin/sh\nexec cat %q\n' "$root/machine/chkconfig-list.txt" >"$place/bin/chkconfig"
chmod +x "$place/bin/chkconfig"
export OPTIMIZE_HOST_LOG=$place/history

# A configuration of $2 entries in the working directory $1. The names are those of the listing, over
# and over, but every sixth is of no service; the descriptions are those of the embedded machine.
configure() {
    local directory=$place/$1/config/system_operation
    mkdir -p "$directory"
    awk -v count="$2" '
        FNR == NR && /<info / { split($0, parts, "\""); descriptions[described++] = parts[12] }
        FNR != NR && /\t/ { sub(":$", "", $1); names[named++] = $1 }
        END {
            print "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<kavra_conf>\n\t<myself_config>"
            print "\t\t<optimize_sorce>85</optimize_sorce>\n\t\t<optimize_num>3</optimize_num>"
            print "\t</myself_config>\n\t<service_optimize>"
            for (id = 1; id <= count; id++) {
                name = id % 6 == 0 ? "absent-" id : names[next_name++ % named]
                printf "\t\t<info id=\"%d\" name=\"%s\" op=\"0\" level=\"345\" xinetd=\"0\"", id, name
                printf " desc=\"%s\"/>\n", descriptions[id % described]
            }
            print "\t</service_optimize>\n</kavra_conf>"
        }' machine/config/system_operation/conf.xml machine/chkconfig-list.txt \
        >"$directory/conf.xml"
}
for entries in 10 100 1000 10000; do
    configure $entries $entries
done
configure ids 1000

echo 'Measuring ...'
cd "$place"
PATH=$place/bin:$PATH "$build/bin/optimize_bench" \
    --benchmark_repetitions=40 --benchmark_min_time=0.03 \
    --benchmark_enable_random_interleaving=true --benchmark_report_aggregates_only=true \
    --benchmark_context=file_system="$(df --output=fstype . | tail -n1)" \
    --benchmark_out="$place/results.json" --benchmark_out_format=json "$@" >"$build.log"
mv results.json "$build"
cd "$root"
python3 bench/report.py "$build/results.json" docs/performance.md docs/performance.svg
