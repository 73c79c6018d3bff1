// People in a real browser, and what they do on the demo's pages.
import { createRequire } from 'node:module';

const { chromium } = createRequire(`${process.env.QUORBEL_MODULES}/`)('playwright-core');

export class Visitors {
    #browser;
    #url;

    static async launch(url) {
        const asRoot = process.getuid() === 0;
        const visitors = new Visitors();
        visitors.#url = url;
        visitors.#browser = await chromium.launch({
            executablePath: '/usr/bin/chromium',
            headless: true,
            chromiumSandbox: !asRoot,
            args: ['--disable-gpu', '--disable-quic', '--no-first-run', '--disable-background-networking',
                '--disable-component-update', '--disable-sync'],
        });
        return visitors;
    }
    close() { return this.#browser.close(); }

    /// One person's browser: its page, and what went wrong in it.
    async enter(options = {}) {
        const context = await this.#browser.newContext({ baseURL: this.#url, ...options });
        const page = await context.newPage();
        const faults = [];
        page.on('pageerror', error => faults.push(error));
        return { context, page, faults };
    }
}

export const pathOf = page => new URL(page.url()).pathname;
export const headingOf = page => page.locator('h1').textContent();
export const formWith = (page, action) => page.locator(`form:has(input[name="action"][value="${action}"])`);

/// Presses the form's button and waits for the page that answers.
export async function submit(page, form) {
    const before = page.url();
    await form.getByRole('button').click();
    await page.waitForURL(url => url.href !== before);
}

export async function signIn(page, user, password, remember = false) {
    await page.goto('/account');
    const form = formWith(page, 'sign-in');
    await form.getByLabel('Name').fill(user);
    await form.getByLabel('Password').fill(password);
    if (remember) await form.getByLabel('Keep me signed in').check();
    await submit(page, form);
}
