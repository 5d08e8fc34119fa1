'use strict';
const { head, exchanges } = JSON.parse(document.getElementById('data').textContent);
const $ = (id) => document.getElementById(id);
const ROW = 32, IDLE = 250e3;  // pixels; microseconds without a word that are folded

// A new element. Whatever a capture says arrives as text, never as markup.
function make(tag, attributes, ...children) {
  const element = document.createElement(tag);
  for (const [name, value] of Object.entries(attributes || {})) {
    if (name.startsWith('on')) element[name] = value; else if (value !== undefined) element.setAttribute(name, value);
  }
  element.append(...children.filter((child) => child !== ''));
  return element;
}
const other = (side) => side === 'browser' ? 'plug-in' : 'browser';
const plural = (n, thing) => n.toLocaleString('en') + ' ' + thing + (n === 1 ? '' : 's');
function duration(us = NaN) {
  if (isNaN(us)) return '';
  if (us < 1e3) return Math.round(us) + ' µs';
  if (us < 1e6) return (us / 1e3).toPrecision(us < 1e5 ? 2 : 3) + ' ms';
  return us < 12e7 ? (us / 1e6).toFixed(1) + ' s' : us < 72e8 ? Math.round(us / 6e7) + ' min' : (us / 36e8).toFixed(1) + ' h';
}
function clock(us) {
  const date = new Date(Math.floor(us / 1e3)), two = (n) => String(n).padStart(2, '0');
  return [two(date.getHours()), two(date.getMinutes()), two(date.getSeconds())].join(':') + '.' + String(us % 1e6).padStart(6, '0');
}
const processes = new Map(head.processes.map((process) => [process.pid, process]));
const nameOf = (pid) => (processes.get(pid) || {}).name ? processes.get(pid).name + ' (' + pid + ')' : 'pid ' + pid;

// --- What is known of each exchange -------------------------------------------------------------------
const first = (x) => x.sent || x.received || x.answered || x.arrived;
const byLine = new Map();
exchanges.forEach((x, index) => {
  x.index = index;
  x.asked = x.sent || x.received;
  x.replied = x.answered || x.arrived;
  x.unanswered = Boolean(x.sync) && (x.failed || x.drop !== undefined || !x.replied);
  x.lost = x.drop !== undefined && x.drop !== 'no-answer';
  x.bad = x.unanswered || x.lost;
  x.flight = x.waited !== undefined ? x.waited : x.sent && x.arrived ? x.arrived[0] - x.sent[0] : undefined;
  for (const sight of [x.sent, x.received, x.answered, x.arrived]) if (sight) byLine.set(sight[2], x);
});
function members(text) {
  const value = pretty(text, (given) => given);
  if (value === null || typeof value !== 'object') return text.slice(0, 300);
  return Object.entries(value).filter(([key]) => key !== 't').map(([key, one]) => key + '=' + JSON.stringify(one)).join(' ').slice(0, 300);
}
function pretty(text, form = (value) => JSON.stringify(value, null, 2)) {
  try { return form(JSON.parse(text)); } catch { return text; }
}

// --- The state of the page stands in its address --------------------------------------------------------
const state = { name: '', to: '', slow: '', errors: '', sort: '-flightMax', at: '' };
const initial = { ...state };
function readState() {
  const given = new URLSearchParams(location.hash.slice(1));
  for (const key of Object.keys(state)) state[key] = given.has(key) ? given.get(key) : initial[key];
}
function change(changes) {
  Object.assign(state, changes);
  const changed = Object.keys(state).filter((key) => state[key] !== initial[key]);
  const hash = '#' + new URLSearchParams(changed.map((key) => [key, state[key]]));
  if (hash !== (location.hash || '#')) location.replace(hash);
  show();
}
addEventListener('hashchange', () => { const before = JSON.stringify(state); readState(); if (JSON.stringify(state) !== before) show(); });

// --- Head and findings ----------------------------------------------------------------------------------
const times = exchanges.flatMap((x) => [x.sent, x.received, x.answered, x.arrived].filter(Boolean).map((sight) => sight[0]));
const [begin, end] = times.reduce(([low, high], time) => [Math.min(low, time), Math.max(high, time)], [Infinity, 0]);
const lostTraces = head.processes.reduce((sum, process) => sum + process.gaps.reduce((n, gap) => n + gap.count, 0), 0);
function showHead() {
  document.title = $('file').textContent = head.file;
  $('span').textContent = new Date(begin / 1e3).toLocaleDateString('en', { dateStyle: 'long' }) + ', ' + clock(begin) + ' to ' + clock(end) + ' · ' + duration(end - begin);
  $('processes').textContent = head.processes.map((process) => process.side + ' ' + nameOf(process.pid)).join(' · ');
  const drops = {};
  for (const x of exchanges) if (x.lost) drops[x.drop] = (drops[x.drop] || 0) + 1;
  const counts = [
    ['messages', 'messages', exchanges.filter((x) => x.asked).length], ['exchanges', 'exchanges', exchanges.filter((x) => x.sync).length],
    ['unanswered', 'without an answer', exchanges.filter((x) => x.unanswered).length, true],
    ['dropped', 'dropped', exchanges.filter((x) => x.lost).length, true, Object.entries(drops).map(([why, n]) => n + ' ' + why).join(', ')],
    ['lost', 'traces lost', lostTraces],
  ];
  $('counts').append(...counts.map(([id, text, n, danger, why]) => make('div', {}, make('dt', {}, text),
    make('dd', { id: 'count-' + id, class: danger && n > 0 ? 'bad' : '' }, n.toLocaleString('en'), why ? make('small', {}, ' ' + why) : ''))));
  $('notes').hidden = head.notes.length === 0;
  $('notes').textContent = head.notes.join(' · ');
}
// A queue of the default size holds fifteen records; who finds it full sleeps 50 ms.
function bursts() {
  const steps = [], waiting = { browser: 0, 'plug-in': 0 }, found = [];
  for (const x of exchanges) {
    if (x.sent && (x.received || x.drop === 'not-sent')) steps.push([x.sent[2], x, 1]);
    if (x.sent && x.received) steps.push([x.received[2], x, -1]);
  }
  for (const [, x, step] of steps.sort((a, b) => a[0] - b[0])) {
    if (step > 0 && waiting[x.to] + x.records > 15 && (!x.received || x.received[0] - x.sent[0] >= 50e3)) {
      const last = found[found.length - 1];
      if (last && last.x.to === x.to && x.sent[0] - last.x.sent[0] < 1e6) last.n += 1; else found.push({ x, n: 1, waited: waiting[x.to] });
    }
    if (x.received) waiting[x.to] += step * x.records;
  }
  return found;
}
function findings() {
  const list = [], add = (kind, danger, what, value, x) => list.push({ kind, danger, what, value, x });
  const few = (all, each) => {
    all.slice(0, 4).forEach(each);
    if (all.length > 4) add('', false, 'and ' + (all.length - 4).toLocaleString('en') + ' more', '');
  };
  for (const process of head.processes) {
    const after = (x) => x.to === process.side && x.asked && x.asked[2] > process.last[2];
    const missed = exchanges.filter((x) => after(x) && !x.received && (x.drop || x.sync)).length;
    const successor = head.processes.find((one) => one.side === process.side && one.first[2] > process.last[2]);
    if (successor || missed) add('gone', missed > 0, nameOf(process.pid) + (successor ? ', followed by ' + nameOf(successor.pid) : ', ' + plural(missed, 'message') + ' later'), clock(process.last[0]), byLine.get(process.last[2]));
  }
  const label = (x) => x.name + ' ' + members(x.text);
  few(exchanges.filter((x) => x.unanswered), (x) => add('no answer', true, label(x), x.drop || (x.failed ? 'failed' : 'none seen'), x));
  few(exchanges.filter((x) => x.lost && !x.unanswered), (x) => add('dropped', true, label(x), x.drop, x));
  few(bursts(), ({ x, n, waited }) => add('full queue', false, plural(n, 'message') + ' to the ' + x.to + ' behind ' + plural(waited, 'record'), clock(x.sent[0]), x));
  few(head.processes.flatMap((process) => process.gaps.map((gap) => ({ process, gap }))), ({ process, gap }) =>
    add('gap', false, plural(gap.count, 'trace') + ' of ' + nameOf(process.pid) + ' missing', clock(gap.behind[0]), byLine.get(gap.behind[2])));
  if (list.length === 0) add('', false, 'Every message arrived, and every question was answered.', '');
  exchanges.filter((x) => x.flight !== undefined).sort((a, b) => b.flight - a.flight).slice(0, 5).forEach((x) => add('slowest', false, label(x), duration(x.flight), x));
  return list;
}
function showFindings() {
  $('findings').append(...findings().map(({ kind, danger, what, value, x }) => make('li', {}, x ? make('button',
    { title: what, onclick: () => { const hidden = !matching().includes(x); change({ ...(hidden ? { name: '', to: '', slow: '', errors: '' } : {}), at: String(x.index) }); $('diagram').focus(); } },
    make('span', { class: 'kind' + (danger ? ' bad' : '') }, kind), make('span', { class: 'what' }, what), make('span', {}, value)) : make('p', {}, what))));
}

// --- Table ----------------------------------------------------------------------------------------------
const COLUMNS = [['name', 'message'], ['count', 'count'], ['errors', 'errors'],
  ['flightMedian', 'median'], ['flight99', '99 %'], ['flightMax', 'max'], ['handlerMedian', 'median'], ['handler99', '99 %'], ['handlerMax', 'max']];
function statistics() {
  const groups = new Map();
  for (const x of exchanges) {
    if (!groups.has(x.name)) groups.set(x.name, { name: x.name, count: 0, errors: 0, flight: [], handler: [] });
    const group = groups.get(x.name);
    group.count += 1;
    group.errors += x.bad ? 1 : 0;
    if (x.flight !== undefined) group.flight.push(x.flight);
    if (x.handling !== undefined) group.handler.push(x.handling);
  }
  for (const group of groups.values()) {
    for (const kind of ['flight', 'handler']) {
      const sorted = group[kind].sort((a, b) => a - b), at = (share) => sorted[Math.min(sorted.length - 1, Math.ceil(share * sorted.length) - 1)];
      [group[kind + 'Median'], group[kind + '99'], group[kind + 'Max']] = sorted.length ? [at(0.5), at(0.99), at(1)] : [];
    }
  }
  return [...groups.values()];
}
const groups = statistics();
function showTable() {
  const down = state.sort[0] === '-', key = state.sort.replace('-', '');
  const value = (group) => group[key] === undefined ? -1 : group[key];
  groups.sort((a, b) => (key === 'name' ? a.name.localeCompare(b.name) : value(a) - value(b)) * (down ? -1 : 1) || a.name.localeCompare(b.name));
  const order = (column) => () => change({ sort: state.sort === '-' + column || (column === 'name' && state.sort !== 'name') ? column : '-' + column });
  const focused = document.activeElement && document.activeElement.dataset.column;
  $('table').tHead.replaceChildren(
    make('tr', {}, make('th', { colspan: 3 }), make('th', { colspan: 3, scope: 'colgroup', class: 'rule' }, 'in flight'), make('th', { colspan: 3, scope: 'colgroup', class: 'rule' }, 'in the handler')),
    make('tr', {}, ...COLUMNS.map(([column, text], i) => make('th', { scope: 'col', class: i === 3 || i === 6 ? 'rule' : undefined, 'aria-sort': column === key ? (down ? 'descending' : 'ascending') : undefined },
      make('button', { 'data-column': column, onclick: order(column) }, text + (column === key ? (down ? ' ↓' : ' ↑') : ''))))));
  if (focused) document.querySelector('[data-column=' + focused + ']').focus();
  $('table').tBodies[0].replaceChildren(...groups.map((group) => make('tr', { class: group.name === state.name ? 'chosen' : '', onclick: () => change({ name: state.name === group.name ? '' : group.name }) },
    ...COLUMNS.map(([column], i) => i === 0 ? make('td', {}, make('button', {}, group.name))
      : make('td', { class: column === 'errors' && group.errors ? 'bad' : '' }, i < 3 ? group[column].toLocaleString('en') : duration(group[column]))))));
}

// --- Diagram --------------------------------------------------------------------------------------------
let rows = [];
function matching() {
  const pattern = state.name.replace(/[.+^${}()|[\]\\]/g, '\\$&').replace(/\*/g, '.*').replace(/\?/g, '.');
  const exact = groups.some((group) => group.name === state.name) || /[*?]/.test(state.name);
  const name = new RegExp(exact ? '^' + pattern + '$' : pattern, exact && !/[*?]/.test(state.name) ? '' : 'i');
  const slow = parseFloat(state.slow) * 1e3;
  return exchanges.filter((x) => name.test(x.name) && (!state.to || x.to === state.to) && (!state.errors || x.bad) &&
    !(slow > 0 && !(Math.max(x.flight || 0, x.handling || 0) > slow)));
}
function layOut(list) {
  const arrows = [], pids = {}, open = {};
  for (const x of list) {
    if (x.asked) arrows.push({ x, sight: x.asked });
    if (x.replied) arrows.push({ x, sight: x.replied, answer: true });
  }
  rows = [];
  let last;
  for (const arrow of arrows.sort((a, b) => a.sight[2] - b.sight[2])) {
    const { x, answer } = arrow;
    const idle = last ? arrow.sight[0] - last.sight[0] : 0;
    if (idle >= IDLE && !open.browser && !open['plug-in']) rows.push({ note: duration(idle) + (list.length === exchanges.length ? ' of silence' : ' later') });
    for (const [side, sight] of [[other(x.to), answer ? x.arrived : x.sent], [x.to, answer ? x.answered : x.received]]) {
      if (!sight) continue;
      if (pids[side] && pids[side] !== sight[1]) rows.push({ note: 'the ' + side + ' is now ' + nameOf(sight[1]) });
      pids[side] = sight[1];
    }
    arrow.life = { browser: open.browser ? 'full' : '', 'plug-in': open['plug-in'] ? 'full' : '' };
    if (!answer && x.sync && x.replied && x.received) { open[x.to] = x; arrow.life[x.to] = 'from'; }
    if (answer && open[x.to] === x) { open[x.to] = null; arrow.life[x.to] = 'to'; }
    arrow.row = rows.length;
    rows.push(last = arrow);
  }
}
const longest = Math.max(100, exchanges.reduce((most, x) => Math.max(most, x.flight || x.handling || 0), 0));
const scale = (us) => Math.log10(1 + us / 10) / Math.log10(1 + longest / 10);  // the lengths of bars are logarithmic
function rowElement(row, index) {
  const style = 'top:' + index * ROW + 'px';
  if (row.note) return make('div', { class: 'row pause', style }, make('time'), make('div', { class: 'lane' }, make('span', {}, row.note)), make('div'));
  const { x, answer } = row, to = answer ? other(x.to) : x.to;
  const problem = answer ? (x.failed ? 'no answer' : '') : x.lost ? 'dropped: ' + x.drop : x.unanswered && !x.replied ? 'no answer' : '';
  const text = members(answer ? x.answer : x.text), time = clock(row.sight[0]);
  const took = make('div', { class: 'took' });
  const whole = x.flight === undefined ? x.handling : x.flight;
  if ((answer || !x.replied) && whole !== undefined) {
    const handler = make('i', { style: 'width:' + Math.min(100, 100 * (x.handling || 0) / Math.max(whole, 1)) + '%' });
    took.append(make('div', { class: 'bar', style: 'width:calc((100% - 84px) * ' + scale(whole) + ')' }, handler), make('span', { class: x.unanswered ? 'bad' : '' }, duration(whole)));
  }
  const lane = make('div', { class: 'lane' });
  for (const side of ['browser', 'plug-in']) if (row.life[side]) lane.append(make('div', { class: 'life ' + side + ' ' + row.life[side] }));
  lane.append(make('div', { class: 'label' }, problem ? make('span', { class: 'bad' }, problem) : '', make('b', {}, x.name + (answer ? ' answer' : '')), make('span', {}, text)),
    make('div', { class: 'arrow ' + (to === 'browser' ? 'left' : 'right') }));
  const chosen = String(x.index) === state.at;
  return make('div', { id: 'row-' + index, style, role: 'option', 'aria-selected': chosen, title: text, class: 'row' + (answer ? ' answer' : '') + (x.lost && !answer ? ' lost' : '') + (chosen ? ' chosen' : '') + (chosen && index === current ? ' current' : ''), onclick: () => choose(index) },
    make('time', {}, make('s', {}, time.slice(0, 3)), time.slice(3)), lane, took);
}
function draw() {
  const top = $('diagram').scrollTop, from = Math.max(0, Math.floor(top / ROW) - 10), to = Math.min(rows.length, Math.ceil((top + $('diagram').clientHeight) / ROW) + 10);
  $('rows').replaceChildren(...rows.slice(from, to).map((row, i) => rowElement(row, from + i)));
}
let current = -1;  // the row that the keys move from
function open(x) {
  current = -1;
  change({ at: x ? String(x.index) : '' });
}
function choose(index) {
  current = index;
  change({ at: rows[index] ? String(rows[index].x.index) : '' });
}
function step(from, way, wanted) {
  let index = Math.max(0, Math.min(rows.length - 1, from));
  while (rows[index] && (rows[index].note || !wanted(rows[index]))) index += way;
  if (rows[index]) choose(index);
}
function keepVisible() {
  const box = $('diagram'), top = current * ROW;
  if (current >= 0 && (top < box.scrollTop || top + ROW > box.scrollTop + box.clientHeight)) box.scrollTop = top - box.clientHeight / 2;
}
$('diagram').addEventListener('scroll', () => requestAnimationFrame(draw));
addEventListener('resize', () => { draw(); plot(); });
matchMedia('(prefers-color-scheme: dark)').addEventListener('change', () => plot());
$('diagram').addEventListener('keydown', (event) => {
  const page = Math.floor($('diagram').clientHeight / ROW) - 1;
  const moves = { ArrowDown: [current + 1, 1], ArrowUp: [current - 1, -1], PageDown: [current + page, 1], PageUp: [current - page, -1], Home: [0, 1], End: [rows.length - 1, -1] };
  if (moves[event.key]) { step(...moves[event.key], () => true); event.preventDefault(); }
});
addEventListener('keydown', (event) => {
  if (event.key === 'Escape') open(null);
  if (event.key === '/' && event.target.tagName !== 'INPUT') { $('name').focus(); event.preventDefault(); }
});

// --- One exchange ---------------------------------------------------------------------------------------
function showDetail() {
  const x = exchanges[state.at === '' ? -1 : Number(state.at)], box = $('detail');
  box.hidden = !x;
  if (!x) return;
  const rowsOf = [['sent', x.sent], ['received', x.received], ['answered', x.answered], ['arrived', x.arrived]].filter(([, sight]) => sight)
    .flatMap(([what, sight]) => [make('dt', {}, what), make('dd', { title: nameOf(sight[1]) + ', line ' + sight[2] }, clock(sight[0]))]);
  const fact = (what, value, bad) => value === '' || value === undefined ? [] : [make('dt', {}, what), make('dd', { class: bad ? 'bad' : '' }, String(value))];
  const block = (title, text) => make('div', {}, make('h4', {}, title), make('pre', {}, text === '' ? '(nothing)' : pretty(text)));
  box.replaceChildren(
    make('h3', {}, x.name, make('span', {}, 'code ' + x.code + ' · to the ' + x.to + (x.sync ? ', synchronous' : ', one-way') + ' · line ' + first(x)[2]), make('button', { 'aria-label': 'Close', onclick: () => open(null) }, '✕')),
    make('dl', {}, ...rowsOf, ...fact('in flight', duration(x.flight)), ...fact('in the handler', duration(x.handling)), ...fact('dropped', x.drop, true), ...fact('result', x.result),
      ...fact('answer', x.unanswered ? 'none' : '', true)),
    ...(x.asked ? [block(x.sync ? 'question' : 'message', x.text)] : []), ...(x.replied ? [block('answer', x.answer)] : []));
}

// --- Latency over time ----------------------------------------------------------------------------------
let dots = [];
function plot() {
  const canvas = $('plot'), width = canvas.clientWidth, height = canvas.clientHeight, ratio = devicePixelRatio || 1;
  const style = getComputedStyle(document.documentElement), colour = (name) => style.getPropertyValue('--' + name);
  const [blue, danger, line] = ['blue', 'danger', 'line'].map(colour);
  [canvas.width, canvas.height] = [width * ratio, height * ratio];
  const pen = canvas.getContext('2d'), left = 58, right = width - 16, top = 12, bottom = height - 20;
  pen.scale(ratio, ratio); pen.font = '11px system-ui, "DejaVu Sans", sans-serif';
  const y = (us) => bottom - (bottom - top) * scale(us);
  for (let us = 10; us <= longest; us *= 10) {
    pen.strokeStyle = colour('line'); pen.fillStyle = colour('quiet'); pen.textAlign = 'right';
    pen.beginPath(); pen.moveTo(left, y(us)); pen.lineTo(right, y(us)); pen.stroke();
    pen.fillText(duration(us), left - 8, y(us) + 4);
  }
  // Silence is folded here too: the order of the capture tells what follows what, whatever the clocks say.
  let reached = 0, before;
  const place = new Map();
  for (const x of exchanges) {
    const time = first(x)[0];
    if (before !== undefined) reached += Math.max(0, Math.min(time - before, 4 * IDLE));
    before = time;
    place.set(x, reached);
  }
  const chosen = new Set(matching());
  dots = exchanges.filter((x) => x.flight !== undefined || x.unanswered).map((x) => ({ x, left: left + (right - left) * place.get(x) / (reached || 1), top: y(x.flight === undefined ? longest : x.flight), shown: chosen.has(x) })).sort((a, b) => a.shown - b.shown || a.x.unanswered - b.x.unanswered);
  for (const dot of dots) {
    pen.globalAlpha = 0.75;
    pen.fillStyle = !dot.shown ? line : dot.x.unanswered ? danger : blue;
    pen.beginPath(); pen.arc(dot.left, dot.top, dot.x.unanswered ? 3.5 : 2.5, 0, 7); pen.fill();
    if (String(dot.x.index) !== state.at) continue;
    pen.globalAlpha = 1; pen.strokeStyle = colour('ink');
    pen.beginPath(); pen.arc(dot.left, dot.top, 6, 0, 7); pen.stroke();
  }
  pen.globalAlpha = 1; pen.fillStyle = colour('quiet'); pen.textAlign = 'left';
  pen.fillText(clock(begin).slice(0, 12), left, height - 5); pen.textAlign = 'right';
  pen.fillText(clock(end).slice(0, 12), right, height - 5);
}
$('plot').addEventListener('click', (event) => {
  const far = (dot) => Math.hypot(dot.left - event.offsetX, dot.top - event.offsetY);
  open((dots.filter((dot) => dot.shown).sort((a, b) => far(a) - far(b))[0] || {}).x);
});
$('plot').addEventListener('keydown', (event) => {
  const way = { ArrowRight: 1, ArrowLeft: -1 }[event.key];
  if (way) { step(current + way, way, (row) => row.answer); event.preventDefault(); }
});

// --- All of it ------------------------------------------------------------------------------------------
function show() {
  const list = matching(), former = rows[current] || {};
  layOut(list);
  current = rows.findIndex((row) => row.x && String(row.x.index) === state.at && (former.x !== row.x || former.answer === row.answer));
  for (const id of ['name', 'to', 'slow']) if ($(id).value !== state[id]) $(id).value = state[id];
  $('errors').checked = state.errors !== '';
  $('shown').value = list.length === exchanges.length ? plural(list.length, 'message') : list.length.toLocaleString('en') + ' of ' + plural(exchanges.length, 'message');
  $('rows').style.height = rows.length * ROW + 'px';
  showTable(); showDetail(); keepVisible(); draw(); plot();
}
$('filters').addEventListener('submit', (event) => event.preventDefault());
for (const id of ['name', 'to', 'slow']) $(id).addEventListener('input', () => change({ [id]: $(id).value }));
$('errors').addEventListener('change', () => change({ errors: $('errors').checked ? '1' : '' }));
$('reset').addEventListener('click', () => change({ name: '', to: '', slow: '', errors: '' }));
$('names').append(...groups.map((group) => make('option', { value: group.name })));
showHead();
readState();
show();
showFindings();
document.documentElement.dataset.ready = Math.round(performance.now());
