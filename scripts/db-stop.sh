#!/usr/bin/env bash
# Stops the private MariaDB server started by db-start.sh DIR: TERM, wait until
# the process is gone, KILL after 20 s. Not an error if it is not running.
#
#   scripts/db-stop.sh DIR
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd -P)
# shellcheck source-path=SCRIPTDIR source=db-common.sh
. "$here/db-common.sh"

[[ $# -eq 1 && -n $1 ]] || { echo "usage: $0 DIR" >&2; exit 2; }
[[ -d $1 ]] || exit 0
dir=$(db_abs_dir "$1")

if pid=$(db_running_pid "$dir"); then
    kill -TERM "$pid" 2>/dev/null || true
    if ! db_wait_gone "$pid" 20; then
        echo "$(basename "$0"): server $pid did not stop within 20 s; killing it" >&2
        kill -KILL "$pid" 2>/dev/null || true
        db_wait_gone "$pid" 20 || db_die "server $pid is still there after SIGKILL"
    fi
fi
rm -f "$dir/mysqld.bgpid"
