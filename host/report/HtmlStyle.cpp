#include "host/report/HtmlStyle.h"

namespace host::html {

// Every pair of colours keeps a contrast of 4.5 and more. What is dark is for screens only.
const std::string_view kStyle = R"(:root { color-scheme: light dark;
  --paper: #fff; --ink: #1b2127; --soft: #56606a; --line: #d5dae0; --panel: #f4f6f8;
  --good: #1a6b3a; --bad: #b0241c; --odd: #80560a; --bar: #9fb4c6; --wire: #2c6a99; }
* { box-sizing: border-box; }
body { margin: 0; background: var(--paper); color: var(--ink);
  font: 14px/1.45 system-ui, "Segoe UI", "DejaVu Sans", sans-serif; overflow-wrap: anywhere; }
main { max-width: 1064px; margin: 0 auto; padding: 24px 16px 48px; }
h1, h2, h3, h4 { line-height: 1.25; margin: 0 0 8px; font-weight: 600; }
h1 { font-size: 22px; }
h2 { font-size: 16px; margin-top: 28px; padding-bottom: 4px; border-bottom: 1px solid var(--line); }
h3 { font-size: 14px; margin-top: 16px; }
h4 { font-size: 13px; margin-top: 12px; }
p { margin: 8px 0; max-width: 80ch; }
a { color: inherit; }
.outcome { max-width: none; margin: 12px 0 16px; padding: 10px 14px; font-size: 16px; font-weight: 600;
  background: var(--panel); border-left: 5px solid currentColor; }
.good { color: var(--good); } .bad { color: var(--bad); } .odd { color: var(--odd); }
.soft, caption, dt, thead th { color: var(--soft); }
dl { display: grid; grid-template-columns: minmax(90px, max-content) 1fr; gap: 2px 16px; margin: 8px 0; }
dd { margin: 0; }
pre, td.a, td.m, .map { font-family: ui-monospace, "DejaVu Sans Mono", Consolas, monospace; font-size: 12px; }
pre { margin: 8px 0; padding: 8px 12px; background: var(--panel); white-space: pre-wrap; }
table { width: 100%; border-collapse: collapse; margin: 8px 0 16px; }
caption { text-align: left; padding-bottom: 4px; font-size: 13px; }
th, td { padding: 3px 12px 3px 0; border-bottom: 1px solid var(--line); text-align: left; vertical-align: top; }
th:last-child, td:last-child { padding-right: 0; }
thead th { font-weight: 400; font-size: 12px; overflow-wrap: normal; }
tbody th { font-weight: 600; }
td.a { overflow-wrap: normal; }
.n { text-align: right; font-variant-numeric: tabular-nums; white-space: nowrap; }
ol.said { margin: 8px 0; padding-left: 32px; }
ol.said li { white-space: pre-wrap; padding: 1px 0; }
.map { display: flex; flex-wrap: wrap; gap: 4px 14px; margin: 8px 0; line-height: 18px; }
.map span { display: block; color: var(--soft); font-size: 11px; line-height: 14px; }
.k { font: 12px/18px ui-monospace, "DejaVu Sans Mono", Consolas, monospace; display: inline-block;
  background-image: linear-gradient(90deg, var(--paper) 1px, transparent 1px); background-size: 1ch 100%;
  border-bottom: 3px solid transparent; background-clip: padding-box; white-space: pre;
  print-color-adjust: exact; -webkit-print-color-adjust: exact; }
.kc { border-bottom-color: var(--ink); }
.kp { background-color: #2c6a99; color: #fff; } .ku { background-color: #bcd8ec; color: #0f3049; }
.kv { background-color: #22703f; color: #fff; } .ke { background-color: #edf0f3; color: #56606a; }
.kr { background-color: #dad1ec; color: #382765; } .ks { background-color: #f4e4b2; color: #553e00; }
.kx { background-color: #b0241c; color: #fff; } .kq { background-color: #f7cdad; color: #592b00; }
.kn { background-color: #fff; color: #56606a; } .kd { background-color: #c9d1d8; color: #1b2127; }
.course { width: 45%; }
.bar { display: block; height: 12px; margin-top: 4px; min-width: 1px; background: var(--bar);
  print-color-adjust: exact; -webkit-print-color-adjust: exact; }
.bar b { display: block; height: 100%; background: var(--wire);
  print-color-adjust: exact; -webkit-print-color-adjust: exact; }
@media screen and (prefers-color-scheme: dark) {
  :root { --paper: #13171b; --ink: #e2e6ea; --soft: #a2acb6; --line: #333a41; --panel: #1c2228;
    --good: #71ca98; --bad: #ff938a; --odd: #e9bf5b; --bar: #4b5965; --wire: #5b9fd0; }
  .ku { background-color: #21445d; color: #d0e7f8; } .ke { background-color: #22282e; color: #a2acb6; }
  .kr { background-color: #3d3459; color: #ded4f7; } .ks { background-color: #4d3f12; color: #f6e3aa; }
  .kq { background-color: #5b3214; color: #ffdabf; } .kn { background-color: #13171b; color: #a2acb6; }
  .kd { background-color: #48525c; color: #e9edf0; }
}
@media screen and (max-width: 640px) {
  main { padding: 16px 12px 32px; }
  body { font-size: 13px; }
  thead { position: absolute; clip-path: inset(50%); }
  table, tbody, tr, th, caption { display: block; }
  tr { padding: 4px 0; border-bottom: 1px solid var(--line); }
  tbody th, td { border: 0; padding: 0; }
  td, td.n { display: grid; grid-template-columns: 96px 1fr; text-align: left; }
  td::before { content: attr(data-title); color: var(--soft); font: 12px/1.45 system-ui, sans-serif; }
  td:empty, .course { display: none; }
}
@media print {
  @page { margin: 15mm; }
  main { max-width: none; padding: 0; }
  body { font-size: 9.5pt; } .k { font-size: 8px; line-height: 13px; } .map { line-height: 13px; }
  .board { break-before: page; }
  h2, h3, h4, caption, thead, .map { break-after: avoid; }
  table, tr, li, .map, .outcome { break-inside: avoid; }
}
)";

}  // namespace host::html
