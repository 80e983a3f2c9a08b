'use strict';

// Whatever a request holds is anybody's text: it enters the page as text nodes only, and characters
// that would hide or turn around what stands beside them are written out.
const unseen = /[\0-\x08\x0b-\x1f\x7f-\x9f\xad\u061c\u200b-\u200f\u2028-\u202e\u2060-\u206f\ufeff]/g;
const visible = (text) =>
  text.replace(unseen, (c) => `\\u${c.charCodeAt(0).toString(16).padStart(4, '0')}`);
const byId = (id) => document.getElementById(id);
const make = (name, className, ...children) => {
  const made = document.createElement(name);
  made.className = className;
  made.append(...children.map((child) => typeof child === 'string' ? visible(child) : child));
  return made;
};
const plural = (count, what) => `${count} ${what}${count === 1 ? '' : 's'}`;

const kRows = 200;
const kPeriodMs = 1000;
const kPatienceMs = 10000;
const kAnnounceMs = 10000;
const kSecret = '••••••';

const endpoints = new Map([...byId('endpoint').options].slice(0, -1).map((o) => [o.value, o.text]));
const kinds = new Map([...byId('kind').options].map((option) => [option.value, option]));
const rows = new Map();  // by the request's number
let run = 0;             // which start of the gateway the rows are from
let revision = 0;
let faultsShown = '';
let paused = false;
let isLive;

// --- talking to the gateway ----------------------------------------------------------------------

async function call(method, path, body) {
  const response = await fetch(`/control/${path}`, {
    method, body, cache: 'no-store', signal: AbortSignal.timeout(kPatienceMs),
    headers: body === undefined ? {} : {'Content-Type': 'application/json'},
  });
  const answer = await response.json();
  if (!response.ok) throw new Error(answer.problem || answer.message);
  return answer;
}

async function poll() {
  try {
    let answer = await call('GET', `watch?since=${paused ? Number.MAX_SAFE_INTEGER : revision}`);
    if (answer.startedMs !== run) {
      forgetBefore(Infinity);
      run = answer.startedMs;
      revision = 0;
      answer = await call('GET', 'watch?since=0');
    }
    show(answer);
    showLive(true);
  } catch (error) {
    showLive(false);
  }
}

// One after the other, so that an older answer never overwrites a newer one.
let polls = Promise.resolve();
const refresh = () => polls = polls.then(poll);
async function watch() {
  for (;;) {
    await refresh();
    await new Promise((resolve) => setTimeout(resolve, kPeriodMs));
  }
}

async function act(method, path, body, said) {
  byId('problem').textContent = '';
  try {
    await call(method, path, body);
    announce(said);
  } catch (error) {
    byId('problem').textContent = `Not done: ${error.message}`;
    refresh();  // a fault may have met its last request a moment ago
    return false;
  }
  await refresh();
  return true;
}

// --- the state -----------------------------------------------------------------------------------

function announce(text) {
  byId('announcer').textContent = text;
}

function showLive(live) {
  if (live === isLive) return;
  isLive = live;
  byId('live').className = `live ${live ? 'good' : 'bad'}`;
  byId('live').textContent = live ? 'live' : 'the gateway does not answer; still trying';
}

function show(answer) {
  byId('where').textContent = `${answer.baseUrl} · since ${new Date(run).toLocaleString('sv')} · ` +
    `${plural(answer.connections, 'connection')}, ${answer.stalled} stalled · ` +
    `${plural(answer.tokensIssued, 'token')} issued` + (answer.model ? ` · model ${visible(answer.model)}` : '');
  showFaults(answer.faults);
  if (paused) return;
  forgetBefore(answer.oldest);
  revision = answer.revision;
  const known = rows.size;
  answer.exchanges.forEach(showExchange);
  announceNew(rows.size - known);
  for (const number of [...rows.keys()].sort((a, b) => b - a).slice(kRows)) drop(number);
  byId('more').hidden = rows.size < kRows;
  byId('no-requests').hidden = rows.size !== 0;
}

// At most once in a while: under load a reader would hear nothing else.
let announcedAt = -kAnnounceMs;
let unannounced = 0;
function announceNew(count) {
  unannounced += count;
  if (unannounced <= 0 || performance.now() - announcedAt < kAnnounceMs) return;
  announce(plural(unannounced, 'new request'));
  announcedAt = performance.now();
  unannounced = 0;
}

// --- faults --------------------------------------------------------------------------------------

const meets = ({on, path}) =>
  path === '' ? endpoints.get(on) : on === '' ? path : `${endpoints.get(on)}, ${path}`;

function describe(fault) {
  const kind = kinds.get(fault.kind);
  const parts = [];
  if (kind.dataset.said) parts.push(kind.dataset.said.replace('#', fault.number || kind.dataset.zero || 0));
  if (kind.dataset.code) parts.push(`${kind.dataset.code} ${fault.code}`);
  if (kind.dataset.text && fault.text) parts.push(`${kind.dataset.text} “${shorten(fault.text)}”`);
  return kind.text + (parts.length ? `: ${parts.join(', ')}` : '');
}

const shorten = (text) => text.length > 60 ? `${text.slice(0, 60)}…` : text;

function faultItem(fault) {
  const left = fault.times < 0 ? 'until removed' : `${plural(fault.times, 'time')} more`;
  const remove = make('button', '', 'Remove');
  remove.type = 'button';
  remove.dataset.id = fault.id;
  remove.setAttribute('aria-label', `Remove: ${describe(fault)}, ${meets(fault)}`);
  remove.addEventListener('click', () => removeFault(fault));
  return make('li', '', make('div', '', describe(fault),
    make('span', 'muted', `${meets(fault)} · ${left}`)), remove);
}

function showFaults(faults) {
  const now = JSON.stringify(faults);
  if (now === faultsShown) return;
  faultsShown = now;
  const focused = byId('faults').contains(document.activeElement) ? document.activeElement : null;
  byId('faults').replaceChildren(...faults.map(faultItem));
  byId('no-faults').hidden = faults.length !== 0;
  byId('clear-faults').hidden = faults.length < 2;
  if (!focused) return;
  // Whoever works by keyboard stays where they were.
  const buttons = [...byId('faults').querySelectorAll('button')];
  const same = buttons.find((button) => Number(button.dataset.id) >= Number(focused.dataset.id));
  (same || buttons.at(-1) || byId('faults-title')).focus();
}

const removeFault = (fault) =>
  act('DELETE', `faults/${fault.id}`, undefined, `Removed: ${describe(fault)}`);

function fitFields() {
  const {dataset} = byId('kind').selectedOptions[0];
  for (const name of ['number', 'code', 'text']) {
    const field = byId(`${name}-field`);
    field.hidden = !(name in dataset);
    field.querySelector('label').textContent = dataset[name];
    byId(name).disabled = field.hidden;
  }
  const number = byId('number');
  [number.min, number.max, number.value] =
    [dataset.min || 0, dataset.max || Number.MAX_SAFE_INTEGER, dataset.start || ''];
  byId('code').required = !byId('code').disabled;
  byId('path-field').hidden = byId('endpoint').value !== 'path';
  byId('path').required = !byId('path-field').hidden;
}

function faultFromForm() {
  const endpoint = byId('endpoint').value;
  const value = (name) => byId(name).disabled ? '' : byId(name).value;
  return {
    on: endpoint === 'path' ? '' : endpoint,
    path: endpoint === 'path' ? byId('path').value : '',
    kind: byId('kind').value,
    number: Number(value('number')),
    code: value('code'),
    text: value('text'),
    times: Number(value('times')) || -1,
  };
}

// --- requests ------------------------------------------------------------------------------------

function drop(number) {
  rows.get(number).item.remove();
  rows.delete(number);
}

function forgetBefore(number) {
  for (const known of [...rows.keys()]) if (known < number) drop(known);
}

function showExchange(exchange) {
  const row = rows.get(exchange.number) || addRow(exchange.number);
  row.exchange = exchange;
  row.refresh();
  if (isFeedback(exchange)) rows.forEach((other) => { if (isAbout(exchange, other.exchange)) other.refresh(); });
}

// A feedback that was taken, and the query that it is about.
const isFeedback = ({on, traceId}) => on === 'feedback' && Boolean(traceId);
const isAbout = (feedback, query) => query.on === 'query' && query.traceId === feedback.traceId;
const feedbacksOn = (query) => !query.traceId ? [] : [...rows.values()].map((row) => row.exchange)
  .filter((other) => isFeedback(other) && isAbout(other, query));

function addRow(number) {
  const summary = make('summary', '');
  const inside = make('div', 'inside');
  const details = make('details', '', summary, inside);
  const row = {item: make('li', '', details), exchange: {}};
  row.fill = () => inside.replaceChildren(...(details.open ? insideOf(row.exchange) : []));
  row.refresh = () => {
    summary.replaceChildren(...summaryOf(row.exchange));
    row.fill();
  };
  details.addEventListener('toggle', row.fill);
  row.item.dataset.number = number;
  const next = [...byId('requests').children].find((li) => Number(li.dataset.number) < number);
  byId('requests').insertBefore(row.item, next || null);
  rows.set(number, row);
  return row;
}

function summaryOf(exchange) {
  const time = new Date(exchange.timeMs);
  const milliseconds = String(time.getMilliseconds()).padStart(3, '0');
  const badges = exchange.faults.map((fault) => make('span', 'badge odd', `fault: ${fault.kind}`));
  if (exchange.model?.stoppedByLength) badges.push(make('span', 'badge odd', 'stopped by length'));
  const feedbacks = exchange.on === 'query' ? feedbacksOn(exchange).length : 0;
  if (feedbacks > 0) badges.push(make('span', 'badge', plural(feedbacks, 'feedback')));
  return [
    make('span', 'time', `${time.toLocaleTimeString('en-GB')}.${milliseconds}`),
    make('span', 'endpoint', exchange.on ? endpoints.get(exchange.on) : 'unknown endpoint'),
    make('span', 'badges', outcome(exchange), ...badges),
    make('span', 'path', `${exchange.method} ${hideSignature(exchange.path)}`),
  ];
}

// The gateway refuses with status 200: what counts is the answer's own code.
function outcome({on, tookMs, answer}) {
  if (tookMs === undefined) return make('span', 'badge', 'under way');
  if (!answer) return make('span', 'badge bad', 'no answer');
  if (answer.status !== 200) return make('span', 'badge bad', `${answer.status}`);
  if (answer.sent < answer.body.size) return make('span', 'badge bad', '200, cut short');
  const isWhole = answer.body.shown === answer.body.size;
  if (answer.body.size === 0 || !isWhole) return make('span', 'badge good', '200');
  const parsed = parse(answer.body.text);
  if (parsed === undefined) return make('span', 'badge bad', '200, not JSON');
  const code = parsed && parsed.errorCode;
  // A probe asks whether anybody is there: any answer says so.
  if (on === 'probe' && typeof code === 'string') return make('span', 'badge good', '200, reached');
  return typeof code === 'string' && code !== '0' ? make('span', 'badge odd', `200, refused: ${code}`)
    : make('span', 'badge good', '200');
}

function parse(text) {
  try {
    return JSON.parse(text);
  } catch (error) {
    return undefined;
  }
}

function insideOf(exchange) {
  const {number, connection, tookMs, headers, body, faults, answer, traceId, model} = exchange;
  const took = tookMs === undefined ? 'no answer yet' : `${tookMs} ms`;
  const parts = [make('p', 'took', `request ${number}, connection ${connection}, ${took}`)];
  if (traceId) parts.push(make('p', 'took', 'trace id ', make('bdi', '', traceId)));
  for (const fault of faults) parts.push(make('p', '', `Fault: ${describe(fault)}`));
  if (model) parts.push(...modelParts(model));
  if (exchange.on === 'query') parts.push(...feedbacksOn(exchange).map(feedbackPart));
  parts.push(...message('Request', headers, body));
  if (answer) parts.push(...message('Answer', answer.headers, answer.body));
  if (answer && answer.sent < answer.body.size)
    parts.push(make('p', 'muted', `Of the body the client got ${answer.sent} of ${answer.body.size} bytes.`));
  if (!answer && tookMs !== undefined)
    parts.push(make('h3', '', 'Answer'), make('p', 'muted', 'None: the fault came in its place.'));
  return parts;
}

function modelParts({name, prompt, answer, tookMs, promptTokens, answerTokens, stoppedByLength}) {
  const counts = [[promptTokens, 'of the prompt'], [answerTokens, 'of the answer']]
    .filter(([count]) => count !== undefined).map(([count, what]) => `${plural(count, 'token')} ${what}`);
  return [
    ...textParts('Prompt as rendered', prompt, prompt.text),
    ...textParts('Model’s answer', answer, answer.text),
    make('p', 'took', [`model ${name}`, `${tookMs} ms`, ...counts].join(', ') +
      (stoppedByLength ? ', stopped by length' : '')),
  ];
}

function feedbackPart({number, traceId, body}) {
  const told = parse(body.text) || {};
  return make('p', '', `Feedback, request ${number}, on trace id `, make('bdi', '', traceId),
    `: satisfaction ${told.satisfactionType ?? '…'}, type ${told.feedbackType ?? '…'}, `,
    make('bdi', '', `“${told.feedbackDescription ?? '…'}”`));
}

function message(title, headers, body) {
  const parts = textParts(title, body, body.text === undefined ? undefined : hideSecrets(body.text), ' body');
  const lines = headers.map(([name, value]) => `${name}: ${hideHeader(name, value)}`).join('\n');
  if (lines) parts.push(make('details', '', make('summary', '', `${title} headers`), make('pre', '', lines)));
  return parts;
}

// A text, or bytes that are none, under its title and with its whole length.
function textParts(title, {size, shown, hex}, text, label = '') {
  const parts = [make('h3', '', `${title}, ${plural(size, 'byte')}`)];
  if (size > 0) {
    const block = make('pre', '', text === undefined ? hexLines(hex) : text);
    block.tabIndex = 0;  // a long one scrolls
    block.dir = 'auto';  // as its first letter is written
    block.setAttribute('role', 'group');
    block.setAttribute('aria-label', `${title}${label}`);
    parts.push(block);
  }
  if (shown < size)
    parts.push(make('p', 'muted', `Shown are the first ${shown} of ${size} bytes` +
      (text === undefined ? ', in hexadecimal.' : '.')));
  return parts;
}

const hexLines = (hex) => hex.replace(/../g, '$& ').replace(/(.{48})/g, '$1\n').trim();

// --- secrets -------------------------------------------------------------------------------------

const showsSecrets = () => byId('secrets').checked;
const hideSignature = (text) => showsSecrets() ? text
  : text.replace(/([?&]signature=)[0-9a-fA-F]+/g, `$1${kSecret}`);

function hideHeader(name, value) {
  if (showsSecrets() || !/^(proxy-)?authorization$|^cookie$/i.test(name)) return value;
  return value.replace(/^([a-z]+ +)?.*$/is, `$1${kSecret}`);
}

// Where a body is not whole JSON, nobody can tell where a secret ends.
function hideSecrets(text) {
  if (showsSecrets()) return text;
  const hidden = parse(text) === undefined
    ? text.replace(/((?:secretKey|accessToken)\W*)[\s\S]*/, `$1${kSecret}`)
    : text.replace(/("(?:secretKey|accessToken)\\*"\s*:\s*\\*")(?:[^"\\]|\\[\s\S])*/g, `$1${kSecret}`);
  return hideSignature(hidden);
}

// --- what the user does --------------------------------------------------------------------------

byId('kind').addEventListener('change', fitFields);
byId('endpoint').addEventListener('change', fitFields);
byId('add').addEventListener('submit', (event) => {
  event.preventDefault();
  act('POST', 'faults', JSON.stringify(faultFromForm()), 'Fault added');
});
byId('clear-faults').addEventListener('click', async () => {
  if (await act('DELETE', 'faults', undefined, 'All faults removed')) byId('faults-title').focus();
});
byId('expire').addEventListener('click',
  () => act('POST', 'expire-tokens', '', 'All tokens handed out so far are rejected'));
byId('clear').addEventListener('click',
  () => act('DELETE', 'requests', undefined, 'All requests forgotten'));
byId('pause').addEventListener('click', () => {
  paused = !paused;
  byId('pause').setAttribute('aria-pressed', paused);
  refresh();
});
byId('secrets').addEventListener('change', () => {
  for (const row of rows.values()) showExchange(row.exchange);
});

fitFields();
byId('adding').open = matchMedia('(min-width: 60rem)').matches;
watch();
