// The holdings: a query file's rows as a table, more of them on demand, and one of them beside it.
'use strict';

const filters = document.getElementById('filters');
const body = document.getElementById('items');
const more = document.getElementById('more');
const panel = document.getElementById('item');
const count = document.getElementById('count');
let asked = 0;

function element(name, text) {
    const made = document.createElement(name);
    if (text !== undefined) made.textContent = text;
    return made;
}

// A blank is sent as %20: in a query file's parameters "+" stands for itself.
function addressOf(file, parameters) {
    const pairs = Object.entries(parameters).filter(([, value]) => value !== '');
    const query = pairs.map(([name, value]) => `${name}=${encodeURIComponent(value)}`).join('&');
    return query ? `/holdings/${file}?${query}` : `/holdings/${file}`;
}

async function rowsOf(file, parameters) {
    const response = await fetch(addressOf(file, parameters), { headers: { Accept: 'application/json' } });
    if (!response.ok) throw new Error(`answered with ${response.status}`);
    return response.json();
}

const facts = item => [
    ['Date', item.date], ['Kind', item.kind], ['By', item.person], ['Place', item.place],
    ['Pages', item.pages || ''], ['Thickness', `${item.millimetres} mm`], ['Shelf', item.shelf],
    ['Digitised', item.digitised ? 'yes' : 'no'], ['That night', item.moon], ['Kept by', item.archive],
].filter(([, value]) => value);

function pictureOf(item) {
    const image = element('img');
    image.src = addressOf('picture', { id: item.picture }) + '&Stream=image/png';
    image.alt = item.title;
    image.width = 360;
    image.height = 240;
    return image;
}

function linkTo(path) {
    const link = element('a', 'Read the document');
    link.href = `/docs/${path.split('/').map(encodeURIComponent).join('/')}`;
    return link;
}

function show(item) {
    const list = element('dl');
    for (const [name, value] of facts(item)) list.append(element('dt', name), element('dd', value));
    panel.replaceChildren(element('h2', item.title), list);
    if (item.picture) panel.prepend(pictureOf(item));
    if (item.document) panel.append(linkTo(item.document));
}

async function open(id, row) {
    for (const other of body.rows) other.removeAttribute('aria-current');
    row.setAttribute('aria-current', 'true');
    try {
        const [item] = await rowsOf('item', { id });
        if (!row.hasAttribute('aria-current')) return;
        show(item);
    } catch (error) {
        panel.replaceChildren(element('p', `It cannot be shown: ${error.message}.`));
    }
    panel.focus({ preventScroll: true });
    panel.scrollIntoView({ block: 'nearest' });
}

function rowOf(item) {
    const row = element('tr');
    const button = element('button', item.title);
    button.type = 'button';
    button.addEventListener('click', () => open(item.id, row));
    const title = element('td');
    title.append(button);
    row.append(element('td', item.date), element('td', item.kind), title, element('td', item.person),
        element('td', item.shelf));
    return row;
}

/// Adds what comes behind the rows that are there; an answer that was overtaken is dropped.
async function list() {
    const number = ++asked;
    const wanted = Object.fromEntries(new FormData(filters));
    try {
        const items = await rowsOf('items', { ...wanted, skip: body.rows.length });
        if (number !== asked) return;
        body.append(...items.map(rowOf));
        const total = items.length > 0 ? items[0].total : body.rows.length;
        count.textContent = `${body.rows.length} of ${total.toLocaleString('en')}`;
        more.hidden = body.rows.length >= total;
    } catch (error) {
        if (number === asked) count.textContent = `The list cannot be shown: ${error.message}.`;
    }
}

function listAnew() {
    body.replaceChildren();
    document.getElementById('as-xml').href = addressOf('items', Object.fromEntries(new FormData(filters)));
    return list();
}

filters.addEventListener('input', listAnew);
filters.addEventListener('submit', event => event.preventDefault());
more.addEventListener('click', list);
listAnew();
