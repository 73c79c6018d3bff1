// Query files in a real browser: the holdings and the guest book, on the demo's pages.
import assert from 'node:assert/strict';
import { after, before, describe, it } from 'node:test';

import { Site, until } from './site.mjs';
import { Visitors, pathOf, signIn, submit } from './visitors.mjs';

const site = new Site();
let visitors;
let reader;

/// The filters take effect a little later: waits until the number of rows found is this.
const waitForTotal = (page, total) => until(`${total} rows`,
    async () => (await page.locator('#count').textContent()).endsWith(` of ${total}`));

const textsOf = (page, column) => page.locator(`#items td:nth-child(${column})`).allTextContents();

/// What the page's own fetch is answered with.
const ask = (page, path, accept) => page.evaluate(async ([path, accept]) => {
    const response = await fetch(path, { headers: { Accept: accept } });
    return { status: response.status, type: response.headers.get('Content-Type'), kept: response.headers.get('Cache-Control'), text: await response.text() };
}, [path, accept]);

describe('holdings', { timeout: 240_000 }, () => {
    before(async () => {
        await site.start();
        visitors = await Visitors.launch(site.url);
        reader = await visitors.enter();
        await signIn(reader.page, 'reader', site.passwordOf('reader'));
    });
    after(async () => {
        await visitors?.close();
        await site.stop();
        site.remove();
    });

    it('are listed by date, and more of them on demand', async () => {
        const { page } = reader;
        await page.goto('/holdings/');
        await waitForTotal(page, '6,296');
        assert.equal(await page.locator('#items tr').count(), 50);
        await page.getByRole('button', { name: 'More' }).click();
        await until('more rows', async () => await page.locator('#items tr').count() === 100);
        const dates = await textsOf(page, 1);
        assert.deepEqual(dates, [...dates].sort());
        assert.equal(dates[0], '1869-05-12');
    });

    it('are filtered by title, kind and date', async () => {
        const { page } = reader;
        await page.goto('/holdings/');
        await page.getByLabel('Kind').selectOption('letter');
        await waitForTotal(page, '624');
        assert.deepEqual(new Set(await textsOf(page, 2)), new Set(['letter']));
        await page.getByLabel('Find in titles').fill('A DEBT OF 5 < 6');
        await waitForTotal(page, '60');
        await page.getByLabel('From').fill('1900-01-01');
        await page.getByLabel('Until').fill('1910-12-31');
        await waitForTotal(page, '6');
        for (const date of await textsOf(page, 1)) assert.ok(date >= '1900-01-01' && date <= '1910-12-31', date);
        for (const title of await textsOf(page, 3)) assert.equal(title, 'On a debt of 5 < 6 shillings');
        for (const [found, total] of [['maps & charts', '60'], ['"Halcyon"', '60'], ["' OR 1=1 --", '0'], ['%', '0'], ['+', '0']]) {
            await page.goto('/holdings/');
            await page.getByLabel('Kind').selectOption('letter');
            await page.getByLabel('Find in titles').fill(found);
            await waitForTotal(page, total);
        }
    });

    it('show one with its picture, and one with what a script says of it', async () => {
        const { page } = reader;
        await page.goto('/holdings/');
        await page.getByLabel('Kind').selectOption('photograph');
        await waitForTotal(page, '270');
        await page.getByRole('button', { name: 'Lighthouse, plate 1', exact: true }).click();
        const image = page.locator('#item img');
        await until('the picture', () => image.evaluate(shown => shown.complete && shown.naturalWidth === 360));
        assert.match(await page.locator('#item').textContent(), /Kept by\s*Merrow Island Archive/);

        // A total eclipse began the week, as only a full moon can have one.
        await page.getByLabel('Kind').selectOption('logbook');
        await page.getByLabel('From').fill('1895-03-11');
        await page.getByLabel('Until').fill('1895-03-11');
        await waitForTotal(page, '1');
        await page.locator('#items button').click();
        await until('the page of the week', async () => (await page.locator('#item').textContent()).includes('1895-03-11'));
        assert.match(await page.locator('#item').textContent(), /That night\s*full moon/);
    });

    it('are a table of the browser’s own when opened as XML', async () => {
        const { page } = reader;
        await page.goto('/holdings/');
        await page.getByLabel('Kind').selectOption('letter');
        await page.getByLabel('Find in titles').fill('maps & charts');
        await waitForTotal(page, '60');
        await page.getByRole('link', { name: 'the same as XML' }).click();
        await page.waitForURL('**/holdings/items?**');
        await page.locator('table tr').nth(50).waitFor();
        const titles = await page.locator('table th').allTextContents();
        assert.deepEqual(titles.slice(0, 4), ['id', 'date', 'kind', 'title']);
        const cells = await page.locator('table tr').nth(1).locator('td').allTextContents();
        assert.equal(cells[3], 'On maps & charts');
    });

    it('come in the form that a request accepts', async () => {
        const { page } = reader;
        await page.goto('/holdings/');
        const json = await ask(page, '/holdings/items?count=2', 'application/json');
        assert.equal(json.type.split(';')[0], 'application/json');
        assert.equal(json.kept, 'no-store');
        assert.equal(JSON.parse(json.text).length, 2);
        assert.match((await ask(page, '/holdings/items?count=2', 'application/xml')).type, /^text\/xml/);
        assert.equal((await ask(page, '/holdings/items', 'text/plain')).status, 415);
        const picture = await ask(page, '/holdings/picture?id=1&Stream=image/png', '*/*');
        assert.equal(picture.type, 'image/png');
        assert.equal(picture.kept, 'max-age=3600');
        for (const none of ['id=99&Stream=image/png', 'id=1&Stream=text/html']) {
            assert.equal((await ask(page, `/holdings/picture?${none}`, '*/*')).status, 404, none);
        }
    });

    it('are for readers only', async () => {
        const { page, context } = await visitors.enter();
        for (const closed of ['/holdings/', '/holdings/items', '/holdings/items.xslt', '/holdings/picture?id=1&Stream=image/png']) {
            await page.goto(closed);
            assert.equal(pathOf(page), '/', closed);
        }
        await context.close();
    });

    it('have a guest book that everybody may sign', async () => {
        const { page, context, faults } = await visitors.enter();
        const sign = async (name, entry) => {
            await page.goto('/guestbook');
            await page.getByLabel('Your name').fill(name);
            await page.getByLabel('What brought you here').fill(entry);
            await page.getByRole('button', { name: 'Sign the guest book' }).click();
            await until('thanks', async () => (await page.locator('#told').textContent()).startsWith('Thank you'));
        };
        const entries = () => page.locator('#entries li p:first-child').allTextContents();
        await page.goto('/guestbook');
        await until('the first entries', async () => (await entries()).length === 2);
        const naughty = ['a + b = 100 %25; "x" & \'y\' \\', '<script>document.title = "taken"</script>', 'ünïcode 日本 😀', 'two\nlines'];
        for (const entry of naughty) await sign('Zoë & <b>Co</b>', entry);
        assert.deepEqual((await entries()).slice(0, 4), [...naughty].reverse());
        assert.match(await page.locator('#entries li').first().textContent(), /Zoë & <b>Co<\/b> · \d{4}-\d\d-\d\d/);
        assert.notEqual(await page.title(), 'taken');

        const before = (await entries()).length;
        const send = body => page.evaluate(body => fetch('/entries', {
            method: 'POST', body, headers: { Accept: 'application/json', 'Content-Type': 'application/x-www-form-urlencoded' },
        }).then(response => response.json()), body);
        assert.equal((await send('name=&entry=')).length, before, 'an empty entry is none');
        assert.equal((await send('')).length, before);
        const [stored] = await send(`name=%01%00x&entry=${'%C3%A9'.repeat(600)}%FF`);
        assert.equal(stored.name, 'x');
        assert.equal(stored.entry, 'é'.repeat(500));
        await page.goto('/entries');
        await page.locator('table td').first().waitFor();
        assert.deepEqual(faults, []);
        await context.close();
    });

    it('have a guest book for those without scripts, too', async () => {
        const { page, context } = await visitors.enter({ javaScriptEnabled: false });
        await page.goto('/guestbook');
        await page.getByLabel('Your name').fill('Quiet & Co');
        await page.getByLabel('What brought you here').fill('No scripts, please');
        await submit(page, page.locator('#sign'));
        assert.equal(pathOf(page), '/entries');
        assert.match(await page.locator('table tr').nth(1).textContent(), /Quiet & Co\s*No scripts, please/);
        await context.close();
    });

    it('find no fault in the pages’ scripts', () => assert.deepEqual(reader.faults, []));
});
