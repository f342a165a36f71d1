'use strict';

const POINTS = 60; // seconds that a sparkline shows
const LINES = 500; // of traffic that stay on the page
const PAUSE = 20; // milliseconds after which bytes begin a new line
const byId = (id) => document.getElementById(id);
const history = new Map(); // of each port and way: the total at the last look, and the bytes of each second
let chosen = null; // {device, port} whose traffic is shown
let after = 0; // bytes of it that are shown already
let last = null; // line of the traffic that may go on

function element(kind, text, className) {
  const made = document.createElement(kind);
  made.textContent = text;
  if (className) made.className = className;
  return made;
}

function bytes(count) {
  for (const [limit, unit] of [[1e9, 'GB'], [1e6, 'MB'], [1e3, 'kB']]) {
    if (count >= limit) return (count / limit).toFixed(1) + ' ' + unit;
  }
  return count + ' B';
}

function sparkline(key, total) {
  const known = history.get(key) || { total: total, rates: [] };
  known.rates.push(Math.max(0, total - known.total)); // a port that has started anew counts from 0
  known.total = total;
  known.rates = known.rates.slice(-POINTS);
  history.set(key, known);
  const most = Math.max(1, ...known.rates);
  const made = document.createElementNS('http://www.w3.org/2000/svg', 'svg');
  made.setAttribute('viewBox', '0 0 ' + (POINTS - 1) + ' 22');
  made.setAttribute('preserveAspectRatio', 'none');
  const line = document.createElementNS('http://www.w3.org/2000/svg', 'polyline');
  const first = POINTS - known.rates.length;
  line.setAttribute('points', known.rates.map((rate, i) => (first + i) + ',' + (21 - 20 * rate / most)).join(' '));
  made.append(line);
  const title = document.createElementNS('http://www.w3.org/2000/svg', 'title');
  title.textContent = bytes(known.rates[known.rates.length - 1]) + '/s now, ' + bytes(most) + '/s at most';
  made.append(title);
  return made;
}

function way(row, key, ledger) {
  row.append(element('td', bytes(ledger.delivered), 'number'));
  row.insertCell().append(sparkline(key, ledger.delivered));
  row.append(element('td', bytes(ledger.lost), ledger.lost ? 'number bad' : 'number'));
}

function link(device, port) {
  return '#' + encodeURIComponent(device) + '/' + encodeURIComponent(port);
}

function portRow(device, port) {
  const row = element('tr', '', 'port');
  const key = device.name + '/' + port.port;
  const name = element('a', port.port);
  name.href = link(device.name, port.port);
  row.insertCell().append(name);
  row.append(element('td', port.host));
  row.append(port.runs ? element('td', 'runs', 'good') : element('td', port.error || 'waits', 'bad'));
  row.append(element('td', port.line || '-'));
  row.append(element('td', port.clients ? port.clients.now : '-', 'number'));
  way(row, key + '>', port.to_device);
  way(row, key + '<', port.from_device);
  row.append(element('td', port.last_traffic ? new Date(port.last_traffic * 1000).toLocaleTimeString() : '-'));
  row.addEventListener('click', () => { location.hash = name.getAttribute('href'); });
  if (chosen && chosen.device === device.name && chosen.port === port.port) {
    row.classList.add('chosen');
    byId('terminal').hidden = !port.terminal;
  }
  return row;
}

function show(status) {
  byId('name').textContent = status.name;
  document.title = status.name + ' - KySerial';
  const rows = [];
  for (const device of status.devices) {
    const row = element('tr', '', 'device');
    const cell = element('td', device.name + (device.name === device.device ? '' : ' (' + device.device + ')') + ': ');
    cell.colSpan = 12;
    cell.append(element('span', device.connected ? 'connected' : device.error || 'away', device.connected ? 'good' : 'bad'));
    row.append(cell);
    rows.push(row, ...device.ports.map((port) => portRow(device, port)));
  }
  byId('ports').replaceChildren(...rows);
}

function question(path, more) {
  return path + '?' + new URLSearchParams({ ...chosen, ...more });
}

function fill(line) {
  const hex = line.codes.map((code) => code.toString(16).padStart(2, '0')).join(' ');
  const text = line.codes.map((code) => (code > 31 && code < 127 ? String.fromCharCode(code) : '.')).join('');
  line.element.textContent = line.time + ' ' + (line.toDevice ? '>' : '<') + ' ' + hex.padEnd(49) + text;
}

// Lines of sixteen bytes; another direction or a pause begins a new one.
function addBlock(block) {
  const milliseconds = block.time / 1000;
  if (last && (last.toDevice !== block.to_device || milliseconds - last.since > PAUSE)) last = null;
  for (const digits of block.hex.split(' ')) {
    if (!last || last.codes.length === 16) {
      const time = new Date(milliseconds).toISOString().slice(11, 23);
      last = { toDevice: block.to_device, codes: [], time: time };
      last.element = element('div', '', block.to_device ? 'to' : 'from');
      byId('traffic').append(last.element);
    }
    last.since = milliseconds;
    last.codes.push(parseInt(digits, 16));
    fill(last);
  }
}

async function showTraffic() {
  const asked = chosen;
  if (!asked) return;
  const reply = await fetch(question('traffic', { after: after }));
  const traffic = reply.ok ? await reply.json() : null;
  if (!traffic || asked !== chosen) return;
  const list = byId('traffic');
  const isAtEnd = list.scrollTop + list.clientHeight >= list.scrollHeight - 4;
  after = traffic.next;
  traffic.blocks.forEach(addBlock);
  while (list.childElementCount > LINES) list.firstElementChild.remove();
  if (isAtEnd) list.scrollTop = list.scrollHeight;
}

async function send(event) {
  event.preventDefault();
  const codes = { r: '\r', n: '\n', t: '\t', '\\': '\\' };
  const text = byId('text').value.replace(/\\(x[0-9a-fA-F]{2}|[rnt\\])/g,
    (all, code) => (code[0] === 'x' ? String.fromCharCode(parseInt(code.slice(1), 16)) : codes[code]));
  const characters = [...(text + byId('end').value)].map((character) => character.codePointAt(0));
  const answer = byId('answer');
  answer.className = 'bad';
  if (characters.some((code) => code > 255)) {
    answer.textContent = 'only characters of one byte can be sent';
    return;
  }
  try {
    const reply = await fetch(question('send', {}), {
      method: 'POST', body: Uint8Array.from(characters), headers: { 'X-KySerial-Token': byId('token').value },
    });
    answer.textContent = reply.ok ? '' : await reply.text();
    if (reply.ok) byId('text').value = '';
  } catch (error) {
    answer.textContent = 'the service does not answer, or the token has other characters than ASCII';
  }
}

function choose() {
  const [device, port] = location.hash.slice(1).split('/').map(decodeURIComponent);
  chosen = port ? { device: device, port: port } : null;
  after = 0;
  last = null;
  byId('traffic').replaceChildren();
  byId('terminal').hidden = true;
  byId('answer').textContent = '';
  byId('detail').hidden = !chosen;
  byId('title').textContent = chosen ? device + ' ' + port : '';
}

async function update() {
  const connection = byId('connection');
  try {
    const reply = await fetch('status');
    show(await reply.json());
    connection.textContent = 'live';
    connection.className = 'good';
  } catch (error) {
    connection.textContent = 'the service does not answer';
    connection.className = 'bad';
  }
}

// One question after the other: a slow service is not asked faster than it answers.
async function repeat(action, pause) {
  for (;;) {
    await action().catch(() => undefined); // update() says that the service does not answer
    await new Promise((done) => setTimeout(done, pause));
  }
}

byId('terminal').addEventListener('submit', send);
window.addEventListener('hashchange', choose);
choose();
repeat(update, 1000);
repeat(showTraffic, 300);
