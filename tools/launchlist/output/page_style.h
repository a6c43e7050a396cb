// The page's style: light and dark, wide and narrow, screen and paper.
//
// The page's policy permits a style with exactly this hash, and no other. After a change,
// command_line_test.py prints the new hash.
#pragma once

namespace launchlist {

inline constexpr char kReportStyleHash[] = "sha256-FKXgpLLzOqhPOsLoy4HT2OC7RKx15Rlwfh5nKyOTEfA=";

inline constexpr char kReportStyle[] = R"css(
:root {
  color-scheme: light dark;
  --page: #fbfbfa; --card: #fff; --line: #d8d8d4; --grid: #e6e6e2; --text: #1d1d1b; --soft: #5c5c57;
  --running: #2f7d4f; --end: #2b6cb0; --crash: #b3261e; --failed: #8a5a00; --bad: #fdf0ee;
}
@media (prefers-color-scheme: dark) {
  :root {
    --page: #161615; --card: #20201e; --line: #3b3b37; --grid: #33332f; --text: #ececea; --soft: #aaaaa2;
    --running: #58b27c; --end: #6fa8e0; --crash: #ff8a80; --failed: #e0ab4c; --bad: #33201e;
  }
}
* { box-sizing: border-box; }
[hidden] { display: none !important; }
body {
  margin: 0 auto; padding: 1.5rem clamp(0.75rem, 3vw, 2rem) 3rem; max-width: 76rem;
  background: var(--page); color: var(--text);
  font: 1rem/1.45 system-ui, -apple-system, "Segoe UI", sans-serif;
}
h1 { margin: 0; font-size: 1.6rem; }
h2 { margin: 1.75rem 0 0.6rem; font-size: 1.15rem; }
h3 { margin: 0; font-size: 1rem; font-weight: 600; overflow-wrap: anywhere; }
p { margin: 0.25rem 0; }
a { color: inherit; text-underline-offset: 0.2em; }
:focus-visible { outline: 3px solid var(--end); outline-offset: 2px; border-radius: 2px; }
.soft { color: var(--soft); }
.skip { position: absolute; left: -100vw; }
.skip:focus { position: static; }
ul, ol { margin: 0; padding: 0; list-style: none; }
.worst li, .notes li { padding: 0.35rem 0.75rem; overflow-wrap: anywhere; }
.worst, .notes { background: var(--card); border: 1px solid var(--line); border-radius: 0.5rem; padding: 0.25rem 0; }
.worst li + li, .notes li + li { border-top: 1px solid var(--grid); }
.worst a { font-weight: 600; }
.tag { font-size: 0.85rem; padding: 0 0.4rem; border: 1px solid currentColor; border-radius: 0.6rem; white-space: nowrap; }
.broken .tag, .troubled .tag { color: var(--crash); }
.notable .tag { color: var(--failed); } .healthy .tag { color: var(--running); }
#tools { display: flex; flex-wrap: wrap; gap: 0.5rem 1rem; align-items: center; margin: 0.75rem 0; }
#tools input, #tools select { font: inherit; color: inherit; background: var(--card); border: 1px solid var(--soft); border-radius: 0.35rem; padding: 0.25rem 0.5rem; max-width: 100%; }
.axis { position: sticky; top: 0; z-index: 1; background: var(--page); padding-left: calc(16rem + 1.75rem); padding-right: 0.75rem; }
.axis svg { display: block; width: 100%; height: 2.6rem; overflow: visible; }
.axis text { fill: var(--soft); font-size: 0.82rem; text-anchor: middle; }
.axis .mark { fill: var(--text); cursor: help; }
.item { background: var(--card); border: 1px solid var(--line); border-top-width: 0; padding: 0.4rem 0.75rem; scroll-margin-top: 3.5rem; display: grid; grid-template-columns: 16rem 1fr; gap: 0.15rem 1rem; align-items: center; }
.items .item:first-child { border-top-width: 1px; border-radius: 0.5rem 0.5rem 0 0; }
.items .item:last-child { border-bottom-left-radius: 0.5rem; border-bottom-right-radius: 0.5rem; }
.item:target { outline: 3px solid var(--end); outline-offset: -3px; }
.item > :not(h3, svg) { grid-column: 1 / -1; }
.bar { display: block; width: 100%; height: 1.75rem; background: var(--page); }
.g { stroke: var(--grid); stroke-width: 1; vector-effect: non-scaling-stroke; }
.l { stroke: var(--soft); stroke-width: 1.5; stroke-dasharray: 2 2; vector-effect: non-scaling-stroke; }
.r { fill: var(--running); }
.u { stroke: var(--soft); stroke-width: 1.5; stroke-dasharray: 1 4; vector-effect: non-scaling-stroke; }
.x { stroke: var(--crash); } .e { stroke: var(--end); } .f { stroke: var(--failed); stroke-dasharray: 1.5 0.7; }
.s, .k { stroke: var(--soft); } .k { stroke-dasharray: 1 0.6; }
.alarm { padding: 0.2rem 0.6rem; background: var(--bad); border-left: 4px solid var(--crash); overflow-wrap: anywhere; }
.figures { display: flex; flex-wrap: wrap; gap: 0 1.1rem; font-size: 0.88rem; color: var(--soft); }
.figures data { color: var(--text); font-weight: 600; font-variant-numeric: tabular-nums; }
.ended { font-size: 0.88rem; overflow-wrap: anywhere; }
.legend { display: flex; flex-wrap: wrap; gap: 0.25rem 1.25rem; margin: 0.75rem 0 0; font-size: 0.9rem; }
.legend svg { width: 1.2rem; height: 1.2rem; vertical-align: -0.25rem; margin-right: 0.35rem; }
summary { cursor: pointer; padding: 0.5rem 0; font-weight: 600; }
#tip { position: fixed; z-index: 2; max-width: min(30rem, 96vw); padding: 0.35rem 0.6rem; background: var(--text); color: var(--page); border-radius: 0.35rem; font-size: 0.88rem; pointer-events: none; overflow-wrap: anywhere; }
@media (max-width: 44rem) {
  .item { grid-template-columns: minmax(0, 1fr); }
  .axis { padding-left: 0.75rem; }
  .axis .odd { display: none; }
}
@media print {
  :root { --page: #fff; --card: #fff; --line: #999; --grid: #ddd; --text: #000; --soft: #444; --running: #2f7d4f; --end: #2b6cb0; --crash: #b3261e; --failed: #8a5a00; --bad: #fff; }
  .skip, #tools, #tip { display: none !important; }
  body { max-width: none; padding: 0; font-size: 10pt; }
  .axis { position: static; }
  .item { break-inside: avoid; grid-template-columns: 12rem 1fr; }
  .axis { padding-left: calc(12rem + 1.75rem); }
  .bar, .axis svg, .legend svg { print-color-adjust: exact; -webkit-print-color-adjust: exact; }
  details::details-content { content-visibility: visible; display: block; height: auto; }
}
)css";

}  // namespace launchlist
