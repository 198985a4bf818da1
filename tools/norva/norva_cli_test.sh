#!/usr/bin/env bash
# Tests of the norva tool against the private server (NORVA_TEST_DB,
# NORVA_TEST_DB_DIR from scripts/db-start.sh): each subcommand on seeded
# rows, --json validity, exit codes, the down-server and missing-schema
# messages, and `check` finding a dropped column and a missing MAXID row.
# It breaks and restores the schema, so it must run alone and last.
#
#   norva_cli_test.sh PATH-TO-NORVA      (run in an empty working directory)
set -uo pipefail

norva=$1
: "${NORVA_TEST_DB:?NORVA_TEST_DB is not set}" "${NORVA_TEST_DB_DIR:?NORVA_TEST_DB_DIR is not set}"
schema=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd -P)/sql/jdfdb.sql
sock=$NORVA_TEST_DB_DIR/mysqld.sock
admin=(mariadb --no-defaults --protocol=socket -S "$sock" -u"$(id -un)" jdfdb)
failures=0

fail() { echo "FAILED: $*"; failures=$((failures + 1)); }
# run ARGS...: runs norva, leaving $out, $err and $rc.
run() {
    out=$("$norva" "$@" 2>stderr.txt)
    rc=$?
    err=$(cat stderr.txt)
}
# expect RC ARGS...: runs norva and checks its exit code.
expect() {
    local want=$1
    shift
    run "$@"
    [[ $rc == "$want" ]] || fail "norva $* exited $rc, not $want (stderr: $err)"
}
same() { [[ $1 == "$2" ]] || fail "$3: got"$'\n'"$1"$'\n'"expected"$'\n'"$2"; }

restore() {
    # A schema left broken by a failed step is repaired for later runs.
    "${admin[@]:0:6}" <"$schema" >/dev/null 2>&1
    "${admin[@]}" -e "ALTER TABLE JDFTICKET ADD COLUMN IF NOT EXISTS PREVSTATE INT NULL DEFAULT NULL AFTER JOBPARTID;
        INSERT INTO MAXID SELECT 0,0,0,0,0,0,0 FROM DUAL WHERE NOT EXISTS (SELECT 1 FROM MAXID);
        DELETE FROM JDFTICKET WHERE QENTRYID LIKE 'cli-%'; DELETE FROM DEVICE WHERE DEVICEID LIKE 'cli-%';
        DELETE FROM SERVER WHERE SERVERID = 9001; DELETE FROM STATSSUBS WHERE ID BETWEEN 9001 AND 9003;" 2>/dev/null
}
trap restore EXIT
restore

"${admin[@]}" -e "
INSERT INTO SERVER (SERVERID, COMPNAME, STATE, STYPE, VERSION) VALUES (9001, 'cli-srv', 1, 2, '3.1');
INSERT INTO DEVICE (DEVICEID, SERVERID, DEVINDEX, DISPLAYNAME, STATUS) VALUES
  ('cli-dev-a', 9001, 0, 'Press A', 1), ('cli-dev-b', 9001, 1, 'Presse Ü', 2);
INSERT INTO JDFTICKET (QENTRYID, JOBID, JOBPARTID, STATUS, STATE, HOLDDEVID, SUBTIME, JDF) VALUES
  ('cli-q1', 'J1', 'P1', 2, 1, 'cli-dev-a', '2026-01-02 03:04:05', '<JDF ID=\"n1\">\n  <ResourcePool/>\n</JDF>\n'),
  ('cli-q2', 'J2', NULL, 0, 2, 'cli-dev-a', NULL, NULL),
  ('cli-q3', 'J3', 'P3', 0, 1, 'cli-dev-b', NULL, NULL);
INSERT INTO STATSSUBS (ID, DEVICEID, QENTRYID, URL, REPEATTIME, LASTUPDATE) VALUES
  (9001, 'cli-dev-a', 'cli-q1', 'http://s/a', 60, '2020-01-01 00:00:00'),
  (9002, 'cli-dev-a', NULL, 'http://s/b', NULL, '2020-01-01 00:00:00'),
  (9003, 'cli-dev-b', NULL, 'http://s/c', 60, '2999-01-01 00:00:00');" || fail "seeding"

# The host comes from norva.conf as for the library; --host overrides it.
echo "DBIPAddr = $NORVA_TEST_DB" >norva.conf

# The default profile reads no time stamps and NULL numbers of some columns
# as 0: the tool shows what the facade gives.
expect 0 tickets --device cli-dev-a
same "$out" "KEY     JOB  PART  STATUS  STATE  DEVICE     SUBMITTED
cli-q1  J1   P1    2       1      cli-dev-a  -
cli-q2  J2   -     0       2      cli-dev-a  -" "tickets --device"
expect 0 tickets --device cli-dev-a --state 2
same "$(cut -c1-6 <<<"$out" | tail -n +2)" "cli-q2" "tickets --device --state"
expect 0 --profile safe tickets --state 1
same "$(grep -o '^cli-q[0-9]' <<<"$out" | tr '\n' ' ')" "cli-q1 cli-q3 " "tickets --state"

expect 0 ticket cli-q1 --jdf
same "$out" $'<JDF ID="n1">\n  <ResourcePool/>\n</JDF>' "ticket --jdf"
expect 0 ticket cli-q1
same "$(grep -E '^(SUBMITTED|UPDATED|JDF) ' <<<"$out")" "SUBMITTED            -
UPDATED              -
JDF                  <JDF ID=\"n1\">" "ticket"
expect 0 --json ticket cli-q1
jq -e '.key == "cli-q1" and .state == 1 and .part == "P1" and .sender == null and (.jdf | endswith("</JDF>\n"))' \
    <<<"$out" >/dev/null || fail "ticket --json: $out"
expect 1 ticket cli-nothing
same "$out|$err" "|no queue entry cli-nothing" "ticket of a missing key"

expect 0 devices --json
jq -e '[.[] | select(.device | startswith("cli-"))] == [
  {"device":"cli-dev-a","server":9001,"index":0,"name":"Press A","status":1,"status_msg":null,"condition":null,
   "condition_code":0,"op_mode":0,"updated":null},
  {"device":"cli-dev-b","server":9001,"index":1,"name":"Presse Ü","status":2,"status_msg":null,"condition":null,
   "condition_code":0,"op_mode":0,"updated":null}]' <<<"$out" >/dev/null || fail "devices --json: $out"
expect 0 devices
grep -qx 'cli-dev-b  *9001  *1  *Presse Ü  *2  .*' <<<"$out" || fail "devices: $out"
expect 0 servers --json
jq -e '.[] | select(.id == 9001) | .name == "cli-srv" and .type == 2 and .version == "3.1" and .login == null' \
    <<<"$out" >/dev/null || fail "servers --json: $out"
expect 0 subs --device cli-dev-a
same "$(awk 'NR > 1 {print $1}' <<<"$out" | tr '\n' ' ')" "9001 9002 " "subs --device"
expect 0 subs --due --json
same "$(jq -c '[.[] | select(.id >= 9001 and .id <= 9003) | .id]' <<<"$out")" "[9001]" "subs --due"

printf 'ZTTicket 1\nparam "ZT/QUERYID"\n  value "q-1"\nparam "ZT/URL"\n  value "http://sender/jmf"\nend\n' >QueryURL
expect 0 senders
same "$out" "QUERY_ID  URL
q-1       http://sender/jmf" "senders"
expect 0 --json senders --file missing-file
same "$out" "[]" "senders of a missing file"

# Every listing gives valid JSON.
for command in tickets devices servers subs senders check; do
    expect 0 --json $command
    jq -e 'type == "array"' <<<"$out" >/dev/null || fail "$command --json is not a JSON array: $out"
done

# A server that is down: one line on stderr, exit 2.
for command in tickets "ticket cli-q1" devices servers subs check; do
    # shellcheck disable=SC2086  # the command has its arguments
    expect 2 --host tcp://127.0.0.1:1 $command
    [[ -z $out && $err == "cannot reach database at tcp://127.0.0.1:1: "* && $err != *$'\n'* ]] ||
        fail "down server, $command: '$out' '$err'"
done
expect 3 bogus
expect 3 ticket
expect 3 --profile fast tickets
expect 3 init-db
expect 3 tickets --state waiting
expect 3 purge
expect 3 purge --state 4 --batch 0
expect 3 purge --state 4 --older-than 30d
same "$err" "--older-than needs the time stamps only the safe profile stores; this is the exact profile (Profile = safe \
in norva.conf, or --profile safe)" "purge by age in the exact profile"
expect 3 --profile safe purge --state 4 --older-than 30
# A setting that cannot be understood: refused before anything is sent.
printf 'DBIPAddr = %s\nClusterWrites = both\n' "$NORVA_TEST_DB" >norva.conf
expect 4 purge --state 4
same "$err" 'the configuration is refused: ClusterWrites = "both" cannot be understood: one or any' \
    "a bad ClusterWrites"
echo "DBIPAddr = $NORVA_TEST_DB" >norva.conf
expect 0 --help
grep -q '^  2  the database server cannot be reached' <<<"$out" || fail "--help lacks the exit codes"

# check: a configuration value the library cannot understand is named, exit 1
# (a profile's case does not matter: "Safe" is safe).
cp norva.conf norva.conf.good
printf 'Profile = saef\nConnections = two\n' >>norva.conf
expect 1 check
same "$(grep '^FAIL' <<<"$out")" "FAIL    Profile = \"saef\" cannot be understood: exact or safe: the library refuses to run until it is corrected
FAIL    Connections = \"two\" cannot be understood: a whole number from 1 up: the library refuses to run until it is corrected" \
    "check of a bad configuration"
mv norva.conf.good norva.conf

# check: a dropped column and a missing MAXID row are named with their fix.
expect 0 check
"${admin[@]}" -e "ALTER TABLE JDFTICKET DROP COLUMN PREVSTATE; DELETE FROM MAXID;"
expect 1 check
same "$(grep '^FAIL' <<<"$out")" "FAIL    column JDFTICKET.PREVSTATE is missing: ALTER TABLE JDFTICKET ADD COLUMN \`PREVSTATE\` INT NULL DEFAULT NULL
FAIL    MAXID has no row: load sql/jdfdb.sql (norva init-db), which inserts it" "check of a broken schema"
"${admin[@]}" -e "ALTER TABLE JDFTICKET ADD COLUMN PREVSTATE INT NULL DEFAULT NULL AFTER JOBPARTID"

# The compiled-in account: check warns of its password in a line of its own,
# and its exit status stays 0.
"${admin[@]}" -e "INSERT INTO MAXID SELECT 0,0,0,0,0,0,0 FROM DUAL WHERE NOT EXISTS (SELECT 1 FROM MAXID)"
expect 0 check
same "$(grep -c '^WARN    account lumbo27 has the well-known default password' <<<"$out")" 1 "default password warning"

# An account of our own: init-db --user makes it with the four rights only.
secret='Cli-Pw-9d2 k$x'
printf '%s\n' "$secret" >app-password
chmod 644 app-password
expect 4 init-db --admin-socket "$sock" --user norva_app --password-file app-password --from 127.0.0.1
same "$err" "--password-file \"app-password\" may be read by group or others (mode 0644): chmod 600 app-password" \
    "init-db with a password file others may read"
chmod 600 app-password
expect 0 init-db --admin-socket "$sock" --user norva_app --password-file app-password --from 127.0.0.1
grep -qx 'account norva_app may SELECT, INSERT, UPDATE, DELETE on jdfdb.\* and nothing else, from 127.0.0.1' <<<"$out" ||
    fail "init-db --user: $out"
app=(mariadb --no-defaults -h127.0.0.1 -P"${NORVA_TEST_DB##*:}" -unorva_app jdfdb)
grants=$("${admin[@]}" -N -e "SHOW GRANTS FOR norva_app@'127.0.0.1'" | grep -v 'GRANT USAGE')
same "$grants" 'GRANT SELECT, INSERT, UPDATE, DELETE ON `jdfdb`.* TO `norva_app`@`127.0.0.1`' "init-db grants"
for statement in "DROP TABLE LOG" "ALTER TABLE LOG ADD COLUMN X INT" "CREATE TABLE X (A INT)" \
    "SELECT COUNT(*) FROM mysql.user" "CREATE DATABASE other"; do
    MYSQL_PWD=$secret "${app[@]}" -e "$statement" 2>/dev/null && fail "norva_app may: $statement"
done
MYSQL_PWD=$secret "${app[@]}" -N -e "SELECT COUNT(*) FROM MAXID" >/dev/null || fail "norva_app may not read MAXID"

# The tool as that account: no warning, every reading command works, and the
# password shows in no output.
printf 'DBIPAddr = %s\nDBUser = norva_app\nDBPasswordFile = app-password\n' "$NORVA_TEST_DB" >norva.conf
outputs=""
expect 0 check
outputs+=$out$err
[[ $out != *WARN* && $out == *"connected to $NORVA_TEST_DB as norva_app"* ]] || fail "check as norva_app: $out"
for command in tickets "ticket cli-q1" devices servers subs; do
    # shellcheck disable=SC2086  # the command has its arguments
    expect 0 $command
    outputs+=$out$err
done
# Rights beyond the four are a warning; one missing is a finding.
"${admin[@]}" -e "GRANT ALTER, DROP ON jdfdb.* TO norva_app@'127.0.0.1'; REVOKE DELETE ON jdfdb.* FROM norva_app@'127.0.0.1'"
expect 1 check
outputs+=$out$err
same "$(grep -E '^(WARN|FAIL)' <<<"$out")" "FAIL    norva_app may DELETE not: GRANT SELECT, INSERT, UPDATE, DELETE ON jdfdb.* TO the account (norva init-db --user)
WARN    norva_app has rights beyond SELECT, INSERT, UPDATE, DELETE on jdfdb: ALTER on jdfdb, DROP on jdfdb; revoke them (norva init-db --user makes an account without)" \
    "check of an account with other rights"
# A wrong password, a password file others may read, TLS the server lacks.
echo wrong >wrong-password && chmod 600 wrong-password
sed -i 's/^DBPasswordFile = .*/DBPasswordFile = wrong-password/' norva.conf
expect 1 devices
outputs+=$out$err
same "$err" "account norva_app is refused at $NORVA_TEST_DB: Access denied for user 'norva_app'@'127.0.0.1' (using password: YES); check DBUser and DBPasswordFile (norva init-db --user)" "wrong password"
chmod 640 wrong-password
expect 4 tickets
same "$err" "the configuration is refused: DBPasswordFile = \"wrong-password\" may be read by group or others (mode 0640): chmod 600 wrong-password" "norva with a password file others may read"
sed -i 's/^DBPasswordFile = .*/DBPasswordFile = app-password/' norva.conf
echo "DBTLS = required" >>norva.conf
expect 1 devices
same "$err" "no secure connection to $NORVA_TEST_DB: DBTLS = required: the server did not encrypt the connection" "norva, DBTLS against a plain server"
outputs+=$out$err
[[ $outputs != *"$secret"* ]] || fail "the password was printed"
echo "DBIPAddr = $NORVA_TEST_DB" >norva.conf
"${admin[@]}" -e "DROP USER norva_app@'127.0.0.1'"

# A missing schema: named by every reading command; init-db brings it back.
"${admin[@]}" -e "DROP DATABASE jdfdb"
expect 1 devices
same "$out|$err" "|database jdfdb is missing at $NORVA_TEST_DB: load sql/jdfdb.sql (norva init-db)" "missing schema"
expect 1 check
grep -q '^FAIL    database jdfdb is missing' <<<"$out" || fail "check of a missing schema: $out"
expect 0 init-db --admin-socket "$sock" --admin-user "$(id -un)"
expect 0 check
expect 4 init-db --admin-socket "$sock" --schema missing.sql

((failures == 0)) && echo "norva_cli: all passed"
exit $((failures > 0))
