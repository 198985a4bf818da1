#!/usr/bin/env bash
# Builds the API reference (the docs target, Doxygen) into build/docs and
# fails on any Doxygen warning, such as an undocumented public member; the
# warnings are printed.
#
#   scripts/run-docs.sh
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd -P)
cd "$root"
build="$root/build/docs"

bash scripts/install-deps.sh doxygen cmake pkg-config libmysqlcppconn-dev libxerces-c-dev libwxgtk3.2-dev

cmake -S . -B "$build" -DNORVA_BUILD_TESTS=OFF -DNORVA_BUILD_EXAMPLES=OFF >/dev/null
status=0
cmake --build "$build" --target docs || status=$?
warnings="$build/docs/warnings.txt"
if [[ -s $warnings ]]; then
    cat "$warnings" >&2
    echo "run-docs: $(wc -l <"$warnings") warning lines" >&2
    status=1
fi
((status == 0)) && echo "run-docs: reference in $build/docs/html/index.html"
exit "$status"
