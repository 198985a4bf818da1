#!/usr/bin/env bash
# Kills node I (1..N) of the private cluster in DIR with SIGKILL, as a crash
# would (db-kill.sh). cluster-start.sh DIR N brings it back.
#
#   scripts/cluster-kill-node.sh DIR I
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd -P)

[[ $# -eq 2 && -n $1 && $2 =~ ^[1-9][0-9]*$ ]] || { echo "usage: $0 DIR I" >&2; exit 2; }
[[ -d $1/node$2 ]] || { echo "$(basename "$0"): no node $2 in $1" >&2; exit 1; }
exec bash "$here/db-kill.sh" "$1/node$2"
