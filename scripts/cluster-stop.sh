#!/usr/bin/env bash
# Stops every node of the private cluster started by cluster-start.sh DIR,
# the last-started first (db-stop.sh on each; node 1, stopped last, may
# bootstrap the cluster again). Not an error if nothing is running.
#
#   scripts/cluster-stop.sh DIR
set -uo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd -P)

[[ $# -eq 1 && -n $1 ]] || { echo "usage: $0 DIR" >&2; exit 2; }
[[ -s $1/size ]] || exit 0
status=0
for ((i = $(cat "$1/size"); i >= 1; i--)); do
    bash "$here/db-stop.sh" "$1/node$i" || status=1
done
exit "$status"
