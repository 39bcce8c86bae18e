// Nothing is sent anywhere: during a whole session the page is the only thing that the browser asks anybody for. All
// that it wants of the network goes to a server of this test, which counts it.

import assert from 'node:assert/strict';
import { createServer } from 'node:net';
import { test } from 'node:test';
import { deflateRawSync } from 'node:zlib';
import { openTab, servePage, startBrowser, until } from './browser.mjs';

const TEXT =
    '![picture](https://example.org/x.png) [link](https://example.org/) <img src="http://example.org/y.png">';

test('a session', async () => {
    const wanted = [];
    const proxy = createServer((socket) => {
        socket.on('error', () => undefined);
        socket.once('data', (data) => {
            wanted.push(String(data).split('\r\n', 1)[0]);
            socket.destroy();
        });
    });
    await new Promise((resolve) => proxy.listen(0, '127.0.0.1', resolve));
    const server = await servePage();
    const rules = `--proxy-bypass-list=<-loopback>;${new URL(server.url).host}`;
    const browser = await startBrowser('chrome', `--proxy-server=127.0.0.1:${proxy.address().port}`, rules);
    try {
        const given = {
            version: 1,
            name: 'given',
            files: { 'main.k': '\thalt\n' },
            main: 'main.k',
            text: TEXT,
        };
        const link = `#program=${deflateRawSync(JSON.stringify(given)).toString('base64url')}`;
        const tab = await openTab(browser, server.url + link);
        await until(/^No faults/, tab.status);
        await until(/picture/, () => tab.text('.task'));
        await tab.run();
        await tab.press('Share');
        await until(/link/, () => tab.text('dialog'));
        await tab.press('Close');
        await tab.open('sd_notes.k');
        await tab.run(/for a card/);
        await tab.press('New empty card');
        await until(/^Halted/, tab.message);
        await tab.page.reload();
        await until('sd_notes', () => tab.page.$eval('.program-name', (input) => input.value));
        assert.deepEqual(tab.errors, []);
        // The test would see it: a tab that wants something is counted.
        const before = wanted.filter((line) => !/google|gvt1/.test(line));
        const other = await browser.newPage();
        await other.goto('http://example.org/').catch(() => undefined);
        await until(true, () => wanted.some((line) => line.includes('example.org')));
        assert.deepEqual(before, []);
        assert.deepEqual(server.asked.filter((path) => path !== '/').length, 0, server.asked.join(' '));
    } finally {
        await browser.close();
        server.close();
        proxy.close();
    }
});
