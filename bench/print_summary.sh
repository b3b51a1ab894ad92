#!/usr/bin/env bash
# Prints the rows that the benchmark programs and scripts appended to SUMMARY_FILE (path, now,
# goal, detail; tab-separated) as one Markdown table, with whether each goal is met.
#
#   bench/print_summary.sh SUMMARY_FILE
#
# Ratios: raw time / library time for the library (1.0 = as fast as raw libxml2 or pugixml,
# above 1 faster); peer / tool for the tool (above 1 the tool is faster or smaller).
set -euo pipefail
file="${1:?usage: print_summary.sh SUMMARY_FILE}"
[ -s "$file" ] || { echo "no benchmark summary in $file"; exit 0; }
echo
echo "Summary (CPU time ratios; library rows raw/library, tool rows peer/tool; above 1 = faster):"
echo
awk -F '\t' '
  BEGIN { print "| path | now | goal | detail |"; print "|---|---|---|---|" }
  {
    goal = $3
    if (goal ~ /^>= /) {
      want = substr(goal, 4) + 0
      goal = goal (($2 + 0 >= want) ? " (met)" : " (not met)")
    } else if (goal ~ /^<= /) {
      want = substr(goal, 4) + 0
      goal = goal (($2 + 0 <= want) ? " (met)" : " (not met)")
    }
    printf "| %s | %s | %s | %s |\n", $1, $2, goal, $4
  }' "$file"
