// The operator console of kelmor-show. It speaks the runner's own language:
// every button sends ordinary show steps over the WebSocket, and the page
// shows the runner's event lines and the answers of the "state" step.
// Messages from the runner are JSON lines (one or more per text message);
// binary messages are screen thumbnails: a 4-byte screen id, then a JPEG.
'use strict';

(() => {
  const STATE_EVERY_MS = 1000;
  const LOG_MAX = 1000;

  const params = new URLSearchParams(location.search);
  const token = params.get('token');
  // ?thumbnails=0: no screen pictures (a slow link); the still still works.
  const thumbnails = params.get('thumbnails') !== '0';
  const $ = (id) => document.getElementById(id);
  const el = (tag, props = {}, ...children) => {
    const node = document.createElement(tag);
    for (const [k, v] of Object.entries(props)) {
      if (k === 'dataset') Object.assign(node.dataset, v);
      else if (k === 'class') node.className = v;
      else if (k.startsWith('on')) node.addEventListener(k.slice(2), v);
      else node[k] = v;
    }
    for (const c of children) node.append(c);
    return node;
  };

  // Counters for tests and benchmarks (read with page.evaluate).
  const stats = { thumbnails: 0, events: 0, messages: 0, states: 0, dropped: 0, received: [] };
  window.kelmorConsole = { stats, sendSteps: (lines) => sendSteps(lines) };

  let ws = null;
  let nextLine = 1;            // the runner numbers each line this page sends
  const pending = new Map();   // line -> callback(reply)
  let stateAsked = false;
  let layers = new Map();      // "bank/layer" -> layer object of the last state
  let screens = new Map();     // id -> screen object of the last state
  const thumbUrls = new Map(); // screen id -> object URL shown

  // ---- connection ----

  function connect() {
    const query = new URLSearchParams();
    if (token) query.set('token', token);
    if (!thumbnails) query.set('thumbnails', '0');
    ws = new WebSocket(`ws://${location.host}/ws${query.toString() ? '?' + query : ''}`);
    ws.binaryType = 'arraybuffer';
    ws.onopen = () => setConnection(true);
    ws.onclose = (e) => {
      setConnection(false, e.reason || 'closed');
      for (const [, cb] of pending) cb({ error: 'connection closed' });
      pending.clear();
      stateAsked = false;
      nextLine = 1; // a new connection is a new source
      setTimeout(connect, 2000);
    };
    ws.onmessage = (e) => {
      stats.messages++;
      if (typeof e.data === 'string') {
        for (const text of e.data.split('\n')) {
          if (!text) continue;
          let line;
          try { line = JSON.parse(text); } catch { continue; }
          dispatch(line, text);
        }
      } else {
        showThumbnail(e.data);
      }
    };
  }

  function setConnection(online, why) {
    const badge = $('connection');
    badge.textContent = online ? 'connected' : `offline${why ? ': ' + why : ''}`;
    badge.className = `badge ${online ? 'online' : 'offline'}`;
  }

  /// Sends step lines in one message (so they run in the same turn of the
  /// runner); `onReply(line, reply)` gets each answer.
  function sendSteps(lines, onReply) {
    if (!ws || ws.readyState !== WebSocket.OPEN) return false;
    const texts = lines.map((l) => (typeof l === 'string' ? l : JSON.stringify(l)));
    for (const t of texts) {
      const number = nextLine++;
      pending.set(number, (reply) => onReply && onReply(t, reply));
    }
    ws.send(texts.join('\n'));
    return true;
  }

  function dispatch(line, text) {
    if ('ok' in line || 'error' in line) {
      if ('line' in line && pending.has(line.line)) {
        const cb = pending.get(line.line);
        pending.delete(line.line);
        cb(line);
      } else if (!('line' in line)) {
        log(text, 'host'); // a refusal that answers no step
      }
      return;
    }
    if ('console' in line) {
      if (line.console === 'hello') askState();
      if (line.console === 'dropped') { stats.dropped += line.events; askState(); }
      log(text, 'host');
      return;
    }
    if ('event' in line) {
      stats.events++;
      stats.received.push([line.event, performance.timeOrigin + performance.now(), text]);
      if (stats.received.length > 5000) stats.received.splice(0, 1000);
      onEvent(line);
      log(text, line.event === 'sPositionChanged' ? 'position' : 'event');
      return;
    }
    if ('host' in line) log(text, 'host');
  }

  // ---- state ----

  function askState() {
    if (stateAsked) return;
    if (sendSteps([{ op: 'state' }], (_, reply) => {
      stateAsked = false;
      if (reply.ok === 'state') applyState(reply);
    })) stateAsked = true;
  }
  setInterval(askState, STATE_EVERY_MS);

  function applyState(state) {
    stats.states++;
    layers = new Map(state.layers.map((l) => [`${l.bankId}/${l.layerId}`, l]));
    screens = new Map(state.screens.map((s) => [s.id, s]));
    renderLayers(state.layers);
    renderScreens(state.screens);
    renderProgress(state.sources);
  }

  function onEvent(e) {
    if (e.event === 'sPositionChanged') {
      const l = layers.get(`${e.bankId}/${e.layerId}`);
      if (l) { l.position = e.position; updatePosition(l); }
    } else {
      askState(); // loads, ends, fades, ready banks change the rows
    }
  }

  // ---- layers ----

  const ms = (v) => {
    const s = Math.max(0, v) / 1000;
    return `${Math.floor(s / 60)}:${(s % 60).toFixed(1).padStart(4, '0')}`;
  };
  const layerRef = (l) => ({ bank: l.bankId, layer: l.layerId });
  const fadeMs = () => Math.max(0, Math.min(600000, parseInt($('fade-ms').value, 10) || 0));

  function act(l, action) {
    const ref = layerRef(l);
    const steps = {
      ready: [{ op: 'playReady', args: [ref, 0, true] }],
      play: [{ op: 'play', args: [ref] }],
      pause: [{ op: 'pause', args: [ref] }],
      // The service's stop leaves a clip where it stands; the operator's
      // stop goes back to the start, held.
      stop: [{ op: 'stop', args: [ref] }, { op: 'setPosition', args: [l.bankId, l.layerId, 0] }],
      fadeIn: [{ op: 'setFadeInOut', args: [ref, false, fadeMs()] }],
      fadeOut: [{ op: 'setFadeInOut', args: [ref, true, fadeMs()] }],
    }[action];
    sendSteps(steps, stepAnswered);
  }

  function stepAnswered(text, reply) {
    if (reply.error) log(`${text} -> ${JSON.stringify(reply)}`, 'host');
    askState();
  }

  function bankAct(bankId, action) {
    const rows = [...layers.values()].filter((l) => l.bankId === bankId);
    if (!rows.length) return;
    const steps = action === 'readyAll'
      ? [{ op: 'setCurPlayerCount', args: [bankId] },
         ...rows.map((l) => ({ op: 'playReady', args: [layerRef(l), 0, true] }))]
      : rows.map((l) => ({ op: 'play', args: [layerRef(l)] }));
    sendSteps(steps, stepAnswered); // one message: one turn, one output frame
  }

  const rowsByKey = new Map(); // "bank/layer" -> its <tr>, kept across states
  const bankRows = new Map();  // bank id -> its <tr>

  function renderLayers(list) {
    const body = $('layers').tBodies[0];
    const wanted = [];
    const keys = new Set();
    let bank = null;
    for (const l of list) {
      if (l.bankId !== bank) {
        bank = l.bankId;
        if (!bankRows.has(bank)) bankRows.set(bank, bankRow(bank));
        wanted.push(bankRows.get(bank));
      }
      const key = `${l.bankId}/${l.layerId}`;
      keys.add(key);
      if (!rowsByKey.has(key)) rowsByKey.set(key, layerRow(key));
      const row = rowsByKey.get(key);
      updateRow(row, l);
      wanted.push(row);
    }
    for (const key of [...rowsByKey.keys()]) if (!keys.has(key)) rowsByKey.delete(key);
    for (const b of [...bankRows.keys()]) if (!list.some((l) => l.bankId === b)) bankRows.delete(b);
    if (!wanted.length) wanted.push(el('tr', { class: 'empty' }, el('td', { colSpan: 8 }, 'No layer yet.')));
    // Rows stay the same elements: only their order and text change, so a
    // click or a slider in progress is never lost to a refresh.
    const current = [...body.children];
    if (current.length !== wanted.length || current.some((r, i) => r !== wanted[i])) body.replaceChildren(...wanted);
  }

  function bankRow(b) {
    return el('tr', { class: 'bank', dataset: { bank: b } },
      el('td', { colSpan: 8 }, `bank ${b} `,
        el('button', { dataset: { action: 'readyAll' }, onclick: () => bankAct(b, 'readyAll') }, 'ready all'), ' ',
        el('button', { dataset: { action: 'playAll' }, onclick: () => bankAct(b, 'playAll') }, 'play all')));
  }

  function layerRow(key) {
    const current = () => layers.get(key);
    const button = (action, label) => el('button', { dataset: { action }, onclick: () => current() && act(current(), action) }, label);
    const bar = el('div', { class: 'bar' });
    const pos = el('div', { class: 'pos' });
    const progress = el('div', {
      class: 'progress', title: 'click to seek',
      onclick: (e) => {
        const cur = current();
        if (!cur || !(cur.duration > 0)) return;
        const r = progress.getBoundingClientRect();
        const at = Math.round(Math.max(0, Math.min(1, (e.clientX - r.left) / r.width)) * cur.duration);
        sendSteps([{ op: 'setPosition', args: [cur.bankId, cur.layerId, at] }], stepAnswered);
      },
    }, bar, pos);
    const volumeText = el('span');
    const volume = el('input', {
      type: 'range', min: 0, max: 100, step: 1,
      oninput: () => { volumeText.textContent = `${volume.value}%`; },
      onchange: () => {
        const cur = current();
        if (cur) sendSteps([{ op: 'setVolumeState', args: [cur.layerId, cur.bankId, { effectType: 7603, volume: Number(volume.value) }] }], stepAnswered);
      },
    });
    const [bankId, layerId] = key.split('/');
    const row = el('tr', { class: 'layer', dataset: { key, bank: bankId, layer: layerId } },
      el('td', {}, `${bankId} / ${layerId}`),
      el('td', { class: 'media' }, el('span', { class: 'type' }), el('span', { class: 'file' })),
      el('td', {}, el('span', { class: 'state' })),
      el('td', {}, progress),
      el('td', { class: 'repeat' }),
      el('td', { class: 'volume' }, volume, volumeText),
      el('td', { class: 'fade' }),
      el('td', { class: 'actions' },
        button('ready', 'ready'), ' ', button('play', 'play'), ' ', button('pause', 'pause'), ' ',
        button('stop', 'stop'), ' ', button('fadeIn', 'fade in'), ' ', button('fadeOut', 'fade out')));
    row.parts = { bar, pos, volume, volumeText };
    return row;
  }

  function updateRow(row, l) {
    const q = (sel) => row.querySelector(sel);
    q('td.media').title = l.path;
    q('.type').textContent = l.type;
    q('.file').textContent = l.path.split('/').pop();
    const state = q('.state');
    state.textContent = l.state;
    state.className = `state ${l.state}`;
    row.dataset.state = l.state;
    q('td.repeat').textContent = l.repeat < 0 ? '∞' : String(l.repeat);
    q('td.fade').textContent = l.fade ? `${l.fade} ${Math.round(l.opacity * 100)}%` : '';
    if (document.activeElement !== row.parts.volume) {
      row.parts.volume.value = Math.round(l.volume);
      row.parts.volumeText.textContent = `${Math.round(l.volume)}%`;
    }
    fillPosition(row, l);
  }

  function fillPosition(row, l) {
    const f = l.duration > 0 ? Math.max(0, Math.min(1, l.position / l.duration)) : 0;
    row.parts.bar.style.width = `${(f * 100).toFixed(1)}%`;
    row.parts.pos.textContent = `${ms(l.position)} / ${ms(l.duration)}`;
    row.dataset.position = String(l.position);
  }

  function updatePosition(l) {
    const row = rowsByKey.get(`${l.bankId}/${l.layerId}`);
    if (row) fillPosition(row, l);
  }

  // ---- screens ----

  function renderScreens(list) {
    const box = $('screens');
    const ids = new Set(list.map((s) => s.id));
    for (const node of [...box.querySelectorAll('.screen')]) {
      if (!ids.has(Number(node.dataset.screen))) node.remove();
    }
    box.querySelector('.empty')?.remove();
    if (!list.length) box.replaceChildren(el('p', { class: 'empty' }, 'No screen is open.'));
    for (const s of list) {
      let node = box.querySelector(`.screen[data-screen="${s.id}"]`);
      if (!node) {
        node = screenBox(s);
        box.append(node);
      }
      const pattern = node.querySelector('input[type=checkbox]');
      const bright = node.querySelector('input[type=range]');
      if (document.activeElement !== pattern) pattern.checked = !!(s.testPattern === true || s.testPattern === 'true' || Number(s.testPattern) > 0);
      if (document.activeElement !== bright) bright.value = Number(s.brightness) || 0;
      node.querySelector('.size').textContent = `${s.width}×${s.height}`;
    }
  }

  function screenBox(s) {
    const id = s.id;
    const img = el('img', { class: 'thumb', alt: `screen ${id}`, dataset: { screen: id }, onclick: () => openStill(id) });
    const setTP = (change) => {
      const cur = screens.get(id) || s;
      const record = Object.assign({}, cur.effects || {}, change);
      sendSteps([{ op: 'setTP', args: [id, record] }], stepAnswered);
    };
    const pattern = el('input', { type: 'checkbox', onchange: () => setTP({ testPattern: pattern.checked }) });
    const bright = el('input', { type: 'range', min: -1, max: 1, step: 0.05, value: 0,
      onchange: () => setTP({ brightness: Number(bright.value) }) });
    return el('div', { class: 'screen', dataset: { screen: id } },
      img,
      el('div', { class: 'controls' }, el('strong', {}, `screen ${id}`), el('span', { class: 'size' }),
        el('label', {}, pattern, ' test pattern'), el('label', {}, 'brightness ', bright)));
  }

  function showThumbnail(buffer) {
    if (buffer.byteLength < 5) return;
    const id = new DataView(buffer).getUint32(0);
    stats.thumbnails++;
    const img = document.querySelector(`img.thumb[data-screen="${id}"]`);
    if (!img) return;
    const url = URL.createObjectURL(new Blob([buffer.slice(4)], { type: 'image/jpeg' }));
    const old = thumbUrls.get(id);
    img.onload = () => { if (old) URL.revokeObjectURL(old); };
    thumbUrls.set(id, url);
    img.src = url;
  }

  function openStill(id) {
    const still = $('still');
    still.src = `still/${id}.png?${token ? 'token=' + encodeURIComponent(token) + '&' : ''}at=${Date.now()}`;
    $('still-dialog').showModal();
  }

  // ---- progress of the show ----

  function renderProgress(sources) {
    const parts = [];
    for (const s of sources) {
      if (s.name.startsWith('console#')) continue;
      let text = `${s.name}: step ${s.steps}${s.of >= 0 ? '/' + s.of : ''}`;
      if (s.waiting) {
        const w = s.waiting;
        text += ` — ${w.op}${w.signal ? ' ' + w.signal : ''}${w.args && Object.keys(w.args).length ? ' ' + JSON.stringify(w.args) : ''} (line ${w.line}, ${(w.ms / 1000).toFixed(1)} s)`;
      }
      parts.push(text);
    }
    $('progress').textContent = parts.length ? parts.join(' · ') : 'no show file or stdin running: live control';
  }

  // ---- event log ----

  function log(text, kind) {
    const list = $('log');
    const item = el('li', { class: kind }, text);
    item.dataset.kind = kind;
    applyFilter(item);
    list.prepend(item);
    while (list.childElementCount > LOG_MAX) list.lastElementChild.remove();
  }

  function applyFilter(item) {
    const filter = $('log-filter').value.trim().toLowerCase();
    const positions = $('log-positions').checked;
    const hide = (item.dataset.kind === 'position' && !positions)
      || (filter && !item.textContent.toLowerCase().includes(filter));
    item.classList.toggle('hidden', hide);
  }

  function refilter() {
    for (const item of $('log').children) applyFilter(item);
  }

  // ---- the step box ----

  function sendTyped(e) {
    e.preventDefault();
    const text = $('step-input').value.trim();
    const out = $('step-reply');
    if (!text) return;
    const lines = text.split('\n').map((l) => l.trim()).filter((l) => l);
    out.className = '';
    out.textContent = '';
    const ok = sendSteps(lines, (sent, reply) => {
      out.textContent += `${JSON.stringify(reply)}\n`;
      out.className = reply.error ? 'error' : 'ok';
    });
    if (!ok) { out.textContent = 'not connected'; out.className = 'error'; }
  }

  document.addEventListener('DOMContentLoaded', () => {
    $('step-form').addEventListener('submit', sendTyped);
    $('step-input').addEventListener('keydown', (e) => {
      if (e.key === 'Enter' && (e.ctrlKey || e.metaKey)) sendTyped(e);
    });
    $('log-filter').addEventListener('input', refilter);
    $('log-positions').addEventListener('change', refilter);
    $('log-clear').addEventListener('click', () => $('log').replaceChildren());
    connect();
  });
})();
