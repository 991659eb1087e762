# SPDX-License-Identifier: Apache-2.0
# Each target beside its figure. $factor widens them: 1, or 2 for a quick run.
def row(name; least; most; figure):
  if figure == null then empty else
    {name: name, figure: figure,
     target: (if least != null then "at least \(least)" else "at most \(most)" end),
     met: (if least != null then figure >= least else figure <= most end),
     near: (if least != null then figure >= least / $factor else figure <= most * $factor end)}
  end;
def rounded: if type == "number" then . * 1000 | round / 1000 else . end;
def bytes: if . >= 1048576 then "\(. / 1048576) MiB" elif . >= 1024 then "\(. / 1024) KiB" else "\(.) B" end;
def cell: "\(.method) of \(.bytes | bytes), \(.window) under way";

def calls: .calls[]? |
  row(cell + ": calls/s, daemon ÷ limit"; (if .method == "Save" and .bytes >= 1048576 then 0.9 else 0.95 end); null;
      .tavrisk.throughputRatio),
  (if .bytes >= 1048576 then row(cell + ": CPU, daemon ÷ limit"; null; 1.2; .tavrisk.cpuRatio) else empty end);

# Who waits for a lock, and who wakes whom, is chance, and no work of a call.
def countable: .systemCalls | del(.futex, .restart_syscall) | add | rounded;
def work: (.work // []) | group_by(.method)[] |
  (map({(.program): .}) | add) as $of | $of.limit.method as $method |
  row("\($method): system calls, limit \($of.limit | countable)"; null; ($of.limit | countable); $of.tavrisk | countable),
  row("\($method): user instructions, daemon ÷ limit"; null; 1.15;
      if $of.limit.instructions then $of.tavrisk.instructions / $of.limit.instructions else null end),
  row("\($method): allocations on the bus thread"; null; 20; $of.tavrisk.allocations);

def others:
  (.start[]? |
    row("start to name claimed, daemon ÷ limit"; null; 1.5; .tavrisk.startRatio),
    row("idle RSS, daemon ÷ limit"; null; 1.1; .tavrisk.idleRatio),
    row("wake-ups in two idle seconds"; null; 0; .tavrisk.wakeUps)),
  (.large[]? | row("peak RSS of a Log of 16 MiB over idle, in its size"; null; 2.3;
    (.tavrisk.peakKiB - .idleKiB) / 16384)),
  (.log[]? |
    row("event log, syncs \(.syncs): 32 threads ÷ one"; 5; null; .toOne),
    row("event log, syncs \(.syncs): 32 threads ÷ bare SQLite in batches of 32"; 0.8; null; .toBare)),
  (.growingLog // empty | row("event log: CPU of an entry, with 100,000 ÷ with 100"; null; 1.25;
    (.[-1].cpuUs / .[0].cpuUs))),
  (.growingTree // empty | row("Log: CPU, with 100,000 files ÷ with none"; null; 1.1;
    (.[-1].tavrisk.cpuUs / .[0].tavrisk.cpuUs))),
  (.size // empty | row("daemon and three libraries, stripped, bytes"; null; 163840; (map(.bytes) | add)));

"| Target | | Figure | |", "|---|---|---|---|",
(calls, work, others | "| \(.name) | \(.target) | \(.figure | rounded) | \(
  if .met then "met" elif .near or $factor == 1 then "**missed**" else "**far off**" end) |")
