#!/usr/bin/env bash
# Peak resident size of loading the generated 20 MB document once, in fresh processes:
# bench_document --peak=MODE for the text alone, raw libxml2 and XmlDocument::Load.
#
#   bench/load_memory.sh BUILD_DIR [SUMMARY_FILE]
#
# The row compares what each load adds on top of the text (raw / library: 1.0 = the same, above
# 1 the library needs less) and is appended to SUMMARY_FILE when given.
set -euo pipefail
build="${1:?usage: load_memory.sh BUILD_DIR [SUMMARY_FILE]}"
summary="${2:-}"
bench="$build/bench/bench_document"
[ -x "$bench" ] || { echo "load_memory: $bench not built, skipped"; exit 0; }
peak() { "$bench" --peak="$1" | sed -n 's/.*peak_rss_kb=\([0-9]*\).*/\1/p'; }
text=$(peak text)
raw=$(peak raw)
library=$(peak library)
line=$(awk -v t="$text" -v r="$raw" -v l="$library" 'BEGIN {
  printf "%.2f\t%.0f MB vs %.0f MB raw, over %.0f MB for the text alone", (l > t ? (r - t) / (l - t) : 0),
         (l - t) / 1024, (r - t) / 1024, t / 1024 }')
echo "load peak memory, generated 20 MB (raw / library): ${line//$'\t'/  }"
if [ -n "$summary" ]; then
  printf 'load peak memory, generated 20 MB\t%s\n' "$(echo "$line" | awk -F '\t' '{ print $1 "\t\t" $2 }')" >>"$summary"
fi
