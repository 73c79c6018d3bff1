// The route cards: each button describes one request in its data attributes; the answer is shown below it.
'use strict';

const usualHeaders = ['content-type', 'content-length', 'content-range', 'etag', 'cache-control', 'allow', 'location'];
const excerptLength = 600;

function element(name, className, text) {
    const made = document.createElement(name);
    if (className) made.className = className;
    if (text !== undefined) made.textContent = text;
    return made;
}

function requestOf(button) {
    const { url, method = 'GET', range, accept, form = 'name=A+visitor&entry=Good+morning' } = button.dataset;
    const headers = {};
    if (range) headers['Range'] = range;
    if (accept) headers['Accept'] = accept;
    const request = { url, method, headers };
    if (method === 'POST') {
        headers['Content-Type'] = 'application/x-www-form-urlencoded';
        request.body = form;
    }
    return request;
}

function send({ url, ...options }) {
    return fetch(url, { cache: 'no-store', redirect: 'manual', ...options });
}

// The file's entity tag has to be known before it can be sent back.
async function addCondition(request) {
    const first = await send(request);
    await first.arrayBuffer();
    const tag = first.headers.get('ETag');
    if (tag) request.headers['If-None-Match'] = tag;
}

function describeRequest(request) {
    const shown = Object.entries(request.headers).filter(([name]) => name !== 'Content-Type');
    return [`${request.method} ${request.url}`, ...shown.map(([name, value]) => `${name}: ${value}`)].join('  ·  ');
}

function excerpt(bytes) {
    const text = new TextDecoder().decode(bytes.slice(0, excerptLength * 3)).slice(0, excerptLength);
    return bytes.byteLength > text.length && text.length === excerptLength ? text + ' …' : text;
}

// Scripts are not told the status of a redirect, nor where it leads.
const statusOf = response => response.type === 'opaqueredirect' ? 'redirect' : response.status;

function show(output, request, response, bytes, all) {
    const line = element('div', 'line');
    line.append(element('span', '', describeRequest(request)),
        element('span', response.status >= 400 ? 'status refused' : 'status', statusOf(response)));
    const list = element('dl');
    const names = all ? [...response.headers.keys()] : usualHeaders.filter(name => response.headers.has(name));
    for (const name of names) list.append(element('dt', '', name), element('dd', '', response.headers.get(name)));
    list.append(element('dt', '', 'received'), element('dd', '', `${bytes.byteLength.toLocaleString('en')} bytes`));
    output.replaceChildren(line, list);
    if (bytes.byteLength > 0 && !all) {
        const body = element('pre', '', excerpt(bytes));
        body.tabIndex = 0;
        output.append(body);
    }
}

async function tryRequest(button, output) {
    for (const other of button.parentElement.children) other.setAttribute('aria-pressed', String(other === button));
    const request = requestOf(button);
    try {
        if (button.dataset.conditional) await addCondition(request);
        const response = await send(request);
        const bytes = await response.arrayBuffer();
        if (button.getAttribute('aria-pressed') === 'true') {
            show(output, request, response, bytes, Boolean(button.dataset.all));
        }
    } catch (error) {
        const line = element('div', 'line');
        line.append(element('span', '', describeRequest(request)), element('span', 'status refused', 'no answer'));
        output.replaceChildren(line, element('pre', '', String(error)));
    }
}

for (const card of document.querySelectorAll('.card')) {
    const output = card.querySelector('.answer');
    const buttons = card.querySelectorAll('.tries button');
    for (const button of buttons) button.addEventListener('click', () => tryRequest(button, output));
    tryRequest(buttons[0], output);
}
