// Search over all pages, and the choice of light or dark. Needs no network and no server: the index is a script beside this one.
"use strict";

const root = document.documentElement;
const remembered = (() => { try { return localStorage.getItem("theme"); } catch { return null; } })();
if (remembered) root.dataset.theme = remembered;
document.getElementById("theme").addEventListener("click", () => {
  const dark = root.dataset.theme ? root.dataset.theme === "dark" : matchMedia("(prefers-color-scheme: dark)").matches;
  root.dataset.theme = dark ? "light" : "dark";
  try { localStorage.setItem("theme", root.dataset.theme); } catch { /* for this page only */ }
});

const query = document.getElementById("query");
const found = document.getElementById("found");
let index = null;

/** Loads the index when somebody begins to search. */
function withIndex(then) {
  if (index) return then();
  const script = document.createElement("script");
  script.src = "search.js";
  script.onload = () => { index = globalThis.tksSearchIndex; then(); };
  document.head.append(script);
}

/** How well a place fits all words: its heading counts most, then its page, then its text; 0 when a word is missing. */
function fit(place, words) {
  let sum = 0;
  for (const word of words) {
    const heading = place.h.toLowerCase(), page = place.p.toLowerCase();
    const worth = (heading === word ? 40 : heading.includes(word) ? 20 : 0) + (page.includes(word) ? 8 : 0) +
      (place.t.toLowerCase().includes(word) ? 2 : 0);
    if (!worth) return 0;
    sum += worth;
  }
  return sum;
}

function excerpt(place, words) {
  const at = Math.max(0, place.t.toLowerCase().indexOf(words[0]) - 50);
  return (at ? "… " : "") + place.t.slice(at, at + 160);
}

function show() {
  const words = query.value.toLowerCase().split(/\s+/).filter(Boolean);
  found.replaceChildren();
  found.hidden = words.length === 0;
  if (found.hidden) return;
  const best = index.map((place) => [fit(place, words), place]).filter(([worth]) => worth)
    .sort((a, b) => b[0] - a[0]).slice(0, 12);
  for (const [, place] of best) {
    const item = document.createElement("li"), link = document.createElement("a"), about = document.createElement("small");
    link.href = place.a;
    link.textContent = place.h === place.p ? place.h : `${place.p}: ${place.h}`;
    about.textContent = excerpt(place, words);
    link.append(about);
    item.append(link);
    found.append(item);
  }
  if (!best.length) found.append(Object.assign(document.createElement("li"), { textContent: "Nothing found" }));
}

query.addEventListener("input", () => withIndex(show));
document.getElementById("search").addEventListener("submit", (event) => {
  event.preventDefault();
  found.querySelector("a")?.click();
});
document.addEventListener("keydown", (event) => {
  if (event.key === "/" && document.activeElement !== query) { event.preventDefault(); query.focus(); }
  if (event.key === "Escape") found.hidden = true;
  if ((event.key === "ArrowDown" || event.key === "ArrowUp") && !found.hidden) {
    const links = [query, ...found.querySelectorAll("a")];
    const next = links.indexOf(document.activeElement) + (event.key === "ArrowDown" ? 1 : -1);
    if (links[next]) { event.preventDefault(); links[next].focus(); }
  }
});
