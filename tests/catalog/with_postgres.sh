#!/usr/bin/env bash
# Runs a command beside a PostgreSQL server of its own, whose address is in DISKACCESS_TEST_SERVER. The server runs as an
# ordinary user, in a temporary folder, and takes connections through a socket there alone. Without Debian's package of the
# server, the command is not run, and the test is skipped.
#
#   with_postgres.sh COMMAND...
set -euo pipefail
programs=$(find /usr/lib/postgresql -maxdepth 2 -name bin 2>/dev/null | sort -V | tail -n 1)
if [ -z "$programs" ] || [ ! -x "$programs/initdb" ]; then
  echo "skipped: no PostgreSQL server; install Debian's postgresql-15"
  exit 77
fi
scratch=$(mktemp -d)
as_user=()
if [ "$(id -u)" = 0 ]; then # the server refuses to run as root
  chown postgres "$scratch"
  as_user=(setpriv --reuid=postgres --regid=postgres --clear-groups env HOME="$scratch")
fi

run() {
  (cd "$scratch" && "${as_user[@]}" "$@")
}

stop() {
  run "$programs/pg_ctl" -D "$scratch/data" -m immediate -w stop >/dev/null 2>&1 || true
  rm -rf "$scratch"
}
trap stop EXIT

run "$programs/initdb" -D "$scratch/data" -U catalog --auth=trust --no-sync --encoding=UTF8 --locale=C >"$scratch/initdb.log" ||
  { cat "$scratch/initdb.log"; exit 1; }
run "$programs/pg_ctl" -D "$scratch/data" -l "$scratch/server.log" -w -t 120 \
  -o "-c listen_addresses='' -c unix_socket_directories='$scratch' -c fsync=off -c max_connections=60" start >/dev/null ||
  { cat "$scratch/server.log"; exit 1; }
chmod 755 "$scratch"
export DISKACCESS_TEST_SERVER="postgresql:///postgres?host=$scratch&user=catalog"
"$@"
