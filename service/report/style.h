// How a page looks. Every colour of text stands out from its ground by 4.5 to 1 at least, light and dark; the parts
// of a map differ in brightness too, for those who see colours otherwise.
#pragma once

namespace tavo {

inline constexpr const char* kPageStyle = R"(
:root{color-scheme:light dark;--ground:#fff;--card:#f6f8fa;--text:#1b1f24;--faint:#57606a;--line:#d0d7de;--accent:#0969da;
--done:#1a7f37;--differs:#9a6700;--failed:#b42318;
--equal:#4a9fb5;--wrong:#c4001a;--beyond:#f0b429;--data:#2f6fd0;--part:#8fb8f2;--blank:#a9b4c0;--empty:#e4e8ec}
@media(prefers-color-scheme:dark){:root{--ground:#0f1419;--card:#1a2129;--text:#e6edf3;--faint:#9fadba;--line:#36414d;--accent:#6cb0ff;
--equal:#2f7f93;--wrong:#ff5c5c;--beyond:#f0b429;--data:#4d8fef;--part:#27508c;--blank:#66717d;--empty:#2a333d}}
*{box-sizing:border-box}
body{margin:0 auto;padding:1.25rem 1rem 2rem;max-width:62rem;background:var(--ground);color:var(--text);
font:1rem/1.5 system-ui,"Segoe UI",Roboto,"Helvetica Neue",Arial,sans-serif;overflow-wrap:anywhere}
header{border-left:.4rem solid var(--tone);padding-left:1rem;margin-bottom:1.5rem}
h1{font-size:1.5rem;line-height:1.25;margin:.5rem 0 .25rem}
h2{font-size:1.05rem;margin:0 0 .6rem}
p{margin:.25rem 0}
.badge{display:inline-block;margin:0;padding:.1rem .7rem;border-radius:1rem;background:var(--tone);color:#fff;font-weight:600}
.faint,footer{color:var(--faint);font-size:.9rem}
.done{--tone:var(--done)}.differs{--tone:var(--differs)}.failed{--tone:var(--failed)}
section{margin:0 0 1.25rem;padding:1rem;border:1px solid var(--line);border-radius:.5rem;background:var(--card)}
.message{border-left:.3rem solid var(--tone)}
.message p:first-child{font-weight:600}
.pair{display:grid;grid-template-columns:1fr 1fr;column-gap:1.25rem}
table{border-collapse:collapse;width:100%}
th,td{padding:.25rem .75rem .25rem 0;text-align:left;vertical-align:baseline;font-variant-numeric:tabular-nums}
tr+tr>*{border-top:1px solid var(--line)}
thead th{overflow-wrap:normal}
.size{white-space:nowrap}
thead th,.facts th{color:var(--faint);font-weight:400;font-size:.9rem}
.facts th{width:9.5rem}
.code{font-family:ui-monospace,SFMono-Regular,Menlo,Consolas,"DejaVu Sans Mono",monospace;font-size:.875rem}
.map{display:grid;grid-template-columns:auto 1fr 1fr;align-items:center;margin-bottom:.75rem}
.map b{font-weight:400;color:var(--faint);padding-right:.5rem;line-height:1;font-size:.8rem}
.map b:nth-of-type(even){display:none}
.map p{display:grid;grid-template-columns:repeat(32,1fr);margin:0}
.map i,.key i{background:var(--c);border:1px solid var(--card);border-radius:2px}
.map i{aspect-ratio:1}
.key{display:flex;flex-wrap:wrap;gap:.25rem 1.25rem;list-style:none;margin:0 0 .5rem;padding:0}
.key i{display:inline-block;width:.9rem;height:.9rem;margin-right:.4rem;vertical-align:-.1rem}
.equal{--c:var(--equal)}.beyond{--c:var(--beyond)}.data{--c:var(--data)}.part{--c:var(--part)}.blank{--c:var(--blank)}
.none,.erased{--c:var(--empty)}
i.wrong{background:radial-gradient(circle,var(--card) 0 22%,var(--wrong) 26%)}
i.unread{background:repeating-linear-gradient(135deg,var(--empty) 0 2px,var(--blank) 2px 3px)}
.bar{width:35%}
.bar span{display:block;height:.6rem;margin-top:.45rem;border-radius:.3rem;background:var(--accent);min-width:2px}
svg{display:block;width:100%;height:2.5rem;margin:.25rem 0 .4rem;border-bottom:1px solid var(--line)}
svg .grown{fill:var(--accent)}svg .miss{fill:var(--wrong);fill-opacity:.35}
summary{cursor:pointer;color:var(--accent)}
@media(max-width:44rem){.pair{grid-template-columns:1fr}.map{grid-template-columns:auto 1fr}.map b:nth-of-type(even){display:block}
.bar{display:none}.facts th{width:7.5rem}section{padding:.75rem}}
@media print{:root{color-scheme:light}body{max-width:none;padding:0;font-size:.85rem}section{break-inside:avoid}
*{print-color-adjust:exact;-webkit-print-color-adjust:exact}}
)";

}  // namespace tavo
