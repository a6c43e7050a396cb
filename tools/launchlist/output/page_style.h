// How the page looks: light and dark, wide and narrow.
#pragma once

namespace launchlist {

inline constexpr char kReportStyle[] = R"css(
:root {
  color-scheme: light dark;
  --page: #fbfbfa; --card: #fff; --line: #d8d8d4; --text: #1d1d1b; --soft: #5c5c57;
  --running: #2f7d4f; --end: #2b6cb0; --crash: #b3261e; --failed: #8a5a00; --bad: #fdf0ee;
}
@media (prefers-color-scheme: dark) {
  :root {
    --page: #161615; --card: #20201e; --line: #3b3b37; --text: #ececea; --soft: #aaaaa2;
    --running: #58b27c; --end: #6fa8e0; --crash: #ff8a80; --failed: #e0ab4c; --bad: #33201e;
  }
}
* { box-sizing: border-box; }
body {
  margin: 0 auto; padding: 1.5rem clamp(0.75rem, 3vw, 2rem) 3rem; max-width: 72rem;
  background: var(--page); color: var(--text);
  font: 1rem/1.5 system-ui, -apple-system, "Segoe UI", sans-serif;
}
h1 { margin: 0; font-size: 1.6rem; }
h2 { margin: 2rem 0 0.75rem; font-size: 1.15rem; }
h3 { margin: 0; font-size: 1.05rem; overflow-wrap: anywhere; }
p { margin: 0.25rem 0; }
a { color: inherit; text-underline-offset: 0.2em; }
a:focus-visible { outline: 3px solid var(--end); outline-offset: 2px; border-radius: 2px; }
.soft { color: var(--soft); }
.skip { position: absolute; left: -100vw; }
.skip:focus { position: static; }
ul { margin: 0; padding: 0; list-style: none; }
.rows, .item, .notes {
  background: var(--card); border: 1px solid var(--line); border-radius: 0.5rem; padding: 1rem;
}
.row { display: grid; grid-template-columns: 12rem 1fr; gap: 0.25rem 1rem; align-items: center; }
.row + .row { margin-top: 0.5rem; }
.row a { overflow: hidden; text-overflow: ellipsis; white-space: nowrap; }
.bar { display: block; width: 100%; height: 1.5rem; background: var(--page); }
.running { fill: var(--running); } .end { fill: var(--end); }
.crash { fill: var(--crash); } .failed { fill: var(--failed); }
.axis { display: flex; justify-content: space-between; margin-left: 13rem; font-size: 0.85rem; }
.legend { display: flex; flex-wrap: wrap; gap: 0.25rem 1.25rem; margin: 0.75rem 0 0; }
.legend svg { width: 1rem; height: 1rem; vertical-align: -0.15rem; margin-right: 0.35rem; }
.items { display: grid; gap: 1rem; grid-template-columns: repeat(auto-fit, minmax(min(100%, 24rem), 1fr)); }
.item { scroll-margin-top: 1rem; }
.item:target { outline: 3px solid var(--end); }
dl { display: grid; grid-template-columns: repeat(auto-fill, minmax(6.5rem, 1fr)); gap: 0.5rem; margin: 0.75rem 0; }
dt { font-size: 0.85rem; color: var(--soft); }
dd { margin: 0; font-variant-numeric: tabular-nums; font-weight: 600; }
.alarm { margin: 0.5rem 0; padding: 0.4rem 0.6rem; background: var(--bad); border-left: 4px solid var(--crash); }
.notes li + li { margin-top: 0.4rem; }
.notes li { overflow-wrap: anywhere; }
@media (max-width: 40rem) {
  .row { grid-template-columns: 1fr; }
  .axis { margin-left: 0; }
}
@media print { .skip { display: none; } body { max-width: none; } }
)css";

}  // namespace launchlist
