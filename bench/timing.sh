# What the scripts that measure share. For `source`.
# shellcheck shell=bash
# shellcheck disable=SC2034  # used by those that source it
rounds=5

# Microseconds that a command takes; its output goes to the file "out".
time_of() {
  local start=$EPOCHREALTIME
  "$@" > out 2> errors || { cat errors >&2; return 1; }
  local end=$EPOCHREALTIME
  echo $(( ${end/./} - ${start/./} ))
}

median() { sort -n | sed -n "$(( (rounds + 1) / 2 ))p"; }

print_heading() {
  printf '\n%-62s %12s %12s %7s %7s\n' "work (medians of $rounds, $1)" ours theirs ratio bar
}

# print_pair WORK BAR OURS THEIRS: a row of two times in microseconds.
print_pair() {
  awk -v w="$1" -v bar="$2" -v x="$3" -v y="$4" \
    'BEGIN { printf "%-62s %9.3f ms %9.3f ms %7.2f %7s\n", w, x / 1000, y / 1000, x / y, bar }'
}

# print_bound WORK BAR NUMBER UNIT: a row of a number that is held against a bar of the same unit.
print_bound() {
  printf '%-62s %9s %-2s %12s %7s %7s\n' "$1" "$3" "$4" "" "" "$2"
}
