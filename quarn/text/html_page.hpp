// The fixed parts of an HTML dump: colours and the few lines of script behind the hovers.
//
// Marks that printer and script agree on: class l is a line of IR, class h the head of a block;
// a link's target, data-k (a use without a target of its own) or data-s (a definition) names what a
// word stands for; data-t tells the type of a constant, data-o where in the compiler something was
// made.
#pragma once

#include <string_view>

namespace QN::text {

inline constexpr std::string_view htmlStyle = R"(
:root { color-scheme: light dark; }
body { font: 13px/1.45 monospace; margin: 1.5em; background: #fff; color: #222; }
h1 { font-size: 16px; } h2 { font-size: 14px; margin: 2em 0 .4em; }
a { text-decoration: none; color: inherit; } a:hover { text-decoration: underline; }
.l { white-space: pre-wrap; padding-left: 2em; } .b { margin: .8em 0; }
.h, .j { font-weight: bold; } .h span { font-weight: normal; color: #888; }
.v { color: #0550ae; } .x { color: #953800; } .c { color: #0a7d33; } .k { color: #8250df; }
.t { color: #6e7781; } .o { color: #cf222e; font-weight: bold; } .m { color: #888; }
.r { color: #fff; background: #b3261e; padding: .3em .6em; white-space: pre-wrap; }
.on { background: #ffe58f; } :target { background: #fff3c4; }
#tip { position: fixed; right: 1em; bottom: 1em; max-width: 60%; max-height: 60%; overflow: auto;
  white-space: pre-wrap; display: none; background: #f6f8fa; border: 1px solid #999;
  border-radius: 4px; padding: .5em .8em; }
@media (prefers-color-scheme: dark) {
  body { background: #16191d; color: #ddd; } #tip { background: #22272e; }
  .v { color: #79b8ff; } .x { color: #ffab70; } .c { color: #85e89d; } .k { color: #b392f0; }
  .o { color: #f97583; } .on { background: #5a4a00; } :target { background: #3a3200; }
}
)";

inline constexpr std::string_view htmlScript = R"(
(function () {
  var shownUses = 20, lit = [];
  var tip = document.body.appendChild(document.createElement('div'));
  tip.id = 'tip';
  function keyOf(word) {
    return word.dataset.s || word.dataset.k || word.getAttribute('href').slice(1);
  }
  function lineOf(word) {
    var line = word.closest('.l,.h'), block = word.closest('.b');
    var place = block && line && !line.classList.contains('h') ? block.id.replace(/^f\d+/, '') : '';
    return (place ? place + ': ' : '') + (line || word).textContent.trim();
  }
  function hide() {
    tip.style.display = 'none';
    lit.forEach(function (word) { word.classList.remove('on'); });
    lit = [];
  }
  document.addEventListener('mouseover', function (event) {
    hide();
    var word = event.target.closest && event.target.closest('a[href^="#"],[data-k],[data-s]');
    if (!word || word.closest('nav')) { return; }
    var key = keyOf(word);
    var definition = document.querySelector('[data-s="' + key + '"]') || document.getElementById(key);
    var uses = Array.prototype.filter.call(
      document.querySelectorAll('[href="#' + key + '"],[data-k="' + key + '"]'),
      function (use) { return use.closest('.l'); });
    var source = definition || word;
    var lines = [definition ? lineOf(definition) : word.textContent + ': ' + word.dataset.t];
    if (source.dataset.o) { lines.push('made by ' + source.dataset.o); }
    lines.push(uses.length + (uses.length === 1 ? ' use' : ' uses'));
    uses.slice(0, shownUses).forEach(function (use) { lines.push('  ' + lineOf(use)); });
    if (uses.length > shownUses) { lines.push('  ...'); }
    tip.textContent = lines.join('\n');
    tip.style.display = 'block';
    lit = uses.concat(definition ? [definition] : []);
    lit.forEach(function (use) { use.classList.add('on'); });
  });
})();
)";

} // namespace QN::text
