// The search file in a real browser: the demo's documents, found as somebody types.
import assert from 'node:assert/strict';
import { after, before, describe, it } from 'node:test';

import { Site, until } from './site.mjs';
import { Visitors, pathOf, signIn } from './visitors.mjs';

const site = new Site();
let visitors;
let cookies;

/// A reader who is signed in.
const enterReader = options => visitors.enter({ ...options, storageState: cookies });

const titlesOn = page => page.locator('#found a').allTextContents();
const toldOn = page => page.locator('#count').textContent();

/// Types a query over whatever was there, and waits until exactly these documents are shown, in any order.
async function finds(page, query, titles) {
    await page.getByLabel('Words to look for').fill(query);
    const wanted = [...titles].sort().join('\n');
    await until(`${query}: ${titles}`, async () => (await page.locator('#ask').getAttribute('aria-busy')) === 'false' &&
        new URL(page.url()).searchParams.get('q') === query && (await titlesOn(page)).sort().join('\n') === wanted);
}

describe('search', { timeout: 240_000 }, () => {
    before(async () => {
        await site.start();
        visitors = await Visitors.launch(site.url);
        const { page, context } = await visitors.enter();
        await signIn(page, 'reader', site.passwordOf('reader'));
        cookies = await context.storageState();
        // The index is filled behind the start of the service.
        await page.goto('/search/');
        await until('the index', async () => {
            await page.getByLabel('Words to look for').fill('');
            await page.getByLabel('Words to look for').fill('staircase');
            await page.keyboard.press('Enter');
            return page.locator('#found a').first().waitFor({ timeout: 1000 }).then(() => true, () => false);
        });
        await context.close();
    });
    after(async () => {
        await visitors?.close();
        await site.stop();
        site.remove();
    });

    it('finds words of every script, without regard to case and accents', async () => {
        const { page, context, faults } = await enterReader();
        await page.goto('/search/');
        for (const [query, titles] of [
            ['maelle kerbrat embruns', ['1896-08-roch-veur.txt']],
            ['ΣΤΑΦΙΔΕΣ', ['Ευχαριστίες ενός καπετάνιου για τον φάρο']],
            ['ελαιολαδο', ['Ευχαριστίες ενός καπετάνιου για τον φάρο']],
            ['台風', ['1958-11-misaki-light.txt']],
            ['"oil store" puffins', ['1977-seabird-census.txt']],
            ['"store oil" puffins', []],
            ['hydrobat*', ['1977-seabird-census.txt']],
            ['author:Μαυρίκος', ['Ευχαριστίες ενός καπετάνιου για τον φάρο']],
        ]) await finds(page, query, titles);
        assert.deepEqual(faults, []);
        await context.close();
    });

    it('marks the words in the summary, and shows markup as text', async () => {
        const { page, context } = await enterReader();
        await page.goto('/search/?q=台風');
        await until('the word is marked', async () => (await page.locator('#found mark').allTextContents()).join('').includes('台風'));
        const summary = await page.locator('#found .summary').first().textContent();
        assert.doesNotMatch(summary, /[\u2068\u2069]/);
        await page.getByLabel('Words to look for').fill('<img src=x onerror="document.title=1">');
        await until('an answer', async () => (await toldOn(page)).includes('onerror'));
        assert.equal(await page.title(), 'Search');
        assert.equal(await page.locator('main img').count(), 0);
        await context.close();
    });

    it('shows the last query’s documents, however late another answer comes', async () => {
        const { page, context } = await enterReader();
        await page.goto('/search/');
        let release;
        const held = new Promise(resolve => { release = resolve; });
        let isAsked = false;
        await page.route('**/search/find?q=halcyon', async route => {
            isAsked = true;
            await held;
            await route.continue().catch(() => {});
        });
        await page.getByLabel('Words to look for').fill('halcyon');
        await until('the first question', () => isAsked);
        await finds(page, '台風', ['1958-11-misaki-light.txt']);
        release();
        await page.unrouteAll({ behavior: 'wait' });
        assert.deepEqual(await titlesOn(page), ['1958-11-misaki-light.txt']);
        await context.close();
    });

    it('says when nothing is found, when it fails, and offers searches to try', async () => {
        const { page, context } = await enterReader();
        await page.goto('/search/');
        await page.getByRole('button', { name: 'halcyon' }).click();
        await until('documents', async () => (await titlesOn(page)).length > 1);
        assert.match(await toldOn(page), /^\d+ documents$/);
        assert.equal(await page.locator('#hints').isVisible(), false);
        for (const tried of await page.locator('#hints button').allTextContents()) {
            await page.getByLabel('Words to look for').fill('nosuchword');
            await until('nothing', async () => await toldOn(page) === 'Nothing is found for nosuchword');
            await page.locator('#hints').getByRole('button', { name: tried, exact: true }).click();
            await until(`documents for ${tried}`, async () => (await titlesOn(page)).length > 0);
        }
        await finds(page, 'nosuchword', []);
        assert.equal(await toldOn(page), 'Nothing is found for nosuchword');
        assert.equal(await page.locator('#hints').isVisible(), true);
        await page.route('**/search/find?**', route => route.fulfill({ status: 500 }));
        await page.getByLabel('Words to look for').fill('storm');
        await until('the failure', async () => await toldOn(page) === 'The search failed: answered with 500.');
        await context.close();
    });

    it('is used with the keyboard alone, and leads a reader to the document', async () => {
        const { page, context } = await enterReader();
        await page.goto('/search/');
        await page.keyboard.type('台風');
        await page.locator('#found a').first().waitFor();
        await page.keyboard.press('ArrowDown');
        await page.keyboard.press('Escape');
        assert.equal(await page.evaluate(() => document.activeElement.id), 'q');
        await page.keyboard.press('ArrowDown');
        await page.keyboard.press('Enter');
        await page.waitForURL('**/docs/letters/1958-11-misaki-light.txt');
        await page.goBack();
        await until('the same documents', async () => (await titlesOn(page)).length === 1);
        await context.close();
    });

    it('is for readers only', async () => {
        const { page, context } = await visitors.enter();
        for (const closed of ['/search/', '/search/?q=台風', '/search/find?q=台風', '/search/find.xslt', '/search/ask']) {
            await page.goto(closed);
            assert.equal(pathOf(page), '/', closed);
        }
        assert.equal(await page.locator('main a[href^="/search/"]').count(), 0);
        await context.close();
    });

    it('leads back to signing in when the sign-in has ended', async () => {
        const { page, context } = await enterReader();
        await page.goto('/search/');
        await context.clearCookies();
        await page.getByLabel('Words to look for').fill('台風');
        await until('the way', async () => await toldOn(page) === 'You are signed out. Sign in to search.');
        assert.deepEqual(await titlesOn(page), []);
        await page.getByRole('link', { name: 'Sign in' }).click();
        await page.waitForURL('**/account');
        await context.close();
    });

    it('fits a phone', async () => {
        const { page, context } = await enterReader({ viewport: { width: 360, height: 740 } });
        await page.goto('/search/?q=halcyon');
        await page.locator('#found a').first().waitFor();
        assert.ok(await page.evaluate(() => document.documentElement.scrollWidth <= 360));
        await context.close();
    });
});
