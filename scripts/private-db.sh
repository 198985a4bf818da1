# shellcheck shell=bash
# Sourced by the run-*.sh scripts. private_db_start starts a private database
# server in a fresh directory under PARENT for the rest of the
# calling script, exports NORVA_TEST_DB and NORVA_TEST_DB_DIR from it, and
# sets the traps that stop and remove it when the script ends. Paths added to
# private_db_scratch are removed with it.
#
#   . "$root/scripts/private-db.sh"
#   private_db_start PARENT

private_db_scripts=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd -P)
private_db_dir=""
private_db_scratch=()

# shellcheck disable=SC2317  # called from the EXIT trap
private_db_cleanup() {
    if [[ -n $private_db_dir ]]; then
        bash "$private_db_scripts/db-stop.sh" "$private_db_dir" || true
        rm -rf "$private_db_dir"
    fi
    if ((${#private_db_scratch[@]})); then
        rm -rf "${private_db_scratch[@]}"
    fi
}

private_db_start() {
    local key value
    private_db_dir=$(mktemp -d "$1/norvadb.XXXXXX")
    trap private_db_cleanup EXIT
    trap 'exit 130' INT
    trap 'exit 143' TERM
    bash "$private_db_scripts/db-start.sh" "$private_db_dir"
    while IFS='=' read -r key value; do
        [[ -n $key ]] && export "$key=$value"
    done <"$private_db_dir/env"
}
