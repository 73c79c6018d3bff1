// The guest book: its entries, and a form that adds one without leaving the page.
'use strict';

const form = document.getElementById('sign');
const told = document.getElementById('told');

function element(name, text) {
    const made = document.createElement(name);
    made.textContent = text;
    return made;
}

function entryOf({ time, name, entry }) {
    const item = document.createElement('li');
    item.append(element('p', entry), element('p', `${name} · ${time}`));
    return item;
}

/// Shows what a request for the entries is answered with.
async function show(options = {}) {
    const response = await fetch('/entries', { ...options, headers: { Accept: 'application/json' } });
    if (!response.ok) throw new Error(`answered with ${response.status}`);
    document.getElementById('entries').replaceChildren(...(await response.json()).map(entryOf));
}

async function tell(work, success, failure) {
    try {
        await work;
        told.className = 'told';
        told.textContent = success;
    } catch (error) {
        told.className = 'told refused';
        told.textContent = `${failure}: ${error.message}.`;
    }
}

form.addEventListener('submit', async event => {
    event.preventDefault();
    const sent = show({ method: 'POST', body: new URLSearchParams(new FormData(form)) });
    await tell(sent, 'Thank you. Your entry is in the book.', 'Your entry could not be written');
    if (!told.classList.contains('refused')) form.reset();
});

tell(show(), '', 'The entries cannot be shown');
