// The style sheet of the report's page: light and dark, narrow and wide screens, and paper.
#pragma once

#include <string_view>

namespace velto::check {

// The colours of text on its background have a contrast of at least 4.5 to 1 in both schemes.
inline constexpr std::string_view reportStyle = R"(
:root { color-scheme: light dark; --text: #1b1f24; --soft: #57606a; --page: #ffffff; --card: #f5f7f9; --line: #d0d7de;
  --good: #116329; --goodfill: #2da44e; --bad: #b3261e; --badfill: #d1242f; --warn: #7a4b00; --warnfill: #bf8700;
  --off: #57606a; --accent: #0b57a4; --accentsoft: #9cc4ee; }
@media (prefers-color-scheme: dark) { :root { --text: #e6edf3; --soft: #9aa5b1; --page: #0e1217; --card: #171d25;
  --line: #343d48; --good: #56d364; --goodfill: #3fb950; --bad: #ff8a80; --badfill: #f85149; --warn: #e3b341;
  --warnfill: #d29922; --off: #9aa5b1; --accent: #79b8ff; --accentsoft: #2c5788; } }
* { box-sizing: border-box; }
body { margin: 0 auto; max-width: 66em; padding: 1.5em 1em 4em; color: var(--text); background: var(--page);
  font: 16px/1.5 system-ui, sans-serif; }
h1, h2, h3 { line-height: 1.25; }
h2 { margin: 2.2em 0 .6em; padding-bottom: .25em; border-bottom: 2px solid var(--line); font-size: 1.3em; }
h3 { margin: 1.4em 0 .4em; font-size: 1.05em; }
p { margin: .4em 0; }
a { color: var(--accent); }
code { font: .92em/1.45 ui-monospace, Consolas, monospace; overflow-wrap: anywhere; }
.soft { color: var(--soft); }
.verdict { padding: 1.2em 1.4em; border: 1px solid var(--line); border-left: .7em solid var(--off); border-radius: .5em;
  background: var(--card); }
.verdict h1 { margin: 0; font-size: 1.05em; font-weight: 600; }
.verdict .word { display: block; margin: .1em 0; font-size: 2.9em; line-height: 1.1; font-weight: 800; }
.verdict.passed { border-left-color: var(--goodfill); } .verdict.failed { border-left-color: var(--badfill); }
.verdict.broken { border-left-color: var(--warnfill); }
.passed .word, .good { color: var(--good); } .failed .word, .bad { color: var(--bad); }
.broken .word, .warn { color: var(--warn); } .off { color: var(--off); }
.good, .bad, .warn, .off { font-weight: 600; }
ol.levels { display: grid; grid-template-columns: repeat(auto-fill, minmax(12em, 1fr)); gap: .5em; padding: 0;
  margin: 1em 0 0; list-style: none; }
ol.levels li { padding: .4em .7em; border: 1px solid var(--line); border-top: .3em solid var(--line);
  border-radius: .4em; background: var(--card); font-size: .9em; }
ol.levels li.passed { border-top-color: var(--goodfill); } ol.levels li.failed { border-top-color: var(--badfill); }
ol.levels b { display: block; }
.card { margin: .8em 0; padding: .8em 1.1em; border: 1px solid var(--line); border-left: .4em solid var(--badfill);
  border-radius: .4em; background: var(--card); }
.card h3 { margin-top: 0; } .card ul { margin: .3em 0; padding-left: 1.2em; }
.card.checker { border-left-color: var(--warnfill); }
.command { display: block; margin: .4em 0; padding: .5em .7em; border: 1px solid var(--line); border-radius: .3em;
  background: var(--page); white-space: pre-wrap; }
.scroll { overflow-x: auto; }
table { width: 100%; border-collapse: collapse; font-size: .94em; }
caption { text-align: left; color: var(--soft); padding-bottom: .3em; }
th, td { padding: .35em .6em; border-bottom: 1px solid var(--line); text-align: left; vertical-align: top; }
td.n, th.n { text-align: right; font-variant-numeric: tabular-nums; }
td.id, td.state { white-space: nowrap; }
dl.facts { display: grid; grid-template-columns: repeat(auto-fill, minmax(9em, 1fr)); gap: .6em; margin: .8em 0; }
dl.facts div { padding: .5em .8em; border: 1px solid var(--line); border-radius: .4em; background: var(--card); }
dl.facts dt { color: var(--soft); font-size: .85em; } dl.facts dd { margin: 0; font-size: 1.2em; font-weight: 600; }
svg { display: block; width: 100%; height: auto; margin: .5em 0; }
svg text { fill: var(--text); font: 13px system-ui, sans-serif; } svg .soft { fill: var(--soft); }
svg .axis { stroke: var(--line); } svg .sound { fill: var(--accent); } svg .gap { stroke: var(--badfill); stroke-width: 2; }
svg .frame { fill: var(--accent); } svg .wrong { fill: var(--badfill); } svg .median { fill: var(--accent); }
svg .tail { fill: var(--accentsoft); } svg .over { fill: var(--badfill); }
svg .budget { stroke: var(--text); stroke-width: 2; stroke-dasharray: 4 2; }
footer { margin-top: 3em; color: var(--soft); font-size: .9em; }
@media (max-width: 40em) { .verdict .word { font-size: 2.2em; } body { padding: .8em .6em 3em; } }
@media print { body { max-width: none; padding: 0; font-size: 10.5pt; } h2, h3 { break-after: avoid; }
  .card, tr, figure, svg, ol.levels li { break-inside: avoid; } .scroll { overflow: visible; }
  * { print-color-adjust: exact; -webkit-print-color-adjust: exact; } }
figure { margin: .8em 0; } figcaption { color: var(--soft); font-size: .9em; }
)";

} // namespace velto::check
