#include "serve_page.h"

const char kServePage[] = R"PAGE(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>qslave: tank levels</title>
<link rel="stylesheet" href="/app.css">
<script src="/app.js" defer></script>
</head>
<body>
<header>
<h1 id="title">Tank levels</h1>
<p id="status" role="status">reading the levels…</p>
</header>
<p id="summary"></p>
<div id="chart"></div>
<table id="levels">
<thead><tr><th>circuit</th><th>colourant</th><th>code</th><th>level</th><th>reserve</th><th>maximum</th><th>state</th></tr></thead>
<tbody></tbody>
</table>
<p class="legend"><span class="state-critical">critical</span>: below the reserve ·
<span class="state-warning">warning</span>: below twice the reserve ·
<span class="state-low">low</span>: below a quarter of the maximum</p>
</body>
</html>
)PAGE";

const char kServeScript[] = R"SCRIPT("use strict";
let shown = -1;

function level(value) {
  return value === null ? "-" : value.toFixed(3);
}

function cell(row, text) {
  const td = document.createElement("td");
  td.textContent = text;
  row.appendChild(td);
}

function renderTable(data) {
  const body = document.querySelector("#levels tbody");
  const rows = [];
  for (const c of data.circuits) {
    const tr = document.createElement("tr");
    tr.dataset.circuit = c.circuit;
    tr.className = "state-" + c.state;
    cell(tr, c.circuit);
    cell(tr, c.colourant === null ? "-" : c.colourant);
    cell(tr, c.code);
    cell(tr, level(c.current));
    cell(tr, level(c.reserve));
    cell(tr, level(c.maximum));
    cell(tr, c.shares_reservoir_of ? c.state + " (reservoir of " + c.shares_reservoir_of + ")"
                                   : c.state);
    rows.push(tr);
  }
  body.replaceChildren(...rows);
}

function renderSummary(data) {
  const marked = ["critical", "warning", "low"].map(function (state) {
    const list = data.circuits.filter(function (c) { return c.state === state; })
                              .map(function (c) { return c.circuit; });
    return state + ": " + (list.length ? list.join(", ") : "none");
  });
  document.getElementById("summary").textContent = marked.join(" · ");
}

async function renderChart() {
  const answer = await fetch("/levels.svg", {cache: "no-store"});
  document.getElementById("chart").innerHTML = await answer.text();
}

async function refresh() {
  try {
    const answer = await fetch("/levels.json", {cache: "no-store"});
    const data = await answer.json();
    if (data.generation !== shown) {
      document.getElementById("title").textContent =
          "Tank levels of dispenser " + data.dispenser.id + " (" + data.dispenser.description + ")";
      renderTable(data);
      renderSummary(data);
      await renderChart();
      shown = data.generation;
      document.body.dataset.generation = shown;
    }
    document.getElementById("status").textContent = "levels read " + data.read_at;
  } catch (e) {
    document.getElementById("status").textContent = "no answer from qslave serve";
  }
}

refresh();
setInterval(refresh, 1000);
)SCRIPT";

const char kServeStyle[] = R"STYLE(body { font-family: "DejaVu Sans", sans-serif; margin: 1.5em; color: #212121; }
h1 { font-size: 1.4em; margin: 0; }
header { display: flex; justify-content: space-between; align-items: baseline; }
#status { color: #616161; }
#summary { font-weight: bold; }
#chart svg { max-width: 100%; height: auto; }
table { border-collapse: collapse; margin-top: 1em; }
th, td { border: 1px solid #bdbdbd; padding: 0.2em 0.6em; text-align: right; }
th { background: #eeeeee; }
tr.state-critical td { background: #ffcdd2; }
tr.state-warning td { background: #fff3c4; }
tr.state-low td { background: #e3f2fd; }
span.state-critical { color: #d32f2f; font-weight: bold; }
span.state-warning { color: #b28704; font-weight: bold; }
span.state-low { color: #1565c0; font-weight: bold; }
.legend { color: #616161; }
)STYLE";
