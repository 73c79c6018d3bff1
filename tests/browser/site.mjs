// The demo site, served by the built program from a root folder of its own.
import { execFileSync, spawn } from 'node:child_process';
import { mkdtempSync, readFileSync, rmSync } from 'node:fs';
import { createServer, connect } from 'node:net';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

const sources = fileURLToPath(new URL('../..', import.meta.url));
const programs = process.env.QUORBEL_PROGRAMS;
const longEnough = 60_000;

async function freePort() {
    const server = createServer();
    await new Promise(resolve => server.listen(0, '127.0.0.1', resolve));
    const { port } = server.address();
    await new Promise(resolve => server.close(resolve));
    return port;
}

const answers = port => new Promise(resolve => {
    const socket = connect(port, '127.0.0.1');
    socket.on('connect', () => { socket.destroy(); resolve(true); });
    socket.on('error', () => resolve(false));
});

/// Calls `condition` until it holds; throws when it does not for too long.
export async function until(what, condition) {
    const end = Date.now() + longEnough;
    while (!await condition()) {
        if (Date.now() > end) throw new Error(`in vain waited for: ${what}`);
        await new Promise(resolve => setTimeout(resolve, 50));
    }
}

export class Site {
    #root = mkdtempSync(path.join(tmpdir(), 'quorbel-browser-'));
    #port;
    #service;
    #said = '';

    get url() { return `http://localhost:${this.#port}`; }

    /// Prepares the root, as every start of the demo does, and starts the service.
    async start() {
        this.#port ??= await freePort();
        execFileSync(path.join(sources, 'demo/prepare'), [programs, this.#root, String(this.#port)]);
        this.#service = spawn(path.join(programs, 'QBHTTPService'), ['-debug'],
            { env: { ...process.env, QUORBEL_ROOT: this.#root }, stdio: ['ignore', 'pipe', 'pipe'] });
        for (const stream of [this.#service.stdout, this.#service.stderr]) stream.on('data', data => { this.#said += data; });
        await until('the service', () => {
            if (this.#service.exitCode !== null) throw new Error(`the service ended:\n${this.#said}`);
            return answers(this.#port);
        });
    }
    /// Returns the exit code; null when a signal ended the service, or it was never started.
    async stop() {
        if (!this.#service) return null;
        if (this.#service.exitCode === null && this.#service.signalCode === null) {
            const ended = new Promise(resolve => this.#service.once('exit', resolve));
            this.#service.kill('SIGTERM');
            await ended;
        }
        return this.#service.exitCode;
    }
    remove() { rmSync(this.#root, { recursive: true, force: true }); }

    passwordOf(name) {
        const line = readFileSync(path.join(this.#root, 'accounts'), 'utf8').split('\n').find(line => line.startsWith(`${name} `));
        return line.slice(name.length + 1);
    }
}
