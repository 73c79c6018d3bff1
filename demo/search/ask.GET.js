// Searching as you type: the newest query's documents, best first.
'use strict';

const form = document.getElementById('ask');
const field = document.getElementById('q');
const count = document.getElementById('count');
const found = document.getElementById('found');
const hints = document.getElementById('hints');
const pause = 150;  // milliseconds without a key until the query is sent
const most = 20;    // MAXRESULTS of the search file
let waiting;
let asking;

function element(name, text, className) {
    const made = document.createElement(name);
    if (text) made.textContent = text;
    if (className) made.className = className;
    return made;
}

// The summary's text is plain; its matched words stand between these two characters.
function withMarks(summary) {
    return summary.split(/\u2068([^\u2069]*)\u2069/).map((part, i) => i % 2 ? element('mark', part) : part);
}

// A path as it is on disk: each of its segments becomes part of an address.
const addressOf = path => path.split('/').map(encodeURIComponent).join('/');

function sizeOf(bytes) {
    if (bytes < 1024) return `${bytes} bytes`;
    const kilobytes = bytes / 1024;
    return kilobytes < 1024 ? `${Math.round(kilobytes)} KB` : `${(kilobytes / 1024).toFixed(1)} MB`;
}

function dateOf(text) {
    const date = element('time', new Date(text).toLocaleDateString('en-GB', { dateStyle: 'medium', timeZone: 'UTC' }));
    date.dateTime = text;
    return date;
}

function factsOf(item) {
    const facts = element('p', '', 'facts');
    if (item['System.Author']) facts.append(`by ${item['System.Author']} · `);
    facts.append(sizeOf(Number(item['System.Size'])), ' · changed ', dateOf(item['System.DateModified']));
    return facts;
}

function entryOf(item) {
    const path = item['System.ItemUrl'];
    const link = element('a', item['System.Title'] || item['System.ItemName']);
    link.href = addressOf(path);
    const summary = element('p', '', 'summary');
    summary.dir = 'auto';
    summary.append(...withMarks(item['System.Search.AutoSummary'] ?? ''));
    const entry = element('li');
    entry.append(link, element('p', path, 'where'), summary, factsOf(item));
    return entry;
}

function show(query, items) {
    found.replaceChildren(...items.map(entryOf));
    count.className = '';
    if (items.length === 0) count.textContent = `Nothing is found for ${query}`;
    else if (items.length === 1) count.textContent = 'One document';
    else count.textContent = items.length < most ? `${items.length} documents` : `The ${most} best documents`;
    hints.hidden = items.length > 0;
}

function showNothing(told, className = '') {
    found.replaceChildren();
    count.className = className;
    count.textContent = told;
    hints.hidden = false;
}

function showTheWayIn() {
    showNothing('');
    const link = element('a', 'Sign in');
    link.href = '/account';
    count.append('You are signed out. ', link, ' to search.');
}

/// Null for who is not signed in any more: strangers are sent to the hall.
async function itemsOf(query, signal) {
    // A blank is sent as %20: in a parameter "+" stands for itself.
    const response = await fetch(`/search/find?q=${encodeURIComponent(query)}`,
        { headers: { Accept: 'application/json' }, signal });
    if (response.redirected) return null;
    if (!response.ok) throw new Error(`answered with ${response.status}`);
    return response.json();
}

/// Asks for what is in the field; an answer that was overtaken is dropped.
async function ask() {
    clearTimeout(waiting);
    asking?.abort();
    const query = field.value.trim();
    history.replaceState(null, '', query ? `?q=${encodeURIComponent(query)}` : location.pathname);
    const mine = asking = query ? new AbortController() : null;
    form.setAttribute('aria-busy', query !== '');
    if (!mine) return showNothing('');
    try {
        const items = await itemsOf(query, mine.signal);
        if (mine === asking) (items ? show(query, items) : showTheWayIn());
    } catch (error) {
        if (mine === asking) showNothing(`The search failed: ${error.message}.`, 'refused');
    }
    if (mine === asking) form.setAttribute('aria-busy', 'false');
}

// Arrows lead from the field through the documents and back, Escape back at once.
function move(event) {
    const stops = [field, ...found.querySelectorAll('a')];
    const at = stops.indexOf(document.activeElement);
    const next = { ArrowDown: at + 1, ArrowUp: at - 1, Escape: at > 0 ? 0 : -1 }[event.key];
    if (at < 0 || !stops[next]) return;
    event.preventDefault();
    stops[next].focus();
}

function readAddress() {
    field.value = new URLSearchParams(location.search.replaceAll('+', '%2B')).get('q') ?? '';
    ask();
}

field.addEventListener('input', () => {
    clearTimeout(waiting);
    waiting = setTimeout(ask, pause);
});
form.addEventListener('submit', event => {
    event.preventDefault();
    ask();
});
hints.addEventListener('click', event => {
    if (!event.target.matches('button')) return;
    field.value = event.target.textContent;
    field.focus();
    ask();
});
document.querySelector('main').addEventListener('keydown', move);
readAddress();
