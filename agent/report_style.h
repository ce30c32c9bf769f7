// How a report looks. The text must not hold `<`, `>` and `&`: a document tree would escape them.
#pragma once

namespace agent {

inline constexpr const char* report_style = R"(
:root { --back: #fdfdfc; --text: #1f2328; --quiet: #5b636d; --line: #d5d9de; --own: #0b6bcb;
  --old0: #8fa3b8; --old1: #a9b9ca; --old2: #7b91a9; --old3: #bccad8; --fault: #a4262c; }
@media (prefers-color-scheme: dark) {
  :root { --back: #15181c; --text: #e4e7ea; --quiet: #9aa4af; --line: #343a41; --own: #5aa9f5;
    --old0: #55667a; --old1: #465668; --old2: #647890; --old3: #3a4857; --fault: #ff8b88; }
}
* { box-sizing: border-box; }
body { margin: 0 auto; padding: 1.2rem; max-width: 68rem; background: var(--back);
  color: var(--text); font: 15px/1.45 system-ui, sans-serif; }
h1 { font-size: 1.5rem; margin: 0 0 .3rem; overflow-wrap: anywhere; }
h2 { font-size: 1.15rem; margin: 0 0 .3rem; overflow-wrap: anywhere; }
section { margin-top: 2rem; }
p { margin: .2rem 0 .6rem; overflow-wrap: anywhere; }
.hint, .quiet { color: var(--quiet); }
.hint { font-size: .9rem; }
.fault { color: var(--fault); }
.chain { display: flex; overflow-x: auto; }
.lines { flex: none; }
.lines path { fill: none; stroke: var(--quiet); stroke-width: 1.5; }
.lines circle { stroke: var(--own); stroke-width: 2; }
.lines .full { fill: var(--own); }
.lines .incremental { fill: var(--back); }
.rows { flex: 1; min-width: 26rem; }
.row { height: 72px; display: flex; flex-direction: column; justify-content: center; }
.line { display: flex; gap: .8em; white-space: nowrap; overflow: hidden; text-overflow: ellipsis; }
div.quiet.line { display: block; font-size: .88rem; }
.line span { overflow: hidden; text-overflow: ellipsis; }
.bar { display: flex; height: 14px; margin: 3px 0; background: var(--line); border-radius: 3px;
  overflow: hidden; }
.part { height: 14px; min-width: 1px; }
.own { background: var(--own); }
.old0 { background: var(--old0); } .old1 { background: var(--old1); }
.old2 { background: var(--old2); } .old3 { background: var(--old3); }
.wide { overflow-x: auto; }
table { border-collapse: collapse; width: 100%; font-variant-numeric: tabular-nums; }
th, td { text-align: left; padding: .25rem .6rem .25rem 0; border-bottom: 1px solid var(--line);
  vertical-align: top; }
th { font-weight: 600; color: var(--quiet); }
.number { text-align: right; white-space: nowrap; }
.nowrap { white-space: nowrap; }
.graph { min-width: 6rem; vertical-align: middle; }
.graph .part { border-radius: 3px; }
.path { font-family: ui-monospace, monospace; font-size: .9em; overflow-wrap: anywhere; }
)";

}  // namespace agent
