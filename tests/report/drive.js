// Drives a change report page as a user would and writes what it saw as JSON
// into a pre element, id kestrel-test-result, for a test to read from the page's
// DOM printed by headless Chromium. Appended to a copy of a filled page after
// the page's own script, together with window.kestrelDriveSteps, a list of
// steps:
//   {"do": "look"}                 what the page shows now
//   {"do": "sort", "key": K}       a click on the heading of column K
//   {"do": "type", "text": T}      T typed into the filter box
//   {"do": "folder", "path": P}    a click on folder P in the tree
//   {"do": "showAll"}              a click on "Show all"
//   {"do": "scrollEnd"}            the table scrolled to its last row
// Every step but "look" reports how long the page took to answer it (ms),
// layout included; each step's result carries what the page shows after it.
(function () {
  'use strict';
  // Reading a box's size makes the browser lay the page out first.
  const settle = () => document.getElementById('viewport').getBoundingClientRect().height;
  settle();
  const result = { steps: [], problems: [] };
  result.heading = document.getElementById('report-title').textContent;
  const report = window.kestrelReport;

  function look() {
    const rows = Array.from(document.querySelectorAll('#rows .tr')).sort(
      (a, b) => parseFloat(a.style.top) - parseFloat(b.style.top));
    const headings = {};
    for (const button of document.querySelectorAll('#thead button[data-key]'))
      headings[button.dataset.key] = button.textContent;
    const figures = {};
    for (const figure of document.querySelectorAll('.figure[data-count]'))
      figures[figure.dataset.count] = figure.querySelector('.num').textContent;
    const tree = {};
    for (const name of document.querySelectorAll('#tree [data-folder]'))
      tree[name.dataset.folder] = name.parentElement.querySelector('.count').textContent;
    return {
      rowsShown: report.rowsShown(),
      visible: report.visiblePaths(),
      rowCount: document.getElementById('row-count').textContent,
      headings,
      figures,
      tree,
      rows: rows.map((row) => {
        const path = row.querySelector('.path');
        const from = row.querySelector('.from-path');
        const escaped = row.querySelector('.badge.escaped');
        const style = getComputedStyle(path);
        const changed = {};
        for (const cell of row.querySelectorAll('.td.changed'))
          changed[cell.className.match(/\bc-(\w+)/)[1]] = getComputedStyle(cell).backgroundColor;
        return {
          path: path.textContent,
          from: from ? from.textContent : null,
          escapedTitle: escaped ? escaped.title : null,
          color: style.color,
          italic: style.fontStyle === 'italic',
          height: row.getBoundingClientRect().height,
          changed
        };
      })
    };
  }

  function act(step) {
    switch (step.do) {
    case 'sort':
      document.querySelector('#thead button[data-key="' + step.key + '"]').click();
      break;
    case 'type': {
      const box = document.getElementById('filter');
      box.value = step.text;
      box.dispatchEvent(new Event('input', { bubbles: true }));
      break;
    }
    case 'folder': {
      const name = Array.from(document.querySelectorAll('#tree [data-folder]'))
        .find((e) => e.dataset.folder === step.path);
      if (!name) throw new Error('no folder ' + step.path + ' in the tree');
      name.click();
      break;
    }
    case 'showAll':
      document.getElementById('show-all').click();
      break;
    case 'scrollEnd': {
      const viewport = document.getElementById('viewport');
      viewport.scrollTop = viewport.scrollHeight;
      viewport.dispatchEvent(new Event('scroll'));
      break;
    }
    case 'look':
      break;
    default:
      throw new Error('unknown step ' + step.do);
    }
  }

  try {
    if (!report) throw new Error('the page did not set up window.kestrelReport');
    for (const step of window.kestrelDriveSteps || []) {
      const start = performance.now();
      act(step);
      settle();
      const entry = { do: step.do, ms: performance.now() - start };
      entry.seen = look();
      result.steps.push(entry);
    }
  } catch (e) {
    result.problems.push(String(e && e.stack || e));
  }

  // Markup that slipped through would run its handlers a moment later (an
  // image failing to load): wait for them before telling.
  setTimeout(() => {
    result.pwned = window.__pwned === undefined ? null : String(window.__pwned);
    result.errors = window.__errors || [];
    // The data is no longer needed, and the printed DOM is much shorter
    // without it.
    const data = document.getElementById('kestrel-data');
    if (data) data.textContent = '';
    const out = document.createElement('pre');
    out.id = 'kestrel-test-result';
    // ASCII only, and nothing the DOM printer writes as an entity.
    out.textContent = JSON.stringify(result).replace(/[<>&\u007f-\uffff]/g,
      (c) => '\\u' + c.charCodeAt(0).toString(16).padStart(4, '0'));
    document.body.append(out);
  }, 300);
})();
