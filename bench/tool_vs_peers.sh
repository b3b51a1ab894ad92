#!/usr/bin/env bash
# The tarnxml tool against xmllint and xmlstarlet on one generated document of about 100 MB:
# user+sys CPU time and peak resident size of each command, as /usr/bin/time reports them; and
# the peak resident size of `tarnxml stream` reading 1 GB generated into a pipe.
#
#   bench/tool_vs_peers.sh BUILD_DIR [SUMMARY_FILE]
#
# BUILD_DIR holds the tool (BUILD_DIR/tools/tarnxml/tarnxml); the document is generated there
# once (BUILD_DIR/tool_vs_peers.xml). Every command runs three times; the median of each figure
# is compared. Ratios are peer / tool: above 1 the tool is faster or smaller, 1.0 is the same.
# Rows are printed and, when SUMMARY_FILE is given, appended to it as the benchmark programs do
# (path, now, goal, detail; tab-separated). Without xmlstarlet (or /usr/bin/time) the script says
# so and does nothing.
set -euo pipefail

build="${1:?usage: tool_vs_peers.sh BUILD_DIR [SUMMARY_FILE]}"
summary="${2:-}"
tool="$build/tools/tarnxml/tarnxml"
doc="$build/tool_vs_peers.xml"
runs=3

for need in xmlstarlet xmllint /usr/bin/time; do
  if ! command -v "$need" >/dev/null 2>&1; then
    echo "tool_vs_peers: $need is not installed, skipped (scripts/install-deps.sh installs it)"
    exit 0
  fi
done
if [ ! -x "$tool" ]; then
  echo "tool_vs_peers: $tool not built, skipped"
  exit 0
fi

# Records with attributes, escaped and non-ASCII text, one <x> element each; about 100 MB.
if [ ! -s "$doc" ] || [ "$(stat -c %s "$doc")" -lt 100000000 ]; then
  awk 'BEGIN {
    print "<?xml version=\"1.0\" encoding=\"UTF-8\"?>"; print "<catalog>"
    size = 0
    for (i = 0; size < 100 * 1024 * 1024; ++i) {
      line = sprintf("  <item id=\"%d\" kind=\"k%d\"><x>name %d \303\251t\303\251</x><value>%d</value><note>a &amp; b &lt; c</note></item>", i, i % 7, i, i * 3)
      print line; size += length(line) + 1
    }
    print "</catalog>"
  }' >"$doc.tmp"
  mv "$doc.tmp" "$doc"
fi

# measure NAME COMMAND...: runs the command $runs times (output discarded) and sets
# CPU_<NAME> (seconds, user+sys) and RSS_<NAME> (kilobytes) to the medians.
median() { sort -g | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }
measure() {
  local name="$1"; shift
  local times=() rss=() out
  for ((r = 0; r < runs; ++r)); do
    out=$(/usr/bin/time -f '%U %S %M' "$@" 2>&1 >/dev/null | tail -n 1)
    times+=("$(echo "$out" | awk '{ print $1 + $2 }')")
    rss+=("$(echo "$out" | awk '{ print $3 }')")
  done
  printf -v "CPU_$name" '%s' "$(printf '%s\n' "${times[@]}" | median)"
  printf -v "RSS_$name" '%s' "$(printf '%s\n' "${rss[@]}" | median)"
}

# row PATH TOOL PEER PEERNAME: one line of figures for the tool against one peer.
row() {
  local path="$1" tool="$2" peer="$3" peername="$4"
  local tcpu="CPU_$tool" trss="RSS_$tool" pcpu="CPU_$peer" prss="RSS_$peer"
  local now detail
  now=$(awk -v a="${!pcpu}" -v b="${!tcpu}" -v c="${!prss}" -v d="${!trss}" \
    'BEGIN { printf "time %.2f, RSS %.2f", (b > 0 ? a / b : 0), (d > 0 ? c / d : 0) }')
  detail=$(awk -v a="${!tcpu}" -v b="${!pcpu}" -v c="${!trss}" -v d="${!prss}" -v p="$peername" \
    'BEGIN { printf "%.2f s %.0f MB vs %s %.2f s %.0f MB", a, c / 1024, p, b, d / 1024 }')
  printf '%-44s %-22s %s\n' "$path" "$now" "$detail"
  if [ -n "$summary" ]; then
    printf '%s\t%s\t%s\t%s\n' "$path" "$now" "" "$detail" >>"$summary"
  fi
}

edit_path="//item[@id='5']/value"
measure check_tool "$tool" check "$doc"
measure check_xmllint xmllint --noout "$doc"
measure count_tool "$tool" select --count -x //x "$doc"
measure count_xmlstarlet xmlstarlet sel -t -v 'count(//x)' "$doc"
measure edit_tool "$tool" edit -x "$edit_path" --set-text 42 "$doc"
measure edit_xmlstarlet xmlstarlet ed -u "$edit_path" -v 42 "$doc"
# xmlstarlet ed re-indents the file unless -P: it drops the whitespace between elements on the
# way in, which the tool keeps (as -P does); -P is the same job.
measure editP_xmlstarlet xmlstarlet ed -P -u "$edit_path" -v 42 "$doc"
measure format_tool "$tool" format "$doc"
measure format_xmlstarlet xmlstarlet fo "$doc"
measure format_xmllint xmllint --format "$doc"

echo "tarnxml vs xmllint / xmlstarlet on $(($(stat -c %s "$doc") / 1000000)) MB (peer / tool; above 1 the tool is faster or smaller):"
row "tool: check vs xmllint --noout" check_tool check_xmllint xmllint
row "tool: select --count vs xmlstarlet sel count()" count_tool count_xmlstarlet xmlstarlet
row "tool: edit (one value) vs xmlstarlet ed -P -u" edit_tool editP_xmlstarlet "xmlstarlet -P"
row "tool: edit (one value) vs xmlstarlet ed -u (re-indents)" edit_tool edit_xmlstarlet xmlstarlet
row "tool: format vs xmlstarlet fo" format_tool format_xmlstarlet xmlstarlet
row "tool: format vs xmllint --format" format_tool format_xmllint xmllint

# stream in constant memory: 1 GB generated into a pipe (never on disk), read once.
gen_gb() {
  awk 'BEGIN { print "<catalog>"; s = 0
    for (i = 0; s < 1024 * 1024 * 1024; ++i) {
      line = sprintf("  <item id=\"%d\"><x>name %d</x><note>a &amp; b</note></item>", i, i)
      print line; s += length(line) + 1
    }
    print "</catalog>" }'
}
stream_out=$(gen_gb | /usr/bin/time -f '%U %S %M' "$tool" stream - 2>&1 >/dev/null | tail -n 1)
stream_mb=$(echo "$stream_out" | awk '{ printf "%.0f", $3 / 1024 }')
stream_s=$(echo "$stream_out" | awk '{ printf "%.1f", $1 + $2 }')
printf '%-44s %-22s %s\n' "tool: stream of 1 GB (pipe), peak RSS" "$stream_mb MB" "$stream_s s user+sys"
if [ -n "$summary" ]; then
  printf '%s\t%s\t%s\t%s\n' "tool: stream of 1 GB (pipe), peak RSS MB" "$stream_mb" "<= 32" "$stream_s s user+sys" >>"$summary"
fi
