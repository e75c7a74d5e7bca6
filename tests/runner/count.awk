# Counts the tests of a CTest run: of a program that leaves results/NAME behind, each of its tests; of others, themselves.
#
#   awk -v results=BUILD_DIRECTORY/results -f count.awk CTEST_LOG
#
# Prints "passed failed skipped", then the name of each test that failed.

function fail(test) {
  ++failed
  names = names test "\n"
}

# What the program NAME tells of its tests; whether it tells anything.
function read_results(name,    path, line, part, left, any, test) {
  path = results "/" name
  while ((getline line <path) > 0) {
    any = 1
    split(line, part, "\t")
    if (part[1] == "planned") {
      left[part[2]]
      continue
    }
    delete left[part[2]]
    if (part[1] == "failed") {
      fail(part[2])
    } else if (part[1] == "skipped") {
      ++skipped
    } else {
      ++passed
    }
  }
  close(path)
  for (test in left) {
    fail(test)
  }
  return any
}

/^ *[0-9]+\/[0-9]+ Test +#[0-9]+: / {
  ++seen
  before = failed
  whole = / Passed +[0-9.]+ sec/
  if (read_results($4)) {
    if (!whole && failed == before) {
      fail($4)
    }
  } else if (whole) {
    ++passed
  } else if (/\*\*\*Skipped/) {
    ++skipped
  } else {
    fail($4)
  }
}

END {
  if (!seen) {
    fail("ctest") # it did not get through
  }
  printf "%d %d %d\n%s", passed, failed, skipped, names
}
