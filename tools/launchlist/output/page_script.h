// The page's script: search, sorting, and the details of a bar on hover and focus. Without it the
// page shows everything but these details, which the items' figures sum up.
//
// The page's policy permits a script with exactly this hash, and no other. After a change,
// command_line_test.py prints the new hash.
#pragma once

namespace launchlist {

inline constexpr char kReportScriptHash[] = "sha256-RIJTljXyDjJ+k5wAFkCyfYxhoIBHfPgV84gKD13fHIQ=";

inline constexpr char kReportScript[] = R"js(
"use strict";
(() => {
  const all = (selector, from = document) => [...from.querySelectorAll(selector)];
  const tools = document.getElementById("tools");
  if (!tools) return;
  const items = all("article");
  const healthy = document.getElementById("healthy");
  const wasOpen = healthy && healthy.open;
  const name = item => (a => a.title || a.textContent)(item.querySelector("h3 a"));
  const value = (item, label) => all("li", item).find(
    li => li.textContent.startsWith(label)).querySelector("data").value;
  const figure = (item, label) => Number(value(item, label)) || 0;
  const median = item => value(item, "median") === "null" ? Infinity : figure(item, "median");
  const order = new Map(items.map((item, index) => [item, index]));
  const orders = {
    worst: (a, b) => order.get(a) - order.get(b),
    name: (a, b) => name(a).localeCompare(name(b)),
    crashes: (a, b) => figure(b, "crashes") - figure(a, "crashes"),
    restarts: (a, b) => figure(b, "restarts") - figure(a, "restarts"),
    median: (a, b) => median(a) === median(b) ? 0 : median(a) - median(b),
  };
  const search = document.getElementById("search");
  const found = document.getElementById("found");
  search.addEventListener("input", () => {
    const wanted = search.value.trim().toLowerCase();
    let count = 0;
    for (const item of items) {
      item.hidden = !name(item).toLowerCase().includes(wanted);
      count += item.hidden ? 0 : 1;
    }
    if (healthy) healthy.open = wasOpen || wanted !== "";
    found.textContent = wanted ? count + " of " + items.length + " items" : "";
  });
  document.getElementById("sort").addEventListener("change", event => {
    for (const list of all(".items")) {
      const sorted = [...list.children].sort(orders[event.target.value]);
      list.append(...sorted);
    }
  });

  const tip = document.getElementById("tip");
  const main = document.querySelector("main");
  const from = Number(main.dataset.from);
  const span = Number(main.dataset.to) - from;
  const time = value => new Date(value).toISOString().slice(0, 19).replace("T", " ");
  const marks = bar => (bar.dataset.m || "").split(";").map((text, cell) => ({
    cell,
    causes: text.split(",").map((part, index) => /^[skf]/.test(part)
      ? [part[0], Number(part.slice(1))] : [index, Number(part)]).filter(cause => cause[1] > 0),
  })).filter(mark => mark.causes.length > 0);
  const special = { s: "killed by its launcher", k: "killed by SIGKILL, perhaps at a stop",
    f: "could not be started" };
  const show = (bar, mark) => {
    const cells = Number(bar.dataset.n);
    const words = (bar.dataset.c || "").split("|");
    const total = mark.causes.reduce((sum, cause) => sum + cause[1], 0);
    const begin = time(from + span * mark.cell / cells);
    const end = time(from + span * (mark.cell + 1) / cells);
    const isOneDay = begin.slice(0, 10) === end.slice(0, 10);
    tip.textContent = begin + " to " + (isOneDay ? end.slice(11) : end) + " UTC: " + total +
      (total === 1 ? " event: " : " events: ") +
      mark.causes.map(([cause, count]) => (special[cause] || words[cause]) + " (" + count + ")").join(", ");
    const box = bar.getBoundingClientRect();
    tip.hidden = false;
    const left = box.left + box.width * (mark.cell + 0.5) / cells - tip.offsetWidth / 2;
    tip.style.left = Math.max(4, Math.min(left, innerWidth - tip.offsetWidth - 4)) + "px";
    const above = box.top - tip.offsetHeight - 4;
    tip.style.top = (above < 4 ? box.bottom + 4 : above) + "px";
  };
  const hide = () => { tip.hidden = true; };
  let onScroll = hide;
  for (const bar of all(".bar")) {
    const list = marks(bar);
    if (list.length === 0) continue;
    let at = 0;
    bar.addEventListener("mousemove", event => {
      const box = bar.getBoundingClientRect();
      const cell = (event.clientX - box.left) / box.width * Number(bar.dataset.n);
      const near = list.reduce((best, mark) =>
        Math.abs(mark.cell + 0.5 - cell) < Math.abs(best.cell + 0.5 - cell) ? mark : best);
      if (Math.abs(near.cell + 0.5 - cell) <= 1) show(bar, near); else hide();
    });
    bar.addEventListener("mouseleave", hide);
    bar.addEventListener("focus", () => {
      at = 0;
      onScroll = () => show(bar, list[at]);
      onScroll();
    });
    bar.addEventListener("blur", () => { onScroll = hide; hide(); });
    bar.addEventListener("keydown", event => {
      const step = { ArrowRight: 1, ArrowLeft: -1 }[event.key];
      if (step) {
        at = (at + step + list.length) % list.length;
        show(bar, list[at]);
        event.preventDefault();
      } else if (event.key === "Escape") {
        onScroll = hide;
        hide();
      }
    });
  }
  const open = () => {
    const target = document.getElementById(location.hash.slice(1));
    if (target && healthy && healthy.contains(target)) { healthy.open = true; target.scrollIntoView(); }
  };
  addEventListener("hashchange", open);
  addEventListener("scroll", () => onScroll(), { passive: true });
  tools.hidden = false;
  open();
})();
)js";

}  // namespace launchlist
