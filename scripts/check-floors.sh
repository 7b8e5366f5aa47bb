#!/usr/bin/env bash
# Checks the direction of dependencies between the library's folders: every
# `#include "velto/..."` or `<velto/...>` of include/ and src/ may name a header of its own
# folder or of a lower floor only, and the headers may not include each other in a cycle.
#
#   floor 1  core, values   (values may use core; detail/ counts as core)
#   floor 2  dispatch, concurrency   (concurrency may use dispatch)
#   floor 3  encoding
#   floor 4  messaging, collections, text   (text may use collections)
#   floor 5  networking   (networking/adapters/ counts as networking)
#
# Prints one line per violation, `file:line: folder A may not include folder B`, and one line
# per include cycle; exits 1 when there is any, 0 otherwise.
set -euo pipefail
cd "$(dirname "$0")/.."

{
  # file, line, including folder, included header (relative to include/)
  grep -rnE --include='*.hpp' --include='*.cpp' --include='*.h' \
    '^[[:space:]]*#[[:space:]]*include[[:space:]]*[<"]velto/[^">]+[">]' include src || true
} | awk '
function floorOf(folder) {
  if (folder == "core" || folder == "detail" || folder == "values") return 1
  if (folder == "dispatch" || folder == "concurrency") return 2
  if (folder == "encoding") return 3
  if (folder == "messaging" || folder == "collections" || folder == "text") return 4
  if (folder == "networking") return 5
  return 0
}
# The folder a path belongs to: include/velto/<folder>/..., src/<folder>/...; "" for velto.hpp.
function folderOfFile(path,   parts, n) {
  n = split(path, parts, "/")
  if (parts[1] == "include") return (n > 3) ? parts[3] : ""
  return (n > 2) ? parts[2] : ""
}
function folderOfHeader(header,   parts, n) {
  n = split(header, parts, "/")
  return (n > 2) ? parts[2] : ""
}
function canonical(folder) { return folder == "detail" ? "core" : folder }
function allowed(from, to,   a, b) {
  a = canonical(from); b = canonical(to)
  if (a == b) return 1
  if (floorOf(a) > floorOf(b)) return 1
  if (a == "values" && b == "core") return 1
  if (a == "concurrency" && b == "dispatch") return 1
  if (a == "text" && b == "collections") return 1
  return 0
}
{
  # $0 is file:line:text
  file = $0; sub(/:.*/, "", file)
  rest = substr($0, length(file) + 2)
  line = rest; sub(/:.*/, "", line)
  header = rest; sub(/^[^<"]*[<"]/, "", header); sub(/[">].*$/, "", header)
  from = folderOfFile(file); to = folderOfHeader(header)
  if (from == "") {
    if (file != "include/velto/velto.hpp") { print file ":" line ": file lies outside every folder"; bad = 1 }
    next
  }
  if (to == "" || floorOf(canonical(to)) == 0) {
    print file ":" line ": folder " from " may not include " header " (no such folder)"; bad = 1; next
  }
  if (floorOf(canonical(from)) == 0) { print file ":" line ": folder " from " has no floor"; bad = 1; next }
  if (!allowed(from, to)) { print file ":" line ": folder " from " may not include folder " to; bad = 1 }
  if (file ~ /^include\//) {
    node = substr(file, length("include/") + 1)
    edges[node] = edges[node] " " header
    nodes[node] = 1
  }
}
# Depth-first search over the header graph; a grey node met again closes a cycle.
function visit(node,   list, n, i, next_node, k, cycle) {
  state[node] = 1; stack[++depth] = node
  n = split(edges[node], list, " ")
  for (i = 1; i <= n; i++) {
    next_node = list[i]
    if (next_node == "") continue
    if (state[next_node] == 1) {
      cycle = next_node
      for (k = depth; k >= 1 && stack[k] != next_node; k--) cycle = stack[k] " -> " cycle
      print "include cycle: " next_node " -> " cycle; bad = 1
    } else if (state[next_node] == 0) {
      visit(next_node)
    }
  }
  depth--; state[node] = 2
}
END {
  for (node in nodes) if (state[node] == 0) visit(node)
  exit bad ? 1 : 0
}
'
