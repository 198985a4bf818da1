# shellcheck shell=bash
# Helpers shared by db-start.sh, db-stop.sh and db-kill.sh (sourced, not run).
#
# A private server keeps everything in one directory DIR:
#   DIR/data          data directory
#   DIR/mysqld.sock   unix socket
#   DIR/mysqld.pid    pid file written by the server (removed on a clean stop)
#   DIR/mysqld.bgpid  our own copy of the pid
#   DIR/mysqld.err    error log
#   DIR/mysqld.out    the server's stdout/stderr
#   DIR/port          TCP port on 127.0.0.1, chosen once
#   DIR/env           NORVA_TEST_DB=... and NORVA_TEST_DB_DIR=...

# mariadbd lives in /usr/sbin, which a non-root PATH often lacks.
PATH="$PATH:/usr/sbin:/sbin"

db_die() {
    echo "$(basename "$0"): $*" >&2
    exit 1
}

# Absolute, symlink-free form of an existing directory.
db_abs_dir() {
    (cd "$1" && pwd -P)
}

# True while any thread of the process is still running. An unreaped dead
# process still answers kill -0, and after SIGKILL the main thread can be a
# zombie while the other threads still hold the listening sockets open.
db_pid_alive() {
    local pid=$1 stat task
    kill -0 "$pid" 2>/dev/null || return 1
    for task in "/proc/$pid/task/"*; do
        stat=$(cat "$task/stat" 2>/dev/null) || continue
        stat=${stat##*) }
        [[ ${stat%% *} != Z ]] && return 0
    done
    return 1
}

# True while something accepts connections on 127.0.0.1:PORT.
db_port_in_use() {
    (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null
}

# Waits up to SECONDS for nothing to listen on 127.0.0.1:PORT any more.
db_wait_port_closed() {
    local port=$1 seconds=$2 i
    for ((i = 0; i < seconds * 10; i++)); do
        db_port_in_use "$port" || return 0
        sleep 0.1
    done
    ! db_port_in_use "$port"
}

# True when PID is a live server using DIR/data (guards against pid reuse).
db_pid_is_ours() {
    local pid=$1 dir=$2
    [[ $pid =~ ^[0-9]+$ ]] || return 1
    db_pid_alive "$pid" || return 1
    tr '\0' '\n' <"/proc/$pid/cmdline" 2>/dev/null | grep -qxF -- "--datadir=$dir/data"
}

# Prints the pid of the server running from DIR, or fails.
db_running_pid() {
    local dir=$1 pid f
    for f in "$dir/mysqld.bgpid" "$dir/mysqld.pid"; do
        [[ -r $f ]] || continue
        pid=$(tr -dc '0-9' <"$f")
        if db_pid_is_ours "$pid" "$dir"; then
            echo "$pid"
            return 0
        fi
    done
    return 1
}

# Waits up to SECONDS (fractions allowed) for PID to be gone.
db_wait_gone() {
    local pid=$1 seconds=$2 i
    for ((i = 0; i < ${seconds%.*} * 10; i++)); do
        db_pid_alive "$pid" || return 0
        sleep 0.1
    done
    ! db_pid_alive "$pid"
}

# Certificates for TLS, made with openssl (EC P-256 keys, ten years).
#   db_make_ca DIR                 DIR/ca.pem, DIR/ca-key.pem, unless there
#   db_make_cert DIR NAME CN SAN   DIR/NAME.pem, DIR/NAME-key.pem signed by
#                                  DIR's CA, SAN e.g. IP:127.0.0.1 (may be empty)
db_make_ca() {
    local t=$1
    [[ -s $t/ca.pem && -s $t/ca-key.pem ]] && return 0
    mkdir -p "$t"
    command -v openssl >/dev/null || bash "$(dirname "${BASH_SOURCE[0]}")/install-deps.sh" openssl
    (umask 077 && openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 3650 \
        -subj "/CN=norva private CA $(date +%s)-$RANDOM" -addext basicConstraints=critical,CA:TRUE \
        -addext keyUsage=critical,keyCertSign,cRLSign \
        -keyout "$t/ca-key.pem" -out "$t/ca.pem" >/dev/null 2>&1 && chmod 644 "$t/ca.pem") ||
        db_die "openssl could not make a CA in $t"
}

db_make_cert() {
    local t=$1 name=$2 cn=$3 san=$4 ext
    ext="basicConstraints=CA:FALSE${san:+
subjectAltName=$san}"
    (umask 077 && openssl req -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -subj "/CN=$cn" \
        -keyout "$t/$name-key.pem" -out "$t/$name.csr" >/dev/null 2>&1 &&
        openssl x509 -req -in "$t/$name.csr" -CA "$t/ca.pem" -CAkey "$t/ca-key.pem" -CAcreateserial -days 3650 \
            -extfile <(echo "$ext") -out "$t/$name.pem" >/dev/null 2>&1) ||
        db_die "openssl could not make the certificate $t/$name.pem"
    rm -f "$t/$name.csr"
    chmod 644 "$t/$name.pem"
}
