#!/usr/bin/env bash
# Kills the private MariaDB server of DIR with SIGKILL, as a crash would, and
# waits until the process is gone. db-start.sh DIR brings it back with the
# same port and data. Not an error if it is not running.
#
#   scripts/db-kill.sh DIR
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd -P)
# shellcheck source-path=SCRIPTDIR source=db-common.sh
. "$here/db-common.sh"

[[ $# -eq 1 && -n $1 ]] || { echo "usage: $0 DIR" >&2; exit 2; }
[[ -d $1 ]] || exit 0
dir=$(db_abs_dir "$1")

if pid=$(db_running_pid "$dir"); then
    kill -KILL "$pid" 2>/dev/null || true
    db_wait_gone "$pid" 20 || db_die "server $pid is still there after SIGKILL"
fi
# Callers expect a refused connection from here on, not a hung handshake.
if [[ -s $dir/port ]]; then
    db_wait_port_closed "$(cat "$dir/port")" 20 || db_die "port $(cat "$dir/port") still accepts connections"
fi
