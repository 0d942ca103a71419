// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/report_parts.h"

namespace tool {

// Colours are never the only sign. Dark colours only on a screen: paper is white.
const std::string_view kReportStyle = R"css(
:root {
  color-scheme: light;
  --back: #ffffff; --text: #1b1f24; --soft: #57606a; --line: #d0d7de; --panel: #f6f8fa; --link: #0b57b0;
  --good: #1f7a37; --good-back: #e0f2e4; --warning: #8a5300; --warning-back: #fff1c7;
  --failing: #b42318; --failing-back: #fcdcd8; --unreadable: #7a2f9e; --unreadable-back: #efddf7;
  --asleep: #2f639c; --asleep-back: #dfebf8; --off: #665c43; --off-back: #ece8dc;
  --unknown: #57606a; --unknown-back: #eaeef2;
}
@media screen and (prefers-color-scheme: dark) {
  :root {
    color-scheme: dark;
    --back: #0f1318; --text: #e6edf3; --soft: #9aa6b2; --line: #343c46; --panel: #181e25; --link: #79b8ff;
    --good: #6fce86; --good-back: #12301b; --warning: #f0b849; --warning-back: #3a2c07;
    --failing: #ff9187; --failing-back: #4a1613; --unreadable: #d8a2f0; --unreadable-back: #371b45;
    --asleep: #8fbdf0; --asleep-back: #14293f; --off: #cfc3a0; --off-back: #2f2a1c;
    --unknown: #a9b4bf; --unknown-back: #242b33;
  }
}
* { box-sizing: border-box; }
html { -webkit-text-size-adjust: 100%; }
body {
  margin: 0 auto; padding: 1.25rem; max-width: 90rem; background: var(--back); color: var(--text);
  font: 1rem/1.45 system-ui, -apple-system, "Segoe UI", Roboto, "Liberation Sans", Arial, sans-serif;
}
h1 { font-size: 1.6rem; line-height: 1.2; margin: 0 0 .25rem; overflow-wrap: anywhere; }
h2 { font-size: 1.2rem; margin: 2rem 0 .75rem; }
h3 { font-size: 1rem; margin: 0 0 .5rem; overflow-wrap: anywhere; }
h4 { font-size: .85rem; margin: .75rem 0 .4rem; font-weight: 600; color: var(--soft); }
p { margin: 0 0 .5rem; }
a { color: var(--link); }
a:focus-visible, button:focus-visible, .scroll:focus-visible { outline: 3px solid var(--link); outline-offset: 2px; }
small, .soft { color: var(--soft); font-size: .8rem; }
td small, th small { font-size: .75rem; }
ul, ol { list-style: none; margin: 0; padding: 0; }
.signs { position: absolute; width: 0; height: 0; overflow: hidden; }
.sign { width: 1em; height: 1em; vertical-align: -.125em; fill: none; stroke: currentColor; stroke-width: 2;
  stroke-linecap: round; stroke-linejoin: round; flex: none; }
.good { color: var(--good); } .warning { color: var(--warning); } .failing { color: var(--failing); }
.unreadable { color: var(--unreadable); } .asleep { color: var(--asleep); } .off { color: var(--off); }
.unknown { color: var(--unknown); }
.totals { display: flex; flex-wrap: wrap; gap: .5rem; margin: 1rem 0 0; }
.totals li { display: flex; align-items: center; gap: .4rem; padding: .25rem .7rem; border: 1px solid currentColor;
  border-radius: 1rem; }
.totals b { font-variant-numeric: tabular-nums; }
.totals .good { background: var(--good-back); } .totals .warning { background: var(--warning-back); }
.totals .failing { background: var(--failing-back); } .totals .unreadable { background: var(--unreadable-back); }
.totals .asleep { background: var(--asleep-back); } .totals .off { background: var(--off-back); }
.totals .unknown { background: var(--unknown-back); }
.notes { margin: 1rem 0 0; padding: .75rem 1rem; background: var(--panel); border-left: 4px solid var(--soft); }
.notes li { overflow-wrap: anywhere; }
.cards { display: grid; grid-template-columns: repeat(auto-fill, minmax(min(100%, 22rem), 1fr)); gap: .75rem; }
.cards li { border: 1px solid var(--line); border-left: 6px solid currentColor; border-radius: 4px;
  padding: .75rem 1rem; background: var(--panel); }
.cards h3 { display: flex; align-items: center; gap: .4rem; margin: 0 0 .25rem; }
.cards p, .cards dl { color: var(--text); overflow-wrap: anywhere; }
.cards dl { display: grid; grid-template-columns: auto 1fr; gap: 0 .75rem; margin: .5rem 0 0; font-size: .875rem; }
.cards dt { color: var(--soft); }
.cards dd { margin: 0; min-width: 0; }
.adapter { border: 1px solid var(--line); border-radius: 6px; padding: .75rem; margin: 0 0 .75rem;
  background: var(--panel); }
.bays { display: grid; grid-template-columns: repeat(auto-fill, 6rem); gap: .3rem; }
.bays a { display: block; border-radius: 6px; text-decoration: none; }
.bay { display: block; width: 6rem; height: 4.25rem; }
.bay .box { fill: var(--unknown-back); stroke: currentColor; stroke-width: 1.5; }
.bay.good .box { fill: var(--good-back); } .bay.asleep .box { fill: var(--asleep-back); stroke-dasharray: 2 3; }
.bay.warning .box { fill: var(--warning-back); stroke-width: 3; }
.bay.failing .box { fill: var(--failing-back); stroke-width: 4; }
.bay.unreadable .box { fill: var(--unreadable-back); stroke-width: 3; stroke-dasharray: 8 4; }
.bay.off .box { fill: var(--off-back); } .bay.unknown .box { fill: var(--unknown-back); }
.bay.none { color: var(--line); } .bay.none .box { fill: none; stroke-dasharray: 4 4; }
.bay text { fill: var(--text); font-size: 11px; }
.bay .node { font-size: 14px; font-weight: 600; }
.bay.none text { fill: var(--soft); }
.bay use { fill: none; stroke: currentColor; stroke-width: 2; stroke-linecap: round; stroke-linejoin: round; }
.bay .kind { fill: none; stroke: currentColor; stroke-width: 1.2; }
.scroll { overflow-x: auto; border: 1px solid var(--line); border-radius: 6px; }
table { border-collapse: collapse; width: 100%; font-size: .8125rem; line-height: 1.35; }
caption { text-align: left; color: var(--soft); }
caption span { display: block; position: sticky; left: 0; max-width: calc(100vw - 2rem); padding: .6rem .75rem; }
th, td { text-align: left; vertical-align: top; padding: .4rem .5rem; border-top: 1px solid var(--line); }
td.number { font-variant-numeric: tabular-nums; white-space: nowrap; }
td.fixed, td small, tbody th { white-space: nowrap; }
thead th { background: var(--panel); vertical-align: bottom; }
thead button { all: unset; cursor: pointer; font: inherit; font-weight: 600; }
thead button:focus-visible { outline: 3px solid var(--link); }
thead button::after { content: "\00a0\2195"; color: var(--soft); font-weight: 400; }
thead th[aria-sort="ascending"] button::after { content: "\00a0\2191"; color: var(--text); }
thead th[aria-sort="descending"] button::after { content: "\00a0\2193"; color: var(--text); }
tbody th small, td small { display: block; font-weight: 400; }
td .state { display: inline-flex; align-items: center; gap: .35rem; font-weight: 600; }
td .why { display: block; max-width: 16rem; min-width: 10rem; color: var(--soft); font-size: .75rem; }
tbody tr:target th, tbody tr:target td { background: var(--asleep-back); }
.bar { display: block; width: 5.5rem; height: .5rem; margin-top: .2rem; }
.bar .all { fill: var(--line); } .bar .part { fill: currentColor; }
.meter { color: var(--asleep); } .meter.warning { color: var(--warning); } .meter.failing { color: var(--failing); }
.meter b { font-weight: 400; color: var(--text); } .meter.warning b, .meter.failing b { font-weight: 700; }
footer { margin: 2rem 0 0; color: var(--soft); font-size: .8rem; overflow-wrap: anywhere; }
@media (max-width: 40rem) {
  body { padding: .75rem; }
  h1 { font-size: 1.3rem; }
  th, td { padding: .4rem .45rem; }
  .adapter { padding: .6rem; }
  .bays { grid-template-columns: repeat(auto-fill, minmax(5.5rem, 1fr)); }
  .bay { width: 100%; height: auto; }
}
@media screen {
  tbody th { position: sticky; left: 0; background: var(--back); }
}
@media print {
  @page { size: landscape; margin: 10mm; }
  html { font-size: 9pt; }
  body { padding: 0; max-width: none; }
  h2 { margin-top: 1.25rem; }
  h2, h3, h4, h2 + p { break-after: avoid; }
  .totals li, .bay, .bar, .adapter, .cards li, thead th {
    -webkit-print-color-adjust: exact; print-color-adjust: exact;
  }
  .cards li, .bays li, tr { break-inside: avoid; }
  .cards { grid-template-columns: repeat(3, 1fr); }
  .scroll { overflow: visible; border: 0; }
  caption span { padding: 0 0 .4rem; max-width: none; }
  th, td { padding: .2rem .4rem; }
  table { font-size: .8rem; }
  td small, th small, td .why { font-size: .7rem; }
  td .why { min-width: 0; }
  .bar { width: 4rem; }
  thead button { display: contents; }
  thead button::after { content: "" !important; }
  a { color: inherit; text-decoration: none; }
}
)css";

const std::string_view kReportScript = R"js(
(function () {
  'use strict';
  var table = document.getElementById('disks');
  if (!table) { return; }
  var body = table.tBodies[0];
  var words = new Intl.Collator('en', { numeric: true });
  function keyOf(row, column) {
    var cell = row.cells[column];
    var key = cell.getAttribute('data-key');
    return key === null ? cell.textContent.trim() : key === '' ? null : Number(key);
  }
  // What has no value comes last, in either direction.
  function compare(a, b, sign) {
    if (a === null || b === null) { return (a === null ? 1 : 0) - (b === null ? 1 : 0); }
    return sign * (typeof a === 'number' ? a - b : words.compare(a, b));
  }
  Array.prototype.forEach.call(table.tHead.rows[0].cells, function (head, column, heads) {
    var button = document.createElement('button');
    button.type = 'button';
    while (head.firstChild) { button.appendChild(head.firstChild); }
    head.appendChild(button);
    button.addEventListener('click', function () {
      var down = head.getAttribute('aria-sort') === 'ascending';
      Array.prototype.forEach.call(heads, function (each) { each.removeAttribute('aria-sort'); });
      head.setAttribute('aria-sort', down ? 'descending' : 'ascending');
      Array.prototype.slice.call(body.rows).sort(function (a, b) {
        return compare(keyOf(a, column), keyOf(b, column), down ? -1 : 1);
      }).forEach(function (row) { body.appendChild(row); });
    });
  });
}());
)js";

const std::string_view kReportSigns =
    R"(<svg class="signs" aria-hidden="true" xmlns="http://www.w3.org/2000/svg"><defs>
<symbol id="sign-good" viewBox="0 0 16 16"><path d="M3 8.5 6.5 12 13 4.5"/></symbol>
<symbol id="sign-warning" viewBox="0 0 16 16"><path d="M8 2 15 14H1Z M8 6.5v3.5 M8 12v.1"/></symbol>
<symbol id="sign-failing" viewBox="0 0 16 16"><path d="M3 3 13 13 M13 3 3 13"/></symbol>
<symbol id="sign-asleep" viewBox="0 0 16 16"><path d="M10.5 2A6.3 6.3 0 1 0 14.5 10 5.6 5.6 0 0 1 10.5 2Z"/></symbol>
<symbol id="sign-unreadable" viewBox="0 0 16 16"><path d="M8 1.8A6.2 6.2 0 1 1 7.9 1.8Z M3.8 3.8 12.2 12.2"/></symbol>
<symbol id="sign-off" viewBox="0 0 16 16"><path d="M4.8 4A5.6 5.6 0 1 0 11.2 4 M8 1.5V7.5"/></symbol>
<symbol id="sign-unknown" viewBox="0 0 16 16"><path d="M5 5.2A3 3 0 1 1 8 8.2V10 M8 13.2v.1"/></symbol>
</defs></svg>
)";

} // namespace tool
