// The gallery: one plate a drawing, and a dialog that shows one of them large.
'use strict';

const viewer = document.getElementById('viewer');
let plates = [];
let current = 0;

const addressOf = plate => `/docs/photos/${plate.name}.svg`;

function open(index) {
    current = (index + plates.length) % plates.length;
    const plate = plates[current];
    const image = document.getElementById('viewer-image');
    image.src = addressOf(plate);
    image.alt = plate.title;
    document.getElementById('viewer-title').textContent = plate.title;
    document.getElementById('viewer-text').textContent = plate.text;
    if (!viewer.open) viewer.showModal();
}

function makePlate(plate, index) {
    const button = document.createElement('button');
    button.type = 'button';
    button.className = 'plate';
    const image = document.createElement('img');
    image.src = addressOf(plate);
    image.alt = '';
    image.width = 1200;
    image.height = 800;
    const title = document.createElement('span');
    title.textContent = plate.title;
    button.append(image, title);
    button.addEventListener('click', () => open(index));
    return button;
}

document.getElementById('previous').addEventListener('click', () => open(current - 1));
document.getElementById('next').addEventListener('click', () => open(current + 1));
document.getElementById('close').addEventListener('click', () => viewer.close());
viewer.addEventListener('keydown', event => {
    if (event.key === 'ArrowLeft') open(current - 1);
    if (event.key === 'ArrowRight') open(current + 1);
});

async function start() {
    const list = document.getElementById('plates');
    try {
        const response = await fetch('/gallery/plates');
        if (!response.ok) throw new Error(`the list of drawings was answered with ${response.status}`);
        plates = await response.json();
        list.replaceChildren(...plates.map(makePlate));
    } catch (error) {
        list.textContent = `The drawings cannot be shown: ${error.message}.`;
    }
}

start();
