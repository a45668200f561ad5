// The style sheet and the script of a report.
// SPDX-License-Identifier: MIT
#pragma once

namespace tarn
{

/// Printed pages are light in both themes: a filter inverts the brightness of dark pictures and keeps their hues.
inline constexpr const char* kReportStyle = R"(
:root { --paper: #0d0f12; --panel: #14171b; --line: #2b3036; --ink: #f1f2f4; --soft: #a3a9b1; --bar: #6b86c9; }
:root.light { --paper: #ffffff; --panel: #f4f5f7; --line: #c9cdd2; --ink: #14171b; --soft: #50565e; --bar: #6b86c9; }
* { box-sizing: border-box; }
body { margin: 0 auto; max-width: 76rem; padding: 1rem; background: var(--paper); color: var(--ink);
       font: 1rem/1.5 "DejaVu Sans", Verdana, sans-serif; overflow-wrap: anywhere; }
h1 { font-size: 1.5rem; margin: 0.5rem 0; }
h2 { font-size: 1.2rem; margin: 0; }
a { color: inherit; }
p { margin: 0.3rem 0; }
.soft, th, dt { color: var(--soft); font-weight: normal; }
table { border-collapse: collapse; font-size: 0.9rem; font-variant-numeric: tabular-nums; overflow-wrap: normal; }
th, td { padding: 0.3rem 0.7rem; text-align: right; border-bottom: 1px solid var(--line); white-space: nowrap; }
th:first-child, td:first-child, .words { text-align: left; }
#all td:first-child { white-space: normal; min-width: 12rem; overflow-wrap: anywhere; }
button { all: unset; cursor: pointer; }
button:hover { text-decoration: underline; }
button:focus-visible, a:focus-visible, input:focus-visible { outline: 2px solid var(--bar); outline-offset: 2px; }
button::after { content: " \2195"; }
th[aria-sort=ascending] button::after { content: " \25b2"; }
th[aria-sort=descending] button::after { content: " \25bc"; }
article, section { border-top: 1px solid var(--line); margin-top: 2rem; padding-top: 1.5rem; }
figure { margin: 1rem 0; }
img { display: block; width: 100%; height: auto; }
.figures { display: flex; flex-wrap: wrap; gap: 1rem 3rem; }
.levels { flex: 1 1 20rem; }
dl { display: grid; grid-template-columns: auto 1fr; gap: 0.2rem 1rem; margin: 0.3rem 0; font-size: 0.9rem; }
dd { margin: 0; }
.bar { display: grid; grid-template-columns: 7rem 1fr; align-items: center; gap: 0.7rem; }
.bar::before { content: ""; height: 0.5rem;
  background: linear-gradient(to right, var(--bar) var(--share), var(--panel) 0); }
.damage { border-left: 4px solid #d97a2b; padding-left: 0.7rem; }
.wide label { display: block; }
.zoom, .more { display: none; }

/* What scrolls sideways has a shadow at the edge behind which there is more. */
.wide { overflow-x: auto; margin: 1rem 0; background:
  linear-gradient(to right, var(--paper) 50%, transparent) left / 3rem 101% no-repeat local,
  linear-gradient(to left, var(--paper) 50%, transparent) right / 3rem 101% no-repeat local,
  linear-gradient(to right, var(--bar), transparent) left / 1rem 100% no-repeat scroll,
  linear-gradient(to left, var(--bar), transparent) right / 1rem 100% no-repeat scroll; }

@media screen and (max-width: 64rem) {
  .zoom { display: inline-block; padding: 0.2rem 0; }
  .zoom:checked ~ .wide img { width: 1200px; }
}
@media screen and (max-width: 58rem) { .more { display: block; } }
@media screen and (max-width: 40rem) {
  .bar { display: block; }
  .bar::before { display: none; }
  .outputs th { white-space: normal; vertical-align: bottom; }
  .outputs th, .outputs td { padding: 0.3rem 0.5rem; }
  #all td:first-child { min-width: 8rem; }
}

@page { margin: 12mm; }
@media print {
  :root, :root.light { --paper: #ffffff; --panel: #e4e7ea; --line: #c9cdd2; --ink: #14171b; --soft: #50565e;
                       font-size: 9pt; print-color-adjust: exact; }
  body { max-width: none; padding: 0; }
  h1, h2, article > p { break-after: avoid; }
  article, tr, li { break-inside: avoid; }
  article, section { margin-top: 1rem; padding-top: 0.7rem; }
  .wide { overflow: visible; background: none; margin: 0.5rem 0; }
  #all { width: 100%; font-size: 7.5pt; }
  #all th, #all td { padding: 0.2rem 0.35rem; }
  #all th { white-space: normal; vertical-align: bottom; }
  #all td:first-child { min-width: 0; }
  button::after { display: none; }
  img { width: auto; max-width: 100%; max-height: 120mm; margin: 0 auto; }
  .dark img { filter: invert(1) hue-rotate(180deg); }
}
)";

/// Sorts the table when a heading is clicked, first in descending order where the column has numbers.
inline constexpr const char* kReportScript = R"(
for (const button of document.querySelectorAll("#all button")) {
  button.addEventListener("click", () => {
    const heading = button.parentElement;
    const body = document.querySelector("#all tbody");
    const isNumber = !heading.classList.contains("words");
    const before = heading.getAttribute("aria-sort");
    const ascending = before ? before === "descending" : !isNumber;
    for (const other of heading.parentElement.children) other.removeAttribute("aria-sort");
    heading.setAttribute("aria-sort", ascending ? "ascending" : "descending");
    const keyOf = (row) => row.cells[heading.cellIndex].dataset.key;
    const compare = (a, b) => isNumber ? a - b : a.localeCompare(b, undefined, { numeric: true });
    const rows = [...body.rows].sort((a, b) => compare(keyOf(a), keyOf(b)) * (ascending ? 1 : -1));
    body.append(...rows);
  });
}
)";

} // namespace tarn
