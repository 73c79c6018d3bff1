// The reading room: the catalogue as a list, and one document of it on the desk.
'use strict';

const shelf = document.getElementById('shelf');
const desk = document.getElementById('desk');
const filters = ['find', 'kind', 'language'].map(id => document.getElementById(id));
const [find, kind, language] = filters;
const languageNames = new Intl.DisplayNames(['en'], { type: 'language' });
const framed = ['html', 'pdf'];
const tabular = ['csv', 'json', 'xml'];
let catalogue = [];
let opened = '';

const addressOf = entry => `/docs/${entry.path}`;
const extensionOf = entry => entry.path.slice(entry.path.lastIndexOf('.') + 1);
const details = entry => `${entry.date} · ${entry.kind} · ${languageNames.of(entry.language)}`;

function element(name, text) {
    const made = document.createElement(name);
    if (text !== undefined) made.textContent = text;
    return made;
}

async function textOf(entry) {
    const response = await fetch(addressOf(entry));
    if (!response.ok) throw new Error(`answered with ${response.status}`);
    return response.text();
}

function frameOf(entry) {
    const frame = element('iframe');
    frame.src = addressOf(entry);
    frame.title = entry.title;
    return frame;
}

async function sheetOf(entry) {
    if (framed.includes(extensionOf(entry))) return frameOf(entry);
    const sheet = element('pre');
    sheet.lang = entry.language;
    sheet.tabIndex = 0;
    if (tabular.includes(extensionOf(entry))) sheet.className = 'table';
    try {
        sheet.textContent = await textOf(entry);
    } catch (error) {
        sheet.textContent = `This document cannot be read: ${error.message}.`;
    }
    return sheet;
}

async function open(entry) {
    opened = entry.path;
    list();
    const sheet = await sheetOf(entry);
    if (opened !== entry.path) return;
    const header = element('header');
    const link = element('a', `.${extensionOf(entry)} file`);
    link.href = addressOf(entry);
    header.append(element('h2', entry.title), link, element('p', details(entry)));
    desk.replaceChildren(header, sheet);
}

function matches(entry) {
    return (!kind.value || entry.kind === kind.value) && (!language.value || entry.language === language.value) &&
        entry.title.toLowerCase().includes(find.value.trim().toLowerCase());
}

function itemOf(entry) {
    const button = element('button');
    button.type = 'button';
    if (entry.path === opened) button.setAttribute('aria-current', 'true');
    button.append(element('strong', entry.title), element('span', details(entry)));
    button.addEventListener('click', async () => {
        await open(entry);
        desk.focus({ preventScroll: true });
        desk.scrollIntoView({ block: 'nearest' });
    });
    const item = element('li');
    item.append(button);
    return item;
}

function list() {
    const shown = catalogue.filter(matches);
    const place = shelf.scrollTop;
    shelf.replaceChildren(...shown.map(itemOf));
    shelf.scrollTop = place;
    document.getElementById('count').textContent = `${shown.length} of ${catalogue.length} documents`;
}

function offer(select, values, nameOf) {
    for (const value of [...new Set(values)].sort((a, b) => nameOf(a).localeCompare(nameOf(b)))) {
        select.append(new Option(nameOf(value), value));
    }
}

async function start() {
    try {
        const response = await fetch('/docs/catalogue.json');
        if (!response.ok) throw new Error(`answered with ${response.status}`);
        catalogue = await response.json();
    } catch (error) {
        desk.replaceChildren(element('p', `The catalogue cannot be read: ${error.message}.`));
        return;
    }
    offer(kind, catalogue.map(entry => entry.kind), value => value);
    offer(language, catalogue.map(entry => entry.language), value => languageNames.of(value));
    for (const filter of filters) filter.addEventListener('input', list);
    await open(catalogue[1]);
}

start();
