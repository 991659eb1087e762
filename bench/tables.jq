# SPDX-License-Identifier: Apache-2.0
# The figures as tables.
def n(digits): if . == null then "–" else . as $x | pow(10; digits) as $p | ($x * $p | round / $p | tostring) end;
def bytes: if . >= 1048576 then "\(. / 1048576) MiB" elif . >= 1024 then "\(. / 1024) KiB" else "\(.) B" end;
def replies: to_entries | map("\(.value) × \(.key)") | join(", ");

def callsTable: if .calls then
  "| Call | under way | calls/s: limit | daemon | ÷ | CPU µs: limit | daemon | ÷ | p50 µs | p99 | longest | peak MiB: limit | daemon | replies |",
  "|---|---|---|---|---|---|---|---|---|---|---|---|---|---|",
  (.calls[] | "| \(.method) \(.bytes | bytes) | \(.window) | \(.limit.callsPerSecond | n(0)) | \(.tavrisk.callsPerSecond | n(0)) | \(.tavrisk.throughputRatio | n(2)) | \(.limit.cpuUs | n(0)) | \(.tavrisk.cpuUs | n(0)) | \(.tavrisk.cpuRatio | n(2)) | \(.tavrisk.p50us | n(0)) | \(.tavrisk.p99us | n(0)) | \(.tavrisk.maxUs | n(0)) | \(.limit.peakKiB / 1024 | n(1)) | \(.tavrisk.peakKiB / 1024 | n(1)) | \(.tavrisk.replies | replies) |"),
  (.echo[]? | "| Echo \(.bytes | bytes) | \(.window) | \(.limit.callsPerSecond | n(0)) | | | \(.limit.cpuUs | n(0)) | | | | | | | | \(.limit.replies | replies) |"), "" else empty end;

def startTable: if .start then
  "| | limit | daemon | ÷ |", "|---|---|---|---|",
  (.start[] | "| start to name claimed, ms | \(.limit.startMs | n(1)) | \(.tavrisk.startMs | n(1)) | \(.tavrisk.startRatio | n(2)) |",
    "| idle RSS, MiB | \(.limit.idleKiB / 1024 | n(1)) | \(.tavrisk.idleKiB / 1024 | n(1)) | \(.tavrisk.idleRatio | n(2)) |",
    "| wake-ups in two idle seconds | \(.limit.wakeUps) | \(.tavrisk.wakeUps) | |"), "" else empty end;

def workTable: if .work then
  "| One call of 300 bytes | instructions | allocations on the bus thread | system calls |", "|---|---|---|---|",
  (.work[] | "| \(.method), \(if .program == "limit" then "limit" else "daemon" end) | \(.instructions | n(0)) | \(.allocations) | \(.systemCalls | to_entries | sort_by(-.value) | map(select(.value >= 0.01) | "\(.key) \(.value | n(2))") | join(", ")) |"), "" else empty end;

def logTable: if .log then
  "| Event log, entries/s | one thread | 32 threads | bare SQLite, batches of 32 |", "|---|---|---|---|",
  (.log[] | "| syncs \(.syncs) | \(.one | n(0)) | \(.many | n(0)) | \(.bare | n(0)) |"), "" else empty end;

def growthTable: if .growingLog then
  "| Entries in the log | entries/s | CPU µs for each |", "|---|---|---|",
  (.growingLog[] | "| \(.entries) | \(.perSecond | n(0)) | \(.cpuUs | n(0)) |"), "",
  "| Files in the tree | Log: calls/s | CPU µs for each |", "|---|---|---|",
  (.growingTree[] | "| \(.files) | \(.tavrisk.callsPerSecond | n(0)) | \(.tavrisk.cpuUs | n(0)) |"), "" else empty end;

def functionsTable: if .functions then
  "| Function | µs | MB/s |", "|---|---|---|",
  (.functions[] | "| \(.name) | \(.ns / 1000 | n(2)) | \(.bytesPerSecond / 1e6 | n(0)) |"), "" else empty end;

def sizeTable: if .size then
  "| Stripped, -Os, LTO | bytes |", "|---|---|", (.size[] | "| \(.file) | \(.bytes) |"), "" else empty end;

callsTable, startTable, workTable, logTable, growthTable, functionsTable, sizeTable
