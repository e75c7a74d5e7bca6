#!/usr/bin/env bash
# Holds what the runner tells of tests that end in every way against what became of them.
#
#   check_runner.sh PROGRAM...     PROGRAM: subject_test, with the emulator in front if it takes one
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
results=$scratch/results
mkdir "$results"

# run TEST_NAME STATUS PROGRAM...: runs it as CTest would, and expects this status.
run() {
  local name=$1 expected=$2 status=0
  shift 2
  TEST_RESULTS=$results/$name TEST_TIME_LIMIT=2 "$@" >"$scratch/output" 2>&1 || status=$?
  [ "$status" = "$expected" ] || { cat "$scratch/output"; echo "$name: status $status, not $expected"; exit 1; }
}

# expect_count LOG_LINE...: expects what is read from standard input of a CTest log of these lines.
expect_count() {
  printf '%s\n' "$@" | awk -v results="$results" -f "$here/count.awk" | diff -u --label expected --label counted - <(cat <&3)
} 3<&0

run subject 1 "$@" --gtest_filter='Subject.*'
grep -q '^Subject.Crashes: ended by a signal: Killed$' "$scratch/output"
grep -q '^Subject.EndsTheProgram: ended the program$' "$scratch/output"
grep -q '^Subject.Hangs: took more than 2 seconds$' "$scratch/output"
diff -u --label expected --label told - <(grep -v '^planned' "$results/subject") <<'TOLD'
passed	Subject.Passes
failed	Subject.Fails
skipped	Subject.IsSkipped
failed	Subject.Crashes
failed	Subject.EndsTheProgram
failed	Subject.Hangs
passed	Subject.PassesAtTheEnd
TOLD

# A program that dies between two tests: those after it did not run.
SUBJECT_FAILS_AFTERWARDS=1 run after 1 "$@" --gtest_filter='SubjectAfter.*:SubjectLast.*'
grep -q ': ended with status 3$' "$scratch/output"
grep -q '^SubjectLast.Passes: did not run$' "$scratch/output"
run good 0 "$@" --gtest_filter='SubjectAfter.*:SubjectLast.*'
# Shards share the tests out, also when the process has to be started again.
GTEST_TOTAL_SHARDS=2 GTEST_SHARD_INDEX=1 run shard 1 "$@"
printf 'planned\tSubject.Passes\nplanned\tSubject.Fails\npassed\tSubject.Passes\n' >"$results/killed"

expect_count ' 1/7 Test  #1: subject ........   ***Failed    2.00 sec' <<'COUNT'
2 4 1
Subject.Fails
Subject.Crashes
Subject.EndsTheProgram
Subject.Hangs
COUNT
expect_count '3/7 Test #31: good ....   Passed   0.10 sec' ' 4/7 Test #4: Script.Passes ....   Passed    2.00 sec' \
  '5/7 Test #5: Script.Fails ....***Failed    2.00 sec' '6/7 Test #6: Script.IsSkipped ...***Skipped   0.1 sec' <<'COUNT'
3 1 1
Script.Fails
COUNT
expect_count '1/1 Test #1: shard ....***Failed   0.10 sec' <<'COUNT'
1 3 0
Subject.Fails
Subject.Crashes
Subject.Hangs
COUNT
expect_count '1/1 Test #1: killed ....***Timeout   0.10 sec' <<'COUNT'
1 1 0
Subject.Fails
COUNT
expect_count '1/1 Test #1: good ....***Failed   0.10 sec' <<'COUNT'
2 1 0
good
COUNT
expect_count 'no tests were found' <<'COUNT'
0 1 0
ctest
COUNT
