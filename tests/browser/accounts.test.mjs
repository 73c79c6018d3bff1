// Accounts in a real browser: passwords, passkeys, areas by level, on the demo's pages.
import assert from 'node:assert/strict';
import { after, before, describe, it } from 'node:test';

import { Site, until } from './site.mjs';
import { Visitors, formWith, headingOf, pathOf, signIn, submit } from './visitors.mjs';

const cookieName = 'MerrowArchive';
const newPassword = 'a new one: 100 % "better" + ümlaut';
const site = new Site();
let visitors;
let reader;
let passkeyDevice;

const cookieOf = async context => (await context.cookies()).find(cookie => cookie.name === cookieName);

async function changePassword(page, present, wanted) {
    await page.goto('/account');
    const form = formWith(page, 'change-password');
    await form.getByLabel('Present password').fill(present);
    await form.locator('[name="newPassword"]').fill(wanted);
    await form.locator('[name="confirmPassword"]').fill(wanted);
    await submit(page, form);
}

/// What a passkey form tells once it is done.
async function submitPasskeyForm(page, id, fields) {
    const form = page.locator(id);
    for (const [name, value] of Object.entries(fields)) await form.locator(`[name="${name}"]`).fill(value);
    await form.getByRole('button').click();
    let told = '';
    await until(`an answer in ${id}`, async () => {
        // Does not wait for the form: the answer may have led to another page, or be about to.
        const texts = await form.getByRole('status').allTextContents().catch(() => ['Waiting']);
        told = texts[0] ?? '';
        return texts.length === 0 || (told !== '' && !told.startsWith('Waiting'));
    });
    return told;
}

const addPasskey = (page, password) => submitPasskeyForm(page, '#passkey-add', { user: 'reader', password, displayName: 'A Reader' });

/// The service takes a new passkey up when it has read its registry again: until then it does not know it.
async function signInWithPasskey(page) {
    await page.goto('/account');
    await until('the passkey to be known', async () => {
        const told = await submitPasskeyForm(page, '#passkey-sign-in', { user: 'reader' });
        assert.ok(told === '' || told.startsWith('You are signed in') || told.startsWith('The service does not know'), told);
        return !told.startsWith('The service does not know');
    });
    await page.waitForURL('**/readers');
}

/// Where a request for `path` ends that carries this cookie alone.
async function endOf(path, cookie) {
    const { context, page } = await visitors.enter();
    if (cookie) await context.addCookies([{ name: cookieName, value: cookie.value, url: site.url }]);
    await page.goto(path);
    const end = pathOf(page);
    await context.close();
    return end;
}

describe('accounts', { timeout: 240_000 }, () => {
    before(async () => {
        await site.start();
        visitors = await Visitors.launch(site.url);
        reader = await visitors.enter();
        passkeyDevice = await reader.context.newCDPSession(reader.page);
        await passkeyDevice.send('WebAuthn.enable');
        ({ authenticatorId: passkeyDevice.id } = await passkeyDevice.send('WebAuthn.addVirtualAuthenticator', {
            options: {
                protocol: 'ctap2', transport: 'internal', hasResidentKey: true, hasUserVerification: true,
                isUserVerified: true, automaticPresenceSimulation: true,
            },
        }));
    });
    after(async () => {
        await visitors?.close();
        await site.stop();
        site.remove();
    });

    it('send strangers from everything but the hall back to it', async () => {
        const { page, context, faults } = await visitors.enter();
        for (const open of ['/about', '/guestbook', '/notice', '/account']) {
            await page.goto(open);
            assert.equal(pathOf(page), open);
        }
        for (const closed of ['/readers', '/reading/', '/gallery/', '/docs/catalogue.json', '/console', '/password-changed']) {
            await page.goto(closed);
            assert.equal(pathOf(page), '/', closed);
            assert.match(await headingOf(page), /papers of one small island/);
        }
        assert.deepEqual(faults, []);
        await context.close();
    });

    it('say that a password is wrong, and set no cookie', async () => {
        const { page } = reader;
        for (const [user, password] of [['reader', 'wrong'], ['nobody', site.passwordOf('reader')]]) {
            await signIn(page, user, password);
            assert.equal(pathOf(page), '/sign-in-failed');
            assert.match(await page.getByRole('alert').textContent(), /name or the password is wrong/);
            assert.equal(await cookieOf(reader.context), undefined);
        }
    });

    it('open the readers’ area, and not the administrators’, with a password', async () => {
        const { page, context } = reader;
        await signIn(page, 'reader', site.passwordOf('reader'));
        assert.equal(pathOf(page), '/readers');
        const cookie = await cookieOf(context);
        assert.equal(cookie.httpOnly, true);
        assert.equal(cookie.expires, -1);
        await page.goto('/reading/');
        await page.locator('#shelf li').first().waitFor();
        await page.goto('/console');
        assert.equal(pathOf(page), '/');
        assert.doesNotMatch(await headingOf(page), /console/);
    });

    it('add a passkey to whoever knows the password', async () => {
        const { page } = reader;
        await page.goto('/account');
        assert.equal(await page.locator('#passkey-add [name="user"]').inputValue(), 'reader', 'the name is kept');
        assert.match(await addPasskey(page, 'wrong'), /password is wrong/);
        assert.match(await addPasskey(page, site.passwordOf('reader')), /passkey is added/);
        const { credentials } = await passkeyDevice.send('WebAuthn.getCredentials', { authenticatorId: passkeyDevice.id });
        assert.equal(credentials.length, 1);
        assert.match(await addPasskey(page, site.passwordOf('reader')), /holds a passkey of this account already/);
    });

    it('sign out', async () => {
        const { page, context } = reader;
        await page.goto('/account');
        await submit(page, formWith(page, 'logout'));
        assert.equal(pathOf(page), '/signed-out');
        assert.equal(await cookieOf(context), undefined);
        await page.goto('/readers');
        assert.equal(pathOf(page), '/');
    });

    it('sign in with the passkey', async () => {
        const { page, context } = reader;
        await page.goto('/account');
        assert.match(await submitPasskeyForm(page, '#passkey-sign-in', { user: 'nobody' }), /no account of this name/);
        assert.match(await submitPasskeyForm(page, '#passkey-sign-in', { user: 'keeper' }), /no passkey yet/);
        await signInWithPasskey(page);
        assert.match(await headingOf(page), /Readers/);
        assert.ok(await cookieOf(context));
    });

    it('say so when the device gives no passkey', async () => {
        const { page, context } = await visitors.enter();
        const device = await context.newCDPSession(page);
        await device.send('WebAuthn.enable');
        await device.send('WebAuthn.addVirtualAuthenticator',
            { options: { protocol: 'ctap2', transport: 'internal', hasUserVerification: true, isUserVerified: false } });
        await page.goto('/account');
        assert.match(await submitPasskeyForm(page, '#passkey-sign-in', { user: 'reader' }), /Your device gave no passkey/);
        await context.close();
    });

    it('change the password, and end every sign-in that was made before', async () => {
        const { page, context } = reader;
        const before = await cookieOf(context);
        assert.equal(await endOf('/readers', before), '/readers');
        await changePassword(page, 'wrong', newPassword);
        assert.equal(pathOf(page), '/password-not-changed');
        assert.match(await page.getByRole('alert').textContent(), /was not changed/);
        assert.equal(await endOf('/readers', before), '/readers');

        await changePassword(page, site.passwordOf('reader'), newPassword);
        assert.equal(pathOf(page), '/password-changed');
        const now = await cookieOf(context);
        assert.notEqual(now.value, before.value);
        assert.equal(await endOf('/readers', before), '/', 'the old cookie is dead');
        assert.equal(await endOf('/readers', now), '/readers');

        const other = await visitors.enter();
        await signIn(other.page, 'reader', site.passwordOf('reader'));
        assert.equal(pathOf(other.page), '/sign-in-failed');
        await signIn(other.page, 'reader', newPassword);
        assert.equal(pathOf(other.page), '/readers');
        await other.context.close();
    });

    it('open the administrators’ area to an administrator, who sets a reader’s password', async () => {
        const { page, context, faults } = await visitors.enter();
        await signIn(page, 'keeper', site.passwordOf('keeper'));
        assert.equal(pathOf(page), '/readers');
        await page.goto('/console');
        assert.equal(pathOf(page), '/console');
        assert.match(await headingOf(page), /console/);

        const setPassword = async user => {
            await page.goto('/console');
            await page.getByLabel('Their name').fill(user);
            await page.locator('[name="newPassword"]').fill('for a reader who lost it');
            await page.locator('[name="confirmPassword"]').fill('for a reader who lost it');
            await submit(page, formWith(page, 'change-password'));
            return pathOf(page);
        };
        assert.equal(await setPassword('nobody'), '/password-not-set');
        assert.equal(await setPassword('reader'), '/password-set');
        assert.equal(await endOf('/readers', await cookieOf(reader.context)), '/');
        assert.deepEqual(faults, []);
        await context.close();
    });

    it('work without scripts, but for passkeys, which the pages tell', async () => {
        const { page, context } = await visitors.enter({ javaScriptEnabled: false });
        await page.goto('/account');
        assert.equal(await page.locator('#passkey-sign-in').isVisible(), false);
        assert.equal(await page.locator('noscript .told').isVisible(), true);
        await signIn(page, 'reader', 'for a reader who lost it');
        assert.equal(pathOf(page), '/readers');
        await page.goto('/account');
        assert.equal(await page.locator('noscript .told').isVisible(), true);
        await context.close();
    });

    it('keep passwords, passkeys and who wants to stay signed in over a restart', async () => {
        const { page, context } = await visitors.enter();
        await signIn(page, 'reader', 'for a reader who lost it');
        const session = await cookieOf(context);
        await context.clearCookies();
        await signIn(page, 'reader', 'for a reader who lost it', true);
        const kept = await cookieOf(context);
        assert.equal(await site.stop(), 0);
        await site.start();
        assert.equal(await endOf('/readers', session), '/');
        assert.equal(await endOf('/readers', kept), '/readers');
        await signInWithPasskey(reader.page);
        await context.close();
    });

    it('find no fault in the pages’ scripts', () => assert.deepEqual(reader.faults, []));
});
