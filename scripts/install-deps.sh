#!/usr/bin/env bash
# Installs the Debian packages needed to build, test and run the library,
# skipping what is already there (no network access when nothing is missing).
# Packages are installed without their recommendations, so everything used
# is listed (the cluster's state transfer needs galera-4, rsync and ss from
# iproute2, which mariadb-server happens to pull in today).
#
#   scripts/install-deps.sh            # everything
#   scripts/install-deps.sh PKG...     # only these packages
set -euo pipefail

if (($# > 0)); then
    wanted=("$@")
else
    wanted=(build-essential cmake pkg-config libmysqlcppconn-dev libxerces-c-dev
        libwxgtk3.2-dev mariadb-server mariadb-client libgtest-dev googletest
        libbenchmark-dev clang libclang-rt-14-dev doxygen dpkg-dev file jq galera-4 rsync iproute2
        openssl tcpdump iptables stunnel4 util-linux)
fi

missing=()
for pkg in "${wanted[@]}"; do
    status=$(dpkg-query -W -f='${db:Status-Status}' "$pkg" 2>/dev/null || true)
    [[ $status == installed ]] || missing+=("$pkg")
done
((${#missing[@]} == 0)) && exit 0

echo "install-deps: installing ${missing[*]}" >&2
if ((EUID == 0)); then
    as_root=()
elif command -v sudo >/dev/null; then
    as_root=(sudo)
else
    echo "install-deps: not root and no sudo; please install: ${missing[*]}" >&2
    exit 1
fi

"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get update
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y --no-install-recommends "${missing[@]}"
