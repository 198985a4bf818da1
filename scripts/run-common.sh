# shellcheck shell=bash
# Sourced by the run-*.sh scripts: sets root to the top of the tree and makes
# it the working directory, brings in private_db_start (private-db.sh), and
# gives norva_build, which installs the Debian packages and then configures
# and builds one build directory.
#
#   . "$(dirname "${BASH_SOURCE[0]}")/run-common.sh"
#   norva_build NAME [--source DIR] [CMAKE-OPTION...] [--target TARGET...]
#
# NAME is the directory under build/ (set in $build); DIR is the CMake source
# directory (default: the top of the tree); without --target everything is
# built.

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd -P)
cd "$root" || exit
# shellcheck source-path=SCRIPTDIR source=private-db.sh
. "$root/scripts/private-db.sh"

norva_build() {
    build="$root/build/$1"
    shift
    local source="$root" configure=() targets=()
    while (($#)); do
        case $1 in
            --source) source=$2; shift 2 ;;
            --target) shift; targets=(--target "$@"); break ;;
            *) configure+=("$1"); shift ;;
        esac
    done
    bash "$root/scripts/install-deps.sh" &&
        cmake -S "$source" -B "$build" "${configure[@]}" &&
        cmake --build "$build" -j2 "${targets[@]}"
}
